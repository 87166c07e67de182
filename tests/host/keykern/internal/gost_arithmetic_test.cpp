// The fields and points of GOST R 34.10 beside libcrypto's, which are slower and know nothing of ours.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/ec.h>

#include <iterator>
#include <memory>
#include <random>
#include <vector>

#include "keykern/gost/curve_over.h"

namespace {

using namespace keykern::gost;  // NOLINT(google-build-using-namespace): the names under test

struct Free {
  void operator()(BIGNUM* number) const { BN_free(number); }
  void operator()(BN_CTX* context) const { BN_CTX_free(context); }
  void operator()(EC_GROUP* group) const { EC_GROUP_free(group); }
  void operator()(EC_POINT* point) const { EC_POINT_free(point); }
};
using Bignum = std::unique_ptr<BIGNUM, Free>;
using GroupPoint = std::unique_ptr<EC_POINT, Free>;

BN_CTX* Context() {
  static const std::unique_ptr<BN_CTX, Free> context(BN_CTX_new());
  return context.get();
}

Bignum FromDigits(const char* digits) {
  BIGNUM* number = nullptr;
  BN_hex2bn(&number, digits);
  return Bignum(number);
}

template <size_t N>
Bignum ToBignum(const Number<N>& number) {
  BYTE bytes[8 * N];
  WriteLittle(bytes, number);
  return Bignum(BN_lebin2bn(bytes, sizeof(bytes), nullptr));
}

template <size_t N>
Number<N> FromBignum(const BIGNUM* number) {
  BYTE bytes[8 * N];
  EXPECT_EQ(BN_bn2lebinpad(number, bytes, sizeof(bytes)), static_cast<int>(sizeof(bytes)));
  Number<N> result;
  ReadLittle(result, bytes);
  return result;
}

// Where carries go wrong: the ends of the range, single bits, runs of ones; and some that are like any other.
template <size_t N>
std::vector<Number<N>> Candidates(const Number<N>& modulus, size_t count) {
  std::vector<Number<N>> numbers;
  for (Limb below = 0; below < 4; ++below) {
    numbers.push_back({below});
    Number<N> high = modulus;
    SubtractSmall(high, below + 1);
    numbers.push_back(high);
    numbers.push_back({});
    SubtractSmall(numbers.back(), below + 1);  // 2^(64 N) - 1 and so on: some fields take that
  }
  std::mt19937_64 random(N + modulus[0]);
  for (size_t i = 0; i < count; ++i) {
    Number<N> ones{}, bit{}, some{}, sparse{};
    for (size_t j = 0; j < i * 64 * N / count; ++j) ones[j / 64] |= Limb{1} << j % 64;
    bit[i * N / count] = Limb{1} << (i * 64 * N / count) % 64;
    for (Limb& limb : some) limb = random();
    for (Limb& limb : sparse) limb = random() % 2 ? ~Limb{0} : 0;
    numbers.insert(numbers.end(), {ones, bit, some, sparse});
  }
  return numbers;
}

template <size_t N>
std::vector<Number<N>> Below(const Number<N>& modulus, size_t count) {
  std::vector<Number<N>> numbers = Candidates(modulus, count);
  std::erase_if(numbers, [&](const Number<N>& number) { return !IsBelow(number, modulus); });
  return numbers;
}

// numbers: what the field takes for an element's own limbs
template <class Field>
void CompareField(const Field& field, const std::vector<Number<Field::kLimbs>>& numbers) {
  constexpr size_t N = Field::kLimbs;
  using Element = typename Field::Element;
  const Bignum p = ToBignum(field.modulus()), expected(BN_new());
  const auto equals = [&](const Element& element) {
    return ToBignum(field.number(element))
        && BN_cmp(ToBignum(field.number(element)).get(), expected.get()) == 0;
  };
  for (const Number<N>& aNumber : numbers) {
    const Element a{aNumber};
    const Bignum x = ToBignum(field.number(a));
    ASSERT_LT(BN_cmp(x.get(), p.get()), 0);
    EXPECT_EQ(field.isZero(a), BN_is_zero(x.get()) == 1);
    EXPECT_EQ(field.number(field.from(field.number(a))), field.number(a));
    BN_mod_sqr(expected.get(), x.get(), p.get(), Context());
    ASSERT_TRUE(equals(field.square(a)));
    const Element inverse = Inverse<Timing::Secret>(field, a);
    ASSERT_EQ(field.number(inverse), field.number(Inverse<Timing::Public>(field, a)));
    if (BN_is_zero(x.get())) {
      ASSERT_TRUE(field.isZero(inverse));
    } else {
      BN_mod_inverse(expected.get(), x.get(), p.get(), Context());
      ASSERT_TRUE(equals(inverse));
    }
    for (const Number<N>& bNumber : numbers) {
      const Element b{bNumber};
      const Bignum y = ToBignum(field.number(b));
      BN_mod_mul(expected.get(), x.get(), y.get(), p.get(), Context());
      ASSERT_TRUE(equals(field.multiply(a, b)));
      BN_mod_add(expected.get(), x.get(), y.get(), p.get(), Context());
      ASSERT_TRUE(equals(field.add(a, b)));
      BN_mod_sub(expected.get(), x.get(), y.get(), p.get(), Context());
      ASSERT_TRUE(equals(field.subtract(a, b)));
    }
  }
}

TEST(GostField, PseudoMersenne) {
  const PseudoMersenneField<4, 617> field256;
  const PseudoMersenneField<8, 569> field512;
  CompareField(field256, Candidates(field256.modulus(), 12));
  CompareField(field512, Candidates(field512.modulus(), 12));
}

template <size_t N>
void CompareMontgomery(const char* modulus) {
  const MontgomeryField<N> field(FromBignum<N>(FromDigits(modulus).get()));
  CompareField(field, Below(field.modulus(), 3));
  // What comes from outside may be above the modulus.
  for (const Number<N>& number : Candidates(field.modulus(), 3)) {
    const Bignum expected = ToBignum(number);
    BN_nnmod(expected.get(), expected.get(), ToBignum(field.modulus()).get(), Context());
    ASSERT_EQ(field.number(field.from(number)), FromBignum<N>(expected.get()));
  }
}

TEST(GostField, MontgomeryModuloFieldsAndOrders) {
  for (int curve = 0; curve < kCurveCount; ++curve) {
    SCOPED_TRACE(curve);
    const CurveNumbers& numbers = NumbersOf(curve);
    for (const char* modulus : {numbers.p, numbers.q}) {
      numbers.bits == 256 ? CompareMontgomery<4>(modulus) : CompareMontgomery<8>(modulus);
    }
  }
}

// A curve of libcrypto's
class Oracle {
 public:
  explicit Oracle(const CurveNumbers& numbers) : order_(FromDigits(numbers.q)), cofactor_(BN_new()) {
    BN_set_bit(cofactor_.get(), numbers.cofactorLog2);
    group_.reset(EC_GROUP_new_curve_GFp(FromDigits(numbers.p).get(), FromDigits(numbers.a).get(),
                                        FromDigits(numbers.b).get(), Context()));
    const GroupPoint generator = point(FromDigits(numbers.x).get(), FromDigits(numbers.y).get());
    EC_GROUP_set_generator(group_.get(), generator.get(), order_.get(), cofactor_.get());
  }

  GroupPoint point(const BIGNUM* x, const BIGNUM* y) const {
    GroupPoint made(EC_POINT_new(group_.get()));
    EXPECT_TRUE(EC_POINT_set_affine_coordinates(group_.get(), made.get(), x, y, Context()));
    return made;
  }
  // number times the point, or the generator
  GroupPoint multiply(const BIGNUM* number, const EC_POINT* point) const {
    GroupPoint made(EC_POINT_new(group_.get()));
    EXPECT_TRUE(point ? EC_POINT_mul(group_.get(), made.get(), nullptr, point, number, Context())
                      : EC_POINT_mul(group_.get(), made.get(), number, nullptr, nullptr, Context()));
    return made;
  }
  GroupPoint add(const EC_POINT* a, const EC_POINT* b) const {
    GroupPoint made(EC_POINT_new(group_.get()));
    EXPECT_TRUE(EC_POINT_add(group_.get(), made.get(), a, b, Context()));
    return made;
  }
  template <size_t N>
  GroupPoint multiple(const Number<N>& number) const {
    return multiply(ToBignum(number).get(), nullptr);
  }
  bool isInfinity(const EC_POINT* point) const { return EC_POINT_is_at_infinity(group_.get(), point); }
  // x | y, little-endian
  std::vector<BYTE> bytes(const EC_POINT* point, size_t size) const {
    const Bignum x(BN_new()), y(BN_new());
    EXPECT_TRUE(EC_POINT_get_affine_coordinates(group_.get(), point, x.get(), y.get(), Context()));
    std::vector<BYTE> both(2 * size);
    BN_bn2lebinpad(x.get(), both.data(), static_cast<int>(size));
    BN_bn2lebinpad(y.get(), both.data() + size, static_cast<int>(size));
    return both;
  }

 private:
  Bignum order_, cofactor_;
  std::unique_ptr<EC_GROUP, Free> group_;
};

template <size_t N>
std::vector<BYTE> Bytes(const Number<N>& number) {
  std::vector<BYTE> bytes(8 * N);
  WriteLittle(bytes, number);
  return bytes;
}

template <class Vector>
std::vector<BYTE> Plain(const Vector& bytes) {
  return {bytes.begin(), bytes.end()};
}

template <size_t N>
void CompareSecretMultiples(const CurveNumbers& numbers, const Curve& curve) {
  const Oracle oracle(numbers);
  const auto order = FromBignum<N>(FromDigits(numbers.q).get());
  const GroupPoint other = oracle.multiple(Number<N>{0x1234567, 89});
  const std::vector<BYTE> otherBytes = oracle.bytes(other.get(), 8 * N), one = {1};
  for (const Number<N>& number : Below(order, 3)) {
    if (IsZero(number)) continue;
    SecretBytes made;
    ASSERT_TRUE(PublicOf(curve, Bytes(number), made));
    ASSERT_EQ(Plain(made), oracle.bytes(oracle.multiple(number).get(), 8 * N));
    // The oracle has the cofactor in the number.
    const Bignum factor = ToBignum(number);
    BN_lshift(factor.get(), factor.get(), numbers.cofactorLog2);
    ASSERT_TRUE(SharedPoint(curve, Bytes(number), one, otherBytes, made));
    ASSERT_EQ(Plain(made), oracle.bytes(oracle.multiply(factor.get(), other.get()).get(), 8 * N));
  }
}

TEST(GostPoints, SecretMultiples) {
  for (const ParameterSet& set : ParameterSets()) {
    if (!set.oid.starts_with("1.2.643.7.")) continue;  // all curves, each once
    SCOPED_TRACE(set.oid);
    const CurveNumbers& numbers = NumbersOf(set.curve);
    const Curve& curve = *CurveOf(set);
    set.bits == 256 ? CompareSecretMultiples<4>(numbers, curve) : CompareSecretMultiples<8>(numbers, curve);
  }
}

template <class Field>
std::vector<BYTE> AffineBytes(const Field& field, const JacobianPoint<Field>& point) {
  const auto inverse = Inverse<Timing::Public>(field, point.z), square = field.square(inverse);
  std::vector<BYTE> bytes = Bytes(field.number(field.multiply(point.x, square)));
  const auto y = Bytes(field.number(field.multiply(point.y, field.multiply(square, inverse))));
  bytes.insert(bytes.end(), y.begin(), y.end());
  return bytes;
}

// Sums that meet equal and opposite points, and infinity, on the way or at the end: the other point is a small multiple
// of the generator, or its opposite.
template <class Field>
void ComparePublicSums(const Field& field, const CurveNumbers& numbers) {
  constexpr size_t N = Field::kLimbs;
  const auto read = [](const char* digits) { return FromBignum<N>(FromDigits(digits).get()); };
  const Oracle oracle(numbers);
  const Equation<Field> equation(field, read(numbers.a), read(numbers.b));
  const JacobianLaw<Field> law(equation);
  const AffinePoint<Field> generator = {field.from(read(numbers.x)), field.from(read(numbers.y))};
  const GeneratorMultiples<Field> multiples(CompleteLaw<Field>(equation), field, generator);
  const Number<N> order = read(numbers.q);
  const Number<N> some = Below(order, 1).back();
  Number<N> minusOne, minusSome;
  Subtract(minusOne, order, {1});
  Subtract(minusSome, order, some);
  const Number<N> scalars[] = {{}, {1}, minusOne, order, some, minusSome};
  const auto multiplesOf = [&](const EC_POINT* point) {
    std::vector<GroupPoint> made;
    for (const Number<N>& scalar : scalars) made.push_back(oracle.multiply(ToBignum(scalar).get(), point));
    return made;
  };
  const std::vector<GroupPoint> ofGenerator = multiplesOf(nullptr);
  for (const Number<N>& other : {
           Number<N>{1            },
           minusOne, Number<N>{ 0x9876543210, 0x1234567890}
  }) {
    const GroupPoint otherPoint = oracle.multiple(other);
    const std::vector<GroupPoint> ofOther = multiplesOf(otherPoint.get());
    const std::vector<BYTE> bytes = oracle.bytes(otherPoint.get(), 8 * N);
    Number<N> x, y;
    ReadLittle(x, std::span(bytes).first(8 * N));
    ReadLittle(y, std::span(bytes).last(8 * N));
    const PointMultiples<Field> point(law, {field.from(x), field.from(y)});
    for (size_t i = 0; i < std::size(scalars); ++i) {
      for (size_t j = 0; j < std::size(scalars); ++j) {
        const JacobianPoint<Field> sum = MultiplyPublic(law, multiples, scalars[i], point, scalars[j]);
        const GroupPoint expected = oracle.add(ofGenerator[i].get(), ofOther[j].get());
        ASSERT_EQ(law.isInfinity(sum), oracle.isInfinity(expected.get()));
        if (law.isInfinity(sum)) continue;
        ASSERT_EQ(AffineBytes(field, sum), oracle.bytes(expected.get(), 8 * N));
      }
    }
  }
}

TEST(GostPoints, PublicSums) {
  for (int i = 0; i < kCurveCount; ++i) {
    SCOPED_TRACE(i);
    const CurveNumbers& numbers = NumbersOf(i);
    const Bignum p = FromDigits(numbers.p);
    const PseudoMersenneField<4, 617> field256;
    const PseudoMersenneField<8, 569> field512;
    if (BN_cmp(p.get(), ToBignum(field256.modulus()).get()) == 0) {
      ComparePublicSums(field256, numbers);
    } else if (BN_cmp(p.get(), ToBignum(field512.modulus()).get()) == 0) {
      ComparePublicSums(field512, numbers);
    } else if (numbers.bits == 256) {
      ComparePublicSums(MontgomeryField<4>(FromBignum<4>(p.get())), numbers);
    } else {
      ComparePublicSums(MontgomeryField<8>(FromBignum<8>(p.get())), numbers);
    }
  }
}

}  // namespace
