// A curve over one of the kinds of fields.
#ifndef CERTKERN_KEYKERN_GOST_CURVE_OVER_H
#define CERTKERN_KEYKERN_GOST_CURVE_OVER_H

#include "keykern/gost/curve_internals.h"
#include "keykern/gost/public_multiply.h"
#include "keykern/gost/secret_multiply.h"

namespace keykern::gost {

template <class Field>
class CurveOver final : public Curve {
 public:
  static constexpr size_t N = Field::kLimbs;

  CurveOver(const Field& field, const CurveNumbers& numbers);

  bool publicOf(std::span<const BYTE> number, std::span<BYTE> point) const override;
  bool isPublic(std::span<const BYTE> point) const override;
  bool sign(std::span<const BYTE> number, std::span<const BYTE> hash, std::span<const BYTE> k,
            std::span<BYTE> signature) const override;
  bool verify(std::span<const BYTE> point, std::span<const BYTE> hash,
              std::span<const BYTE> signature) const override;
  void multiplyNumbers(std::span<const BYTE> a, std::span<const BYTE> b,
                       std::span<BYTE> product) const override;
  bool sharedPoint(std::span<const BYTE> number, std::span<const BYTE> ukm, std::span<const BYTE> point,
                   std::span<BYTE> shared) const override;

 private:
  using Element = typename Field::Element;
  using Affine = AffinePoint<Field>;
  using Projective = ProjectivePoint<Field>;
  using Jacobian = JacobianPoint<Field>;
  using Scalar = FieldElement<N>;

  bool readPoint(std::span<const BYTE> bytes, Affine& point) const;
  bool writePoint(const Projective& point, std::span<BYTE> bytes) const;
  Scalar readHash(std::span<const BYTE> hash) const;
  Scalar readLong(std::span<const BYTE> bytes) const;
  bool readHalf(std::span<const BYTE> half, Number<N>& number) const;
  void multiplyGenerator(const Number<N>& number, Projective& product) const;
  bool hasX(const Jacobian& point, Number<N> x) const;

  Field field_;
  MontgomeryField<N> order_;
  Equation<Field> equation_;
  CompleteLaw<Field> completeLaw_;
  JacobianLaw<Field> jacobianLaw_;
  SignedBitsRule<N> signedBits_;
  Affine generator_;
  int cofactorLog2_;
  MadeOnce<GeneratorComb<Field>> comb_;
  MadeOnce<GeneratorMultiples<Field>> multiples_;
};

}  // namespace keykern::gost

#endif
