// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/DirectProductMemArray.hpp>
#include <tresk/foundation/BoundingBox.hpp>

namespace Tresk {

/// The points of an equally spaced three-dimensional grid: an origin, a step per axis and three extents.
///
/// Vertex (i, j, k) lies at (double(i) x dx + x0, double(j) x dy + y0, double(k) x dz + z0). The most compact form of
/// coordinates: a computing array (see `DirectProductMemArrayBase`) of three axes of 16 bytes.
/// Nothing is tested: a high corner below the low one gives negative steps, and extents of 0 an array without points.
class TRESK_EXPORT UniformCartesianArray
    : public LinearDirectProductMemArray<Quorvel::PhysicalSpace::point, Quorvel::PhysicalSpace::vector, 3> {
 public:
  using Point = Quorvel::PhysicalSpace::point;    ///< type of an element
  using Vector = Quorvel::PhysicalSpace::vector;  ///< type of the step along the three axes

  /// From the point at index 0 and the step.
  UniformCartesianArray(const MultiIndex<3>& size, const Point& low, const Vector& step, const CreatorWeakPtr& creator);
  /// From corner to corner: an axis of n points divides the distance into n - 1 steps; with one point the whole
  /// distance stays as the step.
  UniformCartesianArray(const Point& low, const MultiIndex<3>& size, const Point& high, const CreatorWeakPtr& creator);
  /// From corner to corner of a box.
  UniformCartesianArray(const Quorvel::BoundingBox& box, const MultiIndex<3>& size, const CreatorWeakPtr& creator);
  ~UniformCartesianArray() override;

  /// A new box from the first to the last point, as they are computed.
  Ostrel::StrongPtr<Quorvel::BoundingBox, Ostrel::InterfaceBase> getBoundingBox() const;

  /// The same points. `getOrigin` and `getDelta` of the copy must not be read, deliberately.
  MemBasePtr copy(const CreatorWeakPtr& creator) const override;

 private:
  UniformCartesianArray(const UniformCartesianArray& other, const CreatorWeakPtr& creator);
};

}  // namespace Tresk
