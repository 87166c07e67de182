#include "keykern/gost/curve.h"

#include "keykern/crypto_library.h"
#include "keykern/error_mark.h"
#include "keykern/gost/curve_internals.h"

#include <openssl/err.h>

#include <atomic>

namespace keykern::gost {
namespace {

Bignum FromHexadecimal(const char* digits) {
  BIGNUM* number = nullptr;
  BN_hex2bn(&number, digits);
  return Bignum(number);
}

Bignum ReadInto(BIGNUM* empty, std::span<const BYTE> bytes) {
  Bignum number(empty);
  if (!number || !BN_lebin2bn(bytes.data(), static_cast<int>(bytes.size()), number.get())) return nullptr;
  return number;
}

}  // namespace

BignumContext NewSecretContext() { return BignumContext(BN_CTX_secure_new_ex(LibcryptoContext())); }
BignumContext NewPublicContext() { return BignumContext(BN_CTX_new_ex(LibcryptoContext())); }

Bignum NewSecret() {
  Bignum number(BN_secure_new());
  if (number) BN_set_flags(number.get(), BN_FLG_CONSTTIME);
  return number;
}

Bignum ReadSecret(std::span<const BYTE> bytes) { return ReadInto(NewSecret().release(), bytes); }
Bignum ReadPublic(std::span<const BYTE> bytes) { return ReadInto(BN_new(), bytes); }

Bignum ReadReduced(const Curve& curve, std::span<const BYTE> bytes, BN_CTX* context) {
  Bignum number = ReadPublic(bytes);
  if (!number || !BN_nnmod(number.get(), number.get(), curve.order(), context)) return nullptr;
  return number;
}

Point ReadPoint(const Curve& curve, std::span<const BYTE> bytes, BN_CTX* context) {
  if (bytes.size() != 2 * curve.size()) return nullptr;
  const Bignum x = ReadPublic(bytes.first(curve.size()));
  const Bignum y = ReadPublic(bytes.last(curve.size()));
  Point point = curve.newPoint();
  if (!x || !y || !point) return nullptr;
  // Libcrypto would reduce them, and one point would have several encodings.
  if (BN_cmp(x.get(), curve.field()) >= 0 || BN_cmp(y.get(), curve.field()) >= 0) return nullptr;
  const ErrorMark mark;
  if (!EC_POINT_set_affine_coordinates(curve.group(), point.get(), x.get(), y.get(), context)) return nullptr;
  return point;
}

bool WritePoint(const Curve& curve, const EC_POINT* point, SecretBytes& bytes, BN_CTX* context) {
  if (EC_POINT_is_at_infinity(curve.group(), point)) return false;
  const Bignum x = NewSecret();
  const Bignum y = NewSecret();
  if (!x || !y) return false;
  if (!EC_POINT_get_affine_coordinates(curve.group(), point, x.get(), y.get(), context)) return false;
  const int size = static_cast<int>(curve.size());
  bytes.resize(2 * curve.size());
  return BN_bn2lebinpad(x.get(), bytes.data(), size) == size
      && BN_bn2lebinpad(y.get(), bytes.data() + size, size) == size;
}

std::unique_ptr<const Curve> Curve::make(const CurveNumbers& numbers) {
  std::unique_ptr<Curve> curve(new Curve);  // the constructor is for this function alone
  if (!curve->build(numbers)) return nullptr;
  return curve;
}

// The cofactor must be told: without it libcrypto multiplies by secrets in a time that depends on them.
bool Curve::build(const CurveNumbers& numbers) {
  const BignumContext context = NewPublicContext();
  const Bignum p = FromHexadecimal(numbers.p), a = FromHexadecimal(numbers.a), b = FromHexadecimal(numbers.b);
  const Bignum q = FromHexadecimal(numbers.q), x = FromHexadecimal(numbers.x), y = FromHexadecimal(numbers.y);
  const Bignum cofactor(BN_new());
  if (!context || !p || !a || !b || !q || !x || !y || !cofactor) return false;
  size_ = numbers.bits / 8;
  cofactorLog2_ = numbers.cofactorLog2;
  group_.reset(EC_GROUP_new_curve_GFp(p.get(), a.get(), b.get(), context.get()));
  montgomery_.reset(BN_MONT_CTX_new());
  if (!group_ || !montgomery_) return false;
  const Point generator = newPoint();
  const int size = static_cast<int>(size_);
  return generator
      && EC_POINT_set_affine_coordinates(group_.get(), generator.get(), x.get(), y.get(), context.get())
      && BN_set_bit(cofactor.get(), cofactorLog2_)
      && EC_GROUP_set_generator(group_.get(), generator.get(), q.get(), cofactor.get())
      && BN_MONT_CTX_set(montgomery_.get(), q.get(), context.get())
      && BN_bn2lebinpad(q.get(), orderBytes_.data(), size) == size;
}

bool Curve::montgomeryMultiply(BIGNUM* product, const BIGNUM* a, const BIGNUM* b, BN_CTX* context) const {
  return BN_mod_mul_montgomery(product, a, b, montgomery_.get(), context) == 1;
}

bool Curve::toMontgomery(BIGNUM* result, const BIGNUM* a, BN_CTX* context) const {
  return BN_to_montgomery(result, a, montgomery_.get(), context) == 1;
}

// Without a lock, which a fork could leave taken. Who comes second throws his own away.
const Curve* CurveOf(const ParameterSet& set) {
  static constinit std::atomic<const Curve*> curves[kCurveCount] = {};
  std::atomic<const Curve*>& slot = curves[set.curve];
  if (const Curve* ready = slot.load(std::memory_order_acquire)) return ready;
  std::unique_ptr<const Curve> made = Curve::make(NumbersOf(set.curve));
  const Curve* first = nullptr;
  if (!made || !slot.compare_exchange_strong(first, made.get(), std::memory_order_acq_rel)) return first;
  return made.release();
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
  const BignumContext context = NewSecretContext();
  const Bignum secret = NewSecret();
  if (!context || !secret) return false;
  do {
    if (!BN_priv_rand_range_ex(secret.get(), curve.order(), 0, context.get())) return false;
  } while (BN_is_zero(secret.get()));
  const int size = static_cast<int>(curve.size());
  number.resize(curve.size());
  return BN_bn2lebinpad(secret.get(), number.data(), size) == size;
}

bool PublicOf(const Curve& curve, std::span<const BYTE> number, SecretBytes& point) {
  if (!IsPrivate(curve, number)) return false;
  const BignumContext context = NewSecretContext();
  const Bignum secret = ReadSecret(number);
  const Point product = curve.newPoint();
  return context && secret && product
      && EC_POINT_mul(curve.group(), product.get(), secret.get(), nullptr, nullptr, context.get())
      && WritePoint(curve, product.get(), point, context.get());
}

bool IsPublic(const Curve& curve, std::span<const BYTE> bytes) {
  const BignumContext context = NewPublicContext();
  if (!context) return false;
  const Point point = ReadPoint(curve, bytes, context.get());
  if (!point) return false;
  if (curve.cofactorLog2() == 0) return true;
  const Point product = curve.newPoint();
  return product
      && EC_POINT_mul(curve.group(), product.get(), nullptr, point.get(), curve.order(), context.get())
      && EC_POINT_is_at_infinity(curve.group(), product.get());
}

bool MultiplyNumbers(const Curve& curve, std::span<const BYTE> a, std::span<const BYTE> b,
                     SecretBytes& product) {
  if (a.size() != curve.size() || b.size() != curve.size()) return false;
  const BignumContext context = NewSecretContext();
  const Bignum left = ReadSecret(a);
  const Bignum right = ReadSecret(b);
  if (!context || !left || !right) return false;
  if (!curve.toMontgomery(left.get(), left.get(), context.get())
      || !curve.montgomeryMultiply(left.get(), left.get(), right.get(), context.get())) {
    return false;
  }
  const int size = static_cast<int>(curve.size());
  product.resize(curve.size());
  return BN_bn2lebinpad(left.get(), product.data(), size) == size;
}

bool SharedPoint(const Curve& curve, std::span<const BYTE> number, std::span<const BYTE> ukm,
                 std::span<const BYTE> point, SecretBytes& shared) {
  if (!IsPrivate(curve, number)) return false;
  const BignumContext context = NewSecretContext();
  const Bignum scalar = ReadSecret(number);
  if (!context || !scalar) return false;
  const Bignum factor = ReadReduced(curve, ukm, context.get());
  const Point base = ReadPoint(curve, point, context.get());
  const Point product = curve.newPoint();
  if (!factor || BN_is_zero(factor.get()) || !base || !product) return false;
  // The cofactor comes first, so that no part of the secret meets a point of small order.
  for (int i = 0; i < curve.cofactorLog2(); ++i) {
    if (!EC_POINT_dbl(curve.group(), base.get(), base.get(), context.get())) return false;
  }
  if (EC_POINT_is_at_infinity(curve.group(), base.get())) return false;
  return curve.toMontgomery(factor.get(), factor.get(), context.get())
      && curve.montgomeryMultiply(scalar.get(), scalar.get(), factor.get(), context.get())
      && EC_POINT_mul(curve.group(), product.get(), nullptr, base.get(), scalar.get(), context.get())
      && WritePoint(curve, product.get(), shared, context.get());
}

}  // namespace keykern::gost
