// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MultiIndex.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <type_traits>

namespace {

using Tresk::MultiIndex;

TEST(MultiIndexTest, IsNothingButItsNumbers) {
  EXPECT_EQ(sizeof(MultiIndex<1>), 8U);
  EXPECT_EQ(sizeof(MultiIndex<4>), 32U);
  EXPECT_TRUE(std::is_trivially_copyable_v<MultiIndex<4>>);
}

TEST(MultiIndexTest, DefaultIsZero) {
  const MultiIndex<4> index;
  for (int d = 0; d < 4; ++d) EXPECT_EQ(index[d], 0U);
}

TEST(MultiIndexTest, KeepsItsNumbersLowestDimensionFirst) {
  MultiIndex<3> index(4, 5U, 6ULL);
  EXPECT_EQ(index[0], 4U);
  EXPECT_EQ(index[1], 5U);
  EXPECT_EQ(index[2], 6U);
  index[1] = 50;
  EXPECT_EQ(index[1], 50U);
  EXPECT_EQ(index.begin()[0], 4U);
  EXPECT_EQ(index.end() - index.begin(), 3);
}

TEST(MultiIndexTest, HoldsTheGreatestNumber) {
  const MultiIndex<1> index(std::numeric_limits<unsigned long long>::max());
  EXPECT_EQ(index[0], 18446744073709551615ULL);
}

TEST(MultiIndexTest, MultipliesItsNumbers) {
  EXPECT_EQ(MultiIndex<1>(7).nElements(), 7U);
  EXPECT_EQ(MultiIndex<3>(4, 5, 6).nElements(), 120U);
  EXPECT_EQ(MultiIndex<3>(4, 0, 6).nElements(), 0U);
}

TEST(MultiIndexTest, LinearPositionVariesFastestWithIndexZero) {
  const MultiIndex<4> extents(2, 3, 4, 5);
  unsigned long long position = 0;
  for (int l = 0; l < 5; ++l)
    for (int k = 0; k < 4; ++k)
      for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 2; ++i) EXPECT_EQ(extents.linear(MultiIndex<4>(i, j, k, l)), position++);
  EXPECT_EQ(MultiIndex<3>(10, 20, 30).linear(MultiIndex<3>(1, 2, 3)), 621U);
  EXPECT_EQ(MultiIndex<2>(10, 20).linear(MultiIndex<2>(1, 2)), 21U);
  EXPECT_EQ(MultiIndex<1>(10).linear(MultiIndex<1>(9)), 9U);
}

TEST(MultiIndexTest, IsEqualIfAllNumbersAre) {
  EXPECT_TRUE(MultiIndex<2>(1, 2) == MultiIndex<2>(1, 2));
  EXPECT_FALSE(MultiIndex<2>(1, 2) == MultiIndex<2>(2, 2));
  EXPECT_FALSE(MultiIndex<2>(1, 2) == MultiIndex<2>(1, 3));
}

}  // namespace
