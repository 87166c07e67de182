// Owners: each handle that must be given back has one from the line it is born, and giving it back never disturbs the
// thread's last error. An owner is moved, not copied; release() hands the handle to somebody else.
#ifndef CERTKERN_PLATFORM_OWNER_H
#define CERTKERN_PLATFORM_OWNER_H

#include <certkern/keykern.h>
#include <certkern/types.h>

#include <cstdlib>
#include <type_traits>
#include <utility>

namespace certkern {

// Puts the thread's last error back as it was when the keeper was made. For clean-up, and for whatever runs between a
// failure and the return that reports it.
class LastErrorKeeper {
 public:
  LastErrorKeeper() : code_(GetLastError()) {}
  ~LastErrorKeeper() { SetLastError(code_); }
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;
  DWORD code() const { return code_; }

 private:
  const DWORD code_;
};

// Owns one handle; Handle{} means "none". Free is the published function that gives it back; what it takes beyond the
// handle (flags, as in CertCloseStore or CryptReleaseContext) is zero. Its result is not asked for: nobody can act on
// a failed clean-up. For memory that goes back to free() there is MallocOwner below.
template <class Handle, auto Free>
class Owner {
 public:
  constexpr Owner() = default;
  explicit Owner(Handle handle) : handle_(handle) {}
  Owner(Owner&& other) noexcept : handle_(other.release()) {}
  Owner& operator=(Owner&& other) noexcept {
    reset(other.release());
    return *this;
  }
  Owner(const Owner&) = delete;
  Owner& operator=(const Owner&) = delete;
  ~Owner() { reset(); }

  Handle get() const { return handle_; }
  explicit operator bool() const { return handle_ != Handle{}; }
  Handle operator->() const requires std::is_pointer_v<Handle> { return handle_; }

  // The owner forgets the handle, and the receiver gives it back.
  [[nodiscard]] Handle release() noexcept { return std::exchange(handle_, Handle{}); }

  // The new handle stands before the old one goes, so that a Free that looks at this owner sees no dead handle.
  void reset(Handle handle = Handle{}) noexcept {
    const Handle old = std::exchange(handle_, handle);
    if (old == Handle{} || old == handle) return;
    const LastErrorKeeper keeper;
    if constexpr (requires { Free(old); }) {
      static_cast<void>(Free(old));
    } else {
      static_cast<void>(Free(old, 0));
    }
  }

  // For functions that write a fresh handle through a pointer; what was owned before is given back first.
  [[nodiscard]] Handle* out() noexcept {
    reset();
    return &handle_;
  }

 private:
  Handle handle_{};
};

// Memory from malloc, calloc or realloc.
template <class T>
using MallocOwner = Owner<T*, std::free>;

}  // namespace certkern

#endif
