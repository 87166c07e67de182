// The value of an attribute in text: quoted, bare, or hexadecimal.
#ifndef CERTKERN_NAMES_VALUE_PARSER_H
#define CERTKERN_NAMES_VALUE_PARSER_H

#include <certkern/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace certkern {

std::wstring_view SkipWhiteSpace(std::wstring_view text);
std::wstring_view TrimWhiteSpaceBehind(std::wstring_view text);

// How much of a text, which begins with a value, belongs to it. Npos when quotes stay open, or when anything but white
// space stands between closed ones and the next separator.
size_t ValueLength(std::wstring_view text, std::wstring_view separators);

// Quotes are taken off, doubled ones inside become one, and a backslash makes the next character an ordinary one; at
// the very end there is none, and the backslash goes alone.
void UnquoteValue(std::wstring_view raw, std::wstring& value);

// Pairs of digits, at least one; false for anything else.
[[nodiscard]] bool ReadHexadecimal(std::wstring_view digits, std::vector<BYTE>& bytes);

}  // namespace certkern

#endif
