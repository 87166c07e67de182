// The value of an attribute in text: quoted, bare, or hexadecimal.
#ifndef CERTKERN_NAMES_VALUE_PARSER_H
#define CERTKERN_NAMES_VALUE_PARSER_H

#include <certkern/types.h>
#include <bit>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace certkern {

// The characters that end a value. All that there are lie in the first 64, so that a set of them is one word.
class Separators {
 public:
  explicit constexpr Separators(std::wstring_view characters) {
    for (const wchar_t character : characters) set_ |= uint64_t{1} << character;
  }
  bool has(wchar_t character) const {
    const auto code = std::bit_cast<uint32_t>(character);
    return code < 64 && (set_ >> code & 1);
  }
  // From a place in a text on; the text's size when there is none.
  size_t findIn(std::wstring_view text, size_t at) const {
    while (at < text.size() && !has(text[at])) ++at;
    return at;
  }

 private:
  uint64_t set_ = 0;
};

// Those of a dwStrType. Of several modifiers the comma counts before the semicolon, and that before line ends.
Separators NameSeparators(DWORD stringType);

bool IsWhiteSpace(wchar_t character);
std::wstring_view SkipWhiteSpace(std::wstring_view text);
std::wstring_view TrimWhiteSpaceBehind(std::wstring_view text);

// How much of a text, which begins with a value, belongs to it. Npos when quotes stay open, or when anything but white
// space stands between closed ones and the next separator.
size_t ValueLength(std::wstring_view text, const Separators& separators);

// Quotes are taken off, doubled ones inside become one, and a backslash makes the next character an ordinary one; at
// the very end there is none, and the backslash goes alone.
void UnquoteValue(std::wstring_view raw, std::wstring& value);

// Pairs of digits, at least one; false for anything else.
[[nodiscard]] bool ReadHexadecimal(std::wstring_view digits, std::vector<BYTE>& bytes);

}  // namespace certkern

#endif
