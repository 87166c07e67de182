// A pointer that each thread has its own of.
#ifndef CERTKERN_PLATFORM_THREAD_SLOT_H
#define CERTKERN_PLATFORM_THREAD_SLOT_H

#include <certkern/types.h>

#include <atomic>

#include "platform/supkern.h"

namespace certkern {

// Declare it constinit at namespace scope; start-up calls create(), the exit handler destroy(). The slot owns nothing
// that is put into it. While it does not exist, get() answers null and set() FALSE.
class ThreadSlot {
 public:
  constexpr ThreadSlot() = default;
  ThreadSlot(const ThreadSlot&) = delete;
  ThreadSlot& operator=(const ThreadSlot&) = delete;

  void create();
  void destroy();
  void* get() const;
  BOOL set(const void* value);

 private:
  std::atomic<support_tskey*> key_{nullptr};
};

}  // namespace certkern

#endif
