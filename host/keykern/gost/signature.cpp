// GOST R 34.10 signatures. RFC 7091, 6; RFC 5832, 6
#include "keykern/gost/curve.h"
#include "keykern/gost/curve_internals.h"

namespace keykern::gost {
namespace {

// More than one attempt in 2^128 means that the generator is broken.
constexpr int kMaxAttempts = 4;

bool SignOnce(const Curve& curve, std::span<const BYTE> number, std::span<const BYTE> hash,
              std::span<const BYTE> k, SecretBytes& signature) {
  SecretBytes made(2 * curve.size());
  if (!curve.sign(number, hash, k, made)) return false;
  signature = std::move(made);
  return true;
}

}  // namespace

bool Sign(const Curve& curve, std::span<const BYTE> number, std::span<const BYTE> hash,
          SecretBytes& signature) {
  if (!IsPrivate(curve, number) || hash.size() != curve.size()) return false;
  SecretBytes k;
  for (int i = 0; i < kMaxAttempts; ++i) {
    if (!RandomPrivate(curve, k)) return false;
    if (SignOnce(curve, number, hash, k, signature)) return true;
  }
  return false;
}

bool SignWith(const Curve& curve, std::span<const BYTE> number, std::span<const BYTE> hash,
              std::span<const BYTE> k, SecretBytes& signature) {
  if (!IsPrivate(curve, number) || !IsPrivate(curve, k) || hash.size() != curve.size()) return false;
  return SignOnce(curve, number, hash, k, signature);
}

bool Verify(const Curve& curve, std::span<const BYTE> point, std::span<const BYTE> hash,
            std::span<const BYTE> signature) {
  const size_t size = curve.size();
  return hash.size() == size && signature.size() == 2 * size && curve.verify(point, hash, signature);
}

}  // namespace keykern::gost
