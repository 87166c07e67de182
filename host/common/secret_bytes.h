// Byte strings that leave nothing behind: whatever was in them is overwritten before the memory goes back.
#ifndef CERTKERN_COMMON_SECRET_BYTES_H
#define CERTKERN_COMMON_SECRET_BYTES_H

#include <certkern/types.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

namespace certkern {

// The standard allocator, and a wipe that no optimiser takes away.
template <class T>
struct WipingAllocator {
  using value_type = T;
  WipingAllocator() = default;
  template <class U>
  WipingAllocator(const WipingAllocator<U>&) {}  // NOLINT(google-explicit-constructor): allocators convert

  T* allocate(size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* memory, size_t count) {
    explicit_bzero(memory, count * sizeof(T));
    std::allocator<T>().deallocate(memory, count);
  }
  bool operator==(const WipingAllocator&) const { return true; }
};

using SecretBytes = std::vector<BYTE, WipingAllocator<BYTE>>;

inline SecretBytes ToSecret(std::span<const BYTE> bytes) { return {bytes.begin(), bytes.end()}; }

inline void Append(SecretBytes& out, std::span<const BYTE> bytes) {
  out.insert(out.end(), bytes.begin(), bytes.end());
}

// Wipes a buffer of fixed size at the end of a scope.
class ScopedWipe {
 public:
  explicit ScopedWipe(std::span<BYTE> bytes) : bytes_(bytes) {}
  ~ScopedWipe() { explicit_bzero(bytes_.data(), bytes_.size()); }
  ScopedWipe(const ScopedWipe&) = delete;
  ScopedWipe& operator=(const ScopedWipe&) = delete;

 private:
  std::span<BYTE> bytes_;
};

}  // namespace certkern

#endif
