// Opening blob files on systems where an open may be interrupted: network file systems answer EINTR and EAGAIN for a
// while before they answer well.
#ifndef CERTKERN_PLATFORM_RETRYING_OPEN_H
#define CERTKERN_PLATFORM_RETRYING_OPEN_H

#include <cstdint>
#include <cstdio>

#include "platform/file.h"

namespace certkern {

// Opens with the caller's effective ids. EINTR, EAGAIN and EINPROGRESS are tried again up to 32768 times: at once for
// the first 127, then every 4 ms with all signals blocked, a little over two minutes in all. Null is a failure that errno
// tells; the reason is in the system log. The last error is left alone.
[[nodiscard]] std::FILE* support_an_fopen(const char* path, const char* mode);

// The reader's and the writer's way in; a writer empties an existing file.
[[nodiscard]] FileStream OpenBlobForReading(const char* path);
[[nodiscard]] FileStream OpenBlobForWriting(const char* path);

// What the loop asks of the system.
struct RetryingOpenSystem {
  std::FILE* (*open)(const char* path, const char* mode);
  void (*yield)();
  void (*sleepMilliseconds)(uint32_t milliseconds);
  void (*log)(int priority, const char* text);
};
[[nodiscard]] std::FILE* RetryingOpen(const RetryingOpenSystem& system, const char* path, const char* mode);

}  // namespace certkern

#endif
