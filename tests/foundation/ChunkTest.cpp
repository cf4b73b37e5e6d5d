// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Chunk.hpp>
#include <tresk/foundation/Geometry.hpp>

#include <support/PointerClasses.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::Chunk;
using Ostrel::ChunkBase;
using Ostrel::StrongPtr;
using Ostrel::TypedChunk;
using Ostrel::TypedChunkBase;
using Quorvel::FixedArray;

using BasePtr = StrongPtr<ChunkBase, ChunkBase>;

/// Elements that can be told apart, for every element type.
template <class T>
T sample(int i) {
  if constexpr (std::is_arithmetic_v<T>) {
    return static_cast<T>(i + 1);
  } else if constexpr (std::is_base_of_v<StrongPtr<TreskTest::Root, TreskTest::Root>, T>) {
    return T(new TreskTest::Root);
  } else {
    T value;
    for (auto& component : value) component = static_cast<typename T::ValueType>(i + 1);
    return value;
  }
}

template <class T>
class ChunkTest : public TreskTest::RecordBalanceTest {};

using ElementTypes =
    ::testing::Types<char, signed char, unsigned char, short, unsigned short, int, unsigned int, float, double,
                     FixedArray<char, 2>, FixedArray<signed char, 3>, FixedArray<unsigned char, 4>,
                     FixedArray<short, 5>, FixedArray<unsigned short, 6>, FixedArray<int, 2>,
                     FixedArray<unsigned int, 3>, FixedArray<float, 4>, FixedArray<double, 2>, FixedArray<double, 3>,
                     FixedArray<double, 6>, Quorvel::PhysicalSpace::point, Quorvel::Vector<double, 3>,
                     StrongPtr<TreskTest::Root, TreskTest::Root>>;
TYPED_TEST_SUITE(ChunkTest, ElementTypes);

TYPED_TEST(ChunkTest, TellsItsElements) {
  using T = TypeParam;
  const StrongPtr<Chunk<T>, ChunkBase> typed(new Chunk<T>(7));
  const BasePtr chunk(typed);
  EXPECT_EQ(chunk->size(), 7U);
  EXPECT_EQ(chunk->elementSize(), static_cast<int>(sizeof(T)));
  EXPECT_EQ(chunk->elementType(), typeid(T));
  EXPECT_EQ(chunk->chunkType(), typeid(T));
  const Ostrel::ChunkDescription description = chunk->describe();
  EXPECT_EQ(*description.type, typeid(T));
  EXPECT_EQ(description.elementSize, static_cast<int>(sizeof(T)));
  EXPECT_EQ(description.count, 1) << "the count is 1 whatever the size";
  EXPECT_EQ(description.reserved, 0);
}

TYPED_TEST(ChunkTest, IsItsVector) {
  using T = TypeParam;
  const StrongPtr<Chunk<T>, ChunkBase> chunk(new Chunk<T>(4));
  std::vector<T>& elements = chunk->vector();
  const std::vector<T>& constElements = static_cast<const TypedChunkBase<T>&>(*chunk).vector();
  EXPECT_EQ(&elements, static_cast<std::vector<T>*>(chunk.get()));
  EXPECT_EQ(&constElements, &elements);
  EXPECT_EQ(static_cast<ChunkBase*>(chunk.get())->data(), elements.data());
  EXPECT_EQ(static_cast<const ChunkBase*>(chunk.get())->data(), elements.data());
  elements.push_back(sample<T>(4));
  EXPECT_EQ(chunk->size(), 5U);
}

TYPED_TEST(ChunkTest, CountsItsBytesFromConstructionToDestruction) {
  using T = TypeParam;
  const long long before = ChunkBase::TotalMemsize;
  {
    const BasePtr chunk(new Chunk<T>(10));
    EXPECT_EQ(ChunkBase::TotalMemsize - before, static_cast<long long>(10 * sizeof(T)));
    const BasePtr more(new Chunk<T>(3, false));
    EXPECT_EQ(ChunkBase::TotalMemsize - before, static_cast<long long>(13 * sizeof(T)));
  }
  EXPECT_EQ(ChunkBase::TotalMemsize, before);
}

TYPED_TEST(ChunkTest, ReservedChunkIsEmptyAndCountsNothing) {
  using T = TypeParam;
  const long long before = ChunkBase::TotalMemsize;
  {
    const StrongPtr<Chunk<T>, ChunkBase> chunk(new Chunk<T>(10, true));
    EXPECT_EQ(ChunkBase::TotalMemsize, before);
    EXPECT_EQ(chunk->size(), 0U);
    EXPECT_TRUE(chunk->vector().empty());
    EXPECT_GE(chunk->vector().capacity(), 10U);
    EXPECT_EQ(static_cast<ChunkBase*>(chunk.get())->data(), nullptr);
  }
  EXPECT_EQ(ChunkBase::TotalMemsize, before);
}

TYPED_TEST(ChunkTest, AppendedElementsAreSubtractedWithoutHavingBeenAdded) {
  using T = TypeParam;
  const long long before = ChunkBase::TotalMemsize;
  {
    const StrongPtr<Chunk<T>, ChunkBase> chunk(new Chunk<T>(2, true));
    chunk->vector().push_back(sample<T>(0));
    chunk->vector().push_back(sample<T>(1));
    EXPECT_EQ(ChunkBase::TotalMemsize, before);
  }
  EXPECT_EQ(ChunkBase::TotalMemsize - before, -static_cast<long long>(2 * sizeof(T)));
}

TYPED_TEST(ChunkTest, CloneCopiesTheElementsAndCountsThem) {
  using T = TypeParam;
  const StrongPtr<Chunk<T>, ChunkBase> original(new Chunk<T>(3));
  for (int i = 0; i < 3; ++i) original->vector()[static_cast<std::size_t>(i)] = sample<T>(i);
  const long long before = ChunkBase::TotalMemsize;
  {
    const StrongPtr<Chunk<T>, ChunkBase> copy(static_cast<const ChunkBase&>(*original).clone());
    ASSERT_TRUE(copy.isValid());
    EXPECT_EQ(copy.strongCount(), 1);
    EXPECT_EQ(ChunkBase::TotalMemsize - before, static_cast<long long>(3 * sizeof(T))) << "one addition";
    EXPECT_TRUE(copy->vector() == original->vector());
    EXPECT_NE(copy->vector().data(), original->vector().data());
    copy->vector().clear();
    EXPECT_EQ(original->size(), 3U);
    copy->vector().resize(3);
  }
  EXPECT_EQ(ChunkBase::TotalMemsize, before);
}

TYPED_TEST(ChunkTest, NewChunkHasTheSameElementType) {
  using T = TypeParam;
  const BasePtr original(new Chunk<T>(1));
  const long long before = ChunkBase::TotalMemsize;
  const BasePtr made = original->newChunk(5, false);
  ASSERT_TRUE(made.isValid());
  EXPECT_EQ(made.strongCount(), 1);
  EXPECT_EQ(made->size(), 5U);
  EXPECT_EQ(made->elementType(), typeid(T));
  const ChunkBase& object = *made;
  EXPECT_EQ(typeid(object), typeid(Chunk<T>));
  EXPECT_EQ(ChunkBase::TotalMemsize - before, static_cast<long long>(5 * sizeof(T)));
  const StrongPtr<TypedChunkBase<T>, ChunkBase> typed(original);
  const StrongPtr<TypedChunkBase<T>, ChunkBase> reserved = typed->newTypedChunk(6, true);
  ASSERT_TRUE(reserved.isValid());
  EXPECT_EQ(reserved->size(), 0U);
  EXPECT_GE(reserved->vector().capacity(), 6U);
  EXPECT_EQ(ChunkBase::TotalMemsize - before, static_cast<long long>(5 * sizeof(T)));
  EXPECT_EQ(original->newChunk(6, true)->size(), 0U);
  EXPECT_EQ(typed->newTypedChunk(6, false)->size(), 6U);
}

TYPED_TEST(ChunkTest, EmptyChunkHasNoFirstElement) {
  const BasePtr chunk(new Chunk<TypeParam>(0));
  EXPECT_EQ(chunk->size(), 0U);
  EXPECT_EQ(chunk->data(), nullptr);
  EXPECT_EQ(static_cast<const ChunkBase&>(*chunk).data(), nullptr);
}

TYPED_TEST(ChunkTest, TooGreatACountFailsWithTheTextOfTheVectorAndLeavesNothingBehind) {
  using T = TypeParam;
  const long long before = ChunkBase::TotalMemsize;
  volatile unsigned long long count = static_cast<unsigned long long>(std::vector<T>().max_size()) + 1;
  std::string text;
  try {
    const BasePtr chunk(new Chunk<T>(count));
  } catch (const std::length_error& e) {
    text = e.what();
  }
  EXPECT_EQ(text, "cannot create std::vector larger than max_size()");
  EXPECT_THROW(new Chunk<T>(count, true), std::length_error);
  EXPECT_EQ(ChunkBase::TotalMemsize, before);
  EXPECT_EQ(this->nLiveSinceStart(), 0);
}

TYPED_TEST(ChunkTest, TypedPointersFindTheirElementTypeOnly) {
  using T = TypeParam;
  using Other = std::conditional_t<std::is_same_v<T, double>, float, double>;
  const BasePtr chunk(new Chunk<T>(1));
  EXPECT_TRUE((StrongPtr<TypedChunk<T>, ChunkBase>(chunk).isValid()));
  EXPECT_TRUE((StrongPtr<TypedChunkBase<T>, ChunkBase>(chunk).isValid()));
  const StrongPtr<TypedChunk<Other>, ChunkBase> wrong(chunk);
  EXPECT_FALSE(wrong.isValid());
  EXPECT_TRUE(wrong.sameRecord(chunk));
  EXPECT_TRUE(BasePtr(wrong).isValid()) << "the untyped form shows the chunk again";
}

TYPED_TEST(ChunkTest, CannotBeCopiedByLanguageMeans) {
  static_assert(!std::is_copy_constructible_v<Chunk<TypeParam>>);
  static_assert(!std::is_copy_assignable_v<Chunk<TypeParam>>);
}

using ChunkElementsTest = TreskTest::RecordBalanceTest;

TEST_F(ChunkElementsTest, NumbersBeginWithZero) {
  const StrongPtr<Chunk<double>, ChunkBase> doubles(new Chunk<double>(1000));
  EXPECT_TRUE(std::all_of(doubles->vector().begin(), doubles->vector().end(), [](double x) { return x == 0.0; }));
  const StrongPtr<Chunk<unsigned int>, ChunkBase> numbers(new Chunk<unsigned int>(1000));
  EXPECT_EQ(std::count(numbers->vector().begin(), numbers->vector().end(), 0U), 1000);
}

TEST_F(ChunkElementsTest, PointersBeginEmpty) {
  using Pointer = StrongPtr<TreskTest::Root, TreskTest::Root>;
  const StrongPtr<Chunk<Pointer>, ChunkBase> pointers(new Chunk<Pointer>(20));
  for (const Pointer& pointer : pointers->vector()) EXPECT_EQ(pointer.getRecord(), nullptr);
}

TEST_F(ChunkElementsTest, CloneOfPointersSharesTheObjects) {
  using Pointer = StrongPtr<TreskTest::Root, TreskTest::Root>;
  const StrongPtr<Chunk<Pointer>, ChunkBase> original(new Chunk<Pointer>(1));
  original->vector()[0] = Pointer(new TreskTest::Root);
  const BasePtr copy = original->clone();
  EXPECT_EQ(original->vector()[0].strongCount(), 2);
}

TEST_F(ChunkElementsTest, SizesOfTheCommonElements) {
  EXPECT_EQ(BasePtr(new Chunk<double>(1))->elementSize(), 8);
  EXPECT_EQ((BasePtr(new Chunk<FixedArray<double, 3>>(1))->elementSize()), 24);
  EXPECT_EQ(BasePtr(new Chunk<Quorvel::PhysicalSpace::point>(1))->elementSize(), 24);
  EXPECT_EQ((BasePtr(new Chunk<FixedArray<unsigned short, 5>>(1))->elementSize()), 10);
}

TEST_F(ChunkElementsTest, VectorsAndPointsOfOneShapeAreDifferentElementTypes) {
  const BasePtr points(new Chunk<Quorvel::PhysicalSpace::point>(1));
  const BasePtr vectors(new Chunk<Quorvel::Vector<double, 3>>(1));
  const BasePtr arrays(new Chunk<FixedArray<double, 3>>(1));
  EXPECT_NE(points->elementType(), vectors->elementType());
  EXPECT_NE(points->elementType(), arrays->elementType());
  EXPECT_FALSE((StrongPtr<TypedChunkBase<FixedArray<double, 3>>, ChunkBase>(points).isValid()));
}

TEST_F(ChunkElementsTest, MemoryCounterCanFallBelowZero) {
  const long long before = ChunkBase::TotalMemsize;
  {
    const StrongPtr<Chunk<double>, ChunkBase> chunk(new Chunk<double>(0));
    const auto nElements = static_cast<std::size_t>(std::max(before, 0LL)) / sizeof(double) + 1;
    chunk->vector().resize(nElements);
  }
  EXPECT_LT(ChunkBase::TotalMemsize, 0);
  ChunkBase::TotalMemsize.add(before - ChunkBase::TotalMemsize);
}

TEST_F(ChunkElementsTest, SharedChunkLivesAsLongAsItsLastHolder) {
  const long long before = ChunkBase::TotalMemsize;
  BasePtr first(new Chunk<int>(4));
  BasePtr second(first);
  first.reset();
  EXPECT_EQ(ChunkBase::TotalMemsize - before, 16);
  second.reset();
  EXPECT_EQ(ChunkBase::TotalMemsize, before);
}

}  // namespace
