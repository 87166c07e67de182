// Long headers, and values without values inside.
#include "asn1rt/encode_run.h"

namespace certkern {
namespace {

constexpr size_t kMaxArcOctets = 5;
constexpr uint8_t kConstructed = 0x20;

// The arc's octets from its last, in front of `at`.
uint8_t* PutArcBackwards(uint8_t* at, uint64_t arc) {
  *--at = arc & 0x7F;
  while (arc >>= 7) *--at = 0x80 | (arc & 0x7F);
  return at;
}

uint8_t* PutLengthBackwards(uint8_t* at, uint32_t length) {
  if (length < 0x80) {
    *--at = static_cast<uint8_t>(length);
    return at;
  }
  const uint8_t* const end = at;
  for (; length; length >>= 8) *--at = static_cast<uint8_t>(length);
  const auto count = static_cast<uint8_t>(end - at);
  *--at = 0x80 | count;
  return at;
}

}  // namespace

int EncodeRun::longHeader(Asn1Tag tag, bool constructed, int length) {
  const auto first = static_cast<uint8_t>(tag >> 30 << 6 | (constructed ? kConstructed : 0u));
  if (NumberOf(tag) < 0x1F && length >= 0x100 && length < 0x10000) {  // what most of the long ones are
    uint8_t* const at = output_.prepend(4);
    if (!at) return fail(output_.status());
    at[0] = static_cast<uint8_t>(first | NumberOf(tag));
    at[1] = 0x82;
    at[2] = static_cast<uint8_t>(length >> 8);
    at[3] = static_cast<uint8_t>(length);
    return 4;
  }
  uint8_t octets[2 * (1 + kMaxArcOctets)];
  uint8_t* const end = std::end(octets);
  uint8_t* at = PutLengthBackwards(end, static_cast<uint32_t>(length));
  const bool isLong = NumberOf(tag) >= 0x1F;
  if (isLong) at = PutArcBackwards(at, NumberOf(tag));
  const uint32_t low = isLong ? 0x1Fu : NumberOf(tag);
  *--at = static_cast<uint8_t>(first | low);
  return bytes({at, end});
}

int EncodeRun::integer(int32_t value) {
  const auto number = static_cast<uint32_t>(value);
  const uint8_t octets[4] = {static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
                             static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
  const uint8_t sign = value < 0 ? 0xFF : 0x00;
  size_t first = 0;
  while (first < 3 && octets[first] == sign && ((octets[first + 1] ^ sign) & 0x80) == 0) ++first;
  return bytes(std::span(octets).subspan(first));
}

int EncodeRun::counted(const void* data, uint32_t count) {
  if (count && !data) return fail(ASN1_E_BAD_VALUE);
  return bytes({static_cast<const uint8_t*>(data), count});
}

// Unused bits are zero, whatever the value has there.
int EncodeRun::bits(const ASN1BitString& value) {
  const auto count = static_cast<uint32_t>((uint64_t{value.numbits} + 7) / 8);
  const int written = counted(value.data, count);
  if (written < 0) return written;
  const unsigned unused = (8 - value.numbits % 8) % 8;
  if (count) output_.start()[count - 1] &= static_cast<uint8_t>(0xFF << unused);
  uint8_t* const at = output_.prepend(1);
  if (!at) return fail(output_.status());
  *at = static_cast<uint8_t>(unused);
  return written + 1;
}

int EncodeRun::objectId(const ASN1ObjectId& value) {
  if (value.numids < 2 || value.numids > kMaxOidArcs || !value.subid) return fail(ASN1_E_BAD_VALUE);
  const uint32_t* const arcs = value.subid;
  if (arcs[0] > 2 || (arcs[0] < 2 && arcs[1] >= 40)) return fail(ASN1_E_BAD_VALUE);
  uint8_t octets[kMaxOidArcs * kMaxArcOctets];
  uint8_t* const end = std::end(octets);
  uint8_t* at = end;
  for (uint32_t i = value.numids - 1; i >= 2; --i) at = PutArcBackwards(at, arcs[i]);
  at = PutArcBackwards(at, uint64_t{arcs[0]} * 40 + arcs[1]);
  return bytes({at, end});
}

}  // namespace certkern
