#include "text/hex.h"

#include <array>

#include "text/pem.h"

namespace certkern {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

constexpr BYTE kNotADigit = 0x80;

constexpr std::array<BYTE, 256> MakeDigitValues() {
  std::array<BYTE, 256> values{};
  values.fill(kNotADigit);
  for (BYTE digit = 0; digit < 16; ++digit) {
    const auto character = static_cast<BYTE>(kHexDigits[digit]);
    values[character] = digit;
    if (digit >= 10) values[character | 0x20u] = digit;  // lower case
  }
  return values;
}

constexpr std::array<BYTE, 256> kDigitValues = MakeDigitValues();

// The one reader of the format: hands each byte to the sink, until something ends the text.
template <class Sink>
void ReadPairs(std::string_view text, Sink sink) {
  const char* next = text.data();
  const char* const end = next + text.size();
  for (;;) {
    while (next != end && IsSpace(*next)) ++next;
    if (end - next < 2) return;
    const BYTE high = kDigitValues[static_cast<BYTE>(next[0])];
    const BYTE low = kDigitValues[static_cast<BYTE>(next[1])];
    if ((high | low) & kNotADigit) return;
    sink(static_cast<BYTE>(high << 4 | low));
    next += 2;
  }
}

}  // namespace

char* HexWrite(std::span<const BYTE> data, char* out) {
  for (const BYTE byte : data) {
    *out++ = kHexDigits[byte >> 4];
    *out++ = kHexDigits[byte & 15];
  }
  return out;
}

size_t HexDecodedSize(std::string_view text) {
  size_t count = 0;
  ReadPairs(text, [&](BYTE) { ++count; });
  return count;
}

void HexRead(std::string_view text, BYTE* out) {
  ReadPairs(text, [&](BYTE byte) { *out++ = byte; });
}

}  // namespace certkern
