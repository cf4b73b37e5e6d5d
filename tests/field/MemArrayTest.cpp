// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/foundation/SaveRegistry.hpp>

#include <field/ElementSamples.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::ChunkBase;
using Ostrel::StrongPtr;
using Quorvel::FixedArray;
using Tresk::CreativeArray;
using Tresk::CreativeIterator;
using Tresk::CreatorPtr;
using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::getTreskType;
using Tresk::HyperslabParameters;
using Tresk::MemArray;
using Tresk::MemBase;
using Tresk::MemBasePtr;
using Tresk::MultiIndex;
using Tresk::TypedArray;
using Tresk::WalkParameters;
using TreskTest::advance;
using TreskTest::ArrayPtr;
using TreskTest::expectSamples;
using TreskTest::forEachRank;
using TreskTest::makeArray;
using TreskTest::makeSamples;
using TreskTest::sameElement;
using TreskTest::sample;
using TreskTest::sampleChunk;
using TreskTest::sampleExtents;

using ChunkPtr = StrongPtr<ChunkBase, ChunkBase>;

/// Units of the walk in one element.
template <class T>
constexpr unsigned long long nUnits = std::is_same_v<T, FixedArray<double, 2>>   ? 2
                                      : std::is_same_v<T, FixedArray<double, 3>> ? 3
                                                                                 : 1;

template <class T>
class MemArrayTest : public TreskTest::RecordBalanceTest {
 protected:
  void SetUp() override { nBytesAtStart_ = ChunkBase::TotalMemsize.get(); }
  void TearDown() override {
    EXPECT_EQ(ChunkBase::TotalMemsize.get(), nBytesAtStart_) << "bytes of chunks";
    RecordBalanceTest::TearDown();
  }
  long long nBytesSinceStart() const { return ChunkBase::TotalMemsize.get() - nBytesAtStart_; }

 private:
  long long nBytesAtStart_ = 0;
};
TYPED_TEST_SUITE(MemArrayTest, TreskTest::AllElementTypes);

TYPED_TEST(MemArrayTest, TellsItsShapeAndType) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    SCOPED_TRACE(N);
    const MultiIndex<N> extents = sampleExtents<N>();
    const ArrayPtr<N, T> array = makeArray<N, T>(extents);
    const MemBase& base = *array;
    EXPECT_EQ(base.rank(), N);
    EXPECT_FALSE(base.getSize() != DynamicSize(N, extents.begin()));
    EXPECT_EQ(base.nElements(), extents.nElements());
    EXPECT_EQ(base.getElementType(), typeid(T));
    EXPECT_TRUE(base.getTreskTypeIndex() == static_cast<const Tresk::TreskTypeIndex&>(*getTreskType<T>()));
    EXPECT_EQ(base.memsize(), extents.nElements() * sizeof(T));
    EXPECT_TRUE(array->getIndexSize() == extents);
    EXPECT_TRUE(array->extents == extents);
    EXPECT_EQ(base.DomainType(), (typeid(MemArray<N, T>)));
    EXPECT_NE((dynamic_cast<const Tresk::MemArrayBase<N>*>(&base)), nullptr);
    EXPECT_NE(dynamic_cast<const TypedArray<T>*>(&base), nullptr);
  });
}

TYPED_TEST(MemArrayTest, IsNoGrid) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    const ArrayPtr<N, T> array = makeArray<N, T>(sampleExtents<N>());
    EXPECT_EQ(static_cast<const MemBase&>(*array).getOrigin(), nullptr);
    EXPECT_EQ(static_cast<const MemBase&>(*array).getDelta(), nullptr);
  });
}

TYPED_TEST(MemArrayTest, WalksAllOfItsOwnChunk) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    SCOPED_TRACE(N);
    const ArrayPtr<N, T> array = makeArray<N, T>(sampleExtents<N>());
    const unsigned long long n = sampleExtents<N>().nElements();
    EXPECT_EQ(array->count, n * nUnits<T>);
    EXPECT_EQ(array->stride, nUnits<T>);
    EXPECT_EQ(array->span, nUnits<T> == 1 ? n : 1);
    EXPECT_EQ(array->offset, 0U);
    EXPECT_EQ(array->tail, 0U);
    EXPECT_EQ(array->source, nullptr);
    const auto chunk = array->getTypedChunk();
    ASSERT_TRUE(chunk);
    EXPECT_EQ(chunk->vector().size(), n);
    EXPECT_EQ(static_cast<const void*>(array->data), static_cast<const void*>(chunk->vector().data()));
    EXPECT_EQ(array->getDataPointer(), static_cast<const void*>(array->data));
    const CreativeIterator<T>& walk = static_cast<const TypedArray<T>&>(*array).getIterator();
    EXPECT_EQ(&walk, static_cast<const CreativeIterator<T>*>(array.get()));
    EXPECT_EQ(&static_cast<TypedArray<T>&>(*array).getIterator(), &walk);
    EXPECT_EQ(&array->getHyperslab(), static_cast<const HyperslabParameters*>(&walk));
    EXPECT_EQ(walk.nElements(), n);
  });
}

TYPED_TEST(MemArrayTest, FreshNumbersAreZeroAndFreshPointersEmpty) {
  using T = TypeParam;
  if constexpr (TreskTest::isInitialised<T>) {
    forEachRank([]<int N>(std::integral_constant<int, N>) {
      const ArrayPtr<N, T> array = makeArray<N, T>(sampleExtents<N>());
      for (const T& element : array->getTypedChunk()->vector()) EXPECT_TRUE(sameElement<T>(element, T()));
      EXPECT_TRUE(sameElement<T>(array->first(), T()));
      EXPECT_TRUE(sameElement<T>(array->last(), T()));
    });
  }
}

TYPED_TEST(MemArrayTest, IndexZeroVariesFastest) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    SCOPED_TRACE(N);
    const ArrayPtr<N, T> array = makeSamples<N, T>(sampleExtents<N>());
    const std::vector<T>& elements = array->getTypedChunk()->vector();
    for (unsigned long long e = 0; e < elements.size(); ++e)
      EXPECT_TRUE(sameElement<T>(elements[e], sample<T>(e))) << e;
    expectSamples(*array, [](unsigned long long e) { return e; });
    EXPECT_TRUE(sameElement<T>(array->first(), sample<T>(0)));
    EXPECT_TRUE(sameElement<T>(array->last(), sample<T>(elements.size() - 1)));
  });
}

TYPED_TEST(MemArrayTest, ElementsAreReadAndWrittenByIndices) {
  using T = TypeParam;
  const ArrayPtr<1, T> line = makeSamples<1, T>(MultiIndex<1>(5));
  const ArrayPtr<2, T> plane = makeSamples<2, T>(MultiIndex<2>(5, 4));
  const ArrayPtr<3, T> block = makeSamples<3, T>(MultiIndex<3>(5, 4, 3));
  const ArrayPtr<4, T> stack = makeSamples<4, T>(MultiIndex<4>(5, 4, 3, 2));
  const MemArray<1, T>& constLine = *line;
  const MemArray<2, T>& constPlane = *plane;
  const MemArray<3, T>& constBlock = *block;
  const MemArray<4, T>& constStack = *stack;
  EXPECT_TRUE(sameElement<T>(constLine(3), sample<T>(3)));
  EXPECT_TRUE(sameElement<T>(constPlane(1, 2), sample<T>(2 * 5 + 1)));
  EXPECT_TRUE(sameElement<T>(constBlock(1, 2, 1), sample<T>((1 * 4 + 2) * 5 + 1)));
  EXPECT_TRUE(sameElement<T>(constStack(1, 2, 0, 1), sample<T>(((1 * 3 + 0) * 4 + 2) * 5 + 1)));
  (*line)(4) = sample<T>(100);
  (*plane)(1, 2) = sample<T>(101);
  (*block)[MultiIndex<3>(1, 2, 1)] = sample<T>(102);
  stack->setElement(MultiIndex<4>(1, 2, 0, 1), sample<T>(103));
  expectSamples(*line, [](unsigned long long e) { return e == 4 ? 100 : e; });
  expectSamples(*plane, [](unsigned long long e) { return e == 11 ? 101 : e; });
  expectSamples(*block, [](unsigned long long e) { return e == 31 ? 102 : e; });
  expectSamples(*stack, [](unsigned long long e) { return e == 71 ? 103 : e; });
}

TYPED_TEST(MemArrayTest, CountsTheBytesOfItsChunkOnce) {
  using T = TypeParam;
  forEachRank([this]<int N>(std::integral_constant<int, N>) {
    const auto bytes = static_cast<long long>(sampleExtents<N>().nElements() * sizeof(T));
    const ArrayPtr<N, T> array = makeArray<N, T>(sampleExtents<N>());
    EXPECT_EQ(this->nBytesSinceStart(), bytes);
    const ArrayPtr<N, T> shared(new MemArray<N, T>(array->getChunk(), sampleExtents<N>(), CreatorWeakPtr()));
    EXPECT_EQ(this->nBytesSinceStart(), bytes) << "an array on a chunk that exists adds nothing";
  });
}

TYPED_TEST(MemArrayTest, AllThreeConstructorsCount) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    EXPECT_TRUE((MemArray<N, T>::isRegistered));
    const int nBefore = MemBase::RegisteredTypes.get();
    const ArrayPtr<N, T> array = makeArray<N, T>(sampleExtents<N>());
    EXPECT_EQ(MemBase::RegisteredTypes.get() - nBefore, 1);
    const ArrayPtr<N, T> shared(new MemArray<N, T>(array->getChunk(), sampleExtents<N>(), CreatorWeakPtr()));
    EXPECT_EQ(MemBase::RegisteredTypes.get() - nBefore, 2);
    const ArrayPtr<N, T> view(
        new MemArray<N, T>(array->getWalk(), sampleExtents<N>(), array->getChunk(), CreatorWeakPtr()));
    EXPECT_EQ(MemBase::RegisteredTypes.get() - nBefore, 3);
  });
}

TYPED_TEST(MemArrayTest, KnowsTheCreatorThatItIsMadeFor) {
  using T = TypeParam;
  const CreatorPtr creator(new CreativeArray(MemBasePtr(), Tresk::CachePtr()));
  forEachRank([&]<int N>(std::integral_constant<int, N>) {
    const ArrayPtr<N, T> array(new MemArray<N, T>(sampleExtents<N>(), creator));
    EXPECT_TRUE(array->getCreator() == creator);
    const ArrayPtr<N, T> shared(new MemArray<N, T>(array->getChunk(), sampleExtents<N>(), creator));
    EXPECT_TRUE(shared->getCreator() == creator);
    const ArrayPtr<N, T> view(new MemArray<N, T>(array->getWalk(), sampleExtents<N>(), array->getChunk(), creator));
    EXPECT_TRUE(view->getCreator() == creator);
    EXPECT_FALSE((makeArray<N, T>(sampleExtents<N>())->getCreator()));
    EXPECT_FALSE(array->isOnCacheList()) << "the constructor enters no list";
  });
}

TYPED_TEST(MemArrayTest, SeesTheFrontOfALongerChunkAndKeepsAllOfIt) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    SCOPED_TRACE(N);
    const MultiIndex<N> extents = sampleExtents<N>();
    const unsigned long long n = extents.nElements();
    const ChunkPtr chunk = sampleChunk<T>(n + 7);
    const ArrayPtr<N, T> array(new MemArray<N, T>(chunk, extents, CreatorWeakPtr()));
    EXPECT_EQ(array->tail, 7U);
    EXPECT_EQ(array->count, (n + 7) * nUnits<T>);
    EXPECT_EQ(array->nElements(), n);
    EXPECT_EQ(array->memsize(), (n + 7) * sizeof(T));
    EXPECT_TRUE(array->getChunk() == chunk);
    EXPECT_EQ(array->getIterator().nElements(), n);
    expectSamples(*array, [](unsigned long long e) { return e; });
    EXPECT_TRUE(sameElement<T>(array->last(), sample<T>(n - 1)));
  });
}

TYPED_TEST(MemArrayTest, ExtentsBeyondTheChunkAreNotDetected) {
  using T = TypeParam;
  const ArrayPtr<1, T> array(new MemArray<1, T>(sampleChunk<T>(3), MultiIndex<1>(5), CreatorWeakPtr()));
  EXPECT_EQ(array->tail, 0U);
  EXPECT_EQ(array->nElements(), 5U);
  EXPECT_EQ(array->getIterator().nElements(), 3U);
}

TYPED_TEST(MemArrayTest, AnExtentOfZeroGivesAnArrayWithoutMemory) {
  using T = TypeParam;
  forEachRank([this]<int N>(std::integral_constant<int, N>) {
    for (int d = 0; d < N; ++d) {
      MultiIndex<N> extents = sampleExtents<N>();
      extents[d] = 0;
      const ArrayPtr<N, T> array = makeArray<N, T>(extents);
      EXPECT_EQ(array->nElements(), 0U);
      EXPECT_EQ(array->memsize(), 0U);
      ASSERT_TRUE(array->getTypedChunk());
      EXPECT_EQ(array->getTypedChunk()->size(), 0U);
      EXPECT_EQ(array->data, nullptr);
      EXPECT_EQ(array->getDataPointer(), nullptr);
      EXPECT_EQ(array->getIterator().nElements(), 0U);
      EXPECT_EQ(this->nBytesSinceStart(), 0);
      EXPECT_TRUE(array->getIndexSize() == extents);
      EXPECT_EQ(array->getElementString(0), "");
      const T first = array->first();
      const T last = array->last();
      EXPECT_TRUE(sameElement<T>(first, last));
      int nVisits = 0;
      array->getIterator().forEachElement([&](const T&) { ++nVisits; });
      EXPECT_EQ(nVisits, 0);
    }
  });
}

TYPED_TEST(MemArrayTest, TheLastElementTakesIndexZeroForAnExtentOfZero) {
  using T = TypeParam;
  // The chunk has elements, the extents have none: index (2 - 1, 0) is read.
  const ArrayPtr<2, T> array(new MemArray<2, T>(sampleChunk<T>(6), MultiIndex<2>(2, 0), CreatorWeakPtr()));
  EXPECT_EQ(array->nElements(), 0U);
  EXPECT_TRUE(sameElement<T>(array->last(), sample<T>(1)));
  EXPECT_TRUE(sameElement<T>(array->first(), sample<T>(0)));
}

TYPED_TEST(MemArrayTest, MoreElementsThanAVectorHoldsAreALengthErrorThatLeavesNothingBehind) {
  using T = TypeParam;
  const long long nRecords = this->nLiveSinceStart();
  const auto expectLengthError = [](const auto& make) {
    try {
      make();
      ADD_FAILURE() << "no exception";
    } catch (const std::length_error& error) {
      EXPECT_STREQ(error.what(), "cannot create std::vector larger than max_size()");
    }
  };
  constexpr unsigned long long greatest = std::numeric_limits<unsigned long long>::max();
  constexpr unsigned long long twoTo33 = 1ULL << 33;
  expectLengthError([] { makeArray<1, T>(MultiIndex<1>(greatest)); });
  expectLengthError([] { makeArray<2, T>(MultiIndex<2>(greatest, 1)); });
  // The product is 0 modulo 2^64.
  expectLengthError([] { makeArray<2, T>(MultiIndex<2>(twoTo33, twoTo33)); });
  expectLengthError([] { makeArray<3, T>(MultiIndex<3>(twoTo33, 1, twoTo33)); });
  // The product is 2 modulo 2^64.
  expectLengthError([] { makeArray<2, T>(MultiIndex<2>((1ULL << 63) + 1, 2)); });
  expectLengthError([] { makeArray<4, T>(MultiIndex<4>(65536, 65536, 65536, 65537)); });
  expectLengthError([] { MemBase::create(getTreskType<T>(), DynamicSize{twoTo33, twoTo33}, typeid(void)); });
  EXPECT_EQ(this->nLiveSinceStart(), nRecords);
  EXPECT_EQ(this->nBytesSinceStart(), 0);
}

TYPED_TEST(MemArrayTest, AZeroAmongHugeExtentsIsAnEmptyArray) {
  using T = TypeParam;
  const ArrayPtr<3, T> array = makeArray<3, T>(MultiIndex<3>(1ULL << 33, 1ULL << 33, 0));
  EXPECT_EQ(array->nElements(), 0U);
  EXPECT_EQ(array->memsize(), 0U);
}

TYPED_TEST(MemArrayTest, MakingItExplicitGivesTheArrayItself) {
  using T = TypeParam;
  const CreatorPtr creator(new CreativeArray(MemBasePtr(), Tresk::CachePtr()));
  forEachRank([&]<int N>(std::integral_constant<int, N>) {
    const ArrayPtr<N, T> array = makeArray<N, T>(sampleExtents<N>());
    const MemBasePtr first = static_cast<const MemBase&>(*array).makeExplicit(creator);
    const MemBasePtr second = static_cast<const MemBase&>(*array).makeExplicit(CreatorWeakPtr());
    EXPECT_TRUE(first == array);
    EXPECT_TRUE(first == second);
    EXPECT_EQ(first.get(), static_cast<const MemBase*>(array.get()));
    EXPECT_FALSE(array->getCreator()) << "the argument is ignored";
  });
}

TYPED_TEST(MemArrayTest, ACopyIsDeepAndHasTheGivenCreator) {
  using T = TypeParam;
  const CreatorPtr creator(new CreativeArray(MemBasePtr(), Tresk::CachePtr()));
  forEachRank([&]<int N>(std::integral_constant<int, N>) {
    const MultiIndex<N> extents = sampleExtents<N>();
    const ArrayPtr<N, T> array = makeSamples<N, T>(extents);
    const ArrayPtr<N, T> copy(static_cast<const MemBase&>(*array).copy(creator));
    ASSERT_TRUE(copy);
    EXPECT_FALSE(copy == array);
    EXPECT_FALSE(copy->getChunk() == array->getChunk());
    EXPECT_TRUE(copy->getIndexSize() == extents);
    EXPECT_TRUE(copy->getCreator() == creator);
    EXPECT_EQ(this->nBytesSinceStart(), static_cast<long long>(2 * extents.nElements() * sizeof(T)));
    copy->setElement(0, sample<T>(1000));
    expectSamples(*array, [](unsigned long long e) { return e; });
    expectSamples(*copy, [](unsigned long long e) { return e == 0 ? 1000 : e; });
  });
}

TYPED_TEST(MemArrayTest, ACopyTakesTheWholeChunk) {
  using T = TypeParam;
  const ArrayPtr<1, T> array(new MemArray<1, T>(sampleChunk<T>(10), MultiIndex<1>(4), CreatorWeakPtr()));
  const MemBasePtr copy = array->copy(CreatorWeakPtr());
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->nElements(), 4U);
  EXPECT_EQ(copy->memsize(), 10 * sizeof(T));
}

TYPED_TEST(MemArrayTest, ACopyOfASliceBeginsAtTheStartOfTheChunk) {
  using T = TypeParam;
  const ArrayPtr<2, T> array = makeSamples<2, T>(MultiIndex<2>(3, 4));
  const ArrayPtr<1, T> slice(array->getSlice(2, CreatorWeakPtr()));
  ASSERT_TRUE(sameElement<T>(slice->first(), sample<T>(6)));
  const ArrayPtr<1, T> copy(slice->copy(CreatorWeakPtr()));
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->offset, 0U);
  EXPECT_EQ(copy->stride, nUnits<T>);
  EXPECT_EQ(copy->nElements(), 3U);
  EXPECT_EQ(copy->memsize(), 12 * sizeof(T));
  expectSamples(*copy, [](unsigned long long e) { return e; });
}

TYPED_TEST(MemArrayTest, AnotherChunkOfTheSameCountGivesAnArrayOfTheSameShape) {
  using T = TypeParam;
  const CreatorPtr creator(new CreativeArray(MemBasePtr(), Tresk::CachePtr()));
  forEachRank([&]<int N>(std::integral_constant<int, N>) {
    const MultiIndex<N> extents = sampleExtents<N>();
    const ArrayPtr<N, T> array = makeArray<N, T>(extents);
    const ChunkPtr chunk = sampleChunk<T>(extents.nElements());
    const ArrayPtr<N, T> other(static_cast<const MemBase&>(*array).createOnChunk(chunk, creator));
    ASSERT_TRUE(other);
    EXPECT_TRUE(other->getIndexSize() == extents);
    EXPECT_TRUE(other->getChunk() == chunk);
    EXPECT_TRUE(other->getCreator() == creator);
    expectSamples(*other, [](unsigned long long e) { return e; });
  });
}

TYPED_TEST(MemArrayTest, AChunkOfAnotherCountGivesNoArray) {
  using T = TypeParam;
  const ArrayPtr<2, T> array = makeArray<2, T>(MultiIndex<2>(3, 4));
  EXPECT_FALSE(array->createOnChunk(sampleChunk<T>(13), CreatorWeakPtr())) << "one element more";
  EXPECT_FALSE(array->createOnChunk(sampleChunk<T>(11), CreatorWeakPtr()));
  EXPECT_FALSE(array->createOnChunk(ChunkPtr(), CreatorWeakPtr()));
  EXPECT_EQ(array->createOnChunk(ChunkPtr(), CreatorWeakPtr()).getRecord(), nullptr);
}

TYPED_TEST(MemArrayTest, AChunkOfTheExtentsAndNotOfTheStorageIsAskedFor) {
  using T = TypeParam;
  const ArrayPtr<1, T> front(new MemArray<1, T>(sampleChunk<T>(10), MultiIndex<1>(4), CreatorWeakPtr()));
  EXPECT_TRUE(front->createOnChunk(sampleChunk<T>(4), CreatorWeakPtr()));
  EXPECT_FALSE(front->createOnChunk(sampleChunk<T>(10), CreatorWeakPtr()));
}

TYPED_TEST(MemArrayTest, CopiesTheElementsOfAnEqualChunk) {
  using T = TypeParam;
  const ArrayPtr<2, T> array = makeArray<2, T>(MultiIndex<2>(3, 4));
  const ChunkPtr own = array->getChunk();
  const ChunkPtr other = sampleChunk<T>(12);
  EXPECT_TRUE(static_cast<MemBase&>(*array).copyFromChunk(other));
  EXPECT_TRUE(array->getChunk() == own) << "the chunk stays, its elements change";
  EXPECT_EQ(array->data, static_cast<void*>(own->data()));
  expectSamples(*array, [](unsigned long long e) { return e; });
  EXPECT_TRUE(array->copyFromChunk(own)) << "from itself";
  expectSamples(*array, [](unsigned long long e) { return e; });
}

TYPED_TEST(MemArrayTest, CopiesNothingFromAChunkThatDoesNotFit) {
  using T = TypeParam;
  using Other = std::conditional_t<std::is_same_v<T, double>, unsigned int, double>;
  const ArrayPtr<2, T> array = makeSamples<2, T>(MultiIndex<2>(3, 4));
  EXPECT_FALSE(array->copyFromChunk(sampleChunk<T>(13)));
  EXPECT_FALSE(array->copyFromChunk(sampleChunk<T>(11)));
  EXPECT_FALSE(array->copyFromChunk(sampleChunk<Other>(12)));
  EXPECT_FALSE(array->copyFromChunk(ChunkPtr()));
  expectSamples(*array, [](unsigned long long e) { return e; });
  const ArrayPtr<2, T> without(new MemArray<2, T>(ChunkPtr(), MultiIndex<2>(3, 4), CreatorWeakPtr()));
  EXPECT_FALSE(without->copyFromChunk(sampleChunk<T>(12)));
}

TYPED_TEST(MemArrayTest, CopyingIntoTheFrontOfALongerChunkAsksForTheWholeCount) {
  using T = TypeParam;
  const ArrayPtr<1, T> front(new MemArray<1, T>(sampleChunk<T>(10), MultiIndex<1>(4), CreatorWeakPtr()));
  EXPECT_FALSE(front->copyFromChunk(sampleChunk<T>(4)));
  EXPECT_TRUE(front->copyFromChunk(sampleChunk<T>(10)));
}

TYPED_TEST(MemArrayTest, WithoutAChunkItAnswersWithNothing) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    const MultiIndex<N> extents = sampleExtents<N>();
    const ArrayPtr<N, T> array(new MemArray<N, T>(ChunkPtr(), extents, CreatorWeakPtr()));
    EXPECT_EQ(array->nElements(), extents.nElements());
    EXPECT_EQ(array->memsize(), 0U);
    EXPECT_EQ(array->count, 0U);
    EXPECT_EQ(array->tail, 0U);
    EXPECT_EQ(array->data, nullptr);
    EXPECT_EQ(array->getDataPointer(), nullptr);
    EXPECT_FALSE(array->getChunk());
    EXPECT_FALSE(array->getTypedChunk());
    EXPECT_EQ(array->getElementString(0), "");
    EXPECT_FALSE(array->copy(CreatorWeakPtr()));
  });
}

TYPED_TEST(MemArrayTest, AnExpiredChunkIsLikeNone) {
  using T = TypeParam;
  ChunkPtr chunk = sampleChunk<T>(4);
  const Ostrel::WeakPtr<ChunkBase, ChunkBase> weak(chunk);
  chunk.reset();
  const ChunkPtr expired(weak);
  EXPECT_NE(expired.getRecord(), nullptr);
  const ArrayPtr<1, T> array(new MemArray<1, T>(expired, MultiIndex<1>(4), CreatorWeakPtr()));
  EXPECT_EQ(array->count, 0U);
  EXPECT_EQ(array->data, nullptr);
  EXPECT_EQ(array->memsize(), 0U);
  EXPECT_EQ(array->getElementString(0), "");
  EXPECT_FALSE(array->copy(CreatorWeakPtr()));
  EXPECT_FALSE(array->copyFromChunk(sampleChunk<T>(4)));
  EXPECT_FALSE((makeArray<1, T>(MultiIndex<1>(4))->createOnChunk(expired, CreatorWeakPtr())));
  EXPECT_FALSE((makeArray<1, T>(MultiIndex<1>(4))->copyFromChunk(expired)));
}

TYPED_TEST(MemArrayTest, AChunkOfAnotherTypeGivesAnArrayWithoutStorage) {
  using T = TypeParam;
  using Other = std::conditional_t<std::is_same_v<T, double>, unsigned int, double>;
  const ChunkPtr chunk = sampleChunk<Other>(12);
  const ArrayPtr<2, T> array(new MemArray<2, T>(chunk, MultiIndex<2>(3, 4), CreatorWeakPtr()));
  EXPECT_FALSE(array->getChunk());
  EXPECT_EQ(array->getChunk().getRecord(), nullptr);
  EXPECT_FALSE(array->getTypedChunk());
  EXPECT_EQ(array->count, 0U);
  EXPECT_EQ(array->tail, 0U);
  EXPECT_EQ(array->data, nullptr);
  EXPECT_EQ(array->memsize(), 0U);
  EXPECT_EQ(array->nElements(), 12U);
  EXPECT_FALSE(array->copy(CreatorWeakPtr()));
  // An equal count is all that is asked of the chunk.
  const ArrayPtr<2, T> plain = makeArray<2, T>(MultiIndex<2>(3, 4));
  const MemBasePtr onOther = plain->createOnChunk(chunk, CreatorWeakPtr());
  ASSERT_TRUE(onOther);
  EXPECT_FALSE(onOther->getChunk());
  EXPECT_EQ(onOther->getDataPointer(), nullptr);
}

TYPED_TEST(MemArrayTest, TellsTheTextOfAnElementOfTheChunk) {
  using T = TypeParam;
  // The view sees one element in the middle; the text counts from the start of the chunk.
  const ArrayPtr<2, T> array = makeSamples<2, T>(MultiIndex<2>(1, 3));
  const MemBasePtr view = array->getSlice(1, CreatorWeakPtr());
  for (unsigned long long e = 0; e < 3; ++e) {
    const std::string text = array->getElementString(e);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(view->getElementString(e), text);
    for (unsigned long long other = 0; other < e; ++other) EXPECT_NE(array->getElementString(other), text);
  }
  EXPECT_EQ(array->getElementString(3), "") << "an index equal to the count";
  EXPECT_EQ(view->getElementString(3), "");
  EXPECT_EQ(array->getElementString(std::numeric_limits<unsigned long long>::max()), "");
}

TYPED_TEST(MemArrayTest, MakesAnArrayOfItsKindWithNothingCopied) {
  using T = TypeParam;
  const CreatorPtr creator(new CreativeArray(MemBasePtr(), Tresk::CachePtr()));
  forEachRank([&]<int N>(std::integral_constant<int, N>) {
    const ArrayPtr<N, T> array = makeSamples<N, T>(sampleExtents<N>());
    MultiIndex<N> size;
    for (int d = 0; d < N; ++d) size[d] = 2;
    const ArrayPtr<N, T> made(static_cast<const Tresk::MemArrayBase<N>&>(*array).createArray(size, creator));
    ASSERT_TRUE(made);
    EXPECT_TRUE(made->getIndexSize() == size);
    EXPECT_TRUE(made->getCreator() == creator);
    EXPECT_FALSE(made->getChunk() == array->getChunk());
    if constexpr (TreskTest::isInitialised<T>) {
      for (const T& element : made->getTypedChunk()->vector()) EXPECT_TRUE(sameElement<T>(element, T()));
    }
  });
}

TYPED_TEST(MemArrayTest, CarriesInterfaces) {
  using T = TypeParam;
  const ArrayPtr<1, T> array = makeArray<1, T>(MultiIndex<1>(2));
  array->addInterface(Tresk::SizePtr(new Tresk::SizeInterface(DynamicSize{2})));
  EXPECT_TRUE(Ostrel::findInterface<Tresk::SizeInterface>(*array));
}

// ------------------------------------------------------------------------------------------------------ literal texts

class MemArrayTextTest : public TreskTest::RecordBalanceTest {};

TEST_F(MemArrayTextTest, ElementsOfEachKind) {
  const auto doubles = makeArray<1, double>(MultiIndex<1>(3));
  (*doubles)(0) = 100000.0;
  (*doubles)(1) = 0.0001;
  (*doubles)(2) = -0.0;
  EXPECT_EQ(doubles->getElementString(0), "1e+05");
  EXPECT_EQ(doubles->getElementString(1), "1e-04");
  EXPECT_EQ(doubles->getElementString(2), "-0");
  EXPECT_EQ((makeSamples<1, unsigned int>(MultiIndex<1>(2))->getElementString(1)), "2");
  EXPECT_EQ((makeSamples<1, FixedArray<double, 2>>(MultiIndex<1>(2))->getElementString(1)), "{200,201}");
  EXPECT_EQ((makeSamples<1, FixedArray<double, 3>>(MultiIndex<1>(2))->getElementString(1)), "{200,201,202}");
  EXPECT_EQ((makeSamples<1, Quorvel::Vector<double, 3>>(MultiIndex<1>(2))->getElementString(0)), "{100,101,102}");
  EXPECT_EQ((makeSamples<1, Quorvel::PhysicalSpace::point>(MultiIndex<1>(2))->getElementString(0)), "{100,101,102}");
  using Triangle = Tresk::SimplexCell<2, unsigned int, Tresk::IJ_CellNamingConvention>;
  EXPECT_EQ((makeSamples<1, Triangle>(MultiIndex<1>(2))->getElementString(1)), "200x201x202");
  EXPECT_EQ((makeSamples<1, Tresk::FragmentIDPtr>(MultiIndex<1>(2))->getElementString(1)), "[\"fragment 1\"]");
  EXPECT_EQ((makeArray<1, Tresk::FragmentIDPtr>(MultiIndex<1>(2))->getElementString(1)), "[\"\"]");
}

// ------------------------------------------------------------------------------------------------------ a worked road

class WorkedRoadTest : public TreskTest::RecordBalanceTest {};

TEST_F(WorkedRoadTest, AnArrayOfDoublesFromTheOutside) {
  const long long nBytes = ChunkBase::TotalMemsize.get();
  const MemBasePtr base = MemBase::create(getTreskType<double>(), DynamicSize{10, 20, 30}, typeid(WorkedRoadTest));
  ASSERT_TRUE(base);
  EXPECT_EQ(base.strongCount(), 1);
  EXPECT_EQ(ChunkBase::TotalMemsize.get() - nBytes, 48000);
  const ArrayPtr<3, double> array(base);
  ASSERT_TRUE(array);
  EXPECT_EQ(array->count, 6000U);
  EXPECT_EQ(array->stride, 1U);
  EXPECT_EQ(array->span, 6000U);
  EXPECT_EQ(array->offset, 0U);
  EXPECT_EQ(array->tail, 0U);
  EXPECT_EQ(base->nElements(), 6000U);
  EXPECT_EQ(base->memsize(), 48000U);
  EXPECT_EQ(base->getSize().str(), "10x20x30");
  for (unsigned long long e = 0; e < 6000; ++e) ASSERT_EQ(array->data[e], 0.0);
  array->data[621] = 42;
  EXPECT_EQ((*array)(1, 2, 3), 42.0);
  EXPECT_FALSE(base->getCreator());
}

// ---------------------------------------------------------------------------------------------- deferred construction

/// A saver that looks at each array that is offered to it.
class CountingSaver : public Ostrel::SaveInterfaceCreator<MemBase> {
 public:
  long long createInterface(MemBase* object) override {
    ++nCalls;
    last = object;
    isComplete = object->getElementType() == typeid(double) && object->nElements() == 6 &&
                 dynamic_cast<MemArray<2, double>*>(object) != nullptr;
    if (takesPointer) {
      const MemBasePtr held(object);
      strongInside = held.strongCount();
    }
    if (throws) throw std::runtime_error("no interface");
    return 0x100000001LL;
  }

  int nCalls = 0;
  MemBase* last = nullptr;
  bool isComplete = false;
  bool takesPointer = false;
  bool throws = false;
  int strongInside = 0;
};

/// Registers a saver for arrays for the time of a test.
class DeferredConstructionTest : public TreskTest::RecordBalanceTest {
 protected:
  void SetUp() override {
    nBytesAtStart_ = ChunkBase::TotalMemsize.get();
    saver = StrongPtr<CountingSaver, Ostrel::SaveInterfaceCreatorBase>(new CountingSaver);
    ASSERT_TRUE(Ostrel::SaveRegistryBase::registerCreator(typeid(MemBase), saver));
  }
  void TearDown() override {
    EXPECT_TRUE(Ostrel::SaveRegistryBase::unregisterCreator(typeid(MemBase), saver));
    saver.reset();
    EXPECT_EQ(ChunkBase::TotalMemsize.get(), nBytesAtStart_);
    RecordBalanceTest::TearDown();
  }

  static MemArray<2, double>* newArray() { return new MemArray<2, double>(MultiIndex<2>(2, 3), CreatorWeakPtr()); }

  StrongPtr<CountingSaver, Ostrel::SaveInterfaceCreatorBase> saver;

 private:
  long long nBytesAtStart_ = 0;
};

TEST_F(DeferredConstructionTest, OffersTheCompleteArrayOnceAtItsFirstStrongPointer) {
  MemArray<2, double>* const raw = newArray();
  EXPECT_EQ(saver->nCalls, 0) << "not in the constructor";
  const ArrayPtr<2, double> array(raw);
  EXPECT_EQ(saver->nCalls, 1);
  EXPECT_EQ(saver->last, static_cast<MemBase*>(raw));
  EXPECT_TRUE(saver->isComplete);
  const MemBasePtr second(array);
  const MemBasePtr third(raw);
  EXPECT_EQ(saver->nCalls, 1);
}

TEST_F(DeferredConstructionTest, HasRunWhenTheAllocatorReturns) {
  const MemBasePtr array = MemBase::create(getTreskType<double>(), DynamicSize{2, 3}, typeid(void));
  EXPECT_EQ(saver->nCalls, 1);
  EXPECT_EQ(saver->last, array.get());
  EXPECT_TRUE(saver->isComplete);
}

TEST_F(DeferredConstructionTest, RunsForViewsAndCopiesToo) {
  const ArrayPtr<2, double> array(newArray());
  const MemBasePtr slice = array->getSlice(0, CreatorWeakPtr());
  EXPECT_EQ(saver->nCalls, 2);
  const MemBasePtr component = array->getComponent(0, CreatorWeakPtr());
  EXPECT_EQ(saver->nCalls, 3);
  const MemBasePtr copy = array->copy(CreatorWeakPtr());
  EXPECT_EQ(saver->nCalls, 4);
  const MemBasePtr box = array->createSubArray(MultiIndex<2>(0, 0), MultiIndex<2>(1, 1), CreatorWeakPtr());
  EXPECT_EQ(saver->nCalls, 5);
  const MemBasePtr itself = array->makeExplicit(CreatorWeakPtr());
  EXPECT_EQ(saver->nCalls, 5);
}

TEST_F(DeferredConstructionTest, OtherClassesOfSaversAreNotAsked) {
  EXPECT_TRUE(Ostrel::SaveRegistryBase::registerCreator(typeid(MemArray<2, double>), saver));
  const ArrayPtr<2, double> array(newArray());
  EXPECT_EQ(saver->nCalls, 1) << "arrays are offered under the type of MemBase only";
  EXPECT_TRUE(Ostrel::SaveRegistryBase::unregisterCreator(typeid(MemArray<2, double>), saver));
}

TEST_F(DeferredConstructionTest, ASaverMayHoldTheArrayMeanwhile) {
  saver->takesPointer = true;
  const ArrayPtr<2, double> array(newArray());
  EXPECT_EQ(saver->strongInside, 2);
  EXPECT_EQ(array.strongCount(), 1);
}

TEST_F(DeferredConstructionTest, ASaverThatThrowsLeavesNothingBehind) {
  const long long nRecords = nLiveSinceStart();
  const long long nBytes = ChunkBase::TotalMemsize.get();
  for (const bool takesPointer : {false, true}) {
    saver->takesPointer = takesPointer;
    saver->throws = true;
    EXPECT_THROW((ArrayPtr<2, double>(newArray())), std::runtime_error);
    EXPECT_EQ(nLiveSinceStart(), nRecords);
    EXPECT_EQ(ChunkBase::TotalMemsize.get(), nBytes);
    EXPECT_THROW(MemBase::create(getTreskType<double>(), DynamicSize{2, 3}, typeid(void)), std::runtime_error);
    EXPECT_EQ(nLiveSinceStart(), nRecords);
    EXPECT_EQ(ChunkBase::TotalMemsize.get(), nBytes);
    saver->throws = false;
    const ArrayPtr<2, double> array(newArray());
    saver->throws = true;
    EXPECT_THROW(array->getSlice(0, CreatorWeakPtr()), std::runtime_error);
    EXPECT_THROW(array->copy(CreatorWeakPtr()), std::runtime_error);
    EXPECT_THROW(array->createSubArray(MultiIndex<2>(0, 0), MultiIndex<2>(1, 1), CreatorWeakPtr()), std::runtime_error);
    EXPECT_EQ(array.strongCount(), 1);
    EXPECT_EQ(array->getTypedChunk().strongCount(), 2) << "the array's and the one asked for here";
  }
}

TEST_F(DeferredConstructionTest, TheStepOfTheBaseClassIsEmpty) {
  const ArrayPtr<2, double> array(newArray());
  array->MemBase::DeferredConstructor();
  EXPECT_EQ(saver->nCalls, 1);
}

// -------------------------------------------------------------------------------------------------------- concurrency

class MemArrayThreadsTest : public TreskTest::RecordBalanceTest {};

TEST_F(MemArrayThreadsTest, ManyThreadsReadOneArrayAndItsViews) {
  const ArrayPtr<3, double> array = makeSamples<3, double>(MultiIndex<3>(8, 9, 10));
  std::atomic<int> nWrong{0};
  TreskTest::RaceRunner race;
  race.add(4, [&](int) {
    for (int round = 0; round < 50; ++round) {
      const ArrayPtr<2, double> slice(array->getSlice(static_cast<unsigned long long>(round % 10), CreatorWeakPtr()));
      if ((*slice)(1, 2) != (*array)(1, 2, round % 10)) ++nWrong;
      const MemBasePtr component = slice->getComponent(0, CreatorWeakPtr());
      if (component->nElements() != 72) ++nWrong;
      const MemBasePtr made = array->create(typeid(void));
      if (made->getSize() != array->getSize()) ++nWrong;
      if (array->last() != 720.0) ++nWrong;
    }
  });
  race.run();
  EXPECT_EQ(nWrong, 0);
  EXPECT_EQ(array.strongCount(), 1);
}

}  // namespace
