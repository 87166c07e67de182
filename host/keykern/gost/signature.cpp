// GOST R 34.10 signatures. RFC 7091, 6; RFC 5832, 6
#include "keykern/gost/curve.h"
#include "keykern/gost/curve_internals.h"

namespace keykern::gost {
namespace {

// More than one attempt in 2^128 means that the generator is broken.
constexpr int kMaxAttempts = 4;

// The hash modulo q; 0 counts as 1.
Bignum ReadHash(const Curve& curve, std::span<const BYTE> hash, BN_CTX* context) {
  Bignum e = ReadReduced(curve, hash, context);
  if (e && BN_is_zero(e.get()) && !BN_one(e.get())) return nullptr;
  return e;
}

// x(point) mod q
bool ReducedX(const Curve& curve, const EC_POINT* point, BIGNUM* x, BN_CTX* context) {
  return EC_POINT_get_affine_coordinates(curve.group(), point, x, nullptr, context)
      && BN_nnmod(x, x, curve.order(), context);
}

class Signer {
 public:
  explicit Signer(const Curve& curve) : curve_(curve) {}

  // number: checked
  bool start(std::span<const BYTE> number, std::span<const BYTE> hash) {
    context_ = NewSecretContext();
    if (!context_) return false;
    d_ = ReadSecret(number);
    e_ = ReadHash(curve_, hash, context_.get());
    k_ = NewSecret();
    s_ = NewSecret();
    rd_ = NewSecret();
    r_.reset(BN_new());
    point_ = curve_.newPoint();
    return d_ && e_ && k_ && s_ && rd_ && r_ && point_
        && curve_.toMontgomery(e_.get(), e_.get(), context_.get());
  }

  bool randomK() {
    do {
      if (!BN_priv_rand_range_ex(k_.get(), curve_.order(), 0, context_.get())) return false;
    } while (BN_is_zero(k_.get()));
    return true;
  }
  bool setK(std::span<const BYTE> k) {
    k_ = ReadSecret(k);
    return k_ != nullptr;
  }

  // s = r d + k e. One factor of each product is public and goes into Montgomery's form, so that the other, which is
  // secret, is used as it is.
  bool attempt() {
    if (!EC_POINT_mul(curve_.group(), point_.get(), k_.get(), nullptr, nullptr, context_.get())
        || !ReducedX(curve_, point_.get(), r_.get(), context_.get())
        || !curve_.toMontgomery(rd_.get(), r_.get(), context_.get())) {
      return false;
    }
    return curve_.montgomeryMultiply(rd_.get(), rd_.get(), d_.get(), context_.get())
        && curve_.montgomeryMultiply(s_.get(), k_.get(), e_.get(), context_.get())
        && BN_mod_add_quick(s_.get(), s_.get(), rd_.get(), curve_.order());
  }
  bool valid() const { return !BN_is_zero(r_.get()) && !BN_is_zero(s_.get()); }

  bool write(SecretBytes& signature) const {
    const int size = static_cast<int>(curve_.size());
    signature.resize(2 * curve_.size());
    return BN_bn2binpad(s_.get(), signature.data(), size) == size
        && BN_bn2binpad(r_.get(), signature.data() + size, size) == size;
  }

 private:
  const Curve& curve_;
  BignumContext context_;
  Bignum d_, e_, k_, r_, s_, rd_;
  Point point_;
};

// Big-endian; null unless it is above 0 and below the order.
Bignum ReadHalf(const Curve& curve, std::span<const BYTE> half) {
  Bignum number(BN_bin2bn(half.data(), static_cast<int>(half.size()), nullptr));
  if (!number || BN_is_zero(number.get()) || BN_cmp(number.get(), curve.order()) >= 0) return nullptr;
  return number;
}

}  // namespace

bool Sign(const Curve& curve, std::span<const BYTE> number, std::span<const BYTE> hash,
          SecretBytes& signature) {
  Signer signer(curve);
  if (!IsPrivate(curve, number) || hash.size() != curve.size() || !signer.start(number, hash)) return false;
  for (int i = 0; i < kMaxAttempts; ++i) {
    if (!signer.randomK() || !signer.attempt()) return false;
    if (signer.valid()) return signer.write(signature);
  }
  return false;
}

bool SignWith(const Curve& curve, std::span<const BYTE> number, std::span<const BYTE> hash,
              std::span<const BYTE> k, SecretBytes& signature) {
  Signer signer(curve);
  if (!IsPrivate(curve, number) || !IsPrivate(curve, k) || hash.size() != curve.size()) return false;
  return signer.start(number, hash) && signer.setK(k) && signer.attempt() && signer.valid()
      && signer.write(signature);
}

// R = x(s/e P - r/e Q) mod q must be r.
bool Verify(const Curve& curve, std::span<const BYTE> point, std::span<const BYTE> hash,
            std::span<const BYTE> signature) {
  const size_t size = curve.size();
  if (hash.size() != size || signature.size() != 2 * size) return false;
  const Bignum s = ReadHalf(curve, signature.first(size));
  const Bignum r = ReadHalf(curve, signature.last(size));
  const BignumContext context = NewPublicContext();
  if (!s || !r || !context) return false;
  const Bignum e = ReadHash(curve, hash, context.get());
  const Point key = ReadPoint(curve, point, context.get());
  const Point sum = curve.newPoint();
  const Bignum z1(BN_new()), z2(BN_new());
  if (!e || !key || !sum || !z1 || !z2) return false;
  BN_CTX* scratch = context.get();
  const BIGNUM* q = curve.order();
  return BN_mod_inverse(e.get(), e.get(), q, scratch) && BN_mod_mul(z1.get(), s.get(), e.get(), q, scratch)
      && BN_mod_mul(z2.get(), r.get(), e.get(), q, scratch) && BN_sub(z2.get(), q, z2.get())
      && EC_POINT_mul(curve.group(), sum.get(), z1.get(), key.get(), z2.get(), scratch)
      && !EC_POINT_is_at_infinity(curve.group(), sum.get()) && ReducedX(curve, sum.get(), z1.get(), scratch)
      && BN_cmp(z1.get(), r.get()) == 0;
}

}  // namespace keykern::gost
