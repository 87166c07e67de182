#include "text/base64.h"

#include <certkern/encode.h>
#include <certkern/errors.h>
#include <certkern/keykern.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>

#include "platform/limits.h"

namespace certkern {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadding = '=';

constexpr size_t kLineBytes = 48;
constexpr size_t kLineCharacters = 64;

// Significant characters that are converted together; only the end of such a group may be padded.
constexpr size_t kGroupCharacters = 64;

// What the decoding table says of a character that is no digit.
constexpr BYTE kBlank = 0xE0;
constexpr BYTE kLineFeed = 0xF0;
constexpr BYTE kCarriageReturn = 0xF1;
constexpr BYTE kEndOfText = 0xF2;
constexpr BYTE kBadCharacter = 0xFF;

// Peers may set the parity bit: only the low seven bits of a character count.
constexpr size_t kSevenBits = 0x7F;

constexpr std::array<BYTE, 128> MakeCharacterClasses() {
  std::array<BYTE, 128> classes{};
  classes.fill(kBadCharacter);
  for (size_t digit = 0; digit < 64; ++digit) {
    classes[static_cast<BYTE>(kAlphabet[digit])] = static_cast<BYTE>(digit);
  }
  classes[' '] = classes['\t'] = kBlank;
  classes['\n'] = kLineFeed;
  classes['\r'] = kCarriageReturn;
  classes['-'] = kEndOfText;
  return classes;
}

constexpr std::array<BYTE, 128> kCharacterClasses = MakeCharacterClasses();

constexpr BYTE ClassOf(char character) {
  return kCharacterClasses[static_cast<BYTE>(character) & kSevenBits];
}
constexpr bool IsDigit(BYTE characterClass) { return characterClass < 64; }
constexpr bool IsWhiteSpace(BYTE characterClass) {
  return characterClass == kBlank || characterClass == kLineFeed || characterClass == kCarriageReturn;
}

// Two characters for each value of 12 bits: half the look-ups of the plain alphabet, and still at home in the cache.
using CharacterPair = std::array<char, 2>;

constexpr std::array<CharacterPair, 4096> MakePairs() {
  std::array<CharacterPair, 4096> pairs{};
  for (size_t value = 0; value < pairs.size(); ++value) {
    pairs[value] = {kAlphabet[value >> 6], kAlphabet[value & 63]};
  }
  return pairs;
}

constexpr std::array<CharacterPair, 4096> kPairs = MakePairs();

// Each digit of a quad, already shifted to its place among the 24 bits; bit 31 marks what is no digit.
constexpr uint32_t kNotADigit = uint32_t{1} << 31;
using ShiftedDigits = std::array<std::array<uint32_t, 256>, 4>;

constexpr ShiftedDigits MakeShiftedDigits() {
  ShiftedDigits digits{};
  for (size_t place = 0; place < digits.size(); ++place) {
    for (size_t character = 0; character < 256; ++character) {
      const BYTE value = kCharacterClasses[character & kSevenBits];
      digits[place][character] = IsDigit(value) ? uint32_t{value} << (18 - 6 * place) : kNotADigit;
    }
  }
  return digits;
}

constexpr ShiftedDigits kShiftedDigits = MakeShiftedDigits();

// The 24 bits of four characters; kNotADigit is set when one of them is no digit.
uint32_t ReadQuad(const char* text) {
  const auto* characters = reinterpret_cast<const BYTE*>(text);
  return kShiftedDigits[0][characters[0]] | kShiftedDigits[1][characters[1]]
      | kShiftedDigits[2][characters[2]] | kShiftedDigits[3][characters[3]];
}

void StoreTriple(uint32_t bits, BYTE* out) {
  out[0] = static_cast<BYTE>(bits >> 16);
  out[1] = static_cast<BYTE>(bits >> 8);
  out[2] = static_cast<BYTE>(bits);
}

uint32_t LoadTriple(const BYTE* data) { return uint32_t{data[0]} << 16 | uint32_t{data[1]} << 8 | data[2]; }

void StorePair(uint64_t value, char* out) { std::memcpy(out, kPairs[value & 4095].data(), 2); }

uint64_t BigEndian(uint64_t value) {
  return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? __builtin_bswap64(value) : value;
}

uint64_t LoadBigEndian(const BYTE* data) {
  uint64_t value = 0;
  std::memcpy(&value, data, sizeof value);
  return BigEndian(value);
}

void StoreBigEndian(uint64_t value, BYTE* out) {
  value = BigEndian(value);
  std::memcpy(out, &value, sizeof value);
}

// Sixteen characters of twelve bytes. The second load begins four bytes early, so that neither reads past the data.
// Forced, because a call here costs a quarter of the speed, and the compiler sees too many callers to do it unasked.
[[gnu::always_inline]] inline void WriteTwelve(const BYTE* data, char* out) {
  const uint64_t first = LoadBigEndian(data);       // bytes 0 to 7; the high 48 bits count
  const uint64_t second = LoadBigEndian(data + 4);  // bytes 4 to 11; the low 48 bits count
  StorePair(first >> 52, out);
  StorePair(first >> 40, out + 2);
  StorePair(first >> 28, out + 4);
  StorePair(first >> 16, out + 6);
  StorePair(second >> 36, out + 8);
  StorePair(second >> 24, out + 10);
  StorePair(second >> 12, out + 12);
  StorePair(second, out + 14);
}

// A full line, without its end.
void WriteLine(const BYTE* data, char* out) {
  for (size_t i = 0; i < kLineBytes / 12; ++i) WriteTwelve(data + 12 * i, out + 16 * i);
}

char* WriteCharacters(std::span<const BYTE> data, char* out) {
  const BYTE* next = data.data();
  size_t left = data.size();
  for (; left >= 12; left -= 12, next += 12, out += 16) WriteTwelve(next, out);
  for (; left >= 3; left -= 3, next += 3, out += 4) {
    const uint32_t bits = LoadTriple(next);
    StorePair(bits >> 12, out);
    StorePair(bits, out + 2);
  }
  if (left == 0) return out;
  const uint32_t bits = uint32_t{next[0]} << 16 | (left == 2 ? uint32_t{next[1]} << 8 : 0);
  StorePair(bits >> 12, out);
  out[2] = left == 2 ? kAlphabet[bits >> 6 & 63] : kPadding;
  out[3] = kPadding;
  return out + 4;
}

// How far a character lies above a range that begins at first; wraps around, far above, for one that lies below.
constexpr BYTE Excess(BYTE character, BYTE first, BYTE last) {
  const auto position = static_cast<BYTE>(character - first);
  const auto size = static_cast<BYTE>(last - first);
  return static_cast<BYTE>(std::max(position, size) - size);
}

// Ranges instead of the table: the compiler turns this into comparisons of a whole vector of characters.
bool AllDigits(const char* text, size_t count) {
  BYTE outside = 0;
  for (size_t i = 0; i < count; ++i) {
    const BYTE character = static_cast<BYTE>(text[i]) & kSevenBits;
    const BYTE fromLetters = Excess(character | 0x20, 'a', 'z');
    const BYTE fromNumbers = Excess(character, '/', '9');  // "/" stands before "0"
    const auto fromPlus = static_cast<BYTE>(character ^ '+');
    outside |= std::min({fromLetters, fromNumbers, fromPlus});
  }
  return outside == 0;
}

// What is done with the digits of a text: counted only, or written. quads() takes whole quads of digits and stops at
// the first that has anything else in it; last() takes a quad of one to three bytes.
class ByteCounter {
 public:
  const char* quads(const char* next, const char* end) {
    const char* start = next;
    while (end - next >= ptrdiff_t{kGroupCharacters} && IsDigit(ClassOf(*next))
           && AllDigits(next, kGroupCharacters)) {
      next += kGroupCharacters;
    }
    while (end - next >= 4 && !(ReadQuad(next) & kNotADigit)) next += 4;
    count_ += static_cast<uint64_t>(next - start) / 4 * 3;
    return next;
  }
  void last(uint32_t, size_t count) { count_ += count; }
  uint64_t count() const { return count_; }

 private:
  uint64_t count_ = 0;
};

class ByteWriter {
 public:
  explicit ByteWriter(BYTE* out) : out_(out) {}

  const char* quads(const char* next, const char* end) {
    for (; end - next >= 16; next += 16, out_ += 12) {
      const uint32_t quad0 = ReadQuad(next), quad1 = ReadQuad(next + 4);
      const uint32_t quad2 = ReadQuad(next + 8), quad3 = ReadQuad(next + 12);
      if ((quad0 | quad1 | quad2 | quad3) & kNotADigit) break;
      const uint64_t first = uint64_t{quad0} << 24 | quad1;
      const uint64_t second = uint64_t{quad2} << 24 | quad3;
      StoreBigEndian(first << 16 | second >> 32, out_);
      StoreBigEndian(first << 48 | second, out_ + 4);  // four bytes twice: cheaper than stores of other sizes
    }
    for (; end - next >= 4; next += 4, out_ += 3) {
      const uint32_t quad = ReadQuad(next);
      if (quad & kNotADigit) break;
      StoreTriple(quad, out_);
    }
    return next;
  }
  void last(uint32_t bits, size_t count) {
    for (size_t i = 0; i < count; ++i) *out_++ = static_cast<BYTE>(bits >> (16 - 8 * i));
  }

 private:
  BYTE* out_;
};

// Four significant characters that did not come in one piece, or that are padded. Gives how many bytes they hold,
// 0 for a bad quad: a padding character that has a digit behind it, or more than two of them.
size_t ReadBrokenQuad(std::array<char, 4> quad, uint32_t& bits) {
  const size_t padding = quad[3] != kPadding ? 0 : quad[2] != kPadding ? 1 : 2;
  std::fill(quad.end() - static_cast<ptrdiff_t>(padding), quad.end(), kAlphabet[0]);
  bits = ReadQuad(quad.data());
  return bits & kNotADigit ? 0 : 3 - padding;
}

// The one reader of the format. False at the first fault; what the sink has taken until then is void.
template <class Sink>
bool ReadText(std::string_view text, Sink& sink) {
  const char* next = text.data();
  const char* const end = next + text.size();
  size_t groupPosition = 0;    // significant characters in the current group, whole quads only
  bool groupPadded = false;    // nothing significant may follow in this group
  std::array<char, 4> quad{};  // the characters behind the last whole quad
  size_t quadSize = 0;
  while (next != end) {
    if (quadSize == 0 && !groupPadded) {
      const char* start = next;
      next = sink.quads(next, end);
      groupPosition = (groupPosition + static_cast<size_t>(next - start)) % kGroupCharacters;
      if (next == end) break;
    }
    const char character = *next++;
    const BYTE characterClass = ClassOf(character);
    if (IsWhiteSpace(characterClass)) continue;
    if (characterClass == kEndOfText) break;
    if (groupPadded || (!IsDigit(characterClass) && character != kPadding)) return false;
    quad[quadSize++] = character;
    if (quadSize < quad.size()) continue;
    uint32_t bits = 0;
    const size_t count = ReadBrokenQuad(quad, bits);
    if (count == 0) return false;
    sink.last(bits, count);
    quadSize = 0;
    groupPosition = (groupPosition + quad.size()) % kGroupCharacters;
    groupPadded = count < 3 && groupPosition != 0;
  }
  return quadSize == 0;
}

// The characters of a line or of the rest behind the last full line, without its line end.
constexpr uint64_t CharactersOf(uint64_t length) { return (length + 2) / 3 * 4; }

// The size that Base64Encode asks for; the exact one where line ends are written.
constexpr uint64_t EncodedBound(uint64_t length, LineEnds lineEnds) {
  const uint64_t rest = length % kLineBytes;
  const uint64_t restLineEnd = rest && lineEnds == LineEnds::Written ? 1 : 0;
  return length / kLineBytes * (kLineCharacters + 1) + CharactersOf(rest) + restLineEnd;
}

}  // namespace

uint64_t Base64TextLength(size_t length, LineEnds lineEnds) {
  return lineEnds == LineEnds::None ? CharactersOf(length) : EncodedBound(length, lineEnds);
}

char* Base64Write(std::span<const BYTE> data, LineEnds lineEnds, char* out) {
  if (lineEnds == LineEnds::None) return WriteCharacters(data, out);
  for (; data.size() >= kLineBytes; data = data.subspan(kLineBytes), out += kLineCharacters + 1) {
    WriteLine(data.data(), out);
    out[kLineCharacters] = '\n';
  }
  if (data.empty()) return out;
  out = WriteCharacters(data, out);
  *out++ = '\n';
  return out;
}

std::optional<uint64_t> Base64DecodedSize(std::string_view text) {
  ByteCounter counter;
  if (ReadText(text, counter)) return counter.count();
  SetLastError(CRYPT_E_BAD_ENCODE);
  return std::nullopt;
}

void Base64Read(std::string_view text, BYTE* out) {
  ByteWriter writer(out);
  [[maybe_unused]] const bool good = ReadText(text, writer);
  assert(good);
}

SizeAnswer AnswerSize(uint64_t size, const char* out, DWORD* outLength) {
  if (size > kMaxInterfaceSize) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return SizeAnswer::Refused;
  }
  const DWORD room = *outLength;
  *outLength = static_cast<DWORD>(size);
  if (!out) {
    SetLastError(ERROR_SUCCESS);
    return SizeAnswer::SizeOnly;
  }
  if (room >= size) return SizeAnswer::Write;
  SetLastError(ERROR_MORE_DATA);
  return SizeAnswer::Refused;
}

bool Base64Encode(const BYTE* data, DWORD length, char* out, DWORD* outLength, DWORD flags) {
  if (!data || !outLength) {
    SetLastError(ERROR_BAD_ARGUMENTS);
    return false;
  }
  const LineEnds lineEnds = flags & CRYPT_STRING_NOCRLF ? LineEnds::None : LineEnds::Written;
  const SizeAnswer answer = AnswerSize(EncodedBound(length, lineEnds), out, outLength);
  if (answer != SizeAnswer::Write) return answer == SizeAnswer::SizeOnly;
  *outLength = static_cast<DWORD>(Base64Write(std::span(data, length), lineEnds, out) - out);
  return true;
}

bool Base64Decode(const char* text, DWORD length, BYTE* out, DWORD* outLength) {
  if (!text || !outLength) {
    SetLastError(ERROR_BAD_ARGUMENTS);
    return false;
  }
  const DWORD room = *outLength;
  *outLength = 0;
  const std::optional<uint64_t> size = Base64DecodedSize(std::string_view(text, length));
  if (!size) return false;
  *outLength = static_cast<DWORD>(*size);  // three bytes of four characters: never above the text's length
  if (!out) return true;
  if (room < *size) {
    SetLastError(ERROR_MORE_DATA);
    return false;
  }
  Base64Read(std::string_view(text, length), out);
  return true;
}

}  // namespace certkern
