#include "text.h"

#include "failure.h"

#include <certkern/keykern.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <vector>

namespace certkern::cli {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kLastCharacter = 0x10FFFF;

bool IsSurrogate(char32_t character) { return character >= 0xD800 && character <= 0xDFFF; }
bool IsHighSurrogate(char32_t character) { return character >= 0xD800 && character <= 0xDBFF; }
bool IsLowSurrogate(char32_t character) { return character >= 0xDC00 && character <= 0xDFFF; }

struct Range {
  char32_t first, last;
};

// Control characters, and those format characters of Unicode that reorder, hide or break a line.
constexpr Range kUnsafe[] = {
    {0x0000,  0x001F },
    {0x007F,  0x009F },
    {0x00AD,  0x00AD }, // soft hyphen
    {0x034F,  0x034F }, // combining grapheme joiner
    {0x061C,  0x061C }, // Arabic letter mark
    {0x115F,  0x1160 }, // Hangul fillers
    {0x17B4,  0x17B5 }, // Khmer vowels that are not drawn
    {0x180B,  0x180F }, // Mongolian variation selectors
    {0x200B,  0x200F }, // zero widths, direction marks
    {0x2028,  0x202E }, // line and paragraph ends, embeddings, overrides
    {0x2060,  0x206F }, // joiners, isolates
    {0x3164,  0x3164 }, // Hangul filler
    {0xD800,  0xDFFF },
    {0xFE00,  0xFE0F }, // variation selectors
    {0xFEFF,  0xFEFF }, // byte order mark
    {0xFFA0,  0xFFA0 }, // half-width Hangul filler
    {0xFFF0,  0xFFFB }, // annotations
    {0xFFFE,  0xFFFF },
    {0xE0000, 0xE0FFF}, // tags
};

// Length of the sequence that a lead byte opens; 0 for a byte that opens none.
size_t SequenceSize(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

// The number in a well-formed sequence of more than one byte; U+FFFD when it is not well formed.
char32_t SequenceValue(std::string_view sequence) {
  static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  char32_t value = static_cast<unsigned char>(sequence[0]) & (0x7Fu >> sequence.size());
  for (const char c : sequence.substr(1)) {
    const auto octet = static_cast<unsigned char>(c);
    if ((octet & 0xC0) != 0x80) return kReplacement;
    value = value << 6 | (octet & 0x3F);
  }
  const bool wellFormed =
      value >= kSmallest[sequence.size()] && value <= kLastCharacter && !IsSurrogate(value);
  return wellFormed ? value : kReplacement;
}

// Divides a big-endian number in place and returns the remainder.
unsigned DivideBy10(std::span<BYTE> big) {
  unsigned rest = 0;
  for (BYTE& octet : big) {
    const unsigned current = rest << 8 | octet;
    octet = static_cast<BYTE>(current / 10);
    rest = current % 10;
  }
  return rest;
}

void Negate(std::span<BYTE> big) {
  unsigned carry = 1;
  for (size_t i = big.size(); i-- > 0;) {
    const unsigned sum = static_cast<BYTE>(~big[i]) + carry;
    big[i] = static_cast<BYTE>(sum);
    carry = sum >> 8;
  }
}

}  // namespace

char32_t TakeCharacter(std::string_view& utf8) {
  const auto lead = static_cast<unsigned char>(utf8[0]);
  const size_t size = SequenceSize(lead);
  char32_t character = lead;
  if (size != 1) {
    character = size && size <= utf8.size() ? SequenceValue(utf8.substr(0, size)) : kReplacement;
  }
  const bool wholeSequence = character != kReplacement || utf8.substr(0, 3) == "\xEF\xBF\xBD";
  utf8.remove_prefix(wholeSequence ? size : 1);
  return character;
}

void AppendUtf8(std::string& out, char32_t character) {
  const auto tail = [&](int shift) { out += static_cast<char>(0x80 | (character >> shift & 0x3F)); };
  if (character < 0x80) {
    out += static_cast<char>(character);
  } else if (character < 0x800) {
    out += static_cast<char>(0xC0 | character >> 6);
    tail(0);
  } else if (character < 0x10000) {
    out += static_cast<char>(0xE0 | character >> 12);
    tail(6);
    tail(0);
  } else {
    out += static_cast<char>(0xF0 | character >> 18);
    tail(12);
    tail(6);
    tail(0);
  }
}

bool IsUnsafe(char32_t character) {
  return std::any_of(std::begin(kUnsafe), std::end(kUnsafe), [character](const Range& range) {
    return character >= range.first && character <= range.last;
  });
}

std::string Utf8Of(std::wstring_view text) {
  std::string utf8;
  for (size_t i = 0; i < text.size(); ++i) {
    auto character = static_cast<char32_t>(text[i]);
    const char32_t next = i + 1 < text.size() ? static_cast<char32_t>(text[i + 1]) : 0;
    if (IsHighSurrogate(character) && IsLowSurrogate(next)) {
      character = 0x10000 + ((character - 0xD800) << 10) + (next - 0xDC00);
      ++i;
    }
    AppendUtf8(utf8, IsSurrogate(character) || character > kLastCharacter ? kReplacement : character);
  }
  return utf8;
}

std::string Utf8Of(std::string_view bytes) {
  std::string utf8;
  while (!bytes.empty()) AppendUtf8(utf8, TakeCharacter(bytes));
  return utf8;
}

std::string Escaped(std::string_view utf8) {
  std::string out;
  while (!utf8.empty()) {
    const char32_t character = TakeCharacter(utf8);
    if (IsUnsafe(character)) {
      out += fmt::format("\\u{{{:x}}}", static_cast<uint32_t>(character));
    } else {
      if (character == U'\\') out += '\\';
      AppendUtf8(out, character);
    }
  }
  return out;
}

std::string EscapedJson(std::string_view json) {
  std::string out;
  while (!json.empty()) {
    const char32_t character = TakeCharacter(json);
    if (!IsUnsafe(character)) {
      AppendUtf8(out, character);
    } else if (character < 0x10000) {
      out += fmt::format("\\u{:04x}", static_cast<uint32_t>(character));
    } else {
      const auto offset = static_cast<uint32_t>(character - 0x10000);
      out += fmt::format("\\u{:04x}\\u{:04x}", 0xD800 + (offset >> 10), 0xDC00 + (offset & 0x3FF));
    }
  }
  return out;
}

std::string EscapedNameValue(std::string_view utf8) {
  static constexpr std::string_view kSpecial = "\"+,;<>\\";
  std::string out;
  bool first = true;
  while (!utf8.empty()) {
    const std::string_view before = utf8;
    const char32_t character = TakeCharacter(utf8);
    const bool edgeBlank = character == U' ' && (first || utf8.empty());
    if (IsUnsafe(character)) {
      for (const char c : before.substr(0, before.size() - utf8.size()))
        out += fmt::format("\\{:02X}", static_cast<unsigned char>(c));
    } else {
      const bool special = character < 0x80 && kSpecial.find(static_cast<char>(character)) != kSpecial.npos;
      if (special || edgeBlank || (character == U'#' && first)) out += '\\';
      AppendUtf8(out, character);
    }
    first = false;
  }
  return out;
}

std::vector<BYTE> BytesOfHex(const std::string& text, const std::string& option) {
  std::string digits;
  for (const char c : text) {
    if (c == ':' || c == ' ') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c)))
      throw WrongUsage(
          fmt::format("{} {}: only hexadecimal digits", option, Escaped(Utf8Of(std::string_view(text)))));
    digits += c;
  }
  if (digits.empty() || digits.size() % 2)
    throw WrongUsage(fmt::format("{}: whole bytes, two digits each", option));
  std::vector<BYTE> bytes;
  for (size_t i = 0; i < digits.size(); i += 2)
    bytes.push_back(static_cast<BYTE>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  return bytes;
}

std::string HexText(std::span<const BYTE> bytes, std::string_view separator) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * (2 + separator.size()));
  for (const BYTE byte : bytes) {
    if (!text.empty()) text += separator;
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string TimeText(const FILETIME& time) {
  SYSTEMTIME parts;
  if (!time.dwLowDateTime && !time.dwHighDateTime) return "none";
  if (!FileTimeToSystemTime(&time, &parts)) return "none";
  std::string text = fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", parts.wYear, parts.wMonth, parts.wDay,
                                 parts.wHour, parts.wMinute, parts.wSecond);
  if (parts.wMilliseconds) text += fmt::format(".{:03}", parts.wMilliseconds);
  return text + "Z";
}

std::string NumberText(std::span<const BYTE> little) {
  constexpr size_t kLongestDecimal = 32;
  std::vector<BYTE> big(little.rbegin(), little.rend());
  if (big.size() > kLongestDecimal) return "0x" + HexText(big);
  const bool negative = !big.empty() && big[0] & 0x80;
  if (negative) Negate(big);
  std::string digits;
  do {
    digits += static_cast<char>('0' + DivideBy10(big));
  } while (std::any_of(big.begin(), big.end(), [](BYTE octet) { return octet != 0; }));
  if (negative) digits += '-';
  return {digits.rbegin(), digits.rend()};
}

}  // namespace certkern::cli
