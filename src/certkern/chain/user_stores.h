// The user's stores "Root" and "CA" as chain builds read them: opened once in the process, and brought up to date for each
// build. Files that are provably those that were read cost a build three system calls each; nothing is locked.
#ifndef CERTKERN_CERTKERN_CHAIN_USER_STORES_H
#define CERTKERN_CERTKERN_CHAIN_USER_STORES_H

#include <certkern/store.h>

#include "platform/owner.h"

namespace certkern {

using StoreOwner = Owner<HCERTSTORE, CertCloseStore>;

enum class UserStoreName { Root, Authorities };

// One of the two, to be read, with what its files hold now: what another process has written is seen, and where a newly
// opened store would fail this one does. Shared with all builds of the process. Empty with a code, which
// is ERROR_FILE_NOT_FOUND when there is no such store. Throws std::bad_alloc.
StoreOwner UserStore(UserStoreName name);

}  // namespace certkern

#endif
