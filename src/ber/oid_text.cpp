#include "ber/oid_text.h"

#include "platform/limits.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace certkern {
namespace {

// Counts the octets of what is put, and writes them where there is a target.
class OctetSink {
 public:
  OctetSink(BYTE* target, size_t room) : target_(target), room_(target ? room : 0) {}
  void putArc(uint64_t value) {
    int shift = 0;
    while (shift < 63 && value >> (shift + 7)) shift += 7;
    for (; shift >= 0; shift -= 7) put(static_cast<BYTE>((value >> shift & 0x7F) | (shift ? 0x80 : 0)));
  }
  size_t count() const { return count_; }
  bool overrun() const { return target_ && count_ > room_; }

 private:
  void put(BYTE octet) {
    if (count_ < room_) target_[count_] = octet;
    ++count_;
  }
  BYTE* target_;
  size_t room_;
  size_t count_ = 0;
};

bool IsSeparator(char c) { return c == '.' || c == ' '; }

// Digits up to a separator or the end; none stand for 0.
bool ReadArc(LPCSTR& text, uint64_t& value) {
  value = 0;
  for (; *text && !IsSeparator(*text); ++text) {
    if (*text < '0' || *text > '9') return false;
    value = value * 10 + static_cast<uint64_t>(*text - '0');
  }
  return true;
}

// Decimal text of 0 to 127 with its full stop, padded to four bytes: a small arc is one store.
struct SmallArc {
  char text[4];
  uint8_t length;
};

constexpr auto kSmallArcs = [] {
  std::array<SmallArc, 128> arcs{};
  for (unsigned value = 0; value < arcs.size(); ++value) {
    SmallArc& arc = arcs[value];
    if (value >= 100) arc.text[arc.length++] = '1';
    if (value >= 10) arc.text[arc.length++] = static_cast<char>('0' + value / 10 % 10);
    arc.text[arc.length++] = static_cast<char>('0' + value % 10);
    arc.text[arc.length++] = '.';
  }
  return arcs;
}();

size_t DigitsOf(uint64_t value) {
  size_t digits = 1;
  while (value >= 10) {
    value /= 10;
    ++digits;
  }
  return digits;
}

// Counts the text, full stop included.
struct TextCounter {
  size_t count = 0;
  void small(BYTE value) { count += kSmallArcs[value].length; }
  void large(uint64_t value) { count += DigitsOf(value) + 1; }
};

// Writes the text. Small arcs are stored four characters wide where there is room for it.
template <bool kRoomy>
struct TextWriter {
  char* next;
  void small(BYTE value) {
    const SmallArc& arc = kSmallArcs[value];
    std::memcpy(next, arc.text, kRoomy ? sizeof(arc.text) : arc.length);
    next += arc.length;
  }
  void large(uint64_t value) {
    const size_t digits = DigitsOf(value);
    for (size_t i = digits; i-- > 0; value /= 10) next[i] = static_cast<char>('0' + value % 10);
    next[digits] = '.';
    next += digits + 1;
  }
};

// The value of an arc that takes more than one octet; index is left on the last of them.
bool ReadLongArc(std::span<const BYTE> content, size_t& index, uint64_t& value) {
  value = content[index] & 0x7F;
  for (size_t octets = 2; octets <= kMaxOidArcOctets; ++octets) {
    if (++index == content.size()) return false;
    value = value << 7 | (content[index] & 0x7F);
    if (content[index] < 0x80) return true;
  }
  return false;
}

// Feeds each arc of the content to a sink.
template <typename Sink>
bool ForEachArc(std::span<const BYTE> content, Sink& sink) {
  if (content.empty()) return false;
  size_t index = 0;
  uint64_t value = content[0];
  if (value >= 0x80 && !ReadLongArc(content, index, value)) return false;
  if (value >= 120) return false;
  const BYTE root = static_cast<BYTE>(value / 40);
  sink.small(root);
  sink.small(static_cast<BYTE>(value % 40));
  for (++index; index < content.size(); ++index) {
    if (content[index] < 0x80) {
      sink.small(content[index]);
    } else {
      if (!ReadLongArc(content, index, value)) return false;
      sink.large(value);
    }
  }
  return true;
}

template <bool kRoomy>
bool WriteText(std::span<const BYTE> content, char* out, size_t& outLength) {
  TextWriter<kRoomy> writer{out};
  if (!ForEachArc(content, writer)) return false;
  outLength = static_cast<size_t>(writer.next - out);
  out[outLength - 1] = '\0';  // in the place of the last full stop
  return true;
}

}  // namespace

bool BerEncodeOid(LPCSTR dotted, BYTE* target, size_t& count) {
  if (!dotted || dotted[0] < '0' || dotted[0] > '2' || !IsSeparator(dotted[1])) return false;
  const uint64_t root = static_cast<uint64_t>(dotted[0] - '0');
  OctetSink sink(target, count);
  LPCSTR text = dotted + 2;
  uint64_t value;
  if (!ReadArc(text, value)) return false;
  if (root < 2 && value > 39) return false;
  sink.putArc(root * 40 + value);
  while (*text) {
    ++text;  // the separator
    // one that ends the string opens no arc
    if (!*text) break;
    if (!ReadArc(text, value)) return false;
    sink.putArc(value);
  }
  count = sink.count();
  return !sink.overrun();
}

bool BerDecodeOid(std::span<const BYTE> content, char* out, size_t& outLength) {
  if (out) return WriteText<false>(content, out, outLength);
  TextCounter counter;
  if (!ForEachArc(content, counter)) return false;
  outLength = counter.count;  // the NUL stands in the place of the last full stop
  return true;
}

bool BerDecodeOidRoomy(std::span<const BYTE> content, char* out, size_t& outLength) {
  return WriteText<true>(content, out, outLength);
}

}  // namespace certkern
