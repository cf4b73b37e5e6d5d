// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/UniformCartesianArray.hpp>

#include <tresk/field/MemArrayImplementation.hpp>

namespace Tresk {

namespace {

using Point = UniformCartesianArray::Point;
using Vector = UniformCartesianArray::Vector;

/// The step that divides a diagonal into size - 1 parts along each axis.
Vector stepOf(const Point& low, const Point& high, const MultiIndex<3>& size) {
  Vector step(static_cast<const Quorvel::FixedArray<double, 3>&>(high) -
              static_cast<const Quorvel::FixedArray<double, 3>&>(low));
  for (int c = 0; c < 3; ++c)
    if (size[c] > 1) step[c] /= static_cast<double>(size[c] - 1);
  return step;
}

}  // namespace

UniformCartesianArray::UniformCartesianArray(const MultiIndex<3>& size, const Point& low, const Vector& step,
                                             const CreatorWeakPtr& creator)
    : MemBase(TreskType<Point>::index(), creator), LinearDirectProductMemArray(size, low, step, creator) {}

UniformCartesianArray::UniformCartesianArray(const Point& low, const MultiIndex<3>& size, const Point& high,
                                             const CreatorWeakPtr& creator)
    : UniformCartesianArray(size, low, stepOf(low, high, size), creator) {}

UniformCartesianArray::UniformCartesianArray(const Quorvel::BoundingBox& box, const MultiIndex<3>& size,
                                             const CreatorWeakPtr& creator)
    : UniformCartesianArray(box[0], size, box[1], creator) {}

UniformCartesianArray::UniformCartesianArray(const UniformCartesianArray& other, const CreatorWeakPtr& creator)
    : MemBase(TreskType<Point>::index(), creator), LinearDirectProductMemArray(other, creator) {}

UniformCartesianArray::~UniformCartesianArray() = default;

Ostrel::StrongPtr<Quorvel::BoundingBox, Ostrel::InterfaceBase> UniformCartesianArray::getBoundingBox() const {
  return Ostrel::StrongPtr<Quorvel::BoundingBox, Ostrel::InterfaceBase>(new Quorvel::BoundingBox(first(), last()));
}

MemBasePtr UniformCartesianArray::copy(const CreatorWeakPtr& creator) const {
  return MemBasePtr(new UniformCartesianArray(*this, creator));
}

}  // namespace Tresk
