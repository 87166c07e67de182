// Key blobs: what CryptExportKey writes and CryptImportKey reads. Their layouts stand in <certkern/keykern.h>.
//
// A blob comes from anywhere: it is read through one cursor, and every length is checked before it is used.
#ifndef CERTKERN_KEYKERN_KEY_BLOB_H
#define CERTKERN_KEYKERN_KEY_BLOB_H

#include "keykern/key_object.h"
#include "keykern/provider.h"

#include <span>

namespace keykern {

// wrapping: null for none. NTE_BAD_TYPE: no such form of this key; NTE_BAD_KEY_STATE: not exportable; NTE_BAD_KEY: the
// wrapping key does not wrap that way.
DWORD ExportKey(KeyObject& key, KeyObject* wrapping, DWORD type, DWORD flags, SecretBytes& blob);

// wrapping: null for none; for PUBLICKEYBLOB the private key of an agreement. NTE_BAD_DATA: malformed; NTE_BAD_TYPE: no
// such type; NTE_BAD_VER; NTE_BAD_ALGID; NTE_BAD_KEY, NTE_BAD_PUBLIC_KEY: not a key; those of the key set.
DWORD ImportKey(const Pinned<Provider>& provider, std::span<const BYTE> blob, KeyObject* wrapping,
                DWORD flags, std::unique_ptr<KeyObject>& key);

// Which of a container's two keys an identifier means: 0 for what no container keeps.
DWORD SpecOf(ALG_ID algorithm);

}  // namespace keykern

#endif
