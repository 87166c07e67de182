// State that threads may still reach while the process goes down. Exit handlers run while other threads, and other
// libraries' handlers, go on calling; a static that is destroyed under them is a crash at exit. So process-wide state
// lives in storage that nobody destroys, and a flag says whether it may still be used.
#ifndef CERTKERN_PLATFORM_NEVER_DESTROYED_H
#define CERTKERN_PLATFORM_NEVER_DESTROYED_H

#include <atomic>
#include <cassert>
#include <cstddef>
#include <new>
#include <utility>

namespace certkern {

// Declare it constinit at namespace scope; start-up calls create(), the exit handler retire(). Before the one and
// after the other get() answers null, which the user treats as "nothing is there". The object itself stays whole: a
// thread that got the pointer just before retire() goes on safely.
template <class T>
class NeverDestroyed {
 public:
  constexpr NeverDestroyed() = default;
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;

  // Once, at start-up. A library that is unloaded and loaded again starts from fresh storage.
  template <class... Args>
  void create(Args&&... args) {
    assert(!object_.load(std::memory_order_relaxed));
    object_.store(::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...),
                  std::memory_order_release);
  }
  void retire() noexcept { object_.store(nullptr, std::memory_order_release); }

  // Null unless the object is alive. Ask once and keep the pointer for the length of the operation.
  T* get() noexcept { return object_.load(std::memory_order_acquire); }

 private:
  alignas(T) std::byte storage_[sizeof(T)]{};
  std::atomic<T*> object_{
      nullptr};  // address and flag in one, so that no reader sees the one without the other
};

}  // namespace certkern

#endif
