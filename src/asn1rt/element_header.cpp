#include "asn1rt/element_header.h"

namespace certkern::header_detail {
namespace {

constexpr uint32_t kLargestTagNumber = NumberOf(~Asn1Tag{0});
constexpr uint8_t kIndefinite = 0x80;
constexpr uint8_t kReservedLength = 0xFF;

}  // namespace

int ReadLongTag(const uint8_t*& at, const uint8_t* limit, Asn1Tag& tag) {
  uint32_t number = 0;
  for (bool more = true; more;) {
    if (at == limit) return ASN1_E_END_OF_INPUT;
    if (number == 0 && *at == 0x80) return ASN1_E_BAD_VALUE;  // a leading zero has no meaning here
    if (number > kLargestTagNumber >> 7) return ASN1_E_BAD_VALUE;
    number = number << 7 | (*at & 0x7Fu);
    more = *at++ & 0x80;
  }
  tag = MakeTag(ClassOf(tag), number);
  return ASN1_OK;
}

int ReadLongLength(const uint8_t*& at, const uint8_t* limit, uint8_t first, ElementHeader& header) {
  if (first == kIndefinite) {
    if (!header.constructed) return ASN1_E_BAD_LENGTH;
    header.indefinite = true;
    header.content = at;
    header.end = limit;
    return ASN1_OK;
  }
  if (first == kReservedLength) return ASN1_E_BAD_LENGTH;
  uint64_t length = 0;
  for (int count = first & 0x7F; count > 0; --count) {
    if (at == limit || length > UINT64_MAX >> 8) return ASN1_E_END_OF_INPUT;
    length = length << 8 | *at++;
  }
  if (length > static_cast<uint64_t>(limit - at)) return ASN1_E_END_OF_INPUT;
  header.content = at;
  header.end = at + length;
  return ASN1_OK;
}

}  // namespace certkern::header_detail
