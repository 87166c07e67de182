// A secret number as a sum of +2^i and -2^i, one of them for each i below a fixed count. No digit is 0, so that each step
// of a multiplication adds a point out of a table, whatever the number is.
#ifndef CERTKERN_KEYKERN_GOST_SIGNED_BITS_H
#define CERTKERN_KEYKERN_GOST_SIGNED_BITS_H

#include "keykern/gost/field.h"

namespace keykern::gost {

// A digit of several signs: it stands for the point of a table, or for its opposite.
struct SignedDigit {
  Limb index;
  Limb negative;  // mask
};

// What the recoding needs to know of the order of the group.
template <size_t N>
class SignedBitsRule {
 public:
  // 64 and some: a multiple of the widths below.
  static constexpr size_t kCount = N * 66;

  explicit SignedBitsRule(const MontgomeryField<N>& order) : order_(order) {
    Number<N> power{1};
    for (size_t i = 1; i < kCount; ++i) power = order.add({power}, {power}).limbs;
    shift_ = order.subtract({power}, order.half({{1}})).limbs;
  }

  // The sum of all (2 b_i - 1) 2^i is number for b = (number + 2^kCount - 1) / 2. number: below the order
  void recode(Number<N>& bits, const Number<N>& number) const {
    bits = order_.add(order_.half({number}), {shift_}).limbs;
  }

 private:
  const MontgomeryField<N>& order_;
  Number<N> shift_{};
};

// The signs at first, first + step ..., Width of them. The highest decides about the whole; the others count from there.
template <size_t Width, size_t N>
SignedDigit DigitAt(const Number<N>& bits, size_t first, size_t step) {
  const Limb negative = BitAt(bits, first + (Width - 1) * step) - 1;
  Limb index = 0;
  for (size_t i = 0; i + 1 < Width; ++i) index |= BitAt(bits, first + i * step) << i;
  return {(index ^ negative) & ((Limb{1} << (Width - 1)) - 1), negative};
}

// Reads every row, so that not even the cache learns which one was wanted.
template <class Field, class Point, size_t Rows>
void Pick(const Field& field, const std::array<Point, Rows>& table, const SignedDigit& digit, Point& picked) {
  static_assert(std::is_trivially_copyable_v<Point> && sizeof(Point) % sizeof(Limb) == 0);
  for (Limb row = 0; row < Rows; ++row) {
    const Limb mask = EqualMask(row, digit.index);
    Choose(picked.x.limbs, table[row].x.limbs, mask);
    Choose(picked.y.limbs, table[row].y.limbs, mask);
    if constexpr (requires { picked.z; }) Choose(picked.z.limbs, table[row].z.limbs, mask);
  }
  Choose(picked.y.limbs, field.subtract({}, picked.y).limbs, digit.negative);
}

}  // namespace keykern::gost

#endif
