// The faster laws of addition, for points that everybody may know: they look whether what they add is equal, opposite
// or infinity.
#ifndef CERTKERN_KEYKERN_GOST_JACOBIAN_LAW_H
#define CERTKERN_KEYKERN_GOST_JACOBIAN_LAW_H

#include "keykern/gost/points.h"

namespace keykern::gost {

// (x / z^2, y / z^3); infinity has z = 0.
template <class Field>
struct JacobianPoint {
  typename Field::Element x, y, z;
};

// A point that is added several times keeps the powers of its z. Never infinity.
template <class Field>
struct PreparedPoint {
  JacobianPoint<Field> point;
  typename Field::Element z2, z3;
};

template <class Field>
class JacobianLaw {
 public:
  using Element = typename Field::Element;
  using Jacobian = JacobianPoint<Field>;
  using Affine = AffinePoint<Field>;
  using Prepared = PreparedPoint<Field>;

  explicit JacobianLaw(const Equation<Field>& equation) : equation_(equation), field_(equation.field) {}

  Jacobian infinity() const { return {field_.one(), field_.one(), {}}; }
  Jacobian from(const Affine& point) const { return {point.x, point.y, field_.one()}; }
  ProjectivePoint<Field> toProjective(const Jacobian& p) const {
    return {field_.multiply(p.x, p.z), p.y, field_.multiply(field_.square(p.z), p.z)};
  }
  bool isInfinity(const Jacobian& p) const { return field_.isZero(p.z); }

  Prepared prepare(const Jacobian& p) const {
    const Element z2 = field_.square(p.z);
    return {p, z2, field_.multiply(z2, p.z)};
  }

  Affine negative(const Affine& p) const { return {p.x, field_.subtract({}, p.y)}; }
  Prepared negative(const Prepared& p) const {
    return {
        {p.point.x, field_.subtract({}, p.point.y), p.point.z},
        p.z2, p.z3
    };
  }

  // With half the slope: x, y and z come out divided by 4, 8 and 2, which is the same point for fewer additions.
  Jacobian twice(const Jacobian& p) const {
    const Element slope = field_.half(tangent(p));
    const Element yy = field_.square(p.y);
    const Element product = field_.multiply(p.x, yy);
    Jacobian sum;
    sum.x = field_.subtract(field_.square(slope), field_.add(product, product));
    sum.y = field_.subtract(field_.multiply(slope, field_.subtract(product, sum.x)), field_.square(yy));
    sum.z = field_.multiply(p.y, p.z);
    return sum;
  }

  Jacobian add(const Jacobian& p, const Prepared& q) const {
    if (isInfinity(p)) return q.point;
    const Element z2 = field_.square(p.z);
    const Affine first = {field_.multiply(p.x, q.z2), field_.multiply(p.y, q.z3)};
    return chord(p, first, field_.multiply(q.point.x, z2),
                 field_.multiply(field_.multiply(q.point.y, z2), p.z), field_.multiply(p.z, q.point.z));
  }

  Jacobian add(const Jacobian& p, const Affine& q) const {
    if (isInfinity(p)) return from(q);
    const Element z2 = field_.square(p.z);
    return chord(p, {p.x, p.y}, field_.multiply(q.x, z2), field_.multiply(field_.multiply(q.y, z2), p.z),
                 p.z);
  }

 private:
  // 3 x^2 + a z^4
  Element tangent(const Jacobian& p) const {
    const Element zz = field_.square(p.z);
    if (equation_.aIsMinus3) {
      const Element part = field_.multiply(field_.subtract(p.x, zz), field_.add(p.x, zz));
      return field_.add(field_.add(part, part), part);
    }
    const Element xx = field_.square(p.x);
    return field_.add(field_.add(field_.add(xx, xx), xx), equation_.timesA(field_.square(zz)));
  }

  // The sum of p, which is first, and (x, y), both brought to the same denominator z.
  Jacobian chord(const Jacobian& p, const Affine& first, const Element& x, const Element& y,
                 const Element& z) const {
    const Element width = field_.subtract(x, first.x);
    const Element height = field_.subtract(y, first.y);
    if (field_.isZero(width)) return field_.isZero(height) ? twice(p) : infinity();
    const Element width2 = field_.square(width), width3 = field_.multiply(width2, width);
    const Element part = field_.multiply(first.x, width2);
    Jacobian sum;
    sum.x = field_.subtract(field_.square(height), field_.add(width3, field_.add(part, part)));
    sum.y = field_.subtract(field_.multiply(height, field_.subtract(part, sum.x)),
                            field_.multiply(first.y, width3));
    sum.z = field_.multiply(z, width);
    return sum;
  }

  const Equation<Field>& equation_;
  const Field& field_;
};

}  // namespace keykern::gost

#endif
