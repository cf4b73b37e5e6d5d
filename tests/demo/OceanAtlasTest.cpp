// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// The numbers of the real file. They were computed once from the bytes of the file by a script of its own, which shares
// no code with this project.

#include <gtest/gtest.h>

#ifdef TRESK_OCEAN_WITH_NETCDF

#include <ocean/OceanFile.hpp>
#include <ocean/OceanYear.hpp>
#include <ocean/Statistics.hpp>
#include <support/RaceRunner.hpp>

#include <bit>
#include <limits>
#include <map>

namespace {

using namespace Example;

class OceanAtlasTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::optional<std::string> path = findOceanAtlas();
    if (!path) GTEST_SKIP() << "ocean_atlas_subset.nc is not installed (Debian package ferret-datasets)";
    source_ = std::make_shared<OceanFile>(*path);
  }
  void TearDown() override { Ostrel::Cache::MemCache()->trim(std::numeric_limits<unsigned long long>::max()); }

  std::shared_ptr<const OceanSource> source_;
};

TEST_F(OceanAtlasTest, TheGridIsThatOfTheAtlas) {
  const OceanDescription& ocean = source_->getDescription();
  EXPECT_EQ(ocean.quantity, "Temperature");
  EXPECT_EQ(ocean.unit, "");
  EXPECT_EQ(ocean.missingMark, "-1e+34");
  EXPECT_EQ(ocean.months.front(), "January");
  EXPECT_EQ(ocean.months.back(), "December");
  EXPECT_EQ(source_->nMonths(), 12U);
  EXPECT_EQ(ocean.depth.unit, "m");
  EXPECT_EQ(ocean.depth.values, (std::vector<double>{0, 10, 20, 30, 50, 75, 100, 125, 150, 200, 250, 300, 400, 500, 600,
                                                     700, 800, 900, 1000}));
  ASSERT_EQ(source_->nLatitudes(), 90U);
  EXPECT_EQ(ocean.latitude.values.front(), -89.5);
  EXPECT_EQ(ocean.latitude.values.back(), 88.5);
  ASSERT_EQ(source_->nLongitudes(), 180U);
  EXPECT_EQ(ocean.longitude.values.front(), 20.5);
  EXPECT_EQ(ocean.longitude.values.back(), 378.5);
}

TEST_F(OceanAtlasTest, TwoHundredTwentyEightFragmentsAreBoundWithoutReading) {
  const OceanField ocean(source_);
  EXPECT_EQ(ocean.getField().nFragments(), 228U);
  EXPECT_EQ(ocean.getField().getSize()->str(), "41040x20520");
  EXPECT_EQ(ocean.getField().Dims(), 2);
  EXPECT_EQ(ocean.getField().getElementType(), typeid(double));
  EXPECT_EQ(getFullMemory(ocean.getField()), 29548800U);
  EXPECT_EQ(getMemoryHeld(ocean.getField()), 0U);
  EXPECT_EQ(ocean.nSlabsRead(), 0U);
}

TEST_F(OceanAtlasTest, ExtremesAndMeansOfEachDepthAreThoseOfTheFile) {
  struct Row {
    double depth;
    unsigned long long nFinite;
    double minimum, maximum, mean, meanByArea;
  };
  const std::vector<Row> expected{
      {0, 126192, -3.000000, 34.177898, 13.872678, 18.205228},
      {10, 125856, -3.000000, 32.125801, 13.781761, 18.135000},
      {20, 125496, -3.000000, 31.624300, 13.669676, 18.009626},
      {30, 125112, -3.000000, 31.119101, 13.502163, 17.808615},
      {50, 123252, -3.000000, 29.824301, 12.984266, 17.124575},
      {75, 122352, -3.000000, 29.456499, 12.241560, 16.101086},
      {100, 120528, -3.000000, 28.920799, 11.522663, 15.088448},
      {125, 120072, -2.987500, 28.249599, 10.869337, 14.141476},
      {150, 119088, -3.000000, 27.325199, 10.323354, 13.304040},
      {200, 117360, -3.000000, 22.971001, 9.431465, 11.898426},
      {250, 116688, -3.000000, 23.001801, 8.699739, 10.820156},
      {300, 115320, -2.947700, 22.816799, 8.150052, 9.986887},
      {400, 114264, -3.000000, 22.892500, 7.098823, 8.579117},
      {500, 113028, -3.000000, 22.225700, 6.189920, 7.409612},
      {600, 112392, -3.000000, 21.774900, 5.418464, 6.449829},
      {700, 111732, -1.841600, 21.733000, 4.820497, 5.723748},
      {800, 110856, -2.108200, 22.070499, 4.325237, 5.131753},
      {900, 110424, -0.983700, 21.825500, 3.911469, 4.643100},
      {1000, 108972, -1.000300, 21.807501, 3.551935, 4.218182},
  };
  const OceanField ocean(source_);
  const std::vector<Statistics> depths = summariseDepths(ocean, [](const Tresk::FragmentIDPtr&, const Slab&) {});
  ASSERT_EQ(depths.size(), expected.size());
  unsigned long long nFinite = 0;
  for (std::size_t i = 0; i < depths.size(); ++i) {
    SCOPED_TRACE(expected[i].depth);
    EXPECT_EQ(source_->getDescription().depth.values[i], expected[i].depth);
    EXPECT_EQ(depths[i].nCells(), 194400U);
    EXPECT_EQ(depths[i].nFinite(), expected[i].nFinite);
    EXPECT_NEAR(depths[i].getMinimum(), expected[i].minimum, 6e-7);
    EXPECT_NEAR(depths[i].getMaximum(), expected[i].maximum, 6e-7);
    EXPECT_NEAR(depths[i].getMean(), expected[i].mean, 6e-7);
    EXPECT_NEAR(depths[i].getWeightedMean(), expected[i].meanByArea, 6e-7);
    nFinite += depths[i].nFinite();
  }
  EXPECT_EQ(nFinite, 2238984U);
}

TEST_F(OceanAtlasTest, AFragmentHasItsChecksumBeforeAndAfterItWasForgotten) {
  if (std::endian::native != std::endian::little) GTEST_SKIP() << "the checksum is that of little-endian bytes";
  const OceanField ocean(source_);
  const Tresk::FragmentIDPtr fragment = ocean.getField().getFragmentID("August 100 m");
  ASSERT_TRUE(fragment);
  EXPECT_EQ(checksum(*ocean.getSlab(fragment)), 0x0cb8ef74ea5fb3d7U);
  EXPECT_EQ(getMemoryHeld(ocean.getField()), 129600U);
  EXPECT_EQ(Ostrel::Cache::MemCache()->trim(std::numeric_limits<unsigned long long>::max()), 129600U);
  EXPECT_EQ(getMemoryHeld(ocean.getField()), 0U);
  EXPECT_EQ(checksum(*ocean.getSlab(fragment)), 0x0cb8ef74ea5fb3d7U);
  EXPECT_EQ(ocean.nSlabsRead(), 2U);
}

TEST_F(OceanAtlasTest, AnomaliesAreThoseOfTheFile) {
  struct Row {
    unsigned long long nEveryMonth;
    double minimum, maximum;              // K, of all months
    double augustMinimum, augustMaximum;  // K
  };
  // The surface, 30 m with the largest anomaly of all, 200 m, 500 m and 1000 m.
  const std::map<std::size_t, Row> expected{
      {0, {10516, -10.281683, 12.171592, -5.152392, 12.171592}},
      {3, {10426, -6.142416, 21.961883, -5.748592, 4.757216}},
      {9, {9780, -5.470608, 7.133909, -3.191033, 2.534566}},
      {13, {9419, -3.581850, 5.223975, -2.120417, 2.511217}},
      {18, {9081, -1.814383, 2.761692, -1.015525, 2.679592}},
  };
  const OceanField ocean(source_);
  const OceanYear year(ocean);
  for (const auto& [depth, row] : expected) {
    SCOPED_TRACE(depth);
    Statistics all;
    for (std::size_t month = 0; month < 12; ++month) {
      const Statistics one =
          summarise(*year.makeAnomaly(month, depth, false), source_->getDescription().latitude.values);
      EXPECT_EQ(one.nFinite(), row.nEveryMonth);
      if (month == 7) {
        EXPECT_NEAR(one.getMinimum(), row.augustMinimum, 6e-7);
        EXPECT_NEAR(one.getMaximum(), row.augustMaximum, 6e-7);
      }
      all.add(one);
    }
    EXPECT_NEAR(all.getMinimum(), row.minimum, 6e-7);
    EXPECT_NEAR(all.getMaximum(), row.maximum, 6e-7);
  }
  EXPECT_EQ(ocean.nSlabsRead(), 12 * expected.size());
}

TEST_F(OceanAtlasTest, CellsWithAValueInEveryMonthAreThoseOfTheFile) {
  const OceanField ocean(source_);
  const OceanYear year(ocean);
  unsigned long long n = 0;
  for (std::size_t depth = 0; depth < 19; ++depth)
    n += summarise(*year.makeMean(depth, false), source_->getDescription().latitude.values).nFinite();
  EXPECT_EQ(n, 186582U);
}

TEST_F(OceanAtlasTest, ThreadsThatReadAtOnceGetWhatOneGetsAlone) {
  constexpr std::size_t nThreads = 4;
  constexpr std::size_t nFragments = 60;
  std::vector<std::uint64_t> alone;
  {
    const OceanField ocean(source_);
    for (std::size_t number = 0; number < nFragments; ++number)
      alone.push_back(checksum(*ocean.getSlab(ocean.getField().getFragmentIDs()[number])));
  }
  const OceanField ocean(source_);
  std::vector<std::vector<std::uint64_t>> together(nThreads, std::vector<std::uint64_t>(nFragments));
  TreskTest::RaceRunner race;
  // Each thread begins elsewhere, so that different slabs are read at the same moment.
  race.add(nThreads, [&](int runner) {
    const auto thread = static_cast<std::size_t>(runner);
    for (std::size_t i = 0; i < nFragments; ++i) {
      const std::size_t number = (i + thread * nFragments / nThreads) % nFragments;
      together[thread][number] = checksum(*ocean.getSlab(ocean.getField().getFragmentIDs()[number]));
    }
  });
  race.run();
  for (const std::vector<std::uint64_t>& checksums : together) EXPECT_EQ(checksums, alone);
  EXPECT_EQ(ocean.nSlabsRead(), nFragments);
}

}  // namespace

#else

TEST(OceanAtlasTest, ExtremesAndMeansOfEachDepthAreThoseOfTheFile) {
  GTEST_SKIP() << "the ocean example was built without netCDF";
}

#endif
