// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "OceanGrid.hpp"

namespace Example {

namespace {

template <class Array>
unsigned long long sumAxisMemory(const Array& grid, int rank) {
  unsigned long long bytes = 0;
  for (int c = 0; c < rank; ++c)
    if (const auto& axis = grid.getAxis(c))
      bytes += axis->size() * static_cast<unsigned long long>(axis->elementSize());
  return bytes;
}

}  // namespace

GridPtr makeGrid(const OceanDescription& ocean) {
  using ListedAxis = Tresk::CoordinateAxisArray<double, Tresk::ExplicitCoordinateAxisArray>;
  const GridPtr grid(new Grid(Tresk::CreatorWeakPtr()));
  grid->setAxis(0, Grid::AxisPtr(new ListedAxis(ocean.longitude.values)));
  grid->setAxis(1, Grid::AxisPtr(new ListedAxis(ocean.latitude.values)));
  grid->setAxis(2, Grid::AxisPtr(new ListedAxis(ocean.depth.values)));
  return grid;
}

LevelGridPtr makeLevelGrid(const OceanDescription& ocean) {
  const Axis& x = ocean.longitude;
  const Axis& y = ocean.latitude;
  if (!x.isEvenlySpaced() || !y.isEvenlySpaced()) return LevelGridPtr();
  return LevelGridPtr(new LevelGrid({x.values.size(), y.values.size()}, {x.values[0], y.values[0]},
                                    {x.getStep(), y.getStep()}, Tresk::CreatorWeakPtr()));
}

unsigned long long getAxisMemory(const Grid& grid) { return sumAxisMemory(grid, 3); }
unsigned long long getAxisMemory(const LevelGrid& grid) { return sumAxisMemory(grid, 2); }

}  // namespace Example
