// Base64 of RFC 4648, section 4: the core under PEM, the exported text functions and the byte buffers of the messages.
//
// Lines that are written take 48 bytes, 64 characters, and end with a single line feed. Reading takes lines of any
// length, and blanks, tabs and line ends anywhere. The caller owns every buffer; nothing here allocates or throws.
#ifndef CERTKERN_TEXT_BASE64_H
#define CERTKERN_TEXT_BASE64_H

#include <certkern/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace certkern {

enum class LineEnds { Written, None };

// The exact number of characters that Base64Write makes of so many bytes.
uint64_t Base64TextLength(size_t length, LineEnds lineEnds);

// Writes the text, without a NUL, and answers where it ends. There must be room for Base64TextLength characters; the
// text must not overlap the data.
char* Base64Write(std::span<const BYTE> data, LineEnds lineEnds, char* out);

// Checks a whole text and answers how many bytes it stands for.
// Nothing, with CRYPT_E_BAD_ENCODE: a character outside the alphabet, padding anywhere but at the end of the text or
// of 64 significant characters, more than two padding characters, or a count that is not a multiple of 4. A text
// without significant characters stands for no bytes, and "-" ends the text, as the banner behind a body does.
std::optional<uint64_t> Base64DecodedSize(std::string_view text);

// Writes the bytes of a text that Base64DecodedSize has measured. The bytes must not overlap the text.
void Base64Read(std::string_view text, BYTE* out);

// The two directions as one call each, with the size rules of the exported functions: a null out asks for the size,
// and too little room is ERROR_MORE_DATA with the size in *outLength.

// What is left to do once the size of a text is known.
enum class SizeAnswer { Refused, SizeOnly, Write };
// Answers with the size: a null out asks for no more; too little room is ERROR_MORE_DATA; a size above 32 bits is
// ERROR_INVALID_PARAMETER, and *outLength stays.
SizeAnswer AnswerSize(uint64_t size, const char* out, DWORD* outLength);

// The size asked for is an upper bound: without line ends (CRYPT_STRING_NOCRLF in flags) each full line is still
// counted with one. *outLength is the exact count after writing. A size query sets the last error to 0.
// Fails with ERROR_BAD_ARGUMENTS for null data or outLength, ERROR_INVALID_PARAMETER for a size above 32 bits.
[[nodiscard]] bool Base64Encode(const BYTE* data, DWORD length, char* out, DWORD* outLength, DWORD flags);

// Fails with ERROR_BAD_ARGUMENTS for null text or outLength, CRYPT_E_BAD_ENCODE for a bad text; *outLength is 0 then.
[[nodiscard]] bool Base64Decode(const char* text, DWORD length, BYTE* out, DWORD* outLength);

}  // namespace certkern

#endif
