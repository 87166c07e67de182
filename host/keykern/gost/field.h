// Arithmetic modulo a prime, in two kinds with the same operations: Montgomery's for any prime, and one for primes just
// below a power of two. Nothing depends on the values in time; the moduli are public.
#ifndef CERTKERN_KEYKERN_GOST_FIELD_H
#define CERTKERN_KEYKERN_GOST_FIELD_H

#include "keykern/gost/inverse.h"

namespace keykern::gost {

// What a field works on. Only the field knows how it stands for a number.
template <size_t N>
struct FieldElement {
  Number<N> limbs{};
};

// 0 for 0
template <Timing T, class Field>
typename Field::Element Inverse(const Field& field, const typename Field::Element& element) {
  const Wiped<Number<Field::kLimbs>> number(field.number(element));
  return field.from(InverseByDivision<Field::kLimbs, T>(number.value, field.modulus()).get());
}

// An element x stands for x / R with R = 2^(64 N); elements are below the modulus, which is odd.
template <size_t N>
class MontgomeryField {
 public:
  static constexpr size_t kLimbs = N;
  using Element = FieldElement<N>;

  explicit MontgomeryField(const Number<N>& modulus)
      : modulus_(modulus), negativeInverse_(0 - InverseModuloWord(modulus[0])) {
    Element power{{1}};
    for (size_t i = 0; i < 2 * N * kLimbBits; ++i) {
      power = add(power, power);
      if (i + 1 == N * kLimbBits) one_ = power;
    }
    square_ = power;
  }

  const Number<N>& modulus() const { return modulus_; }
  Element one() const { return one_; }
  // Any number of N limbs, also above the modulus.
  Element from(const Number<N>& number) const { return multiply({number}, square_); }
  Number<N> number(const Element& a) const { return multiply(a, {{1}}).limbs; }
  bool isZero(const Element& a) const { return IsZero(a.limbs); }

  // a b / R. One of them may be any number of N limbs.
  Element multiply(const Element& a, const Element& b) const { return reduce(Multiply(a.limbs, b.limbs)); }
  Element square(const Element& a) const { return reduce(Square(a.limbs)); }

  Element add(const Element& a, const Element& b) const {
    Element sum;
    const Limb carry = Add(sum.limbs, a.limbs, b.limbs);
    return below(sum, carry);
  }

  Element subtract(const Element& a, const Element& b) const {
    Element difference;
    const Limb mask = 0 - Subtract(difference.limbs, a.limbs, b.limbs);
    Number<N> correction = modulus_;
    for (Limb& limb : correction) limb &= mask;
    Add(difference.limbs, difference.limbs, correction);
    return difference;
  }

  Element half(const Element& a) const {
    Element half = a;
    Halve(half.limbs, modulus_);
    return half;
  }

 private:
  // number + carry R, less the modulus where it reaches that. It is below twice the modulus.
  [[gnu::always_inline]] Element below(const Element& number, Limb carry) const {
    Element reduced;
    const Limb borrow = Subtract(reduced.limbs, number.limbs, modulus_);
    Choose(reduced.limbs, number.limbs, carry - borrow);
    return reduced;
  }

  // number / R, for a number below the modulus times R: to each of its lower limbs the multiple of the modulus that makes
  // it 0.
  [[gnu::always_inline]] Element reduce(Number<2 * N> number) const {
    Limb carry = 0;
    Repeat<N>([&](size_t i) __attribute__((always_inline)) {
      carry = AddRow<N>(number.data() + i, number[i] * negativeInverse_, modulus_.data(), carry);
    });
    Element high;
    Repeat<N>([&](size_t i) __attribute__((always_inline)) { high.limbs[i] = number[N + i]; });
    return below(high, carry);
  }

  Number<N> modulus_;
  Limb negativeInverse_;  // -1 / modulus modulo 2^64
  Element one_, square_;  // R and R^2
};

// The field of 2^(64 N) - C elements. An element is any number of N limbs: two of them may stand for the same one, and
// only number() and isZero() tell.
template <size_t N, Limb C>
class PseudoMersenneField {
 public:
  static constexpr size_t kLimbs = N;
  using Element = FieldElement<N>;

  static Number<N> modulus() {
    Number<N> modulus{};
    SubtractSmall(modulus, C);
    return modulus;
  }
  static Element one() { return {{1}}; }
  static Element from(const Number<N>& number) { return {number}; }
  static Number<N> number(const Element& a) {
    Number<N> reduced = a.limbs;
    const Limb mask = 0 - AddSmall(reduced, C);  // a carry: the number was not below the modulus
    Number<N> number = a.limbs;
    Choose(number, reduced, mask);
    return number;
  }
  static bool isZero(const Element& a) { return IsZero(number(a)); }

  static Element multiply(const Element& a, const Element& b) { return reduce(Multiply(a.limbs, b.limbs)); }
  static Element square(const Element& a) { return reduce(Square(a.limbs)); }

  static Element add(const Element& a, const Element& b) {
    Element sum;
    const Limb carry = Add(sum.limbs, a.limbs, b.limbs);
    return folded(sum, carry * C);
  }

  // As in folded(): after a second borrow the number is so great that the third subtraction stays in the lowest limb.
  static Element subtract(const Element& a, const Element& b) {
    Element difference;
    Limb borrow = Subtract(difference.limbs, a.limbs, b.limbs);
    borrow = SubtractSmall(difference.limbs, borrow * C);
    difference.limbs[0] -= borrow * C;
    return difference;
  }

  static Element half(const Element& a) {
    Element half = a;
    Halve(half.limbs, modulus());
    return half;
  }

 private:
  // 2^(64 N) is C. After a carry the number is so small that the second addition stays in the lowest limb.
  [[gnu::always_inline]] static Element folded(Element number, Limb excess) {
    const Limb carry = AddSmall(number.limbs, excess);
    number.limbs[0] += carry * C;
    return number;
  }

  [[gnu::always_inline]] static Element reduce(const Number<2 * N>& number) {
    Element low;
    Limb carry = 0;
    Repeat<N>([&](size_t i) __attribute__((always_inline)) {
      low.limbs[i] = MultiplyAdd(number[N + i], C, number[i], carry);
    });
    return folded(low, carry * C);
  }
};

}  // namespace keykern::gost

#endif
