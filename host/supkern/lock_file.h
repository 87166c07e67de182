// The files that named mutexes lock.
#ifndef CERTKERN_SUPKERN_LOCK_FILE_H
#define CERTKERN_SUPKERN_LOCK_FILE_H

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/limits.h"
#include "supkern/descriptor.h"

namespace certkern::support {

// The path of the lock file of a mutex; an errno value, with path untouched, for a name that is empty, too
// long or has separators or control characters, or when the lock directory cannot be had or trusted. A name
// that is too long for a file name is shortened and made distinct by a hash of the whole.
int LockFilePath(std::string_view name, std::string& path);

// Waits for the lock on the file, which is made when it is missing and never removed: while a process waits
// on one that was removed, others would lock the next. The lock ends with the last descriptor of this open,
// so at the latest with the process. An errno value on failure.
int LockFile(const std::string& path, Descriptor& locked);

}  // namespace certkern::support

#endif
