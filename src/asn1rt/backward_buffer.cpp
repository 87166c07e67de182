#include "asn1rt/backward_buffer.h"

#include <algorithm>

#include "asn1rt/status.h"
#include "platform/limits.h"

namespace certkern {
namespace {

constexpr uint64_t kFirstSize = 4096;
// Up to here the room grows fourfold: most messages come to rest after one or two moves.
constexpr uint64_t kSmallSize = uint64_t{1} << 18;

}  // namespace

void BackwardBuffer::useFixed(std::span<uint8_t> room) {
  dynamic_ = room.empty();
  data_ = dynamic_ ? owned_.get() : room.data();
  size_ = dynamic_ ? ownedSize_ : room.size();
  restart();
}

int BackwardBuffer::status() const { return dynamic_ ? ASN1_E_NO_MEMORY : ASN1_E_BUFFER_FULL; }

bool BackwardBuffer::grow(size_t count) {
  if (!dynamic_ || count > kMaxAsn1Message) return false;
  const uint64_t needed = uint64_t{length()} + count;
  if (needed > kMaxAsn1Message) return false;
  const uint64_t multiplied = std::max(uint64_t{size_} * (size_ < kSmallSize ? 4 : 2), kFirstSize);
  const auto size = static_cast<size_t>(std::min(std::max(multiplied, needed), kMaxAsn1Message));
  std::unique_ptr<uint8_t[], Free> larger(static_cast<uint8_t*>(std::malloc(size)));
  if (!larger) return false;
  const size_t index = size - length();
  if (length()) std::memcpy(larger.get() + index, start(), length());
  owned_ = std::move(larger);
  ownedSize_ = size_ = size;
  data_ = owned_.get();
  index_ = index;
  return true;
}

}  // namespace certkern
