// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Vec3Pack.hpp>

#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <limits>
#include <random>
#include <vector>

namespace {

using Ostrel::Chunk;
using Ostrel::ChunkBase;
using Ostrel::StrongPtr;
using Ostrel::TypedChunkBase;
using Quorvel::FixedArray;
using Quorvel::Vec3Pack_10_11_11;

using Vec3 = FixedArray<double, 3>;
using Vec3PackTest = TreskTest::RecordBalanceTest;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double greatest[3] = {1023, 2047, 2047};

Vec3Pack_10_11_11::Vectors makeVectors(const std::vector<Vec3>& values) {
  const Vec3Pack_10_11_11::Vectors chunk(new Chunk<Vec3>(values.size()));
  chunk->vector() = values;
  return chunk;
}

unsigned int packOne(const Vec3& value, const Vec3& lower, const Vec3& upper) {
  return Vec3Pack_10_11_11(makeVectors({value}), lower, upper).getPacked()->vector()[0];
}

/// The stored number of component `c`.
unsigned int field(unsigned int packed, int c) {
  return c == 0 ? packed & 1023U : c == 1 ? packed >> 10 & 2047U : packed >> 21;
}

TEST_F(Vec3PackTest, OneValueOfFourBytesForEachVector) {
  const Vec3Pack_10_11_11 pack(makeVectors({Vec3(0, 0, 0), Vec3(1, 1, 1), Vec3(0, 1, 0)}), Vec3(0, 0, 0),
                               Vec3(1, 1, 1));
  ASSERT_TRUE(pack.getPacked().isValid());
  EXPECT_EQ(pack.getPacked()->size(), 3U);
  EXPECT_EQ(pack.getPacked()->elementSize(), 4);
  EXPECT_EQ(pack.getPacked().strongCount(), 1) << "held by the packed form";
  EXPECT_EQ(pack.getPacked()->vector()[0], 0U);
  EXPECT_EQ(pack.getPacked()->vector()[1], 0xFFFFFFFFU);
}

TEST_F(Vec3PackTest, PackedChunkOutlivesThePackedForm) {
  Vec3Pack_10_11_11::PackedChunk chunk;
  { chunk = Vec3Pack_10_11_11(makeVectors({Vec3(1, 0, 0)}), Vec3(0, 0, 0), Vec3(1, 1, 1)).getPacked(); }
  EXPECT_EQ(chunk.strongCount(), 1);
  EXPECT_EQ(chunk->vector()[0], 1023U);
}

TEST_F(Vec3PackTest, SourceIsNeitherChangedNorHeld) {
  const Vec3Pack_10_11_11::Vectors vectors = makeVectors({Vec3(0.25, 0.5, 2)});
  const Vec3Pack_10_11_11 pack(vectors, Vec3(0, 0, 0), Vec3(1, 1, 1));
  EXPECT_EQ(vectors.strongCount(), 1);
  EXPECT_TRUE(vectors->vector()[0] == Vec3(0.25, 0.5, 2));
}

TEST_F(Vec3PackTest, NoVectorsGiveAnEmptyChunk) {
  const Vec3Pack_10_11_11 none(Vec3Pack_10_11_11::Vectors(), Vec3(0, 0, 0), Vec3(1, 1, 1));
  ASSERT_TRUE(none.getPacked().isValid());
  EXPECT_EQ(none.getPacked()->size(), 0U);
  EXPECT_EQ(Vec3Pack_10_11_11(makeVectors({}), Vec3(0, 0, 0), Vec3(1, 1, 1)).getPacked()->size(), 0U);
}

TEST_F(Vec3PackTest, ComponentsLieInTheirFields) {
  const Vec3 lower(0, 0, 0);
  const Vec3 upper(1023, 2047, 2047);
  EXPECT_EQ(packOne(Vec3(1, 0, 0), lower, upper), 1U);
  EXPECT_EQ(packOne(Vec3(0, 1, 0), lower, upper), 1U << 10);
  EXPECT_EQ(packOne(Vec3(0, 0, 1), lower, upper), 1U << 21);
  EXPECT_EQ(packOne(Vec3(1023, 0, 2047), lower, upper), 1023U | 2047U << 21);
}

TEST_F(Vec3PackTest, HalvesRoundAwayFromZero) {
  const Vec3 lower(0, 0, 0);
  const Vec3 upper(1023, 2047, 2047);
  EXPECT_EQ(field(packOne(Vec3(4.5, 5.5, 6.49), lower, upper), 0), 5U);
  EXPECT_EQ(field(packOne(Vec3(4.5, 5.5, 6.49), lower, upper), 1), 6U);
  EXPECT_EQ(field(packOne(Vec3(4.5, 5.5, 6.49), lower, upper), 2), 6U);
}

TEST_F(Vec3PackTest, ValuesOutsideTheBoundsClampToTheNearerOne) {
  const Vec3 lower(-1, -1, -1);
  const Vec3 upper(1, 1, 1);
  EXPECT_EQ(packOne(Vec3(-5, -1.0001, -infinity), lower, upper), 0U);
  EXPECT_EQ(packOne(Vec3(5, 1.0001, infinity), lower, upper), 0xFFFFFFFFU);
}

TEST_F(Vec3PackTest, NotANumberIsStoredAsTheLowerBound) {
  const unsigned int packed = packOne(Vec3(1, notANumber, 1), Vec3(0, 0, 0), Vec3(1, 1, 1));
  EXPECT_EQ(field(packed, 0), 1023U);
  EXPECT_EQ(field(packed, 1), 0U);
  EXPECT_EQ(field(packed, 2), 2047U);
}

TEST_F(Vec3PackTest, BoundsThatCannotBeScaledBetweenStoreZero) {
  const double lowest = std::numeric_limits<double>::lowest();
  const double highest = std::numeric_limits<double>::max();
  struct Bounds {
    double lower;
    double upper;
  };
  for (const Bounds& b : std::initializer_list<Bounds>{
           {2, 2}, {3, 1}, {-infinity, 1}, {0, infinity}, {notANumber, 1}, {0, notANumber}, {lowest, highest}}) {
    const Vec3 lower(0, b.lower, 0);
    const Vec3 upper(1, b.upper, 1);
    for (const double value : {-1.0, 0.5, 2.0, 9.0, infinity, notANumber}) {
      const unsigned int packed = packOne(Vec3(1, value, 1), lower, upper);
      EXPECT_EQ(field(packed, 1), 0U) << b.lower << " to " << b.upper << ", value " << value;
      EXPECT_EQ(field(packed, 0), 1023U) << "the other components are scaled as ever";
    }
    const Vec3 unpacked = Vec3Pack_10_11_11::unpack(0xFFFFFFFFU, lower, upper);
    EXPECT_TRUE(std::isnan(b.lower) ? std::isnan(unpacked[1]) : unpacked[1] == b.lower);
  }
}

TEST_F(Vec3PackTest, BoundsThemselvesComeBackExactly) {
  const Vec3 lower(-3.5, 0, 100);
  const Vec3 upper(7, 1e-3, 101);
  const Vec3 low = Vec3Pack_10_11_11::unpack(packOne(lower, lower, upper), lower, upper);
  const Vec3 high = Vec3Pack_10_11_11::unpack(packOne(upper, lower, upper), lower, upper);
  for (int c = 0; c < 3; ++c) {
    EXPECT_EQ(low[c], lower[c]);
    EXPECT_DOUBLE_EQ(high[c], upper[c]);
  }
}

TEST_F(Vec3PackTest, RandomVectorsComeBackWithinHalfAStep) {
  std::mt19937 random(20);
  std::uniform_real_distribution<double> unit(0, 1);
  for (int round = 0; round < 200; ++round) {
    Vec3 lower;
    Vec3 upper;
    for (int c = 0; c < 3; ++c) {
      const double scale = std::pow(10.0, 20 * unit(random) - 10);
      lower[c] = (unit(random) - 0.5) * scale;
      upper[c] = lower[c] + unit(random) * scale + 1e-12 * scale;
    }
    std::vector<Vec3> values;
    for (int i = 0; i < 50; ++i) {
      Vec3 value;
      for (int c = 0; c < 3; ++c) value[c] = lower[c] + unit(random) * (upper[c] - lower[c]);
      values.push_back(value);
    }
    const Vec3Pack_10_11_11 pack(makeVectors(values), lower, upper);
    for (std::size_t i = 0; i < values.size(); ++i) {
      const Vec3 back = Vec3Pack_10_11_11::unpack(pack.getPacked()->vector()[i], lower, upper);
      for (int c = 0; c < 3; ++c) {
        const double halfStep = (upper[c] - lower[c]) / (2 * greatest[c]);
        const double rounding = 8 * std::numeric_limits<double>::epsilon() *
                                (std::abs(lower[c]) + std::abs(upper[c]) + std::abs(upper[c] - lower[c]));
        EXPECT_LE(std::abs(back[c] - values[i][c]), halfStep + rounding);
        EXPECT_GE(back[c], lower[c]);
      }
    }
  }
}

TEST_F(Vec3PackTest, PackingIsMonotone) {
  const Vec3 lower(0, 0, 0);
  const Vec3 upper(1, 1, 1);
  unsigned int last[3] = {0, 0, 0};
  for (int i = -100; i <= 5100; ++i) {
    const double x = i / 5000.0;
    const unsigned int packed = packOne(Vec3(x, x, x), lower, upper);
    for (int c = 0; c < 3; ++c) {
      EXPECT_GE(field(packed, c), last[c]);
      last[c] = field(packed, c);
    }
  }
  EXPECT_EQ(last[0], 1023U);
  EXPECT_EQ(last[1], 2047U);
  EXPECT_EQ(last[2], 2047U);
}

TEST_F(Vec3PackTest, PackedValuesSurviveAnotherRoundTrip) {
  const Vec3 lower(-2, 3, 0);
  const Vec3 upper(5, 4, 1000);
  std::mt19937 random(7);
  for (int i = 0; i < 2000; ++i) {
    const auto packed = static_cast<unsigned int>(random());
    EXPECT_EQ(packOne(Vec3Pack_10_11_11::unpack(packed, lower, upper), lower, upper), packed);
  }
}

}  // namespace
