// Hexadecimal text without separators, two digits a byte.
#ifndef CERTKERN_TEXT_HEX_H
#define CERTKERN_TEXT_HEX_H

#include <certkern/types.h>

#include <span>
#include <string_view>

namespace certkern {

// Writes upper-case pairs, without a NUL, and answers where they end. There must be room for two characters a byte;
// the text must not overlap the data.
char* HexWrite(std::span<const BYTE> data, char* out);

// How many bytes the pairs at the beginning of a text stand for. White space may stand before and between pairs; the
// first other character that does not begin a pair ends the text without an error, and so does half a pair.
size_t HexDecodedSize(std::string_view text);

// Writes the bytes that HexDecodedSize has counted.
void HexRead(std::string_view text, BYTE* out);

}  // namespace certkern

#endif
