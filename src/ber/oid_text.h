// Object identifiers between dotted decimal and content octets. X.690, 8.19.
#ifndef CERTKERN_BER_OID_TEXT_H
#define CERTKERN_BER_OID_TEXT_H

#include <certkern/types.h>

#include <cstddef>
#include <span>

namespace certkern {

// Content octets of a dotted string. Full stops and blanks separate, mixed freely; an empty arc between two of them
// stands for 0. Arcs are taken modulo 2^64. Failures carry no code.
// @param target  receives the octets; null only counts
// @param count   in, with a target: its size, which is never passed, whatever became of the string; out: octets
[[nodiscard]] bool BerEncodeOid(LPCSTR dotted, BYTE* target, size_t& count);

// Dotted string, NUL included, of content octets. An arc may have eight octets; a first octet group of 120 and above
// is refused, although the encoder writes it. Failures carry no code.
// @param out  receives the text; null only counts
[[nodiscard]] bool BerDecodeOid(std::span<const BYTE> content, char* out, size_t& outLength);

// The same into room for OidTextBound characters, all of which it may overwrite: one pass, and quicker.
[[nodiscard]] bool BerDecodeOidRoomy(std::span<const BYTE> content, char* out, size_t& outLength);
constexpr size_t OidTextBound(size_t contentSize) { return 4 * contentSize + 2; }

}  // namespace certkern

#endif
