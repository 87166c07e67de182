// Points times secret numbers, in a time that tells nothing about them.
#ifndef CERTKERN_KEYKERN_GOST_SECRET_MULTIPLY_H
#define CERTKERN_KEYKERN_GOST_SECRET_MULTIPLY_H

#include "keykern/gost/complete_law.h"
#include "keykern/gost/jacobian_law.h"
#include "keykern/gost/signed_bits.h"

#include <memory>

namespace keykern::gost {

// The multiples of the generator from which every other is put together: a comb of blocks, each with a few teeth. Wider
// combs save little time and take longer to make than a process with few signatures gains.
template <class Field>
class GeneratorComb {
 public:
  static constexpr size_t N = Field::kLimbs;
  using Law = CompleteLaw<Field>;
  using Projective = ProjectivePoint<Field>;
  using Affine = AffinePoint<Field>;

  GeneratorComb(const Law& law, const JacobianLaw<Field>& fast, const Field& field, const Affine& generator) {
    std::vector<Projective> rows;
    rows.reserve(kBlocks * kRows);
    JacobianPoint<Field> power = fast.from(generator);
    for (size_t block = 0; block < kBlocks; ++block) appendBlock(law, fast, power, rows);
    const std::vector<Affine> affine = ToAffine(field, rows);
    for (size_t i = 0; i < affine.size(); ++i) rows_[i / kRows][i % kRows] = affine[i];
  }

  // bits: of the number, recoded
  void multiply(const Law& law, const Field& field, const Number<N>& bits, Projective& product) const {
    Wiped<Affine> row;
    product = law.infinity();
    for (size_t i = kSpacing; i-- > 0;) {
      if (i + 1 < kSpacing) product = law.twice(product);
      for (size_t block = 0; block < kBlocks; ++block) {
        const Wiped<SignedDigit> digit(DigitAt<kTeeth>(bits, block * kTeeth * kSpacing + i, kSpacing));
        Pick(field, rows_[block], digit.value, row.value);
        product = law.add(product, row.value);
      }
    }
  }

 private:
  static constexpr size_t kTeeth = 6, kBlocks = 4, kSpacing = 11 * N / 4, kRows = 1 << (kTeeth - 1);
  static_assert(kTeeth * kSpacing * kBlocks == SignedBitsRule<N>::kCount);

  // Row i is the last tooth, plus or minus the others as the bits of i say. power: the first tooth of this block, then
  // of the next one.
  static void appendBlock(const Law& law, const JacobianLaw<Field>& fast, JacobianPoint<Field>& power,
                          std::vector<Projective>& rows) {
    std::array<Projective, kTeeth> teeth;
    for (Projective& tooth : teeth) {
      tooth = fast.toProjective(power);
      for (size_t i = 0; i < kSpacing; ++i) power = fast.twice(power);
    }
    Projective lowest = teeth[kTeeth - 1];
    for (size_t i = 0; i + 1 < kTeeth; ++i) lowest = law.add(lowest, law.negative(teeth[i]));
    const size_t first = rows.size();
    rows.push_back(lowest);
    for (size_t i = 0; i + 1 < kTeeth; ++i) {
      const Projective step = law.twice(teeth[i]);
      for (size_t row = 0; row < size_t{1} << i; ++row) rows.push_back(law.add(rows[first + row], step));
    }
  }

  std::array<std::array<Affine, kRows>, kBlocks> rows_;
};

// The same for any point of the subgroup, with the odd multiples up to 15.
template <class Field>
void MultiplySecret(const CompleteLaw<Field>& law, const Field& field, const ProjectivePoint<Field>& point,
                    const Number<Field::kLimbs>& bits, ProjectivePoint<Field>& product) {
  constexpr size_t kWidth = 4, kRows = 1 << (kWidth - 1);
  constexpr size_t kCount = SignedBitsRule<Field::kLimbs>::kCount;
  static_assert(kCount % kWidth == 0);
  std::array<ProjectivePoint<Field>, kRows> multiples;
  multiples[0] = point;
  const ProjectivePoint<Field> two = law.twice(multiples[0]);
  for (size_t i = 1; i < kRows; ++i) multiples[i] = law.add(multiples[i - 1], two);
  Wiped<ProjectivePoint<Field>> row;
  product = law.infinity();
  for (size_t first = kCount; first > 0;) {
    first -= kWidth;
    for (size_t i = 0; i < kWidth; ++i) product = law.twice(product);
    const Wiped<SignedDigit> digit(DigitAt<kWidth>(bits, first, 1));
    Pick(field, multiples, digit.value, row.value);
    product = law.add(product, row.value);
  }
}

}  // namespace keykern::gost

#endif
