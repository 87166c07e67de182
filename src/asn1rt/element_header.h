// Identifier and length octets: the only place of the runtime that looks at them.
#ifndef CERTKERN_ASN1RT_ELEMENT_HEADER_H
#define CERTKERN_ASN1RT_ELEMENT_HEADER_H

#include <cstdint>

#include "asn1rt/status.h"
#include "asn1rt/type_table.h"

namespace certkern {

struct ElementHeader {
  const uint8_t* start;    // of the identifier
  const uint8_t* content;  // behind the length
  const uint8_t* end;      // of the content; when that is not stated, the furthest that it may go
  Asn1Tag tag;
  bool constructed;
  bool indefinite;
};

namespace header_detail {
// Tag numbers above 30, lengths above 127. They move `at` on.
int ReadLongTag(const uint8_t*& at, const uint8_t* limit, Asn1Tag& tag);
int ReadLongLength(const uint8_t*& at, const uint8_t* limit, uint8_t first, ElementHeader& header);
}  // namespace header_detail

inline bool IsEndOfContents(const uint8_t* at, const uint8_t* limit) {
  return limit - at >= 2 && at[0] == 0 && at[1] == 0;
}

// End-of-contents octets are no element: whoever may meet them asks first.
inline int ReadElementHeader(const uint8_t* at, const uint8_t* limit, ElementHeader& header) {
  if (limit - at < 2) return ASN1_E_END_OF_INPUT;
  header.start = at;
  const uint8_t identifier = *at++;
  header.constructed = identifier & 0x20;
  header.tag = uint32_t{identifier} >> 6 << 30 | (identifier & 0x1Fu);
  if ((identifier & 0x1F) == 0x1F) [[unlikely]] {
    if (const int status = header_detail::ReadLongTag(at, limit, header.tag); status < 0) return status;
    if (at == limit) return ASN1_E_END_OF_INPUT;
  }
  if (header.tag == 0) return ASN1_E_BAD_VALUE;
  const uint8_t length = *at++;
  header.indefinite = false;
  if (length < 0x80) {
    if (length > limit - at) return ASN1_E_END_OF_INPUT;
    header.content = at;
    header.end = at + length;
    return ASN1_OK;
  }
  return header_detail::ReadLongLength(at, limit, length, header);
}

}  // namespace certkern

#endif
