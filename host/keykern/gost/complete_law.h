// One law for all additions, so that neither branches nor time tell what is added: J. Renes, C. Costello, L. Batina,
// "Complete addition formulas for prime order elliptic curves", algorithms 1 to 3.
//
// It fails for two points only where their difference has the order 2. Points of the subgroup of the generator, whose
// order is odd, have no such difference, on the curves with cofactor 4 neither: only such points may come here.
#ifndef CERTKERN_KEYKERN_GOST_COMPLETE_LAW_H
#define CERTKERN_KEYKERN_GOST_COMPLETE_LAW_H

#include "keykern/gost/points.h"

namespace keykern::gost {

template <class Field>
class CompleteLaw {
 public:
  using Element = typename Field::Element;
  using Projective = ProjectivePoint<Field>;
  using Affine = AffinePoint<Field>;

  explicit CompleteLaw(const Equation<Field>& equation) : equation_(equation), field_(equation.field) {}

  Projective infinity() const { return {{}, field_.one(), {}}; }
  Projective from(const Affine& point) const { return {point.x, point.y, field_.one()}; }

  Projective add(const Projective& p, const Projective& q) const {
    Products t;
    t.xx = field_.multiply(p.x, q.x);
    t.yy = field_.multiply(p.y, q.y);
    t.zz = field_.multiply(p.z, q.z);
    t.xy = mixed(p.x, p.y, q.x, q.y, t.xx, t.yy);
    t.xz = mixed(p.x, p.z, q.x, q.z, t.xx, t.zz);
    t.yz = mixed(p.y, p.z, q.y, q.z, t.yy, t.zz);
    return sum(t);
  }

  Projective add(const Projective& p, const Affine& q) const {
    Products t;
    t.xx = field_.multiply(p.x, q.x);
    t.yy = field_.multiply(p.y, q.y);
    t.zz = p.z;
    t.xy = mixed(p.x, p.y, q.x, q.y, t.xx, t.yy);
    t.xz = field_.add(p.x, field_.multiply(q.x, p.z));
    t.yz = field_.add(p.y, field_.multiply(q.y, p.z));
    return sum(t);
  }

  Projective twice(const Projective& p) const {
    Products t;
    t.xx = field_.square(p.x);
    t.yy = field_.square(p.y);
    t.zz = field_.square(p.z);
    t.xy = field_.multiply(p.x, p.y);
    t.xz = field_.multiply(p.x, p.z);
    t.yz = field_.multiply(p.y, p.z);
    t.xy = field_.add(t.xy, t.xy);
    t.xz = field_.add(t.xz, t.xz);
    t.yz = field_.add(t.yz, t.yz);
    return sum(t);
  }

  Projective negative(const Projective& p) const { return {p.x, field_.subtract({}, p.y), p.z}; }

 private:
  // x x', x y' + x' y and so on
  struct Products {
    Element xx, yy, zz, xy, xz, yz;
  };

  // u v' + u' v, where u u' and v v' are known
  Element mixed(const Element& u, const Element& v, const Element& u2, const Element& v2, const Element& uu,
                const Element& vv) const {
    const Element product = field_.multiply(field_.add(u, v), field_.add(u2, v2));
    return field_.subtract(product, field_.add(uu, vv));
  }

  Projective sum(const Products& t) const {
    const Element aZz = equation_.timesA(t.zz);
    const Element shift = field_.add(equation_.timesA(t.xz), field_.multiply(equation_.b3, t.zz));
    const Element less = field_.subtract(t.yy, shift);
    const Element more = field_.add(t.yy, shift);
    const Element slope = field_.add(field_.add(field_.add(t.xx, t.xx), t.xx), aZz);
    const Element rest =
        field_.add(field_.multiply(equation_.b3, t.xz), equation_.timesA(field_.subtract(t.xx, aZz)));
    return {field_.subtract(field_.multiply(t.xy, less), field_.multiply(t.yz, rest)),
            field_.add(field_.multiply(less, more), field_.multiply(slope, rest)),
            field_.add(field_.multiply(t.yz, more), field_.multiply(t.xy, slope))};
  }

  const Equation<Field>& equation_;
  const Field& field_;
};

}  // namespace keykern::gost

#endif
