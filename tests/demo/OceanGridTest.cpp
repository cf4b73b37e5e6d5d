// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <gtest/gtest.h>
#include <ocean/OceanGrid.hpp>
#include <tresk/field/MemArray.hpp>

namespace {

using namespace Example;
using Point = Quorvel::PhysicalSpace::point;

/// 4 x 3 cells at 2 depths.
OceanDescription makeOcean() {
  OceanDescription ocean;
  ocean.longitude = {"degrees_east", {10, 100, 190, 280}};
  ocean.latitude = {"degrees_north", {-60, 0, 60}};
  ocean.depth = {"m", {0, 2.5}};
  return ocean;
}

TEST(AxisTest, StepIsTheMeanDistanceOfNeighbours) {
  EXPECT_EQ((Axis{"m", {}}).getStep(), 0);
  EXPECT_EQ((Axis{"m", {7}}).getStep(), 0);
  EXPECT_EQ((Axis{"m", {1, 2, 6}}).getStep(), 2.5);
}

TEST(AxisTest, ACellOffItsPlaceMakesAnAxisUneven) {
  EXPECT_TRUE((Axis{"m", {0, 10, 20}}).isEvenlySpaced());
  EXPECT_TRUE((Axis{"m", {0, 10.0009, 20}}).isEvenlySpaced());
  EXPECT_FALSE((Axis{"m", {0, 10.0011, 20}}).isEvenlySpaced());
  EXPECT_FALSE((Axis{"m", {0, 10, 30}}).isEvenlySpaced());
  EXPECT_TRUE((Axis{"m", {20, 10, 0}}).isEvenlySpaced());
  EXPECT_TRUE((Axis{"m", {}}).isEvenlySpaced());
}

TEST(OceanGridTest, PointsAreLongitudeLatitudeAndDepthOfTheCells) {
  const GridPtr grid = makeGrid(makeOcean());
  const Tresk::MemBasePtr points = grid->makeExplicit(Tresk::CreatorWeakPtr());
  ASSERT_EQ(points->nElements(), 24U);
  const auto* const p = static_cast<const Point*>(points->getDataPointer());
  EXPECT_EQ(p[0], Point(10, -60, 0));
  EXPECT_EQ(p[3], Point(280, -60, 0));
  EXPECT_EQ(p[4], Point(10, 0, 0));
  EXPECT_EQ(p[23], Point(280, 60, 2.5));
  EXPECT_EQ(grid->getElementString(13), "{100,-60,2.5}");
}

TEST(OceanGridTest, HoldsEightBytesForEachPositionOfAnAxis) {
  const GridPtr grid = makeGrid(makeOcean());
  EXPECT_EQ(getAxisMemory(*grid), 8U * (4 + 3 + 2));
  EXPECT_EQ(grid->memsize(), 0U);
}

TEST(OceanGridTest, AnEvenLevelHoldsTwoOriginsAndTwoSteps) {
  const LevelGridPtr level = makeLevelGrid(makeOcean());
  ASSERT_TRUE(level);
  EXPECT_EQ(getAxisMemory(*level), 32U);
  EXPECT_EQ(level->getElementString(0), "{10,-60}");
  EXPECT_EQ(level->getElementString(11), "{280,60}");
}

TEST(OceanGridTest, AnUnevenLevelHasNoLinearForm) {
  OceanDescription ocean = makeOcean();
  ocean.latitude.values[1] = 5;
  EXPECT_FALSE(makeLevelGrid(ocean));
}

}  // namespace
