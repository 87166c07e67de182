// How the changes of a store come into its file: what they are applied to, and what is written for it.
#ifndef CERTKERN_STORE_PERSISTENT_COMMIT_H
#define CERTKERN_STORE_PERSISTENT_COMMIT_H

#include "store/store_file.h"
#include "store/store_record.h"

namespace certkern {

// Applies what the store has changed since it last read or wrote its file to what the file of its path holds by now. A file
// that has come in the place of the store's is the store's from then on; one that is gone is made again, empty, unless the
// store was to be opened only where there is one. The caller holds `writing`. False with ERROR_LOCK_FAILED,
// ERROR_FILE_NOT_FOUND, ERROR_NOT_ENOUGH_MEMORY, or the codes of StoreContent::take and CommitStoreFile; the changes stay
// the store's to commit.
[[nodiscard]] bool CommitToPath(CertStore& store);

// Another file has come in the place of the store's: a commit to the old one would be lost.
void GoOverTo(CertStore& store, FileStream stream);

}  // namespace certkern

#endif
