#include "keykern/gost/curve.h"

#include "keykern/crypto_library.h"
#include "keykern/gost/curve_internals.h"

#include <openssl/bn.h>

namespace keykern::gost {
namespace {

struct Release {
  void operator()(BIGNUM* number) const { BN_clear_free(number); }
  void operator()(BN_CTX* context) const { BN_CTX_free(context); }
};
using Bignum = std::unique_ptr<BIGNUM, Release>;
using BignumContext = std::unique_ptr<BN_CTX, Release>;

}  // namespace

const Curve* CurveOf(const ParameterSet& set) {
  static constinit MadeOnce<Curve> curves[kCurveCount];
  return curves[set.curve].get([&set] { return Curve::make(NumbersOf(set.curve)); });
}

size_t SizeOf(const Curve& curve) { return curve.size(); }

// Subtracts the order and looks at the borrow, so that time tells nothing about the number.
bool IsPrivate(const Curve& curve, std::span<const BYTE> number) {
  const std::span<const BYTE> order = curve.orderBytes();
  if (number.size() != order.size()) return false;
  unsigned borrow = 0, any = 0;
  for (size_t i = 0; i < order.size(); ++i) {
    borrow = ((unsigned{number[i]} - order[i] - borrow) >> 8) & 1;
    any |= number[i];
  }
  return borrow != 0 && any != 0;
}

bool RandomPrivate(const Curve& curve, SecretBytes& number) {
  const int size = static_cast<int>(curve.size());
  const BignumContext context(BN_CTX_secure_new_ex(LibcryptoContext()));
  const Bignum secret(BN_secure_new());
  const Bignum order(BN_lebin2bn(curve.orderBytes().data(), size, nullptr));
  if (!context || !secret || !order) return false;
  BN_set_flags(secret.get(), BN_FLG_CONSTTIME);
  do {
    if (!BN_priv_rand_range_ex(secret.get(), order.get(), 0, context.get())) return false;
  } while (BN_is_zero(secret.get()));
  number.resize(curve.size());
  return BN_bn2lebinpad(secret.get(), number.data(), size) == size;
}

bool PublicOf(const Curve& curve, std::span<const BYTE> number, SecretBytes& point) {
  if (!IsPrivate(curve, number)) return false;
  SecretBytes made(2 * curve.size());
  if (!curve.publicOf(number, made)) return false;
  point = std::move(made);
  return true;
}

bool IsPublic(const Curve& curve, std::span<const BYTE> point) { return curve.isPublic(point); }

bool MultiplyNumbers(const Curve& curve, std::span<const BYTE> a, std::span<const BYTE> b,
                     SecretBytes& product) {
  if (a.size() != curve.size() || b.size() != curve.size()) return false;
  SecretBytes made(curve.size());  // the product may be one of the factors
  curve.multiplyNumbers(a, b, made);
  product = std::move(made);
  return true;
}

bool SharedPoint(const Curve& curve, std::span<const BYTE> number, std::span<const BYTE> ukm,
                 std::span<const BYTE> point, SecretBytes& shared) {
  if (!IsPrivate(curve, number)) return false;
  SecretBytes made(2 * curve.size());
  if (!curve.sharedPoint(number, ukm, point, made)) return false;
  shared = std::move(made);
  return true;
}

}  // namespace keykern::gost
