#include "keykern/gost/private_number.h"

#include "common/der.h"
#include "platform/limits.h"

#include <algorithm>

namespace keykern::gost {
namespace {

namespace der = certkern::der;

// Programs write one; each costs a multiplication.

bool IsBlocks(const Curve& curve, std::span<const BYTE> octets) {
  return !octets.empty() && octets.size() % SizeOf(curve) == 0
      && octets.size() / SizeOf(curve) <= 1 + certkern::kMaxKeyMasks;
}

// The masked number, then its masks.
bool Unmask(const Curve& curve, std::span<const BYTE> blocks, SecretBytes& number) {
  const size_t size = SizeOf(curve);
  number = certkern::ToSecret(blocks.first(size));
  for (blocks = blocks.subspan(size); !blocks.empty(); blocks = blocks.subspan(size)) {
    if (!MultiplyNumbers(curve, number, blocks.first(size), number)) return false;
  }
  return true;
}

bool FromInteger(const Curve& curve, std::span<const BYTE> magnitude, SecretBytes& number) {
  if (magnitude.size() > SizeOf(curve)) return false;
  number.assign(SizeOf(curve), 0);
  std::reverse_copy(magnitude.begin(), magnitude.end(), number.begin());
  return true;
}

// The length decides first: a bare number may begin as if it were an element.
bool ReadForm(const Curve& curve, std::span<const BYTE> octets, SecretBytes& number) {
  if (IsBlocks(curve, octets)) return Unmask(curve, octets, number);
  der::Reader in(octets);
  std::span<const BYTE> content;
  if (in.takeUnsigned(content)) return in.empty() && FromInteger(curve, content, number);
  return in.take(der::kOctetString, content) && in.empty() && IsBlocks(curve, content)
      && Unmask(curve, content, number);
}

}  // namespace

bool ReadPrivateNumber(const Curve& curve, std::span<const BYTE> octets, SecretBytes& number) {
  SecretBytes candidate;
  if (!ReadForm(curve, octets, candidate) || !IsPrivate(curve, candidate)) return false;
  number = std::move(candidate);
  return true;
}

}  // namespace keykern::gost
