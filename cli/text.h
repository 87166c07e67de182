// Characters, numbers and times as a person reads them, and the guard between foreign text and a terminal.
#ifndef CERTKERN_CLI_TEXT_H
#define CERTKERN_CLI_TEXT_H

#include <certkern/types.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace certkern::cli {

// Takes the first character off valid or invalid UTF-8. A byte that belongs to no character gives U+FFFD.
char32_t TakeCharacter(std::string_view& utf8);
void AppendUtf8(std::string& out, char32_t character);

// Whether a character can move the cursor, change the direction of what follows, or be there unseen.
bool IsUnsafe(char32_t character);

// Valid UTF-8 of a decoded text. Halves of a surrogate pair are joined; what is no character becomes U+FFFD.
std::string Utf8Of(std::wstring_view text);
// The same of bytes that may or may not be UTF-8, such as a file's name.
std::string Utf8Of(std::string_view bytes);

// For a terminal: unsafe characters as \u{202e}, a backslash doubled.
std::string Escaped(std::string_view utf8);
// Valid UTF-8 with its unsafe characters as \u202e: the same text to a JSON reader, harmless to a terminal.
std::string EscapedJson(std::string_view json);
// The value of a name's attribute by RFC 4514, 2.4; unsafe characters as pairs of hexadecimal digits.
std::string EscapedNameValue(std::string_view utf8);

// Lower-case digits; separator may be empty.
std::string HexText(std::span<const BYTE> bytes, std::string_view separator = {});
// The bytes of hexadecimal digits from the command line; colons and blanks between them are passed over. Wrong usage of the
// option when they are none.
std::vector<BYTE> BytesOfHex(const std::string& text, const std::string& option);
// ISO 8601 in UTC, to the second, or to the millisecond where there are some; "none" for no time.
std::string TimeText(const FILETIME& time);
// A little-endian two's complement number in decimal; more than 32 bytes in hexadecimal, after "0x".
std::string NumberText(std::span<const BYTE> little);

}  // namespace certkern::cli

#endif
