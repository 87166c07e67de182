// CertSaveStore: the contents of a store, written elsewhere.
#ifndef CERTKERN_STORE_PERSISTENT_SAVE_H
#define CERTKERN_STORE_PERSISTENT_SAVE_H

#include <certkern/store.h>

#include "store/store_record.h"

namespace certkern {

// The target is not null. The image is complete before a file is touched, so that what is there stays when there is no
// memory. False with ERROR_INVALID_PARAMETER for an unknown target, ERROR_MORE_DATA, ERROR_LOCK_FAILED,
// ERROR_NO_UNICODE_TRANSLATION, the codes of file.h and, when a message is written, those of the message functions.
[[nodiscard]] bool SaveStore(CertStore& store, DWORD saveAs, DWORD saveTo, void* target);

}  // namespace certkern

#endif
