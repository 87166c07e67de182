// The inverse of a number that everybody may know: D. J. Bernstein, B.-Y. Yang, "Fast constant-time gcd computation and
// modular inversion", whose division steps are taken here in bunches as long as the number allows. Several times faster
// than Fermat's theorem; time tells about the number.
#ifndef CERTKERN_KEYKERN_GOST_PUBLIC_INVERSE_H
#define CERTKERN_KEYKERN_GOST_PUBLIC_INVERSE_H

#include "keykern/gost/limbs.h"

#include <algorithm>
#include <bit>

namespace keykern::gost {

template <size_t N>
class PublicInverse {
 public:
  // modulus: odd, and prime to number, which is below it
  PublicInverse(const Number<N>& number, const Number<N>& modulus) : modulus_(modulus), e_{1} {
    std::copy(modulus.begin(), modulus.end(), f_.begin());
    std::copy(number.begin(), number.end(), g_.begin());
    inverseOfModulus_ = modulus[0];  // right in three bits; each step doubles them
    for (int bits = 3; bits < 64; bits *= 2) inverseOfModulus_ *= 2 - modulus[0] * inverseOfModulus_;
    while (!IsZero(g_)) {
      const Matrix matrix = steps();
      applyToNumbers(matrix);
      applyToFactors(matrix);
    }
    if (f_[N] != 0) Subtract(d_, modulus_, d_);  // f is 1 or -1
  }
  const Number<N>& get() const { return d_; }

 private:
  using Signed = int64_t;
  __extension__ using SignedWide = __int128;
  using Extended = Number<N + 1>;  // two's complement
  static constexpr int kSteps = 62;

  // Of so many steps together: (f, g) becomes (u f + v g, q f + r g) / 2^kSteps. |u| + |v| and |q| + |r| are at most
  // 2^kSteps.
  struct Matrix {
    Signed u, v, q, r;
  };

  // The lowest limbs of f and g decide all these steps.
  Matrix steps() {
    Limb f = f_[0], g = g_[0], u = 1, v = 0, q = 0, r = 1;
    for (int left = kSteps;;) {
      const int zeros = std::min(std::countr_zero(g), left);
      g = zeros < 64 ? g >> zeros : 0;
      u <<= zeros;
      v <<= zeros;
      eta_ -= zeros;
      left -= zeros;
      if (left == 0) return {Signed(u), Signed(v), Signed(q), Signed(r)};
      if (eta_ < 0) {
        eta_ = -eta_;
        f = std::exchange(g, 0 - f);
        u = std::exchange(q, 0 - u);
        v = std::exchange(r, 0 - v);
      }
      // The multiple of f that makes the next bits of g 0; f (f^2 - 2) is -1 / f modulo 2^6.
      const int bits = std::min({eta_ + 1, left, 6});
      const Limb factor = f * (f * f - 2) * g & ((Limb{1} << bits) - 1);
      g += f * factor;
      q += u * factor;
      r += v * factor;
    }
  }

  void applyToNumbers(const Matrix& m) {
    const Extended f = combined(m.u, m.v), g = combined(m.q, m.r);
    f_ = f;
    g_ = g;
  }

  // (a f + b g) / 2^kSteps
  Extended combined(Signed a, Signed b) const {
    Extended result{};
    SignedWide sum = 0;
    Limb below = 0;
    for (size_t i = 0; i < N + 1; ++i) {
      sum += i < N ? SignedWide{a} * f_[i] + SignedWide{b} * g_[i]
                   : SignedWide{a} * Signed(f_[N]) + SignedWide{b} * Signed(g_[N]);
      const Limb limb = static_cast<Limb>(sum);
      sum >>= kLimbBits;
      if (i > 0) result[i - 1] = below >> kSteps | limb << (kLimbBits - kSteps);
      below = limb;
    }
    result[N] = static_cast<Limb>(Signed(below) >> kSteps);
    return result;
  }

  void applyToFactors(const Matrix& m) {
    const Number<N> d = combinedModulo(m.u, m.v), e = combinedModulo(m.q, m.r);
    d_ = d;
    e_ = e;
  }

  // (a d + b e) / 2^kSteps modulo the modulus: a multiple of this makes the lowest bits 0.
  Number<N> combinedModulo(Signed a, Signed b) const {
    const Number<N> d = withSign(d_, a), e = withSign(e_, b);
    const Limb x = magnitude(a), y = magnitude(b);
    const Limb factor = (0 - (x * d[0] + y * e[0]) * inverseOfModulus_) & ((Limb{1} << kSteps) - 1);
    Extended sum{};
    addMultiple(sum, d, x);
    addMultiple(sum, e, y);
    addMultiple(sum, modulus_, factor);
    Number<N> result;
    for (size_t i = 0; i < N; ++i) result[i] = sum[i] >> kSteps | sum[i + 1] << (kLimbBits - kSteps);
    Limb above = sum[N] >> kSteps;  // less than three times the modulus
    while (above != 0 || !IsBelow(result, modulus_)) above -= Subtract(result, result, modulus_);
    return result;
  }

  static Limb magnitude(Signed number) {
    return number < 0 ? 0 - static_cast<Limb>(number) : static_cast<Limb>(number);
  }
  Number<N> withSign(const Number<N>& number, Signed sign) const {
    Number<N> result = number;
    if (sign < 0) Subtract(result, modulus_, number);
    return result;
  }
  static void addMultiple(Extended& sum, const Number<N>& number, Limb factor) {
    Limb carry = 0;
    for (size_t i = 0; i < N; ++i) sum[i] = MultiplyAdd(number[i], factor, sum[i], carry);
    sum[N] += carry;
  }

  Number<N> modulus_;
  Extended f_{}, g_{};
  Number<N> d_{}, e_;  // f = d number and g = e number, modulo the modulus
  Limb inverseOfModulus_ = 0;
  int eta_ = -1;
};

}  // namespace keykern::gost

#endif
