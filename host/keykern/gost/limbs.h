// Numbers of a fixed count of 64-bit limbs, the lowest first. Nothing here branches on a value or uses one as an index,
// so all of it may work on secrets; what may not says so in its name.
#ifndef CERTKERN_KEYKERN_GOST_LIMBS_H
#define CERTKERN_KEYKERN_GOST_LIMBS_H

#include <certkern/types.h>
#include <string.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace keykern::gost {

using Limb = uint64_t;
__extension__ using Wide = unsigned __int128;
inline constexpr size_t kLimbBits = 64;

template <size_t N>
using Number = std::array<Limb, N>;

// Wiped when its scope ends.
template <class T>
class Wiped {
 public:
  static_assert(std::is_trivially_copyable_v<T>);
  Wiped() = default;
  explicit Wiped(const T& from) : value(from) {}
  ~Wiped() { explicit_bzero(&value, sizeof(value)); }
  Wiped(const Wiped&) = delete;
  Wiped& operator=(const Wiped&) = delete;

  T value{};
};

// step(0) to step(Count - 1), unrolled by every compiler at every level: the carries then stay in registers.
template <size_t Count, class Step>
[[gnu::always_inline]] inline void Repeat(const Step& step) {
  [&]<size_t... I>(std::index_sequence<I...>) __attribute__((always_inline)) {
    (step(std::integral_constant<size_t, I>()), ...);
  }
  (std::make_index_sequence<Count>());
}

// a + b + carry; carry in and out is 0 or 1. Where the processor's own carry can be had without a flag for the compiler,
// g++ does not find it in the portable form.
[[gnu::always_inline]] inline Limb AddWithCarry(Limb a, Limb b, Limb& carry) {
#if defined(__x86_64__)
  unsigned long long sum = 0;
  carry = _addcarry_u64(static_cast<unsigned char>(carry), a, b, &sum);
  return sum;
#else
  const Wide sum = Wide{a} + b + carry;
  carry = static_cast<Limb>(sum >> kLimbBits);
  return static_cast<Limb>(sum);
#endif
}

// a - b - borrow
[[gnu::always_inline]] inline Limb SubtractWithBorrow(Limb a, Limb b, Limb& borrow) {
#if defined(__x86_64__)
  unsigned long long difference = 0;
  borrow = _subborrow_u64(static_cast<unsigned char>(borrow), a, b, &difference);
  return difference;
#else
  const Wide difference = Wide{a} - b - borrow;
  borrow = static_cast<Limb>(difference >> kLimbBits) & 1;
  return static_cast<Limb>(difference);
#endif
}

// The low limb of a b + c + carry, which two limbs always hold; the high one becomes the carry.
[[gnu::always_inline]] inline Limb MultiplyAdd(Limb a, Limb b, Limb c, Limb& carry) {
  const Wide sum = Wide{a} * b + c + carry;
  carry = static_cast<Limb>(sum >> kLimbBits);
  return static_cast<Limb>(sum);
}

// The carry out
template <size_t N>
[[gnu::always_inline]] inline Limb Add(Number<N>& sum, const Number<N>& a, const Number<N>& b) {
  Limb carry = 0;
  Repeat<N>([&](size_t i) __attribute__((always_inline)) { sum[i] = AddWithCarry(a[i], b[i], carry); });
  return carry;
}

// The borrow out
template <size_t N>
[[gnu::always_inline]] inline Limb Subtract(Number<N>& difference, const Number<N>& a, const Number<N>& b) {
  Limb borrow = 0;
  Repeat<N>([&](size_t i)
                __attribute__((always_inline)) { difference[i] = SubtractWithBorrow(a[i], b[i], borrow); });
  return borrow;
}

// Adds a number of one limb; the carry out.
template <size_t N>
[[gnu::always_inline]] inline Limb AddSmall(Number<N>& number, Limb small) {
  Limb carry = 0;
  number[0] = AddWithCarry(number[0], small, carry);
  Repeat<N - 1>([&](size_t i) __attribute__((always_inline)) {
    number[i + 1] = AddWithCarry(number[i + 1], 0, carry);
  });
  return carry;
}

template <size_t N>
[[gnu::always_inline]] inline Limb SubtractSmall(Number<N>& number, Limb small) {
  Limb borrow = 0;
  number[0] = SubtractWithBorrow(number[0], small, borrow);
  Repeat<N - 1>([&](size_t i) __attribute__((always_inline)) {
    number[i + 1] = SubtractWithBorrow(number[i + 1], 0, borrow);
  });
  return borrow;
}

// sum[0..Count] = a b for a number b of Count limbs. All products come first, then one chain of carries: mixed, they
// would fight for the flags.
template <size_t Count>
[[gnu::always_inline]] inline void MultiplyRow(Limb* row, Limb a, const Limb* b) {
  Limb high[Count];
  Repeat<Count>([&](size_t i) __attribute__((always_inline)) {
    const Wide product = Wide{a} * b[i];
    row[i] = static_cast<Limb>(product);
    high[i] = static_cast<Limb>(product >> kLimbBits);
  });
  Limb carry = 0;
  Repeat<Count - 1>([&](size_t i) __attribute__((always_inline)) {
    row[i + 1] = AddWithCarry(row[i + 1], high[i], carry);
  });
  row[Count] = high[Count - 1] + carry;
}

// sum[0..Count] += a b; the carry out
template <size_t Count>
[[gnu::always_inline]] inline Limb AddRow(Limb* sum, Limb a, const Limb* b, Limb carryAtTop = 0) {
  Limb row[Count + 1];
  MultiplyRow<Count>(row, a, b);
  Limb carry = 0;
  Repeat<Count>([&](size_t i)
                    __attribute__((always_inline)) { sum[i] = AddWithCarry(sum[i], row[i], carry); });
  row[Count] += carry;  // it is the high limb of a product, and these stay below all ones
  sum[Count] = AddWithCarry(sum[Count], row[Count], carryAtTop);
  return carryAtTop;
}

template <size_t N>
[[gnu::always_inline]] inline Number<2 * N> Multiply(const Number<N>& a, const Number<N>& b) {
  Number<2 * N> product{};
  MultiplyRow<N>(product.data(), a[0], b.data());
  Repeat<N - 1>([&](size_t i) __attribute__((always_inline)) {
    AddRow<N>(product.data() + i + 1, a[i + 1], b.data());
  });
  return product;
}

// Each mixed product once, twice all of them, and the squares of the limbs.
template <size_t N>
[[gnu::always_inline]] inline Number<2 * N> Square(const Number<N>& a) {
  Number<2 * N> square{};
  MultiplyRow<N - 1>(square.data() + 1, a[0], a.data() + 1);
  Repeat<N - 2>([&](auto i) __attribute__((always_inline)) {
    AddRow<N - 2 - i>(square.data() + 2 * i + 3, a[i + 1], a.data() + i + 2);
  });
  Limb above = 0, carry = 0;
  Repeat<N>([&](size_t i) __attribute__((always_inline)) {
    const Wide limb = Wide{a[i]} * a[i];
    const Limb low = square[2 * i] << 1 | above;
    const Limb high = square[2 * i + 1] << 1 | square[2 * i] >> (kLimbBits - 1);
    above = square[2 * i + 1] >> (kLimbBits - 1);
    square[2 * i] = AddWithCarry(low, static_cast<Limb>(limb), carry);
    square[2 * i + 1] = AddWithCarry(high, static_cast<Limb>(limb >> kLimbBits), carry);
  });
  return square;
}

// All ones where a == b, else 0. Both are below 2^63.
inline Limb EqualMask(Limb a, Limb b) { return 0 - (((a ^ b) - 1) >> (kLimbBits - 1)); }

// to = from where the mask is all ones; stays where it is 0.
template <size_t N>
[[gnu::always_inline]] inline void Choose(Number<N>& to, const Number<N>& from, Limb mask) {
  Repeat<N>([&](size_t i) __attribute__((always_inline)) { to[i] ^= (to[i] ^ from[i]) & mask; });
}

// number / 2 modulo an odd modulus, in place. The result is below the modulus where number is.
template <size_t N>
[[gnu::always_inline]] inline void Halve(Number<N>& number, const Number<N>& modulus) {
  const Limb odd = 0 - (number[0] & 1);
  Number<N> even;
  Repeat<N>([&](size_t i) __attribute__((always_inline)) { even[i] = modulus[i] & odd; });
  const Limb carry = Add(even, even, number);
  Repeat<N - 1>([&](size_t i) __attribute__((always_inline)) {
    number[i] = even[i] >> 1 | even[i + 1] << (kLimbBits - 1);
  });
  number[N - 1] = even[N - 1] >> 1 | carry << (kLimbBits - 1);
}

// 1 / number modulo 2^64, for an odd one: right in three bits at first; each step doubles them.
inline Limb InverseModuloWord(Limb number) {
  Limb inverse = number;
  for (size_t bits = 3; bits < kLimbBits; bits *= 2) inverse *= 2 - number * inverse;
  return inverse;
}

template <size_t N>
bool IsZero(const Number<N>& number) {
  Limb any = 0;
  for (const Limb limb : number) any |= limb;
  return any == 0;
}

template <size_t N>
bool IsBelow(const Number<N>& a, const Number<N>& b) {
  Number<N> difference;
  return Subtract(difference, a, b) != 0;
}

// Bits past the end are 0.
template <size_t N>
[[gnu::always_inline]] inline Limb BitAt(const Number<N>& number, size_t position) {
  return position < N * kLimbBits ? number[position / kLimbBits] >> position % kLimbBits & 1 : 0;
}

// --- strings: exactly 8 N octets ---

template <size_t N>
void ReadLittle(Number<N>& number, std::span<const BYTE> bytes) {
  number = {};
  for (size_t i = 0; i < bytes.size(); ++i) number[i / 8] |= Limb{bytes[i]} << 8 * (i % 8);
}

template <size_t N>
void ReadBig(Number<N>& number, std::span<const BYTE> bytes) {
  number = {};
  for (size_t i = 0; i < 8 * N; ++i) number[i / 8] |= Limb{bytes[8 * N - 1 - i]} << 8 * (i % 8);
}

template <size_t N>
void WriteLittle(std::span<BYTE> bytes, const Number<N>& number) {
  for (size_t i = 0; i < 8 * N; ++i) bytes[i] = static_cast<BYTE>(number[i / 8] >> 8 * (i % 8));
}

template <size_t N>
void WriteBig(std::span<BYTE> bytes, const Number<N>& number) {
  for (size_t i = 0; i < 8 * N; ++i) bytes[8 * N - 1 - i] = static_cast<BYTE>(number[i / 8] >> 8 * (i % 8));
}

}  // namespace keykern::gost

#endif
