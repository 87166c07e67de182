// What the files of this folder share: the numbers of the curves, and owners for libcrypto's objects.
#ifndef CERTKERN_KEYKERN_GOST_CURVE_INTERNALS_H
#define CERTKERN_KEYKERN_GOST_CURVE_INTERNALS_H

#include "keykern/gost/curve.h"

#include <openssl/bn.h>
#include <openssl/ec.h>

#include <array>
#include <memory>

namespace keykern::gost {

inline constexpr int kCurveCount = 9;
inline constexpr size_t kMaxNumberSize = 64;

// y^2 = x^3 + ax + b over the field of p elements; (x, y) makes a group of the prime order q, which is the whole curve
// where the cofactor is 1. Hexadecimal, big-endian.
struct CurveNumbers {
  DWORD bits;
  int cofactorLog2;
  const char* p;
  const char* a;
  const char* b;
  const char* q;
  const char* x;
  const char* y;
};
const CurveNumbers& NumbersOf(int curve);

struct Release {
  void operator()(BIGNUM* number) const { BN_clear_free(number); }
  void operator()(BN_CTX* context) const { BN_CTX_free(context); }
  void operator()(BN_MONT_CTX* context) const { BN_MONT_CTX_free(context); }
  void operator()(EC_GROUP* group) const { EC_GROUP_free(group); }
  void operator()(EC_POINT* point) const { EC_POINT_clear_free(point); }
};
using Bignum = std::unique_ptr<BIGNUM, Release>;
using BignumContext = std::unique_ptr<BN_CTX, Release>;
using Montgomery = std::unique_ptr<BN_MONT_CTX, Release>;
using Group = std::unique_ptr<EC_GROUP, Release>;
using Point = std::unique_ptr<EC_POINT, Release>;

class Curve {
 public:
  // Null when the library fails.
  static std::unique_ptr<const Curve> make(const CurveNumbers& numbers);

  size_t size() const { return size_; }
  int cofactorLog2() const { return cofactorLog2_; }
  const EC_GROUP* group() const { return group_.get(); }
  const BIGNUM* order() const { return EC_GROUP_get0_order(group_.get()); }
  const BIGNUM* field() const { return EC_GROUP_get0_field(group_.get()); }
  std::span<const BYTE> orderBytes() const { return std::span(orderBytes_).first(size_); }

  Point newPoint() const { return Point(EC_POINT_new(group_.get())); }
  // a b / R mod q with R the power of two of Montgomery's form: not bound to the values of a and b in time. a b < q R.
  bool montgomeryMultiply(BIGNUM* product, const BIGNUM* a, const BIGNUM* b, BN_CTX* context) const;
  // a R mod q
  bool toMontgomery(BIGNUM* result, const BIGNUM* a, BN_CTX* context) const;

 private:
  Curve() = default;
  bool build(const CurveNumbers& numbers);

  Group group_;
  Montgomery montgomery_;
  std::array<BYTE, kMaxNumberSize> orderBytes_{};
  size_t size_ = 0;
  int cofactorLog2_ = 0;
};

// The scratch of an operation; libcrypto wipes it as it goes back. Secret scratch may come out of the host's locked
// memory, of which there is little, so what is public leaves that alone.
BignumContext NewSecretContext();
BignumContext NewPublicContext();
// A number that libcrypto treats in constant time, and wipes. Null when memory is short.
Bignum NewSecret();
// From little-endian bytes; null when memory is short.
Bignum ReadSecret(std::span<const BYTE> bytes);
Bignum ReadPublic(std::span<const BYTE> bytes);
// The same, modulo the order.
Bignum ReadReduced(const Curve& curve, std::span<const BYTE> bytes, BN_CTX* context);

// From x | y. Null when a coordinate is not below p, or the point is not on the curve.
Point ReadPoint(const Curve& curve, std::span<const BYTE> bytes, BN_CTX* context);
// x | y; false for infinity.
bool WritePoint(const Curve& curve, const EC_POINT* point, SecretBytes& bytes, BN_CTX* context);

}  // namespace keykern::gost

#endif
