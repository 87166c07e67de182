#include "ber/write_cursor.h"

#include "ber/read_cursor.h"
#include "platform/limits.h"

#include <cstring>

namespace certkern {

bool BerWriteCursor::take(size_t size, BYTE*& place) {
  if (sizing()) {
    place = nullptr;
    count_ += size;
    return count_ <= kMaxInterfaceSize;
  }
  if (size > count_) return Fault(ERROR_MORE_DATA);
  place = out_;
  out_ += size;
  count_ -= size;
  return true;
}

bool BerWriteCursor::write(std::span<const BYTE> bytes) {
  BYTE* place;
  if (!take(bytes.size(), place)) return false;
  if (place && !bytes.empty()) std::memcpy(place, bytes.data(), bytes.size());
  return true;
}

bool BerBeginElement(BYTE tag, size_t contentSize, BerWriteCursor& out, BYTE*& content) {
  if (contentSize > kMaxInterfaceSize) return false;
  size_t header = 0;
  size_t octets = 0;
  if ((tag & 31) != kNoTag) {
    if (contentSize >= 0x80) {
      for (size_t rest = contentSize; rest; rest >>= 8) ++octets;
    }
    header = 2 + octets;
  }
  BYTE* place;
  if (!out.take(header + contentSize, place)) return false;
  content = place ? place + header : nullptr;
  if (!place || !header) return true;
  *place++ = tag;
  *place++ = static_cast<BYTE>(octets ? 0x80 | octets : contentSize);
  for (size_t i = octets; i-- > 0;) *place++ = static_cast<BYTE>(contentSize >> (8 * i));
  return true;
}

bool BerWriteHeader(BYTE tag, BerWriteCursor& inner, BerWriteCursor& out) {
  const size_t size = inner.count();
  BYTE* content;
  if (!BerBeginElement(static_cast<BYTE>(tag | kConstructed), size, out, content)) return false;
  if (content) inner = BerWriteCursor(content, size);
  return true;
}

}  // namespace certkern
