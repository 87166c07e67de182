// Collections: which stores they are made of. They have no elements of their own, and no collection is a member of
// another.
#ifndef CERTKERN_STORE_COLLECTION_H
#define CERTKERN_STORE_COLLECTION_H

#include "store/store_record.h"

namespace certkern {

// CertAddStoreToCollection; false with a code. Throws std::bad_alloc, and nothing was added then.
[[nodiscard]] bool AddStoreToCollection(CertStore& collection, CertStore& sibling, DWORD updateFlags,
                                        DWORD priority);

// CertRemoveStoreFromCollection. False with E_INVALIDARG when it is no collection; what is no member is ignored.
[[nodiscard]] bool RemoveStoreFromCollection(CertStore& collection, CertStore& sibling);

}  // namespace certkern

#endif
