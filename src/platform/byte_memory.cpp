#include "platform/byte_memory.h"

#include <sys/mman.h>

#include <new>

namespace certkern {
namespace {

constexpr size_t kLargePage = size_t{2} << 20;
// From here on the last page, which may be used in part only, is a small share.
constexpr size_t kMuch = 8 * kLargePage;

BYTE* AllocateMuch(size_t size) {
  if (size > SIZE_MAX - kLargePage) return nullptr;
  const size_t pages = (size + kLargePage - 1) / kLargePage * kLargePage;
  void* const memory = std::aligned_alloc(kLargePage, pages);
  if (memory) ::madvise(memory, pages, MADV_HUGEPAGE);  // a host that has none goes on as ever
  return static_cast<BYTE*>(memory);
}

}  // namespace

ByteMemory AllocateBytes(size_t size) {
  ByteMemory memory(size < kMuch ? static_cast<BYTE*>(std::malloc(size)) : AllocateMuch(size));
  if (!memory) throw std::bad_alloc();
  return memory;
}

}  // namespace certkern
