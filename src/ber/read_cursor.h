// A stretch of BER input, and the only code of the hand-written codec that looks at raw bytes.
//
// It owns nothing. A read succeeds and moves on, or fails and stays where it was, so that a caller can try the next
// alternative. Nothing is checked for DER: longer length forms than needed are taken, and the indefinite form (0x80)
// reads as an empty element.
#ifndef CERTKERN_BER_READ_CURSOR_H
#define CERTKERN_BER_READ_CURSOR_H

#include <certkern/errors.h>
#include <certkern/keykern.h>
#include <certkern/types.h>

#include <cstddef>
#include <span>

namespace certkern {

// Sets the code of a failure; always false, so that it reads as `return Fault(code)`.
[[nodiscard]] inline bool Fault(DWORD code) {
  SetLastError(code);
  return false;
}

class BerReadCursor {
 public:
  BerReadCursor() = default;
  explicit BerReadCursor(std::span<const BYTE> bytes) : next_(bytes.data()), remaining_(bytes.size()) {}

  std::span<const BYTE> rest() const { return {next_, remaining_}; }
  const BYTE* data() const { return next_; }
  size_t size() const { return remaining_; }
  bool empty() const { return remaining_ == 0; }

  // The identifier of the next element; 0, which is never asked for, at the end.
  BYTE nextTag() const { return remaining_ ? *next_ : BYTE{0}; }
  bool nextIs(BYTE tag) const { return remaining_ && *next_ == tag; }
  bool nextIs(BYTE tag, BYTE mask) const { return remaining_ && (*next_ & mask) == tag; }

  // The one header parser: identifier, and the content as a cursor of its own.
  // A header that runs off the end is CRYPT_E_ASN1_EOD; content that does is a failure without a code.
  [[nodiscard]] bool readElement(BYTE& tag, BerReadCursor& content) {
    size_t header;
    size_t length;
    if (!peekHeader(header, length)) return false;
    if (length > remaining_ - header) return false;
    tag = *next_;
    content = BerReadCursor({next_ + header, length});
    skip(header + length);
    return true;
  }

  // One whole element, header included.
  [[nodiscard]] bool readWhole(std::span<const BYTE>& element) {
    size_t header;
    size_t length;
    if (!peekHeader(header, length)) return false;
    if (length > remaining_ - header) return false;
    element = {next_, header + length};
    skip(header + length);
    return true;
  }

  // Sizes of the header and of the content that it announces, which need not be there.
  [[nodiscard]] bool peekHeader(size_t& header, size_t& length) const {
    if (remaining_ < 2) return Fault(CRYPT_E_ASN1_EOD);
    const BYTE first = next_[1];
    header = 2;
    if (first <= 0x80) {
      length = first & 0x7F;
      return true;
    }
    const size_t octets = first & 0x7F;
    if (octets > 4 || octets > remaining_ - 2) return Fault(CRYPT_E_ASN1_EOD);
    length = 0;
    for (size_t i = 0; i < octets; ++i) length = length << 8 | next_[2 + i];
    header += octets;
    return true;
  }

  void skip(size_t count) {
    next_ += count;
    remaining_ -= count;
  }

 private:
  const BYTE* next_ = nullptr;
  size_t remaining_ = 0;
};

}  // namespace certkern

#endif
