// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/DynamicSize.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <new>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Tresk::DynamicSize;

constexpr unsigned long long Greatest = std::numeric_limits<unsigned long long>::max();

std::vector<unsigned long long> extentsOf(const DynamicSize& size) {
  return std::vector<unsigned long long>(size.getExtents(), size.getExtents() + size.Dims());
}

using Extents = std::vector<unsigned long long>;

/// A size of rank 0 that has an array of extents all the same.
DynamicSize emptyWithArray() { return DynamicSize(0, DynamicSize(), DynamicSize()); }

template <class A>
concept HasEquality = requires(const A& a, const A& b) {
  a == b;
};

TEST(DynamicSizeTest, IsAPlainValueOfRankAndExtents) {
  EXPECT_FALSE(std::is_polymorphic_v<DynamicSize>);
  EXPECT_EQ(sizeof(DynamicSize), 16U);
}

TEST(DynamicSizeTest, HasNoEqualityOfItsOwn) { EXPECT_FALSE(HasEquality<DynamicSize>); }

TEST(DynamicSizeTest, DefaultHasRankZeroAndNoExtents) {
  const DynamicSize size;
  EXPECT_EQ(size.Dims(), 0);
  EXPECT_EQ(size.getExtents(), nullptr);
}

TEST(DynamicSizeTest, ListsExtentsLowestFirst) {
  const DynamicSize size{4, 5, 6};
  EXPECT_EQ(size.Dims(), 3);
  EXPECT_EQ(size[0], 4U);
  EXPECT_EQ(size[1], 5U);
  EXPECT_EQ(size[2], 6U);
}

TEST(DynamicSizeTest, CopiesGivenExtents) {
  unsigned long long extents[] = {7, 8};
  const DynamicSize size(2, extents);
  extents[0] = 100;
  EXPECT_EQ(extentsOf(size), (Extents{7, 8}));
}

TEST(DynamicSizeTest, StoresANegativeRankAsZeroWithoutExtents) {
  const unsigned long long extents[] = {7, 8};
  const DynamicSize size(-2, extents);
  EXPECT_EQ(size.Dims(), 0);
  EXPECT_EQ(size.getExtents(), nullptr);
}

TEST(DynamicSizeTest, CopyIsDeep) {
  DynamicSize original{4, 5};
  const DynamicSize copy(original);
  EXPECT_NE(copy.getExtents(), original.getExtents());
  original += DynamicSize{10, 10};
  EXPECT_EQ(extentsOf(copy), (Extents{4, 5}));
}

TEST(DynamicSizeTest, CopyOfRankZeroHasNoArrayEvenIfTheSourceHasOne) {
  const DynamicSize source = emptyWithArray();
  const DynamicSize copy(source);
  EXPECT_EQ(copy.Dims(), 0);
  EXPECT_EQ(copy.getExtents(), nullptr);
}

TEST(DynamicSizeTest, PutsAnExtentInFrontOfASize) {
  const DynamicSize size(7, DynamicSize{4, 5});
  EXPECT_EQ(extentsOf(size), (Extents{7, 4, 5}));
}

TEST(DynamicSizeTest, AnExtentInFrontOfRankZeroGivesRankOne) {
  const DynamicSize size(7, DynamicSize());
  EXPECT_EQ(extentsOf(size), (Extents{7}));
  const DynamicSize sizeOfArray(7, emptyWithArray());
  EXPECT_EQ(extentsOf(sizeOfArray), (Extents{7}));
}

TEST(DynamicSizeTest, SumsTwoSizesEntryByEntry) {
  const DynamicSize sum(3, DynamicSize{1, 2, 3}, DynamicSize{10, 20, 30});
  EXPECT_EQ(extentsOf(sum), (Extents{11, 22, 33}));
}

TEST(DynamicSizeTest, SumTakesAsManyEntriesAsTheRankSays) {
  const DynamicSize sum(2, DynamicSize{1, 2, 3}, DynamicSize{10, 20, 30, 40});
  EXPECT_EQ(extentsOf(sum), (Extents{11, 22}));
}

TEST(DynamicSizeTest, SumOfRankZeroHasAnArrayOfNoExtents) {
  const DynamicSize sum(0, DynamicSize{1}, DynamicSize{2});
  EXPECT_EQ(sum.Dims(), 0);
  EXPECT_NE(sum.getExtents(), nullptr);
  EXPECT_EQ(sum.str(), "");
}

TEST(DynamicSizeTest, SumOfNegativeRankFailsLikeABadArrayLength) {
  const DynamicSize one{1};
  EXPECT_THROW(DynamicSize(-1, one, one), std::bad_array_new_length);
  EXPECT_THROW(DynamicSize(std::numeric_limits<int>::min(), one, one), std::bad_array_new_length);
}

TEST(DynamicSizeTest, AssignmentIsDeepAndReturnsTheObject) {
  DynamicSize source{4, 5};
  DynamicSize target{1, 2, 3};
  EXPECT_EQ(&(target = source), &target);
  EXPECT_NE(target.getExtents(), source.getExtents());
  source += DynamicSize{1, 1};
  EXPECT_EQ(extentsOf(target), (Extents{4, 5}));
}

TEST(DynamicSizeTest, AssignmentOfRankZeroLeavesNoArray) {
  DynamicSize target{1, 2, 3};
  target = DynamicSize();
  EXPECT_EQ(target.Dims(), 0);
  EXPECT_EQ(target.getExtents(), nullptr);
  target = DynamicSize{1};
  target = emptyWithArray();
  EXPECT_EQ(target.getExtents(), nullptr);
}

TEST(DynamicSizeTest, AssignmentToItselfKeepsTheExtents) {
  DynamicSize size{4, 5};
  const DynamicSize& same = size;
  size = same;
  EXPECT_EQ(extentsOf(size), (Extents{4, 5}));
}

TEST(DynamicSizeTest, DiffersByRankOrAnyExtent) {
  const DynamicSize size{4, 5, 6};
  EXPECT_FALSE((size != DynamicSize{4, 5, 6}));
  EXPECT_TRUE((size != DynamicSize{4, 5}));
  EXPECT_TRUE((size != DynamicSize{4, 5, 6, 1}));
  EXPECT_TRUE((size != DynamicSize{3, 5, 6}));
  EXPECT_TRUE((size != DynamicSize{4, 5, 7}));
  EXPECT_TRUE(size != DynamicSize());
  EXPECT_TRUE(DynamicSize() != size);
}

TEST(DynamicSizeTest, SizesOfRankZeroAreEqualWithAndWithoutAnArray) {
  EXPECT_FALSE(DynamicSize() != DynamicSize());
  EXPECT_FALSE(DynamicSize() != emptyWithArray());
  EXPECT_FALSE(emptyWithArray() != DynamicSize());
  EXPECT_FALSE(emptyWithArray() != emptyWithArray());
}

TEST(DynamicSizeTest, TextJoinsTheExtentsLowestFirst) {
  EXPECT_EQ((DynamicSize{128, 64, 3}.str()), "128x64x3");
  EXPECT_EQ(DynamicSize().str(), "");
  EXPECT_EQ(emptyWithArray().str(), "");
}

TEST(DynamicSizeTest, TextOfRankOneIsABareNumber) {
  EXPECT_EQ(DynamicSize{17}.str(), "17");
  EXPECT_EQ(DynamicSize{0}.str(), "0");
  EXPECT_EQ(DynamicSize{Greatest}.str(), "18446744073709551615");
}

TEST(DynamicSizeTest, TextShowsZeroAndTheGreatestExtentInFull) {
  EXPECT_EQ((DynamicSize{0, Greatest, 0}.str()), "0x18446744073709551615x0");
}

TEST(DynamicSizeTest, ProductIsZeroWithoutAnArrayAndOneForAnArrayOfNothing) {
  EXPECT_EQ(DynamicSize().nElements(), 0U);
  EXPECT_EQ(emptyWithArray().nElements(), 1U);
  EXPECT_EQ((DynamicSize{4, 5, 6}.nElements()), 120U);
  EXPECT_EQ((DynamicSize{4, 0, 6}.nElements()), 0U);
}

TEST(DynamicSizeTest, LowerDimensionsAreCompatibleWithASizeThatBeginsAlike) {
  EXPECT_FALSE((DynamicSize{4, 5}.hasIncompatibleLowerDims(DynamicSize{4, 5, 6})));
  EXPECT_FALSE((DynamicSize{4, 5}.hasIncompatibleLowerDims(DynamicSize{4, 5})));
  EXPECT_TRUE((DynamicSize{4, 5}.hasIncompatibleLowerDims(DynamicSize{4, 6, 6})));
  EXPECT_TRUE((DynamicSize{3, 5}.hasIncompatibleLowerDims(DynamicSize{4, 5, 6})));
}

TEST(DynamicSizeTest, LowerDimensionsOfAHigherRankAreIncompatible) {
  EXPECT_TRUE((DynamicSize{4, 5, 6}.hasIncompatibleLowerDims(DynamicSize{4, 5})));
}

TEST(DynamicSizeTest, HigherDimensionsAreAlignedAtTheHighest) {
  EXPECT_FALSE((DynamicSize{5, 6}.hasIncompatibleHigherDims(DynamicSize{4, 5, 6})));
  EXPECT_FALSE((DynamicSize{4, 5, 6}.hasIncompatibleHigherDims(DynamicSize{5, 6})));
  EXPECT_TRUE((DynamicSize{4, 5, 6}.hasIncompatibleHigherDims(DynamicSize{4, 5})));
  EXPECT_TRUE((DynamicSize{4, 5}.hasIncompatibleHigherDims(DynamicSize{4, 5, 6})));
  EXPECT_FALSE((DynamicSize{4, 5}.hasIncompatibleHigherDims(DynamicSize{4, 5})));
  EXPECT_TRUE((DynamicSize{4, 5}.hasIncompatibleHigherDims(DynamicSize{3, 5})));
}

TEST(DynamicSizeTest, RankZeroIsCompatibleWithEverything) {
  for (const DynamicSize& empty : {DynamicSize(), emptyWithArray()}) {
    for (const DynamicSize& other : {DynamicSize(), DynamicSize{1}, DynamicSize{4, 5, 6}}) {
      EXPECT_FALSE(empty.hasIncompatibleLowerDims(other)) << other.str();
      EXPECT_FALSE(empty.hasIncompatibleHigherDims(other)) << other.str();
    }
  }
}

TEST(DynamicSizeTest, AgainstRankZeroOnlyTheLowerDimensionsAreIncompatible) {
  for (const DynamicSize& size : {DynamicSize{1}, DynamicSize{4, 5, 6}}) {
    EXPECT_TRUE(size.hasIncompatibleLowerDims(DynamicSize())) << size.str();
    EXPECT_FALSE(size.hasIncompatibleHigherDims(DynamicSize())) << size.str();
  }
}

TEST(DynamicSizeTest, AccumulationTakesOverAdditionalDimensionsUnchanged) {
  DynamicSize sum{1, 2};
  EXPECT_EQ(&(sum += DynamicSize{10, 20, 30}), &sum);
  EXPECT_EQ(extentsOf(sum), (Extents{11, 22, 30}));
}

TEST(DynamicSizeTest, AccumulationOfAShorterSizeKeepsTheHigherExtents) {
  DynamicSize sum{1, 2, 3};
  sum += DynamicSize{10};
  EXPECT_EQ(extentsOf(sum), (Extents{11, 2, 3}));
  sum += DynamicSize();
  EXPECT_EQ(extentsOf(sum), (Extents{11, 2, 3}));
}

TEST(DynamicSizeTest, AccumulationIntoAnEmptySizeIsADeepCopy) {
  DynamicSize other{4, 5};
  DynamicSize sum;
  sum += other;
  EXPECT_NE(sum.getExtents(), other.getExtents());
  EXPECT_EQ(extentsOf(sum), (Extents{4, 5}));
  sum += other;
  EXPECT_EQ(extentsOf(other), (Extents{4, 5}));
  EXPECT_EQ(extentsOf(sum), (Extents{8, 10}));
}

TEST(DynamicSizeTest, AccumulationIntoRankZeroWithAnArrayTakesTheOtherOver) {
  DynamicSize sum = emptyWithArray();
  sum += DynamicSize{4, 5};
  EXPECT_EQ(extentsOf(sum), (Extents{4, 5}));
}

TEST(DynamicSizeTest, AccumulationOfItselfDoubles) {
  DynamicSize sum{1, 2, 3};
  const DynamicSize& same = sum;
  sum += same;
  EXPECT_EQ(extentsOf(sum), (Extents{2, 4, 6}));
}

TEST(DynamicSizeTest, RandomSizesObeyTheRules) {
  std::mt19937 random(20260101);
  std::uniform_int_distribution<int> rank(0, 4);
  std::uniform_int_distribution<unsigned long long> extent(0, 2);
  const auto randomExtents = [&] {
    Extents extents(static_cast<std::size_t>(rank(random)));
    for (unsigned long long& e : extents) e = extent(random);
    return extents;
  };
  for (int round = 0; round < 4000; ++round) {
    const Extents a = randomExtents();
    const Extents b = randomExtents();
    const DynamicSize sizeA(static_cast<int>(a.size()), a.data());
    const DynamicSize sizeB(static_cast<int>(b.size()), b.data());
    SCOPED_TRACE(sizeA.str() + " and " + sizeB.str());
    EXPECT_EQ(sizeA != sizeB, a != b);

    const bool beginsAlike = a.size() <= b.size() && std::equal(a.begin(), a.end(), b.begin());
    EXPECT_EQ(sizeA.hasIncompatibleLowerDims(sizeB), !beginsAlike);

    const auto common = static_cast<std::ptrdiff_t>(std::min(a.size(), b.size()));
    const bool endsAlike = std::equal(a.rbegin(), a.rbegin() + common, b.rbegin());
    EXPECT_EQ(sizeA.hasIncompatibleHigherDims(sizeB), !endsAlike);
    EXPECT_EQ(sizeB.hasIncompatibleHigherDims(sizeA), !endsAlike);

    Extents sum(std::max(a.size(), b.size()), 0);
    for (std::size_t d = 0; d < sum.size(); ++d) sum[d] = (d < a.size() ? a[d] : 0) + (d < b.size() ? b[d] : 0);
    DynamicSize accumulated(sizeA);
    accumulated += sizeB;
    EXPECT_EQ(extentsOf(accumulated), sum);
  }
}

}  // namespace
