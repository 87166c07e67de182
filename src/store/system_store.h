// System stores: opened by a name, and for the user a collection of his file and the machine's.
#ifndef CERTKERN_STORE_SYSTEM_STORE_H
#define CERTKERN_STORE_SYSTEM_STORE_H

#include "store/store_kind.h"

namespace certkern {

// Rows of the table of providers; `parameter` is the store's name, narrow (UTF-8) or wide. The wide registry store is
// the one that has a kind: a file of one location.
StoreHandle OpenSystemStoreA(const OpenRequest& request);
StoreHandle OpenSystemStoreW(const OpenRequest& request);
StoreHandle OpenRegistryStoreA(const OpenRequest& request);
StoreHandle OpenRegistryStoreW(const OpenRequest& request);

// CertOpenSystemStore, with the provider that a name of that width takes.
StoreHandle OpenUserStore(LPCSTR provider, HCRYPTPROV cryptProvider, const void* name);

// CertAddEncodedCertificateToSystemStore. True only when the store could be closed, and so saved, as well.
[[nodiscard]] bool AddToUserStore(LPCSTR provider, const void* name, std::span<const BYTE> encoded);

}  // namespace certkern

#endif
