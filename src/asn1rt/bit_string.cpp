#include "asn1rt/bit_string.h"

#include <algorithm>
#include <cstring>

namespace certkern {
namespace {

uint32_t OctetsOf(uint32_t bits) { return bits / 8 + (bits % 8 != 0); }
uint8_t MaskOf(uint32_t bit) { return static_cast<uint8_t>(0x80u >> bit % 8); }

}  // namespace

ASN1CBitStr::~ASN1CBitStr() = default;

bool ASN1CBitStr::test(uint32_t bit) const {
  return bit < size() && value().data && (value().data[bit / 8] & MaskOf(bit)) != 0;
}

uint32_t ASN1CBitStr::count() const {
  uint32_t count = 0;
  for (uint32_t bit = 0; bit < size(); ++bit) count += test(bit);
  return count;
}

uint8_t* ASN1CBitStr::writable(uint32_t bits) {
  const bool isOwn = own_ && value().data == own_ && bits <= ownBits_;
  if (isOwn) return const_cast<uint8_t*>(own_);  // this object made it, in the heap
  auto* const octets = static_cast<uint8_t*>(context().allocate(OctetsOf(bits)));
  if (!octets) return nullptr;
  const uint32_t kept = std::min(bits, size());
  if (kept && value().data) std::memcpy(octets, value().data, OctetsOf(kept));
  own_ = value().data = octets;
  ownBits_ = bits;
  return octets;
}

int ASN1CBitStr::set(uint32_t bit) {
  if (bit == UINT32_MAX) return context().fail(ASN1_E_BAD_VALUE);
  if (bit >= size()) {
    if (const int status = resize(bit + 1); status < 0) return status;
  }
  uint8_t* const octets = writable(size());
  if (!octets) return ASN1_E_NO_MEMORY;
  octets[bit / 8] |= MaskOf(bit);
  return ASN1_OK;
}

int ASN1CBitStr::clear(uint32_t bit) {
  if (!test(bit)) return ASN1_OK;
  uint8_t* const octets = writable(size());
  if (!octets) return ASN1_E_NO_MEMORY;
  octets[bit / 8] &= static_cast<uint8_t>(~MaskOf(bit));
  return ASN1_OK;
}

int ASN1CBitStr::resize(uint32_t bits) {
  const uint32_t kept = std::min(bits, size());
  uint8_t* const octets = writable(bits);
  if (!octets) return ASN1_E_NO_MEMORY;
  // what lies behind the old end is no part of the value, and may be anything
  if (kept % 8) octets[kept / 8] &= static_cast<uint8_t>(0xFF00u >> kept % 8);
  std::memset(octets + OctetsOf(kept), 0, OctetsOf(bits) - OctetsOf(kept));
  value().numbits = bits;
  return ASN1_OK;
}

void ASN1CBitStr::trim() {
  while (size() && !test(size() - 1)) --value().numbits;
}

}  // namespace certkern
