// Inverses modulo odd numbers: D. J. Bernstein, B.-Y. Yang, "Fast constant-time gcd computation and modular inversion".
// Several times faster than Fermat's theorem.
#ifndef CERTKERN_KEYKERN_GOST_INVERSE_H
#define CERTKERN_KEYKERN_GOST_INVERSE_H

#include "keykern/gost/limbs.h"

#include <algorithm>
#include <bit>

namespace keykern::gost {

// What time may tell about a number: all, or nothing.
enum class Timing { Public, Secret };

template <size_t N, Timing T>
class InverseByDivision {
 public:
  // number: below the modulus and prime to it; 0 gives 0.
  InverseByDivision(const Number<N>& number, const Number<N>& modulus) : modulus_(modulus), e_{1} {
    std::copy(modulus.begin(), modulus.end(), f_.begin());
    std::copy(number.begin(), number.end(), g_.begin());
    inverseOfModulus_ = InverseModuloWord(modulus[0]);
    for (int i = 0; T == Timing::Secret ? i < kBunches : !IsZero(g_); ++i) {
      const Wiped<Matrix> matrix(T == Timing::Secret ? steps() : longSteps());
      apply(matrix.value);
    }
    setSign(d_, 0 - (f_[N] & 1));  // f is 1 or -1, or the modulus
  }
  ~InverseByDivision() { explicit_bzero(this, sizeof(*this)); }
  InverseByDivision(const InverseByDivision&) = delete;
  InverseByDivision& operator=(const InverseByDivision&) = delete;

  const Number<N>& get() const { return d_; }

 private:
  using Signed = int64_t;
  __extension__ using SignedWide = __int128;
  using Extended = Number<N + 1>;  // two's complement
  static constexpr int kSteps = 62;
  // The paper proves that so many steps are enough, whatever the number is: theorem 11.2.
  static constexpr int kBunches = ((49 * 64 * int{N} + 57) / 17 + kSteps - 1) / kSteps;

  // Of kSteps steps together: (f, g) becomes (u f + v g, q f + r g) / 2^kSteps. |u| + |v| and |q| + |r| are at most
  // 2^kSteps.
  struct Matrix {
    Signed u, v, q, r;
  };

  // The lowest limbs of f and g decide all these steps.
  Matrix steps() {
    Limb f = f_[0], g = g_[0], u = 1, v = 0, q = 0, r = 1, eta = eta_;
    for (int i = 0; i < kSteps; ++i) {
      const Limb odd = 0 - (g & 1);
      Limb swap = 0 - (eta >> 63);
      g += ((f ^ swap) - swap) & odd;
      q += ((u ^ swap) - swap) & odd;
      r += ((v ^ swap) - swap) & odd;
      swap &= odd;
      eta = (eta ^ swap) - (swap + 1);
      f += g & swap;
      u += q & swap;
      v += r & swap;
      g >>= 1;
      u <<= 1;
      v <<= 1;
    }
    eta_ = eta;
    return {Signed(u), Signed(v), Signed(q), Signed(r)};
  }

  // The same, with all zeros of g at once, and several of its bits made zeros.
  Matrix longSteps() {
    Limb f = f_[0], g = g_[0], u = 1, v = 0, q = 0, r = 1;
    auto eta = static_cast<int>(eta_);
    for (int left = kSteps;;) {
      const int zeros = std::min(std::countr_zero(g), left);
      g >>= zeros;
      u <<= zeros;
      v <<= zeros;
      eta -= zeros;
      left -= zeros;
      if (left == 0) break;
      if (eta < 0) {
        eta = -eta;
        f = std::exchange(g, 0 - f);
        u = std::exchange(q, 0 - u);
        v = std::exchange(r, 0 - v);
      }
      // f (f^2 - 2) is -1 / f modulo 2^6
      const int bits = std::min({eta + 1, left, 6});
      const Limb factor = f * (f * f - 2) * g & ((Limb{1} << bits) - 1);
      g += f * factor;
      q += u * factor;
      r += v * factor;
    }
    eta_ = static_cast<Limb>(Signed{eta});
    return {Signed(u), Signed(v), Signed(q), Signed(r)};
  }

  void apply(const Matrix& m) {
    const Wiped<Extended> f(combined(m.u, m.v)), g(combined(m.q, m.r));
    f_ = f.value;
    g_ = g.value;
    const Wiped<Number<N>> d(combinedModulo(m.u, m.v)), e(combinedModulo(m.q, m.r));
    d_ = d.value;
    e_ = e.value;
  }

  // (a f + b g) / 2^kSteps
  Extended combined(Signed a, Signed b) const {
    Extended result;
    SignedWide sum = 0;
    Limb below = 0;
    Repeat<N + 1>([&](size_t i) __attribute__((always_inline)) {
      sum += i < N ? SignedWide{a} * f_[i] + SignedWide{b} * g_[i]
                   : SignedWide{a} * Signed(f_[N]) + SignedWide{b} * Signed(g_[N]);
      const Limb limb = static_cast<Limb>(sum);
      sum >>= kLimbBits;
      if (i > 0) result[i - 1] = below >> kSteps | limb << (kLimbBits - kSteps);
      below = limb;
    });
    result[N] = static_cast<Limb>(Signed(below) >> kSteps);
    return result;
  }

  // (a d + b e) / 2^kSteps modulo the modulus, a multiple of which makes the lowest bits 0.
  Number<N> combinedModulo(Signed a, Signed b) const {
    const Limb aSign = 0 - (static_cast<Limb>(a) >> 63), bSign = 0 - (static_cast<Limb>(b) >> 63);
    const Limb x = (static_cast<Limb>(a) ^ aSign) - aSign, y = (static_cast<Limb>(b) ^ bSign) - bSign;
    Number<N> d = d_, e = e_;
    setSign(d, aSign);
    setSign(e, bSign);
    const Limb factor = (0 - (x * d[0] + y * e[0]) * inverseOfModulus_) & ((Limb{1} << kSteps) - 1);
    Extended sum{};
    addMultiple(sum, d, x);
    addMultiple(sum, e, y);
    addMultiple(sum, modulus_, factor);
    Number<N> result;
    Repeat<N>([&](size_t i) __attribute__((always_inline)) {
      result[i] = sum[i] >> kSteps | sum[i + 1] << (kLimbBits - kSteps);
    });
    return reduced(result, sum[N] >> kSteps);
  }

  // |a| + |b| is at most 2^kSteps, so that the number above is below twice the modulus.
  Number<N> reduced(const Number<N>& number, Limb above) const {
    Number<N> result;
    const Limb borrow = Subtract(result, number, modulus_);
    Choose(result, number, above - borrow);
    return result;
  }

  // Negative where the mask is all ones. 0 becomes the modulus, which does no harm in a product; the last time it is 0
  // only where the number was, and then f is positive.
  void setSign(Number<N>& number, Limb negative) const {
    Number<N> opposite;
    Subtract(opposite, modulus_, number);
    Choose(number, opposite, negative);
  }
  static void addMultiple(Extended& sum, const Number<N>& number, Limb factor) {
    Limb carry = 0;
    Repeat<N>([&](size_t i)
                  __attribute__((always_inline)) { sum[i] = MultiplyAdd(number[i], factor, sum[i], carry); });
    sum[N] += carry;
  }

  Number<N> modulus_;
  Extended f_{}, g_{};
  Number<N> d_{}, e_;  // f = d number and g = e number, modulo the modulus
  Limb inverseOfModulus_ = 0;
  Limb eta_ = ~Limb{0};  // signed
};

}  // namespace keykern::gost

#endif
