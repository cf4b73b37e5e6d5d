// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "TinyOcean.hpp"

#include <gtest/gtest.h>
#include <ocean/AnalyticOcean.hpp>
#include <ocean/Statistics.hpp>

#include <cmath>
#include <limits>
#include <stdexcept>

namespace {

using namespace Example;
using TreskTest::TinyOcean;

class OceanFieldTest : public testing::Test {
 protected:
  void TearDown() override { Ostrel::Cache::MemCache()->trim(std::numeric_limits<unsigned long long>::max()); }

  const std::shared_ptr<TinyOcean> source_ = std::make_shared<TinyOcean>();
  const OceanField ocean_{source_};
  const Tresk::Field& field_ = ocean_.getField();
};

TEST_F(OceanFieldTest, FragmentsAreNamedAfterMonthAndDepth) {
  std::vector<std::string> names;
  for (const Tresk::FragmentIDPtr& fragment : field_.getFragmentIDs()) names.push_back(fragment->getName());
  EXPECT_EQ(names,
            (std::vector<std::string>{"March 0 m", "March 2.5 m", "March 10 m", "May 0 m", "May 2.5 m", "May 10 m"}));
  const Tresk::FragmentIDPtr fragment = field_.getFragmentID("May 2.5 m");
  EXPECT_EQ(ocean_.getMonth(fragment), 1U);
  EXPECT_EQ(ocean_.getDepth(fragment), 1U);
}

TEST_F(OceanFieldTest, SizeAndMemoryAreToldWithoutReading) {
  EXPECT_EQ(field_.getSize()->str(), "24x12");
  EXPECT_EQ(field_.Dims(), 2);
  EXPECT_EQ(getFullMemory(field_), 6U * 8 * 8);
  EXPECT_EQ(getMemoryHeld(field_), 0U);
  EXPECT_EQ(countHeld(field_), 0U);
  EXPECT_EQ(ocean_.nSlabsRead(), 0U);
}

TEST_F(OceanFieldTest, ASlabIsReadOnceAndAgainAfterItWasForgotten) {
  const Tresk::FragmentIDPtr fragment = field_.getFragmentID("May 10 m");
  EXPECT_EQ((*ocean_.getSlab(fragment))(3, 1), 1213);
  EXPECT_EQ((*ocean_.getSlab(fragment))(2, 0), 1202);
  EXPECT_EQ(ocean_.nSlabsRead(), 1U);
  EXPECT_EQ(getMemoryHeld(field_), 64U);
  EXPECT_EQ(countHeld(field_), 1U);
  EXPECT_EQ(Ostrel::Cache::MemCache()->trim(64), 64U);
  EXPECT_EQ(getMemoryHeld(field_), 0U);
  EXPECT_EQ((*ocean_.getSlab(fragment))(3, 1), 1213);
  EXPECT_EQ(ocean_.nSlabsRead(), 2U);
}

TEST_F(OceanFieldTest, AnErrorOfTheSourceReachesWhoeverAskedAndLeavesTheFragmentReadable) {
  const Tresk::FragmentIDPtr fragment = field_.getFragmentID("March 0 m");
  source_->isBroken = true;
  EXPECT_THROW(ocean_.getSlab(fragment), std::runtime_error);
  EXPECT_EQ(ocean_.nSlabsRead(), 0U);
  source_->isBroken = false;
  EXPECT_EQ((*ocean_.getSlab(fragment))(1, 0), 1);
}

TEST_F(OceanFieldTest, AFragmentThatIsNotBoundHasNoSlab) {
  EXPECT_THROW(ocean_.getSlab(Tresk::FragmentIDPtr(new Tresk::FragmentID("June 0 m"))), std::runtime_error);
}

TEST_F(OceanFieldTest, StatisticsLeaveMissingCellsOutAndWeighByLatitude) {
  unsigned int nVisited = 0;
  const std::vector<Statistics> depths = summariseDepths(
      ocean_,
      [&](const Tresk::FragmentIDPtr& fragment, const Slab&) { EXPECT_EQ(fragment->getNumericalID(), nVisited++); });
  EXPECT_EQ(nVisited, 6U);
  ASSERT_EQ(depths.size(), 3U);
  EXPECT_EQ(depths[1].nCells(), 16U);
  EXPECT_EQ(depths[1].nFinite(), 14U);
  EXPECT_EQ(depths[1].getMinimum(), 100);
  EXPECT_EQ(depths[1].getMaximum(), 1113);
  // By hand, for one month: 0+1+2+3 at the equator and 11+12+13 at 60 degrees, where a cell has half the area.
  EXPECT_NEAR(depths[1].getMean(), 600 + 42.0 / 7, 1e-9);
  EXPECT_NEAR(depths[1].getWeightedMean(), 600 + (6 + 36 * 0.5) / 5.5, 1e-9);
}

TEST(StatisticsTest, NoFiniteCellGivesNoNumbers) {
  Statistics nothing;
  nothing.add(std::numeric_limits<double>::quiet_NaN(), 1);
  EXPECT_EQ(nothing.nCells(), 1U);
  EXPECT_EQ(nothing.nFinite(), 0U);
  EXPECT_TRUE(std::isnan(nothing.getMinimum()));
  EXPECT_TRUE(std::isnan(nothing.getMaximum()));
  EXPECT_TRUE(std::isnan(nothing.getMean()));
  EXPECT_TRUE(std::isnan(nothing.getWeightedMean()));
}

TEST(ChecksumTest, ChangesWithOneBit) {
  const SlabPtr slab(new Slab({3, 2}, Tresk::CreatorWeakPtr()));
  const std::uint64_t zeros = checksum(*slab);
  (*slab)(2, 1) = -0.0;
  EXPECT_NE(checksum(*slab), zeros);
  (*slab)(2, 1) = 0.0;
  EXPECT_EQ(checksum(*slab), zeros);
}

TEST(AnalyticOceanTest, IsAPlausibleOceanOnTheGridOfTheAtlas) {
  const AnalyticOcean ocean;
  EXPECT_EQ(ocean.nMonths() * ocean.nDepths(), 228U);
  std::vector<double> cells(180 * 90);
  std::size_t nBefore = cells.size();
  for (std::size_t depth = 0; depth < ocean.nDepths(); ++depth) {
    ocean.readSlab(7, depth, cells);
    std::size_t nFinite = 0;
    for (const double cell : cells) {
      if (std::isnan(cell)) continue;
      ++nFinite;
      ASSERT_GE(cell, -1.8);
      ASSERT_LE(cell, 36);
    }
    EXPECT_LT(nFinite, nBefore) << "the sea floor rises above depth " << depth;
    EXPECT_GT(nFinite, cells.size() / 3);
    nBefore = nFinite;
  }
}

TEST(AnalyticOceanTest, NorthernSummerIsWarmAtTheSurfaceAndDoesNotReachTheDeep) {
  const AnalyticOcean ocean;
  const std::size_t midAtlantic = 65 * 180 + 150;  // 40.5 degrees north, 320.5 degrees east
  const auto temperature = [&](std::size_t month, std::size_t depth) {
    std::vector<double> cells(180 * 90);
    ocean.readSlab(month, depth, cells);
    return cells[midAtlantic];
  };
  EXPECT_GT(temperature(7, 0), temperature(1, 0) + 3);
  EXPECT_NEAR(temperature(7, 18), temperature(1, 18), 1e-3);
  EXPECT_GT(temperature(7, 0), temperature(7, 18) + 5);
}

}  // namespace
