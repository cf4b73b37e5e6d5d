// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreateIndirection.hpp>
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/UniformCartesianArray.hpp>

#include <field/ElementSamples.hpp>
#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <initializer_list>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::Chunk;
using Ostrel::ChunkBase;
using Ostrel::StrongPtr;
using Quorvel::FixedArray;
using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::MemArray;
using Tresk::MemBasePtr;
using Tresk::MultiIndex;
using Tresk::pullData;
using TreskTest::ArrayPtr;
using TreskTest::makeSamples;
using TreskTest::sameElement;
using TreskTest::sample;

using ChunkPtr = StrongPtr<ChunkBase, ChunkBase>;

const CreatorWeakPtr nobody;

template <class T>
ChunkPtr chunkOf(std::initializer_list<T> values) {
  const StrongPtr<Chunk<T>, ChunkBase> chunk(new Chunk<T>(values.size()));
  chunk->vector() = values;
  return chunk;
}

template <class T>
ArrayPtr<1, T> arrayOf(std::initializer_list<T> values) {
  const ArrayPtr<1, T> array = TreskTest::makeArray<1, T>(MultiIndex<1>(values.size()));
  array->getTypedChunk()->vector() = values;
  return array;
}

template <class T>
std::vector<T> elements(const MemBasePtr& array) {
  if (!array) return {};
  return dynamic_cast<const Ostrel::TypedChunkBase<T>&>(*array->getChunk()).vector();
}

ChunkPtr deadChunk() {
  Ostrel::WeakPtr<ChunkBase, ChunkBase> observer;
  { observer = chunkOf<unsigned int>({0}); }
  return ChunkPtr(observer);
}

MemBasePtr makeGrid() {
  using Grid = Tresk::UniformCartesianArray;
  return MemBasePtr(new Grid(MultiIndex<3>(2, 2, 2), Grid::Point(0, 0, 0), Grid::Vector(1, 1, 1), nobody));
}

class PullDataTest : public TreskTest::RecordBalanceTest {};

template <class T>
class PullDataOfTypeTest : public TreskTest::RecordBalanceTest {};
TYPED_TEST_SUITE(PullDataOfTypeTest, TreskTest::AllElementTypes);

TYPED_TEST(PullDataOfTypeTest, PicksNumbersAndVectorsOfThemAndRefusesOtherTypes) {
  using T = TypeParam;
  constexpr bool IsServed = std::is_same_v<T, double> || std::is_same_v<T, unsigned int> ||
                            std::is_same_v<T, FixedArray<double, 2>> || std::is_same_v<T, FixedArray<double, 3>>;
  const ArrayPtr<1, T> source = makeSamples<1, T>(MultiIndex<1>(5));
  for (const ChunkPtr& indices : {chunkOf<unsigned int>({4, 0, 4, 2}), chunkOf<unsigned long long>({4, 0, 4, 2})}) {
    const MemBasePtr pulled = pullData(source, indices, DynamicSize{4}, 1);
    if (!IsServed) {
      EXPECT_FALSE(pulled);
      EXPECT_FALSE(pullData(source, indices, DynamicSize{4}, 0)) << "also where nothing would be copied";
      continue;
    }
    ASSERT_TRUE(pulled);
    EXPECT_EQ(pulled->getElementType(), typeid(T));
    EXPECT_FALSE(pulled->getSize() != DynamicSize{4});
    const ArrayPtr<1, T> typed(pulled);
    ASSERT_TRUE(typed);
    for (const unsigned long long i : {0ULL, 2ULL}) EXPECT_TRUE(sameElement<T>((*typed)(i), sample<T>(4)));
    EXPECT_TRUE(sameElement<T>((*typed)(1), sample<T>(0)));
    EXPECT_TRUE(sameElement<T>((*typed)(3), sample<T>(2)));
    TreskTest::expectSamples(*source, [](unsigned long long e) { return e; });
  }
}

TEST_F(PullDataTest, MakesAnArrayOfItsOwnWithoutACreator) {
  const Tresk::CreatorPtr creator(new Tresk::CreativeArray(MemBasePtr(), Tresk::CachePtr()));
  const ArrayPtr<1, double> source(new MemArray<1, double>(MultiIndex<1>(2), creator));
  source->getTypedChunk()->vector() = {10, 11};
  const MemBasePtr pulled = pullData(source, chunkOf<unsigned int>({1, 0}), DynamicSize{2}, 1);
  EXPECT_EQ(elements<double>(pulled), (std::vector<double>{11, 10}));
  EXPECT_FALSE(pulled->getChunk() == source->getChunk());
  EXPECT_FALSE(pulled->getCreator());
}

TEST_F(PullDataTest, TakesTheSizeInAnyShape) {
  const MemBasePtr source = arrayOf<double>({10, 11, 12});
  const ChunkPtr indices = chunkOf<unsigned int>({2, 1, 0, 0, 1, 2});
  for (const DynamicSize& size : {DynamicSize{6}, DynamicSize{2, 3}, DynamicSize{3, 2, 1}, DynamicSize{1, 2, 1, 3}}) {
    const MemBasePtr pulled = pullData(source, indices, size, 1);
    ASSERT_TRUE(pulled) << size.str();
    EXPECT_FALSE(pulled->getSize() != size);
    EXPECT_EQ(elements<double>(pulled), (std::vector<double>{12, 11, 10, 10, 11, 12}));
  }
}

TEST_F(PullDataTest, ASizeThatNoArrayHasIsNull) {
  const MemBasePtr source = arrayOf<double>({10, 11, 12});
  const ChunkPtr indices = chunkOf<unsigned int>({0});
  EXPECT_FALSE(pullData(source, indices, DynamicSize(), 1));
  EXPECT_FALSE(pullData(source, indices, DynamicSize{1, 1, 1, 1, 1}, 1));
}

TEST_F(PullDataTest, EmptyIndicesGiveAnArrayWithNothingCopied) {
  const MemBasePtr source = arrayOf<double>({10, 11, 12});
  for (const ChunkPtr& indices : {chunkOf<unsigned int>({}), chunkOf<unsigned long long>({})})
    for (const unsigned long long nComponents : {0ULL, 1ULL, 3ULL}) {
      const MemBasePtr pulled = pullData(source, indices, DynamicSize{2, 2}, nComponents);
      ASSERT_TRUE(pulled);
      EXPECT_FALSE(pulled->getSize() != (DynamicSize{2, 2}));
      EXPECT_EQ(elements<double>(pulled), std::vector<double>(4, 0.0));
    }
  const MemBasePtr empty = pullData(source, chunkOf<unsigned int>({}), DynamicSize{0}, 1);
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->nElements(), 0U);
}

TEST_F(PullDataTest, ASizeBelowTheNumberOfIndicesIsNull) {
  const MemBasePtr source = arrayOf<double>({10, 11, 12});
  for (const ChunkPtr& indices : {chunkOf<unsigned int>({0, 1, 2}), chunkOf<unsigned long long>({0, 1, 2})}) {
    EXPECT_FALSE(pullData(source, indices, DynamicSize{2}, 1));
    EXPECT_FALSE(pullData(source, indices, DynamicSize{2}, 0));
    EXPECT_FALSE(pullData(source, indices, DynamicSize{0}, 1));
    EXPECT_TRUE(pullData(source, indices, DynamicSize{3}, 1));
  }
}

TEST_F(PullDataTest, ASizeAboveTheNumberOfIndicesLeavesTheRestAsItWasMade) {
  const MemBasePtr source = arrayOf<double>({10, 11, 12});
  EXPECT_EQ(elements<double>(pullData(source, chunkOf<unsigned int>({2, 1}), DynamicSize{5}, 1)),
            (std::vector<double>{12, 11, 0, 0, 0}));
  EXPECT_EQ(elements<double>(pullData(source, chunkOf<unsigned int>({0}), DynamicSize{2, 2}, 3)),
            (std::vector<double>{10, 11, 12, 0}));
}

TEST_F(PullDataTest, IndicesOfOtherTypesAreNullAlsoIfTheirNumberFits) {
  const MemBasePtr source = arrayOf<double>({10, 11, 12});
  using Pair = FixedArray<unsigned int, 2>;
  for (const ChunkPtr& indices :
       {chunkOf<int>({0, 1}), chunkOf<long long>({0, 1}), chunkOf<unsigned long>({0, 1}), chunkOf<double>({0, 1}),
        chunkOf<unsigned short>({0, 1}), chunkOf<Pair>({Pair(0, 1), Pair(1, 0)}), chunkOf<int>({})})
    for (const unsigned long long nComponents : {0ULL, 1ULL, 2ULL})
      EXPECT_FALSE(pullData(source, indices, DynamicSize{4}, nComponents));
  EXPECT_FALSE(pullData(source, arrayOf<double>({0, 1}), 1));
}

TEST_F(PullDataTest, WhatIsMissingIsNull) {
  const ChunkPtr indices = chunkOf<unsigned int>({0});
  const MemBasePtr array = arrayOf<unsigned int>({0});
  for (const MemBasePtr& missing : {MemBasePtr(), TreskTest::makeDeadArray()}) {
    EXPECT_FALSE(pullData(missing, indices, DynamicSize{1}, 1));
    EXPECT_FALSE(pullData(missing, array, 1));
    EXPECT_FALSE(pullData(array, missing, 1));
    EXPECT_FALSE(pullData(missing, missing, 1));
  }
  EXPECT_FALSE(pullData(array, ChunkPtr(), DynamicSize{1}, 1));
  EXPECT_FALSE(pullData(array, deadChunk(), DynamicSize{1}, 1));
}

TEST_F(PullDataTest, ArraysWithoutStorageAreNull) {
  const MemBasePtr grid = makeGrid();
  ASSERT_FALSE(grid->getChunk());
  EXPECT_FALSE(pullData(grid, chunkOf<unsigned int>({0}), DynamicSize{1}, 1));
  EXPECT_FALSE(pullData(arrayOf<double>({1}), grid, 1));
}

TEST_F(PullDataTest, FewerThanTwoComponentsKeepTheSizeOfTheIndices) {
  const MemBasePtr source = arrayOf<double>({10, 11, 12});
  const ArrayPtr<2, unsigned int> indices = TreskTest::makeArray<2, unsigned int>(MultiIndex<2>(2, 3));
  indices->getTypedChunk()->vector() = {2, 1, 0, 0, 1, 2};
  const MemBasePtr one = pullData(source, indices, 1);
  ASSERT_TRUE(one);
  EXPECT_FALSE(one->getSize() != (DynamicSize{2, 3}));
  EXPECT_EQ(elements<double>(one), (std::vector<double>{12, 11, 10, 10, 11, 12}));
  const MemBasePtr none = pullData(source, indices, 0);
  ASSERT_TRUE(none);
  EXPECT_FALSE(none->getSize() != (DynamicSize{2, 3}));
  EXPECT_EQ(elements<double>(none), std::vector<double>(6, 0.0)) << "items of no elements";
}

TEST_F(PullDataTest, SeveralComponentsBecomeTheLowestDimension) {
  const ArrayPtr<1, double> source = makeSamples<1, double>(MultiIndex<1>(30));
  const ArrayPtr<1, unsigned int> indices = TreskTest::makeArray<1, unsigned int>(MultiIndex<1>(10));
  for (unsigned int i = 0; i < 10; ++i) indices->getTypedChunk()->vector()[i] = 9 - i;
  const MemBasePtr pulled = pullData(source, indices, 3);
  ASSERT_TRUE(pulled);
  EXPECT_FALSE(pulled->getSize() != (DynamicSize{3, 10}));
  const std::vector<double> values = elements<double>(pulled);
  ASSERT_EQ(values.size(), 30U);
  for (std::size_t i = 0; i < 10; ++i)
    for (std::size_t c = 0; c < 3; ++c) EXPECT_EQ(values[3 * i + c], sample<double>(3 * (9 - i) + c));
}

TEST_F(PullDataTest, ComponentsStandBeforeAllDimensionsOfTheIndices) {
  const MemBasePtr source = arrayOf<double>({10, 11, 20, 21});
  const ArrayPtr<3, unsigned int> indices = TreskTest::makeArray<3, unsigned int>(MultiIndex<3>(2, 1, 1));
  indices->getTypedChunk()->vector() = {1, 0};
  const MemBasePtr pulled = pullData(source, indices, 2);
  ASSERT_TRUE(pulled);
  EXPECT_FALSE(pulled->getSize() != (DynamicSize{2, 2, 1, 1}));
  EXPECT_EQ(elements<double>(pulled), (std::vector<double>{20, 21, 10, 11}));
  // A dimension more than arrays have.
  const ArrayPtr<4, unsigned int> tooMany = TreskTest::makeArray<4, unsigned int>(MultiIndex<4>(2, 1, 1, 1));
  tooMany->getTypedChunk()->vector() = {1, 0};
  EXPECT_TRUE(pullData(source, tooMany, 1));
  EXPECT_FALSE(pullData(source, tooMany, 2));
}

TEST_F(PullDataTest, ItemsOfVectorsAreAdjacentVectors) {
  using V = FixedArray<double, 3>;
  const ArrayPtr<1, V> source = makeSamples<1, V>(MultiIndex<1>(6));
  const MemBasePtr pulled = pullData(source, arrayOf<unsigned int>({2, 0}), 2);
  ASSERT_TRUE(pulled);
  EXPECT_FALSE(pulled->getSize() != (DynamicSize{2, 2}));
  EXPECT_EQ(elements<V>(pulled), (std::vector<V>{sample<V>(4), sample<V>(5), sample<V>(0), sample<V>(1)}));
}

TEST_F(PullDataTest, ViewsArePulledThroughTheirWholeChunk) {
  const ArrayPtr<2, double> source = makeSamples<2, double>(MultiIndex<2>(3, 4));
  const MemBasePtr slice = source->getSlice(2, nobody);
  EXPECT_EQ(elements<double>(pullData(slice, chunkOf<unsigned int>({0, 11}), DynamicSize{2}, 1)),
            (std::vector<double>{sample<double>(0), sample<double>(11)}));
  using V = FixedArray<double, 3>;
  const ArrayPtr<1, V> vectors = makeSamples<1, V>(MultiIndex<1>(4));
  const MemBasePtr component = vectors->getComponent(1, nobody);
  ASSERT_TRUE(component);
  ASSERT_FALSE(component->getChunk()) << "the storage is one of vectors";
  EXPECT_FALSE(pullData(component, chunkOf<unsigned int>({0}), DynamicSize{1}, 1));
}

TEST_F(PullDataTest, AViewOfIndicesGivesItsSizeAndAllIndicesOfItsChunk) {
  const MemBasePtr source = arrayOf<double>({10, 11, 12});
  const ArrayPtr<2, unsigned int> indices = TreskTest::makeArray<2, unsigned int>(MultiIndex<2>(2, 3));
  indices->getTypedChunk()->vector() = {2, 1, 0, 0, 1, 2};
  const MemBasePtr slice = indices->getSlice(1, nobody);
  ASSERT_TRUE(slice);
  EXPECT_FALSE(pullData(source, slice, 1)) << "6 indices do not fit a size of 2";
  const ArrayPtr<2, unsigned int> flat = TreskTest::makeArray<2, unsigned int>(MultiIndex<2>(2, 1));
  flat->getTypedChunk()->vector() = {2, 1};
  const MemBasePtr pulled = pullData(source, flat->getSlice(0, nobody), 1);
  EXPECT_EQ(elements<double>(pulled), (std::vector<double>{12, 11}));
}

TEST_F(PullDataTest, AnArrayMayPickItsOwnElements) {
  const MemBasePtr array = arrayOf<unsigned int>({3, 2, 0, 1});
  EXPECT_EQ(elements<unsigned int>(pullData(array, array, 1)), (std::vector<unsigned int>{1, 0, 3, 2}));
  EXPECT_EQ(elements<unsigned int>(array), (std::vector<unsigned int>{3, 2, 0, 1}));
}

TEST_F(PullDataTest, FailureLeavesNoBytesBehind) {
  const MemBasePtr source = arrayOf<double>({10, 11, 12});
  const ChunkPtr indices = chunkOf<unsigned int>({0, 1, 2});
  const long long nBytesBefore = ChunkBase::TotalMemsize.get();
  EXPECT_FALSE(pullData(source, indices, DynamicSize{2}, 1));
  EXPECT_EQ(ChunkBase::TotalMemsize.get(), nBytesBefore);
}

}  // namespace
