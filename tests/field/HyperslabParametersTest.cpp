// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/HyperslabParameters.hpp>

#include <gtest/gtest.h>

#include <random>
#include <type_traits>

namespace {

using Tresk::HyperslabParameters;

HyperslabParameters block(unsigned long long nElements) {
  HyperslabParameters walk;
  walk.count = nElements;
  walk.stride = 1;
  walk.span = nElements;
  return walk;
}

HyperslabParameters interleaved(unsigned long long nElements, unsigned long long nComponents) {
  HyperslabParameters walk;
  walk.count = nElements * nComponents;
  walk.stride = nComponents;
  walk.span = 1;
  return walk;
}

TEST(HyperslabParametersTest, IsFiveNumbersWithoutVirtualOperations) {
  EXPECT_EQ(sizeof(HyperslabParameters), 40U);
  EXPECT_TRUE(std::is_trivially_copyable_v<HyperslabParameters>);
  EXPECT_FALSE(std::is_polymorphic_v<HyperslabParameters>);
  EXPECT_TRUE(std::is_standard_layout_v<HyperslabParameters>);
}

TEST(HyperslabParametersTest, IsZeroByDefaultAndAWalkOverNothing) {
  const HyperslabParameters walk;
  EXPECT_EQ(walk.count, 0U);
  EXPECT_EQ(walk.stride, 0U);
  EXPECT_EQ(walk.span, 0U);
  EXPECT_EQ(walk.offset, 0U);
  EXPECT_EQ(walk.tail, 0U);
  EXPECT_EQ(walk.nElements(), 0U);
}

TEST(HyperslabParametersTest, APlainBlockOfAHundredElementsIsWalkedInFull) {
  const HyperslabParameters walk = block(100);
  EXPECT_EQ(walk.nBlockElements(), 100U);
  EXPECT_EQ(walk.nReachableElements(), 100U);
  EXPECT_EQ(walk.nElements(), 100U);
}

TEST(HyperslabParametersTest, AnInterleavedBlockCountsUnitsAndHoldsElements) {
  const HyperslabParameters walk = interleaved(100, 3);
  EXPECT_EQ(walk.count, 300U);
  EXPECT_EQ(walk.nBlockElements(), 100U);
  EXPECT_EQ(walk.nElements(), 100U);
}

TEST(HyperslabParametersTest, APlanarBlockHoldsAsManyElementsAsItsSpanSays) {
  HyperslabParameters walk;
  walk.count = 300;
  walk.stride = 1;
  walk.span = 100;
  EXPECT_EQ(walk.nBlockElements(), 100U);
}

TEST(HyperslabParametersTest, OneComponentOfAnInterleavedBlockHoldsAsManyElementsAsTheBlock) {
  HyperslabParameters walk;
  walk.count = 300;
  walk.stride = 3;
  walk.span = 0;
  EXPECT_EQ(walk.nBlockElements(), 100U);
}

TEST(HyperslabParametersTest, TheDivisionByTheStrideDropsTheRemainder) {
  HyperslabParameters walk;
  walk.count = 301;
  walk.stride = 3;
  EXPECT_EQ(walk.nBlockElements(), 100U);
}

TEST(HyperslabParametersTest, OffsetAndTailShortenTheWalk) {
  HyperslabParameters walk = block(100);
  walk.offset = 10;
  walk.tail = 25;
  EXPECT_EQ(walk.nBlockElements(), 100U);
  EXPECT_EQ(walk.nReachableElements(), 90U);
  EXPECT_EQ(walk.nElements(), 65U);
}

TEST(HyperslabParametersTest, ExtentsOfSixtyOnABlockOfAHundredLeaveATailOfForty) {
  HyperslabParameters walk = block(100);
  walk.fitTo(60);
  EXPECT_EQ(walk.tail, 40U);
  EXPECT_EQ(walk.offset, 0U);
  EXPECT_EQ(walk.nElements(), 60U);
}

TEST(HyperslabParametersTest, ExtentsOfSixtyBehindAnOffsetOfTenLeaveATailOfThirty) {
  HyperslabParameters walk = block(100);
  walk.offset = 10;
  walk.fitTo(60);
  EXPECT_EQ(walk.tail, 30U);
  EXPECT_EQ(walk.offset, 10U);
  EXPECT_EQ(walk.nElements(), 60U);
}

TEST(HyperslabParametersTest, TheTailOfAnInterleavedBlockCountsElements) {
  HyperslabParameters walk = interleaved(100, 3);
  walk.offset = 10;
  walk.fitTo(60);
  EXPECT_EQ(walk.tail, 30U);
}

TEST(HyperslabParametersTest, ExtentsThatCoverMoreThanTheBlockLeaveTheTail) {
  HyperslabParameters walk = block(100);
  walk.fitTo(101);
  EXPECT_EQ(walk.tail, 0U);
  walk.tail = 7;
  walk.fitTo(1000);
  EXPECT_EQ(walk.tail, 7U);
}

TEST(HyperslabParametersTest, TheWalkIsNeverLengthened) {
  HyperslabParameters walk = block(100);
  walk.tail = 40;
  walk.fitTo(60);
  EXPECT_EQ(walk.tail, 40U);
  walk.fitTo(80);
  EXPECT_EQ(walk.tail, 40U);
  walk.fitTo(59);
  EXPECT_EQ(walk.tail, 41U);
}

TEST(HyperslabParametersTest, ExtentsOfNothingLeaveAnEmptyWalk) {
  HyperslabParameters walk = block(100);
  walk.offset = 10;
  walk.fitTo(0);
  EXPECT_EQ(walk.tail, 90U);
  EXPECT_EQ(walk.nElements(), 0U);
}

TEST(HyperslabParametersTest, ATailBeyondTheBlockFollowsTheRuleInUnsignedNumbers) {
  // Reachable less tail wraps around and so is greater than the product, which itself is greater than what is
  // reachable: the tail goes to 0.
  HyperslabParameters walk = block(100);
  walk.offset = 90;
  walk.tail = 20;
  walk.fitTo(50);
  EXPECT_EQ(walk.tail, 0U);
}

TEST(HyperslabParametersTest, RandomWalksAreFittedByTheRule) {
  std::mt19937 random(20260102);
  const auto upTo = [&](unsigned long long greatest) {
    return std::uniform_int_distribution<unsigned long long>(0, greatest)(random);
  };
  for (int round = 0; round < 4000; ++round) {
    HyperslabParameters walk;
    const unsigned long long nElements = upTo(50);
    const unsigned long long stride = 1 + upTo(4);
    walk.stride = stride;
    walk.count = stride == 1 ? upTo(100) : nElements * stride;
    walk.span = stride == 1 ? nElements : upTo(100);
    walk.offset = upTo(nElements);
    walk.tail = upTo(nElements - walk.offset);
    const unsigned long long walked = nElements - walk.offset - walk.tail;
    ASSERT_EQ(walk.nElements(), walked);
    const HyperslabParameters before = walk;
    const unsigned long long product = upTo(60);
    walk.fitTo(product);
    EXPECT_EQ(walk.nElements(), product < walked ? product : walked);
    EXPECT_EQ(walk.count, before.count);
    EXPECT_EQ(walk.stride, before.stride);
    EXPECT_EQ(walk.span, before.span);
    EXPECT_EQ(walk.offset, before.offset);
  }
}

}  // namespace
