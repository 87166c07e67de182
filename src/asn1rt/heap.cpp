#include "asn1rt/heap.h"

#include <algorithm>
#include <cstdlib>

#include "platform/limits.h"

namespace certkern {
namespace {

// From what a certificate takes to what the allocator still hands out without asking the kernel.
constexpr size_t kFirstPayload = size_t{1} << 12;
constexpr size_t kLargestPayload = size_t{1} << 16;

}  // namespace

ASN1Heap::~ASN1Heap() {
  while (first_) {
    Block* const next = first_->next;
    std::free(first_);
    first_ = next;
  }
}

void* ASN1Heap::allocateSlow(uint64_t size) {
  if (size >= kAsn1AllocationRefused) return nullptr;
  const size_t rounded = static_cast<size_t>((size + (size == 0) + 7) & ~uint64_t{7});
  // a large piece has a block of its own, and what is left of the current one stays in use
  if (rounded > kLargestPayload / 4) return addBlock(rounded);
  nextPayload_ = std::clamp(nextPayload_ * 2, kFirstPayload, kLargestPayload);
  const size_t payload = std::max(nextPayload_, rounded);
  uint8_t* const piece = addBlock(payload);
  if (!piece) return nullptr;
  next_ = piece + rounded;
  end_ = piece + payload;
  return piece;
}

uint8_t* ASN1Heap::addBlock(size_t payload) {
  static_assert(sizeof(Block) % 8 == 0, "the payload behind it is aligned");
  auto* const block = static_cast<Block*>(std::malloc(sizeof(Block) + payload));
  if (!block) return nullptr;
  *block = {first_, nullptr};
  if (first_) first_->previous = block;
  first_ = block;
  return reinterpret_cast<uint8_t*>(block + 1);
}

}  // namespace certkern
