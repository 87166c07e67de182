// Sums of multiples of points, for numbers that everybody may know: time tells all about them.
#ifndef CERTKERN_KEYKERN_GOST_PUBLIC_MULTIPLY_H
#define CERTKERN_KEYKERN_GOST_PUBLIC_MULTIPLY_H

#include "keykern/gost/complete_law.h"
#include "keykern/gost/jacobian_law.h"

#include <algorithm>

namespace keykern::gost {

// A number as a sum of odd digits below 2^(width - 1), positive or negative, at least width bits apart.
template <size_t N>
class SparseDigits {
 public:
  SparseDigits(const Number<N>& number, size_t width) {
    Limb carry = 0;
    for (size_t i = 0; i < digits_.size();) {
      if (BitAt(number, i) == carry) {
        ++i;
        continue;
      }
      Limb digit = carry;
      for (size_t j = 0; j < width; ++j) digit += BitAt(number, i + j) << j;
      carry = digit >> (width - 1) & 1;
      digits_[i] = static_cast<int8_t>(static_cast<int>(digit) - (static_cast<int>(carry) << width));
      end_ = i + 1;
      i += width;
    }
  }

  int operator[](size_t i) const { return digits_[i]; }
  size_t end() const { return end_; }

 private:
  std::array<int8_t, N * kLimbBits + 1> digits_{};
  size_t end_ = 0;
};

// P, 3 P, 5 P ... as far as the digits of a width reach.
template <size_t Width>
inline constexpr size_t kOddMultiples = size_t{1} << (Width - 2);

// Those of the generator, kept with the curve.
template <class Field>
class GeneratorMultiples {
 public:
  static constexpr size_t kWidth = 7;

  GeneratorMultiples(const CompleteLaw<Field>& law, const Field& field, const AffinePoint<Field>& generator) {
    std::vector<ProjectivePoint<Field>> multiples = {law.from(generator)};
    const ProjectivePoint<Field> two = law.twice(multiples[0]);
    while (multiples.size() < kOddMultiples<kWidth>) multiples.push_back(law.add(multiples.back(), two));
    points_ = ToAffine(field, multiples);
  }
  const AffinePoint<Field>& operator[](size_t i) const { return points_[i]; }

 private:
  std::vector<AffinePoint<Field>> points_;
};

// Those of a point that is seen once. None is infinity: all orders are divisors of 4 q.
template <class Field>
class PointMultiples {
 public:
  static constexpr size_t kWidth = 5;

  PointMultiples(const JacobianLaw<Field>& law, const AffinePoint<Field>& point) {
    const PreparedPoint<Field> first = law.prepare(law.from(point));
    const JacobianPoint<Field> two = law.twice(first.point);
    points_[0] = first;
    for (size_t i = 1; i < points_.size(); ++i) points_[i] = law.prepare(law.add(two, points_[i - 1]));
  }
  const PreparedPoint<Field>& operator[](size_t i) const { return points_[i]; }

 private:
  std::array<PreparedPoint<Field>, kOddMultiples<kWidth>> points_;
};

// Adds the digit's multiple.
template <class Field, class Multiples>
void AddDigit(const JacobianLaw<Field>& law, const Multiples& multiples, int digit,
              JacobianPoint<Field>& sum) {
  if (digit > 0) sum = law.add(sum, multiples[static_cast<size_t>(digit) / 2]);
  if (digit < 0) sum = law.add(sum, law.negative(multiples[static_cast<size_t>(-digit) / 2]));
}

// a times the generator and b times the point, with one chain of doublings.
template <class Field>
JacobianPoint<Field> MultiplyPublic(const JacobianLaw<Field>& law, const GeneratorMultiples<Field>& generator,
                                    const Number<Field::kLimbs>& a, const PointMultiples<Field>& point,
                                    const Number<Field::kLimbs>& b) {
  const SparseDigits<Field::kLimbs> aDigits(a, GeneratorMultiples<Field>::kWidth);
  const SparseDigits<Field::kLimbs> bDigits(b, PointMultiples<Field>::kWidth);
  JacobianPoint<Field> sum = law.infinity();
  for (size_t i = std::max(aDigits.end(), bDigits.end()); i-- > 0;) {
    sum = law.twice(sum);
    AddDigit(law, generator, aDigits[i], sum);
    AddDigit(law, point, bDigits[i], sum);
  }
  return sum;
}

// b times the point
template <class Field>
JacobianPoint<Field> MultiplyPublic(const JacobianLaw<Field>& law, const PointMultiples<Field>& point,
                                    const Number<Field::kLimbs>& b) {
  const SparseDigits<Field::kLimbs> digits(b, PointMultiples<Field>::kWidth);
  JacobianPoint<Field> sum = law.infinity();
  for (size_t i = digits.end(); i-- > 0;) {
    sum = law.twice(sum);
    AddDigit(law, point, digits[i], sum);
  }
  return sum;
}

}  // namespace keykern::gost

#endif
