// Adding objects to stores and taking them out again, with all that decides whether and where.
#ifndef CERTKERN_STORE_ELEMENT_ADDITION_H
#define CERTKERN_STORE_ELEMENT_ADDITION_H

#include <certkern/store.h>

#include <atomic>

#include "store/context_record.h"
#include "store/store_record.h"

namespace certkern {

// CertAdd...ContextToStore and CertAdd...LinkToStore, for either type. `source` is live, `store` may be null; `out` may
// be null and receives a context of the store's own, null on failure. False with a code.
bool AddContext(CertStore* store, ContextRecord& source, DWORD disposition, ContextRecord** out);
bool AddLink(CertStore* store, ContextRecord& source, DWORD disposition, ContextRecord** out);

// CertDelete...FromStore: frees the context whenever it has a store. False with a code.
bool DeleteContext(ContextRecord* context);

// For loading and resynchronising: puts a copy of an element with its properties at the head of a plain store and marks
// the store as changed. Asks nobody and looks neither at what is there nor at read-only.
[[nodiscard]] bool AddElementInternally(CertStore& store, const StoreElement& source);

// Takes an element out of the store's list if it is still there, and marks the store as changed. Takes the lock.
void DeleteElementInternally(CertStore& store, StoreElement& element) noexcept;

// Asks the user whether a certificate may be added to his own store of trusted roots: ConfirmRootAdd, unless a test has
// put somebody else there. Null, and any failure to ask, is a no.
using RootConfirmation = bool (*)(PCCERT_CONTEXT certificate);
extern constinit std::atomic<RootConfirmation> confirmRootAdd;

}  // namespace certkern

#endif
