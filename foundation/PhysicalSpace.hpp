// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/FixedArray.hpp>

#include <array>

namespace Quorvel {

/// The chart of Cartesian coordinates x, y, z.
struct TRESK_EXPORT Cartesian3D {};

/// The coordinates of a chart.
template <class Chart, class Real>
struct TRESK_OPEN_TEMPLATE Coordinates;

template <>
struct TRESK_EXPORT Coordinates<Cartesian3D, double> {
  /// Three doubles x, y, z.
  struct TRESK_EXPORT point : FixedArray<double, 3>, Cartesian3D {
    /// Coordinates that hold whatever was in their memory.
    constexpr point() noexcept {}  // NOLINT(modernize-use-equals-default)
    /// From its coordinates.
    constexpr point(double x, double y, double z) noexcept : FixedArray<double, 3>(x, y, z) {}
    /// From x, y and z.
    constexpr explicit point(const FixedArray<double, 3>& components) noexcept : FixedArray<double, 3>(components) {}
  };
};

/// Physical space with Cartesian coordinates.
struct TRESK_EXPORT PhysicalSpace {
  /// A place: three doubles x, y, z.
  struct TRESK_EXPORT point : Coordinates<Cartesian3D, double>::point {
    /// Coordinates that hold whatever was in their memory.
    constexpr point() noexcept {}  // NOLINT(modernize-use-equals-default)
    /// From its coordinates.
    constexpr point(double x, double y, double z) noexcept : Coordinates<Cartesian3D, double>::point(x, y, z) {}
    /// From x, y and z.
    constexpr explicit point(const FixedArray<double, 3>& components) noexcept
        : Coordinates<Cartesian3D, double>::point(components) {}
  };

  /// The difference of two points.
  struct TRESK_EXPORT vector : FixedArray<double, 3> {
    /// Components that hold whatever was in their memory.
    constexpr vector() noexcept {}  // NOLINT(modernize-use-equals-default)
    /// From its components.
    constexpr vector(double x, double y, double z) noexcept : FixedArray<double, 3>(x, y, z) {}
    /// From x, y and z.
    constexpr explicit vector(const FixedArray<double, 3>& components) noexcept : FixedArray<double, 3>(components) {}
  };

  /// An axis-aligned box: the lower corner, then the upper corner.
  struct TRESK_EXPORT AABB : std::array<point, 2> {
    /// Corners that hold whatever was in their memory.
    constexpr AABB() noexcept {}  // NOLINT(modernize-use-equals-default)
    /// From its corners, which are taken as they are and not sorted.
    AABB(const point& lower, const point& upper) noexcept : std::array<point, 2>{lower, upper} {}
  };
};

static_assert(sizeof(PhysicalSpace::point) == 24 && sizeof(Vector<double, 3>) == 24);

}  // namespace Quorvel
