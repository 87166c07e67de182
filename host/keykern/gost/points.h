// Points of y^2 = x^3 + a x + b in the coordinates of the two laws of addition, and what they share.
#ifndef CERTKERN_KEYKERN_GOST_POINTS_H
#define CERTKERN_KEYKERN_GOST_POINTS_H

#include "keykern/gost/field.h"

#include <vector>

namespace keykern::gost {

// Never infinity.
template <class Field>
struct AffinePoint {
  typename Field::Element x, y;
};

// (x / z, y / z). Infinity is (0, 1, 0).
template <class Field>
struct ProjectivePoint {
  typename Field::Element x, y, z;
};

template <class Field>
struct Equation {
  using Element = typename Field::Element;

  Equation(const Field& over, const Number<Field::kLimbs>& aNumber, const Number<Field::kLimbs>& bNumber)
      : field(over), a(over.from(aNumber)), b(over.from(bNumber)), b3(over.add(over.add(b, b), b)) {
    const Element three = over.add(over.add(over.one(), over.one()), over.one());
    aIsMinus3 = over.isZero(over.add(a, three));
  }

  // Most sets have a = -3, which saves multiplications. What is chosen is public.
  Element timesA(const Element& value) const {
    if (!aIsMinus3) return field.multiply(a, value);
    return field.subtract(Element{}, field.add(field.add(value, value), value));
  }

  bool holdsFor(const AffinePoint<Field>& point) const {
    const Element square = field.multiply(point.x, point.x);
    const Element right = field.add(field.multiply(field.add(square, a), point.x), b);
    return field.isZero(field.subtract(field.multiply(point.y, point.y), right));
  }

  const Field& field;
  Element a, b, b3;
  bool aIsMinus3 = false;
};

// Affine points with one inversion for all. None is infinity, and none is a secret.
template <class Field>
std::vector<AffinePoint<Field>> ToAffine(const Field& field,
                                         const std::vector<ProjectivePoint<Field>>& points) {
  using Element = typename Field::Element;
  std::vector<Element> products;  // of all denominators so far
  products.reserve(points.size());
  Element product = field.one();
  for (const auto& point : points) {
    products.push_back(product);
    product = field.multiply(product, point.z);
  }
  Element inverse = Inverse<Timing::Public>(field, product);
  std::vector<AffinePoint<Field>> affine(points.size());
  for (size_t i = points.size(); i-- > 0;) {
    const Element denominator = field.multiply(inverse, products[i]);
    affine[i] = {field.multiply(points[i].x, denominator), field.multiply(points[i].y, denominator)};
    inverse = field.multiply(inverse, points[i].z);
  }
  return affine;
}

}  // namespace keykern::gost

#endif
