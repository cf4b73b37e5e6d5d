// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "OceanSource.hpp"

#include <tresk/field/DirectProductMemArray.hpp>

namespace Example {

/// The coordinates of all cells: longitude, latitude and depth along the three dimensions, from three listed axes. All
/// axes of one array are of one kind, and depths are unevenly spaced.
using Grid = Tresk::DirectProductMemArray<Quorvel::PhysicalSpace::point, Tresk::ExplicitCoordinateAxisArray, 3>;
using GridPtr = Ostrel::StrongPtr<Grid, Ostrel::Cacheable>;

/// The coordinates of the cells at one depth: longitude and latitude from two linear axes.
using LevelGrid = Tresk::LinearDirectProductMemArray<Quorvel::FixedArray<double, 2>, Quorvel::FixedArray<double, 2>, 2>;
using LevelGridPtr = Ostrel::StrongPtr<LevelGrid, Ostrel::Cacheable>;

/// The coordinates as the source lists them.
GridPtr makeGrid(const OceanDescription& ocean);
/// The coordinates of one level, if longitudes and latitudes are evenly spaced; null if not.
LevelGridPtr makeLevelGrid(const OceanDescription& ocean);

/// Bytes of the axes, which are all that such an array holds.
unsigned long long getAxisMemory(const Grid& grid);
unsigned long long getAxisMemory(const LevelGrid& grid);

}  // namespace Example
