// Values without values inside.
#include <algorithm>
#include <cstring>

#include "asn1rt/decode_run.h"
#include "platform/limits.h"

namespace certkern {
namespace {

constexpr Asn1Tag kBitStringTag = MakeTag(TagClass::Universal, 3);
constexpr Asn1Tag kOctetStringTag = MakeTag(TagClass::Universal, 4);
constexpr size_t kMaxBitOctets = UINT32_MAX / 8;

size_t ContentSize(const ElementHeader& header) { return static_cast<size_t>(header.end - header.content); }

// Sign octets that say nothing may stand in front of a number that fits.
const uint8_t* SkipSignOctets(const uint8_t* at, const uint8_t* end) {
  while (end - at > 4 && ((at[0] == 0x00 && at[1] < 0x80) || (at[0] == 0xFF && at[1] >= 0x80))) ++at;
  return at;
}

// Each arc ends with an octet whose top bit is clear; the first octets hold two arcs.
size_t CountArcs(const uint8_t* at, const uint8_t* end) {
  return 1 + static_cast<size_t>(std::count_if(at, end, [](uint8_t octet) { return octet < 0x80; }));
}

// Null when the arc is malformed or needs more than 32 bits, and for the first two together a little more.
const uint8_t* ReadArc(const uint8_t* at, const uint8_t* end, uint64_t largest, uint64_t& arc) {
  arc = 0;
  if (at == end || *at == 0x80) return nullptr;
  while (at != end) {
    arc = arc << 7 | (*at & 0x7Fu);
    if (arc > largest) return nullptr;
    if (*at++ < 0x80) return at;
  }
  return nullptr;
}

bool ReadArcs(const uint8_t* at, const uint8_t* end, uint32_t* arcs) {
  uint64_t arc;
  at = ReadArc(at, end, UINT32_MAX + uint64_t{80}, arc);
  if (!at) return false;
  *arcs = static_cast<uint32_t>(std::min<uint64_t>(arc / 40, 2));
  arcs[1] = static_cast<uint32_t>(arc - uint64_t{*arcs} * 40);
  for (arcs += 2; at != end; ++arcs) {
    at = ReadArc(at, end, UINT32_MAX, arc);
    if (!at) return false;
    *arcs = static_cast<uint32_t>(arc);
  }
  return true;
}

}  // namespace

int DecodeRun::boolean(bool& value, const ElementHeader& header) {
  if (header.constructed) return fail(ASN1_E_WRONG_TAG);
  if (ContentSize(header) != 1) return fail(ASN1_E_BAD_LENGTH);
  value = *header.content != 0;
  at_ = header.end;
  return ASN1_OK;
}

int DecodeRun::int32(int32_t& value, const ElementHeader& header) {
  if (header.constructed) return fail(ASN1_E_WRONG_TAG);
  if (ContentSize(header) == 0) return fail(ASN1_E_BAD_LENGTH);
  const uint8_t* const at = SkipSignOctets(header.content, header.end);
  if (header.end - at > 4) return fail(ASN1_E_BAD_VALUE);
  uint32_t number = *at & 0x80 ? ~0u : 0;
  for (const uint8_t octet : std::span(at, header.end)) number = number << 8 | octet;
  value = static_cast<int32_t>(number);
  at_ = header.end;
  return ASN1_OK;
}

int DecodeRun::integer(ASN1BigInteger& value, const ElementHeader& header) {
  if (header.constructed) return fail(ASN1_E_WRONG_TAG);
  if (ContentSize(header) == 0) return fail(ASN1_E_BAD_LENGTH);
  value = {static_cast<uint32_t>(ContentSize(header)), header.content};
  at_ = header.end;
  return ASN1_OK;
}

int DecodeRun::null(const ElementHeader& header) {
  if (header.constructed) return fail(ASN1_E_WRONG_TAG);
  if (ContentSize(header) != 0) return fail(ASN1_E_BAD_LENGTH);
  at_ = header.end;
  return ASN1_OK;
}

int DecodeRun::objectId(ASN1ObjectId& value, const ElementHeader& header) {
  if (header.constructed) return fail(ASN1_E_WRONG_TAG);
  const size_t count = CountArcs(header.content, header.end);
  if (count > kMaxOidArcs) return fail(ASN1_E_TOO_MANY);
  if (count < 2) return fail(ASN1_E_BAD_VALUE);
  auto* const arcs = static_cast<uint32_t*>(allocate(count * sizeof(uint32_t), false));
  if (!arcs) return ASN1_E_NO_MEMORY;
  if (header.end[-1] >= 0x80 || !ReadArcs(header.content, header.end, arcs)) return fail(ASN1_E_BAD_VALUE);
  value = {static_cast<uint32_t>(count), arcs};
  at_ = header.end;
  return ASN1_OK;
}

// --- strings, in one piece or in segments ---

struct DecodeRun::Join {
  Asn1Tag segmentTag;
  Asn1Tag alsoTag;
  bool bits;
  uint8_t unusedBits = 0;  // of the segment that was seen last
  uint8_t* out = nullptr;  // null in the pass that measures
  uint64_t size = 0;
  size_t count = 0;
  const uint8_t* data = nullptr;  // the segment that was seen last, then the whole
};

int DecodeRun::segment(const ElementHeader& header, Join& join) {
  std::span<const uint8_t> piece(header.content, header.end);
  if (join.bits) {
    if (join.unusedBits != 0) return fail(ASN1_E_BAD_VALUE);  // only the last segment may end inside an octet
    if (piece.empty()) return fail(ASN1_E_BAD_LENGTH);
    join.unusedBits = piece.front();
    piece = piece.subspan(1);
    if (join.unusedBits > 7 || (piece.empty() && join.unusedBits)) return fail(ASN1_E_BAD_VALUE);
  }
  if (join.out) std::ranges::copy(piece, join.out + join.size);
  join.size += piece.size();
  join.data = piece.data();
  ++join.count;
  at_ = header.end;
  return ASN1_OK;
}

int DecodeRun::segments(const ElementHeader& header, Join& join) {
  if (++depth_ > kMaxAsn1Depth) return fail(ASN1_E_TOO_DEEP);
  at_ = header.content;
  while (!atEnd(header)) {
    ElementHeader inner;
    if (const int status = readHeader(header.end, inner); status < 0) return status;
    if (inner.tag != join.segmentTag && inner.tag != join.alsoTag) return fail(ASN1_E_WRONG_TAG);
    const int status = inner.constructed ? segments(inner, join) : segment(inner, join);
    if (status < 0) return status;
  }
  --depth_;
  return leave(header);
}

int DecodeRun::joined(Asn1Tag segmentTag, Asn1Tag alsoTag, const ElementHeader& header, Join& join) {
  join = {segmentTag, alsoTag, segmentTag == kBitStringTag};
  join.data = header.content;
  if (!header.constructed) return segment(header, join);
  if (const int status = segments(header, join); status < 0) return status;
  if (join.count <= 1) return ASN1_OK;
  const uint64_t size = join.size;
  join = {segmentTag, alsoTag, join.bits};
  join.out = static_cast<uint8_t*>(allocate(size, false));
  if (!join.out) return ASN1_E_NO_MEMORY;
  if (const int status = segments(header, join); status < 0) return status;
  join.data = join.out;
  return ASN1_OK;
}

int DecodeRun::octets(ASN1OctetString& value, const ElementHeader& header) {
  if (!header.constructed) {
    value = {static_cast<uint32_t>(ContentSize(header)), header.content};
    at_ = header.end;
    return ASN1_OK;
  }
  Join join;
  if (const int status = joined(kOctetStringTag, kOctetStringTag, header, join); status < 0) return status;
  value = {static_cast<uint32_t>(join.size), join.data};
  return ASN1_OK;
}

int DecodeRun::bits(ASN1BitString& value, const ElementHeader& header) {
  Join join;
  if (const int status = joined(kBitStringTag, kBitStringTag, header, join); status < 0) return status;
  if (join.size > kMaxBitOctets) return fail(ASN1_E_BAD_LENGTH);
  value = {static_cast<uint32_t>(join.size * 8 - join.unusedBits), join.data};
  return ASN1_OK;
}

// The segments of a character string are octet strings; some writers give them the string's own tag.
int DecodeRun::text(ASN1Text& value, const ElementHeader& header) {
  if (!header.constructed) {
    value = {static_cast<uint32_t>(ContentSize(header)), reinterpret_cast<const char*>(header.content)};
    at_ = header.end;
    return ASN1_OK;
  }
  Join join;
  if (const int status = joined(kOctetStringTag, header.tag, header, join); status < 0) return status;
  value = {static_cast<uint32_t>(join.size), reinterpret_cast<const char*>(join.data)};
  return ASN1_OK;
}

}  // namespace certkern
