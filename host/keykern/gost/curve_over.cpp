#include "keykern/gost/curve_over.h"

#include <string_view>
namespace keykern::gost {
namespace {

constexpr Limb DigitOf(char digit) {
  return static_cast<Limb>(digit <= '9' ? digit - '0' : digit - 'A' + 10);
}

template <size_t N>
Number<N> FromHexadecimal(std::string_view digits) {
  Number<N> number{};
  for (size_t i = 0; i < digits.size(); ++i)
    number[i / 16] |= DigitOf(digits[digits.size() - 1 - i]) << 4 * (i % 16);
  return number;
}

}  // namespace

template <class Field>
CurveOver<Field>::CurveOver(const Field& field, const CurveNumbers& numbers)
    : Curve(8 * N),
      field_(field),
      order_(FromHexadecimal<N>(numbers.q)),
      equation_(field_, FromHexadecimal<N>(numbers.a), FromHexadecimal<N>(numbers.b)),
      completeLaw_(equation_),
      jacobianLaw_(equation_),
      signedBits_(order_),
      generator_{field.from(FromHexadecimal<N>(numbers.x)), field.from(FromHexadecimal<N>(numbers.y))},
      cofactorLog2_(numbers.cofactorLog2) {
  WriteLittle(orderBytes(), order_.modulus());
}

// Null when a coordinate is not below p, lest one point have several encodings, or the point is not on the curve.
template <class Field>
bool CurveOver<Field>::readPoint(std::span<const BYTE> bytes, Affine& point) const {
  if (bytes.size() != 2 * size()) return false;
  Number<N> x, y;
  ReadLittle(x, bytes.first(size()));
  ReadLittle(y, bytes.last(size()));
  if (!IsBelow(x, field_.modulus()) || !IsBelow(y, field_.modulus())) return false;
  point = {field_.from(x), field_.from(y)};
  return equation_.holdsFor(point);
}

// False for infinity. What is written is no secret of itself, but z may tell of the number that led here.
template <class Field>
bool CurveOver<Field>::writePoint(const Projective& point, std::span<BYTE> bytes) const {
  const Wiped<Element> inverse(Inverse<Timing::Secret>(field_, point.z));
  const Wiped<Number<N>> x(field_.number(field_.multiply(point.x, inverse.value)));
  const Wiped<Number<N>> y(field_.number(field_.multiply(point.y, inverse.value)));
  WriteLittle(bytes.first(size()), x.value);
  WriteLittle(bytes.last(size()), y.value);
  return !field_.isZero(point.z);
}

template <class Field>
void CurveOver<Field>::multiplyGenerator(const Number<N>& number, Projective& product) const {
  const auto* comb = comb_.get([this] {
    return std::make_unique<const GeneratorComb<Field>>(completeLaw_, jacobianLaw_, field_, generator_);
  });
  Wiped<Number<N>> bits;
  signedBits_.recode(bits.value, number);
  comb->multiply(completeLaw_, field_, bits.value, product);
}

template <class Field>
bool CurveOver<Field>::publicOf(std::span<const BYTE> number, std::span<BYTE> point) const {
  Wiped<Number<N>> secret;
  Wiped<Projective> product;
  ReadLittle(secret.value, number);
  multiplyGenerator(secret.value, product.value);
  return writePoint(product.value, point);
}

template <class Field>
bool CurveOver<Field>::isPublic(std::span<const BYTE> bytes) const {
  Affine point;
  if (!readPoint(bytes, point)) return false;
  return cofactorLog2_ == 0
      || jacobianLaw_.isInfinity(
          MultiplyPublic(jacobianLaw_, PointMultiples(jacobianLaw_, point), order_.modulus()));
}

// The hash modulo the order; 0 counts as 1.
template <class Field>
auto CurveOver<Field>::readHash(std::span<const BYTE> hash) const -> Scalar {
  Number<N> number;
  ReadLittle(number, hash);
  const Scalar e = order_.from(number);
  return order_.isZero(e) ? order_.one() : e;
}

// A number of any length modulo the order
template <class Field>
auto CurveOver<Field>::readLong(std::span<const BYTE> bytes) const -> Scalar {
  Scalar sum;
  for (size_t end = (bytes.size() + size() - 1) / size() * size(); end > 0; end -= size()) {
    Number<N> part;
    ReadLittle(part, bytes.subspan(end - size(), std::min(size(), bytes.size() - (end - size()))));
    sum = order_.add(order_.from(sum.limbs), order_.from(part));
  }
  return sum;
}

// s = r d + k e. One factor of each product is in Montgomery's form, so that the product is in none.
template <class Field>
bool CurveOver<Field>::sign(std::span<const BYTE> number, std::span<const BYTE> hash,
                            std::span<const BYTE> kBytes, std::span<BYTE> signature) const {
  Wiped<Scalar> d, k;
  Wiped<Projective> point;
  ReadLittle(d.value.limbs, number);
  ReadLittle(k.value.limbs, kBytes);
  multiplyGenerator(k.value.limbs, point.value);
  const Wiped<Element> inverse(Inverse<Timing::Secret>(field_, point.value.z));
  const Scalar r = order_.from(field_.number(field_.multiply(point.value.x, inverse.value)));
  const Wiped<Scalar> rd(order_.multiply(r, d.value)), ke(order_.multiply(readHash(hash), k.value));
  const Scalar s = order_.add(rd.value, ke.value);
  WriteBig(signature.first(size()), s.limbs);
  WriteBig(signature.last(size()), order_.number(r));
  return !order_.isZero(r) && !order_.isZero(s);
}

// Big-endian; above 0 and below the order.
template <class Field>
bool CurveOver<Field>::readHalf(std::span<const BYTE> half, Number<N>& number) const {
  ReadBig(number, half);
  return !IsZero(number) && IsBelow(number, order_.modulus());
}

// Is x(point) modulo the order x? The field has a few numbers more than the order, or four times as many.
template <class Field>
bool CurveOver<Field>::hasX(const Jacobian& point, Number<N> x) const {
  if (jacobianLaw_.isInfinity(point)) return false;
  const Element z2 = field_.square(point.z);
  while (IsBelow(x, field_.modulus())) {
    if (field_.isZero(field_.subtract(field_.multiply(field_.from(x), z2), point.x))) return true;
    if (Add(x, x, order_.modulus()) != 0) return false;
  }
  return false;
}

// x(s/e P - r/e Q) modulo the order must be r.
template <class Field>
bool CurveOver<Field>::verify(std::span<const BYTE> key, std::span<const BYTE> hash,
                              std::span<const BYTE> signature) const {
  Number<N> r, s;
  Affine point;
  if (!readHalf(signature.first(size()), s) || !readHalf(signature.last(size()), r)
      || !readPoint(key, point)) {
    return false;
  }
  const Scalar inverse = Inverse<Timing::Public>(order_, readHash(hash));
  const Number<N> z1 = order_.multiply(inverse, {s}).limbs;
  const Number<N> z2 = order_.subtract({}, order_.multiply(inverse, {r})).limbs;
  const auto* generator = multiples_.get(
      [this] { return std::make_unique<const GeneratorMultiples<Field>>(completeLaw_, field_, generator_); });
  return hasX(MultiplyPublic(jacobianLaw_, *generator, z1, PointMultiples(jacobianLaw_, point), z2), r);
}

template <class Field>
void CurveOver<Field>::multiplyNumbers(std::span<const BYTE> a, std::span<const BYTE> b,
                                       std::span<BYTE> product) const {
  Wiped<Scalar> left, right;
  ReadLittle(left.value.limbs, a);
  ReadLittle(right.value.limbs, b);
  left.value = order_.multiply(order_.from(left.value.limbs), right.value);
  WriteLittle(product, left.value.limbs);
}

template <class Field>
bool CurveOver<Field>::sharedPoint(std::span<const BYTE> number, std::span<const BYTE> ukm,
                                   std::span<const BYTE> point, std::span<BYTE> shared) const {
  Affine key;
  const Scalar factor = readLong(ukm);
  if (order_.isZero(factor) || !readPoint(point, key)) return false;
  // The cofactor comes first, so that no part of the secret meets a point of small order.
  Projective base = completeLaw_.from(key);
  for (int i = 0; i < cofactorLog2_; ++i) base = completeLaw_.twice(base);
  if (field_.isZero(base.z)) return false;
  Wiped<Scalar> secret;
  Wiped<Number<N>> bits;
  Wiped<Projective> product;
  ReadLittle(secret.value.limbs, number);
  secret.value = order_.multiply(secret.value, factor);
  signedBits_.recode(bits.value, secret.value.limbs);
  MultiplySecret(completeLaw_, field_, base, bits.value, product.value);
  return writePoint(product.value, shared);
}

std::unique_ptr<const Curve> Curve::make(const CurveNumbers& numbers) {
  const std::string_view p = numbers.p;
  using Field256 = PseudoMersenneField<4, 617>;
  using Field512 = PseudoMersenneField<8, 569>;
  if (numbers.bits == 256) {
    const auto modulus = FromHexadecimal<4>(p);
    if (modulus == Field256::modulus()) return std::make_unique<CurveOver<Field256>>(Field256(), numbers);
    return std::make_unique<CurveOver<MontgomeryField<4>>>(MontgomeryField<4>(modulus), numbers);
  }
  const auto modulus = FromHexadecimal<8>(p);
  if (modulus == Field512::modulus()) return std::make_unique<CurveOver<Field512>>(Field512(), numbers);
  return std::make_unique<CurveOver<MontgomeryField<8>>>(MontgomeryField<8>(modulus), numbers);
}

}  // namespace keykern::gost
