// Handles of the key level. A handle is a number, never an address: it names a slot, the slot's generation and what is in
// it, so that a wrong, a foreign or a freed one is found out without following it.
//
// A slot counts twice: how often callers opened the handle, and how many calls and dependent objects hold it just now
// ("pins"). Whoever closes the last opening makes the handle invalid at once; the object goes with the last pin. All of
// it is one atomic word a slot: no lock is shared by threads that use different handles or the same one.
#ifndef CERTKERN_KEYKERN_HANDLE_TABLE_H
#define CERTKERN_KEYKERN_HANDLE_TABLE_H

#include <certkern/types.h>

#include <memory>
#include <utility>

namespace keykern {

enum class Kind : uint8_t { Provider = 1, Hash = 2, Key = 3 };

// What a handle stands for. A derived class names its kind as kKind.
class HandleObject {
 public:
  HandleObject() = default;
  HandleObject(const HandleObject&) = delete;
  HandleObject& operator=(const HandleObject&) = delete;
  virtual ~HandleObject() = default;
};

namespace handle_detail {
struct Slot;
Slot* Pin(ULONG_PTR handle, Kind kind) noexcept;
void PinAgain(Slot& slot) noexcept;
void Unpin(Slot& slot) noexcept;
HandleObject* ObjectOf(const Slot& slot) noexcept;
ULONG_PTR Open(std::unique_ptr<HandleObject> object, Kind kind);
bool OpenAgain(ULONG_PTR handle, Kind kind) noexcept;
bool Close(ULONG_PTR handle, Kind kind) noexcept;
}  // namespace handle_detail

// Keeps the object of a handle alive. Empty when the handle was no live one.
template <class Object>
class Pinned {
 public:
  Pinned() = default;
  explicit Pinned(ULONG_PTR handle) : slot_(handle_detail::Pin(handle, Object::kKind)) {}
  Pinned(const Pinned& other) : slot_(other.slot_) {
    if (slot_) handle_detail::PinAgain(*slot_);
  }
  Pinned(Pinned&& other) noexcept : slot_(std::exchange(other.slot_, nullptr)) {}
  Pinned& operator=(Pinned other) noexcept {
    std::swap(slot_, other.slot_);
    return *this;
  }
  ~Pinned() {
    if (slot_) handle_detail::Unpin(*slot_);
  }

  explicit operator bool() const { return slot_ != nullptr; }
  Object* operator->() const { return static_cast<Object*>(handle_detail::ObjectOf(*slot_)); }
  Object& operator*() const { return *operator->(); }

 private:
  handle_detail::Slot* slot_ = nullptr;
};

// The handle is opened once. Throws std::bad_alloc, also when four million handles are open.
template <class Object>
ULONG_PTR OpenHandle(std::unique_ptr<Object> object) {
  return handle_detail::Open(std::move(object), Object::kKind);
}
// False for a handle that is not live.
template <class Object>
[[nodiscard]] bool OpenHandleAgain(ULONG_PTR handle) noexcept {
  return handle_detail::OpenAgain(handle, Object::kKind);
}
// Gives one opening back. False for a handle that is not live.
template <class Object>
[[nodiscard]] bool CloseHandle(ULONG_PTR handle) noexcept {
  return handle_detail::Close(handle, Object::kKind);
}

}  // namespace keykern

#endif
