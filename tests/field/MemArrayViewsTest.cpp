// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <field/ElementSamples.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <random>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::ChunkBase;
using Ostrel::StrongPtr;
using Quorvel::FixedArray;
using Tresk::CreativeArray;
using Tresk::CreatorPtr;
using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::MemArray;
using Tresk::MemBase;
using Tresk::MemBasePtr;
using Tresk::MultiIndex;
using Tresk::WalkParameters;
using TreskTest::advance;
using TreskTest::ArrayPtr;
using TreskTest::expectSamples;
using TreskTest::forEachRank;
using TreskTest::makeArray;
using TreskTest::makeSamples;
using TreskTest::sameElement;
using TreskTest::sample;
using TreskTest::sampleExtents;

using ChunkPtr = StrongPtr<ChunkBase, ChunkBase>;

const CreatorWeakPtr nobody;

template <class T>
using ComponentOf = typename Tresk::ElementTraits<T>::ComponentType;
template <class T>
constexpr int nComponents = static_cast<int>(Tresk::ElementTraits<T>::multiplicity);

/// Component `c` of sample `i`.
template <class T>
ComponentOf<T> componentOfSample(unsigned long long i, int c) {
  const T element = sample<T>(i);
  if constexpr (std::is_same_v<ComponentOf<T>, T>)
    return element;
  else
    return element[c];
}

// ------------------------------------------------------------------------------------------------------------- slices

template <class T>
class SliceTest : public TreskTest::RecordBalanceTest {};
TYPED_TEST_SUITE(SliceTest, TreskTest::AllElementTypes);

TYPED_TEST(SliceTest, FixesTheHighestIndexAndSharesTheChunk) {
  using T = TypeParam;
  const CreatorPtr creator(new CreativeArray(MemBasePtr(), Tresk::CachePtr()));
  forEachRank([&]<int N>(std::integral_constant<int, N>) {
    if constexpr (N > 1) {
      const MultiIndex<N> extents = sampleExtents<N>();
      const ArrayPtr<N, T> array = makeSamples<N, T>(extents);
      const unsigned long long perSlice = extents.nElements() / extents[N - 1];
      for (unsigned long long i = 0; i < extents[N - 1]; ++i) {
        const ArrayPtr<N - 1, T> slice(array->getSlice(i, creator));
        ASSERT_TRUE(slice);
        for (int d = 0; d < N - 1; ++d) EXPECT_EQ(slice->extents[d], extents[d]);
        EXPECT_EQ(slice->count, array->count);
        EXPECT_EQ(slice->stride, array->stride);
        EXPECT_EQ(slice->span, array->span);
        EXPECT_EQ(slice->offset, i * perSlice);
        EXPECT_EQ(slice->tail, extents.nElements() - (i + 1) * perSlice);
        EXPECT_EQ(slice->data, array->data) << "the offset does not move the data";
        EXPECT_EQ(slice->source, nullptr);
        EXPECT_TRUE(slice->getChunk() == array->getChunk());
        EXPECT_TRUE(slice->getCreator() == creator);
        EXPECT_EQ(slice->memsize(), array->memsize()) << "the whole chunk";
        EXPECT_EQ(slice->getIterator().nElements(), perSlice);
        expectSamples(*slice, [&](unsigned long long e) { return i * perSlice + e; });
        EXPECT_TRUE(sameElement<T>(slice->first(), sample<T>(i * perSlice)));
        EXPECT_TRUE(sameElement<T>(slice->last(), sample<T>((i + 1) * perSlice - 1)));
        unsigned long long e = i * perSlice;
        slice->getIterator().forEachElement(
            [&](const T& element) { EXPECT_TRUE(sameElement<T>(element, sample<T>(e++))); });
        EXPECT_EQ(e, (i + 1) * perSlice);
      }
    }
  });
}

TYPED_TEST(SliceTest, OfRankOneIsNull) {
  const ArrayPtr<1, TypeParam> array = makeArray<1, TypeParam>(MultiIndex<1>(3));
  EXPECT_FALSE(array->getSlice(0, nobody));
  EXPECT_EQ(array->getSlice(0, nobody).getRecord(), nullptr);
}

TYPED_TEST(SliceTest, SuccessiveSlicesCompose) {
  using T = TypeParam;
  const ArrayPtr<4, T> array = makeSamples<4, T>(MultiIndex<4>(2, 3, 4, 5));
  for (unsigned long long l = 0; l < 5; ++l)
    for (unsigned long long k = 0; k < 4; ++k)
      for (unsigned long long j = 0; j < 3; ++j) {
        const ArrayPtr<3, T> block(array->getSlice(l, nobody));
        const ArrayPtr<2, T> plane(block->getSlice(k, nobody));
        const ArrayPtr<1, T> line(plane->getSlice(j, nobody));
        ASSERT_TRUE(line);
        EXPECT_EQ(line->offset, ((l * 4 + k) * 3 + j) * 2);
        EXPECT_EQ(line->getIterator().nElements(), 2U);
        for (unsigned long long i = 0; i < 2; ++i) {
          EXPECT_TRUE(sameElement<T>((*line)(i), sample<T>(((l * 4 + k) * 3 + j) * 2 + i)));
          EXPECT_TRUE(sameElement<T>((*line)(i), (*array)(i, j, k, l)));
        }
      }
}

TYPED_TEST(SliceTest, OutlivesTheArrayThatItWasMadeFrom) {
  using T = TypeParam;
  ArrayPtr<2, T> array = makeSamples<2, T>(MultiIndex<2>(3, 4));
  const ArrayPtr<1, T> slice(array->getSlice(2, nobody));
  array.reset();
  EXPECT_EQ(slice->getTypedChunk().strongCount(), 2) << "the slice's and the one asked for here";
  expectSamples(*slice, [](unsigned long long e) { return 6 + e; });
}

TYPED_TEST(SliceTest, WritesReachTheArrayAndAllOtherViews) {
  using T = TypeParam;
  const ArrayPtr<2, T> array = makeSamples<2, T>(MultiIndex<2>(3, 4));
  const ArrayPtr<1, T> slice(array->getSlice(2, nobody));
  const ArrayPtr<1, T> other(array->getSlice(2, nobody));
  (*slice)(1) = sample<T>(99);
  EXPECT_TRUE(sameElement<T>((*array)(1, 2), sample<T>(99)));
  EXPECT_TRUE(sameElement<T>((*other)(1), sample<T>(99)));
  (*array)(0, 2) = sample<T>(98);
  EXPECT_TRUE(sameElement<T>(slice->first(), sample<T>(98)));
  expectSamples(*array, [](unsigned long long e) { return e == 7 ? 99 : e == 6 ? 98 : e; });
}

TYPED_TEST(SliceTest, OfAnEmptyArrayIsEmpty) {
  using T = TypeParam;
  const ArrayPtr<2, T> array = makeArray<2, T>(MultiIndex<2>(0, 3));
  const ArrayPtr<1, T> slice(array->getSlice(1, nobody));
  ASSERT_TRUE(slice);
  EXPECT_EQ(slice->nElements(), 0U);
  EXPECT_EQ(slice->data, nullptr);
  EXPECT_EQ(slice->getIterator().nElements(), 0U);
}

TYPED_TEST(SliceTest, OfTheFrontOfALongerChunkEndsWithTheExtents) {
  using T = TypeParam;
  const ArrayPtr<2, T> array(new MemArray<2, T>(TreskTest::sampleChunk<T>(20), MultiIndex<2>(3, 4), CreatorWeakPtr()));
  const ArrayPtr<1, T> slice(array->getSlice(3, nobody));
  EXPECT_EQ(slice->offset, 9U);
  EXPECT_EQ(slice->tail, 8U);
  expectSamples(*slice, [](unsigned long long e) { return 9 + e; });
}

class PlainSliceTest : public TreskTest::RecordBalanceTest {};

TEST_F(PlainSliceTest, ThirdSliceOfABlockOfDoubles) {
  const ArrayPtr<3, double> array = makeSamples<3, double>(MultiIndex<3>(4, 5, 6));
  const ArrayPtr<2, double> slice(array->getSlice(3, nobody));
  ASSERT_TRUE(slice);
  EXPECT_EQ(slice->getSize().str(), "4x5");
  EXPECT_EQ(slice->offset, 60U);
  EXPECT_EQ(&(*slice)(1, 2), &(*array)(1, 2, 3));
}

// -------------------------------------------------------------------------------------------------------- sub-arrays

template <class T>
class SubArrayTest : public TreskTest::RecordBalanceTest {};
TYPED_TEST_SUITE(SubArrayTest, TreskTest::AllElementTypes);

TYPED_TEST(SubArrayTest, RandomBoxesEqualANaiveCopy) {
  using T = TypeParam;
  std::mt19937 random(20260104);
  const auto from = [&](unsigned long long least, unsigned long long greatest) {
    return std::uniform_int_distribution<unsigned long long>(least, greatest)(random);
  };
  forEachRank([&]<int N>(std::integral_constant<int, N>) {
    for (int round = 0; round < 25; ++round) {
      MultiIndex<N> extents;
      MultiIndex<N> start;
      MultiIndex<N> size;
      for (int d = 0; d < N; ++d) {
        extents[d] = from(1, 5);
        start[d] = from(0, extents[d]);
        size[d] = from(0, extents[d] - start[d]);
      }
      const ArrayPtr<N, T> array = makeSamples<N, T>(extents);
      const ArrayPtr<N, T> box(static_cast<const Tresk::MemArrayBase<N>&>(*array).createSubArray(start, size, nobody));
      ASSERT_TRUE(box);
      ASSERT_TRUE(box->getIndexSize() == size);
      EXPECT_EQ(box->memsize(), size.nElements() * sizeof(T));
      EXPECT_FALSE(box->getChunk() == array->getChunk());
      if (size.nElements() == 0) continue;
      MultiIndex<N> index;
      do {
        MultiIndex<N> place;
        for (int d = 0; d < N; ++d) place[d] = start[d] + index[d];
        ASSERT_TRUE(sameElement<T>((*box)[index], sample<T>(extents.linear(place))));
      } while (advance(index, size));
      const MemBasePtr again = static_cast<const MemBase&>(*array).createSubArray(DynamicSize(N, start.begin()),
                                                                                  DynamicSize(N, size.begin()), nobody);
      ASSERT_TRUE(again);
      const ArrayPtr<N, T> same(again);
      for (unsigned long long e = 0; e < size.nElements(); ++e)
        ASSERT_TRUE(sameElement<T>(same->getElement(e), box->getElement(e)));
    }
  });
}

TYPED_TEST(SubArrayTest, ABoxOfASliceIsCopiedByTheSlicesWalk) {
  using T = TypeParam;
  const ArrayPtr<3, T> array = makeSamples<3, T>(MultiIndex<3>(4, 5, 6));
  const ArrayPtr<2, T> slice(array->getSlice(3, nobody));
  const ArrayPtr<2, T> box(slice->createSubArray(MultiIndex<2>(1, 2), MultiIndex<2>(3, 2), nobody));
  for (int j = 0; j < 2; ++j)
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(sameElement<T>((*box)(i, j), (*array)(1 + i, 2 + j, 3)));
}

TYPED_TEST(SubArrayTest, AnExtentOfZeroGivesAnEmptyArray) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    const ArrayPtr<N, T> array = makeSamples<N, T>(sampleExtents<N>());
    for (int d = 0; d < N; ++d) {
      MultiIndex<N> size = sampleExtents<N>();
      size[d] = 0;
      const ArrayPtr<N, T> box(array->createSubArray(MultiIndex<N>(), size, nobody));
      ASSERT_TRUE(box);
      EXPECT_TRUE(box->getIndexSize() == size);
      EXPECT_EQ(box->memsize(), 0U);
      EXPECT_EQ(box->data, nullptr);
    }
  });
}

TYPED_TEST(SubArrayTest, AWrongRankGivesNone) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    const unsigned long long zeros[] = {0, 0, 0, 0, 0};
    const unsigned long long ones[] = {1, 1, 1, 1, 1};
    const ArrayPtr<N, T> array = makeSamples<N, T>(sampleExtents<N>());
    const MemBase& base = *array;
    for (int rank = 0; rank <= 5; ++rank) {
      const bool fits = rank == N;
      const DynamicSize start(rank, zeros);
      const DynamicSize size(rank, ones);
      EXPECT_EQ(base.createSubArray(start, size, nobody).isValid(), fits);
      EXPECT_EQ(base.createSubArray(DynamicSize(N, zeros), size, nobody).isValid(), fits);
      EXPECT_EQ(base.createSubArray(start, DynamicSize(N, ones), nobody).isValid(), fits);
    }
  });
}

TYPED_TEST(SubArrayTest, IsACopyWithTheGivenCreator) {
  using T = TypeParam;
  const CreatorPtr creator(new CreativeArray(MemBasePtr(), Tresk::CachePtr()));
  const ArrayPtr<2, T> array = makeSamples<2, T>(MultiIndex<2>(3, 4));
  const ArrayPtr<2, T> box(array->createSubArray(MultiIndex<2>(0, 0), MultiIndex<2>(3, 4), creator));
  EXPECT_TRUE(box->getCreator() == creator);
  (*box)(1, 1) = sample<T>(99);
  expectSamples(*array, [](unsigned long long e) { return e; });
  (*array)(0, 0) = sample<T>(98);
  EXPECT_TRUE(sameElement<T>((*box)(0, 0), sample<T>(0)));
  const MemBasePtr other =
      static_cast<const MemBase&>(*array).createSubArray(DynamicSize{0, 0}, DynamicSize{1, 1}, creator);
  EXPECT_TRUE(other->getCreator() == creator);
}

class PlainSubArrayTest : public TreskTest::RecordBalanceTest {};

TEST_F(PlainSubArrayTest, RankTwoOnABlockGivesNone) {
  const ArrayPtr<3, double> array = makeArray<3, double>(MultiIndex<3>(4, 5, 6));
  EXPECT_FALSE(static_cast<const MemBase&>(*array).createSubArray(DynamicSize{0, 0}, DynamicSize{1, 1}, nobody));
}

// -------------------------------------------------------------------------------------------------- component views

template <class T>
class ComponentViewTest : public TreskTest::RecordBalanceTest {};
TYPED_TEST_SUITE(ComponentViewTest, TreskTest::AllElementTypes);

TYPED_TEST(ComponentViewTest, ShowsOneComponentOfEachElementAsAScalarArray) {
  using T = TypeParam;
  using S = ComponentOf<T>;
  const CreatorPtr creator(new CreativeArray(MemBasePtr(), Tresk::CachePtr()));
  forEachRank([&]<int N>(std::integral_constant<int, N>) {
    const ArrayPtr<N, T> array = makeSamples<N, T>(sampleExtents<N>());
    for (int c = 0; c < nComponents<T>; ++c) {
      const MemBasePtr base = static_cast<const MemBase&>(*array).getComponent(c, creator);
      ASSERT_TRUE(base);
      const MemBase& view = *base;
      EXPECT_EQ(typeid(view), (typeid(MemArray<N, S>)));
      EXPECT_EQ(view.getElementType(), typeid(S));
      EXPECT_TRUE(view.getTreskTypeIndex() == static_cast<const Tresk::TreskTypeIndex&>(*Tresk::getTreskType<S>()));
      EXPECT_TRUE(view.getCreator() == creator);
      const ArrayPtr<N, S> scalars(base);
      EXPECT_TRUE(scalars->getIndexSize() == sampleExtents<N>());
      MultiIndex<N> index;
      unsigned long long e = 0;
      do {
        ASSERT_TRUE(sameElement<S>((*scalars)[index], componentOfSample<T>(e, c))) << "component " << c;
        ASSERT_TRUE(sameElement<S>(scalars->getElement(e), componentOfSample<T>(e, c)));
        ++e;
      } while (advance(index, sampleExtents<N>()));
      EXPECT_EQ(scalars->getIterator().nElements(), e);
    }
  });
}

TYPED_TEST(ComponentViewTest, BeyondTheLastComponentThereIsNone) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    const ArrayPtr<N, T> array = makeArray<N, T>(sampleExtents<N>());
    for (const int c : {nComponents<T>, nComponents<T> + 1, std::numeric_limits<int>::max()}) {
      EXPECT_FALSE(array->getComponent(c, nobody));
      EXPECT_EQ(array->getComponent(c, nobody).getRecord(), nullptr);
    }
  });
}

TYPED_TEST(ComponentViewTest, WritesReachTheElementsOfTheArray) {
  using T = TypeParam;
  using S = ComponentOf<T>;
  const ArrayPtr<2, T> array = makeSamples<2, T>(MultiIndex<2>(3, 4));
  const int c = nComponents<T> - 1;
  const ArrayPtr<2, S> view(array->getComponent(c, nobody));
  (*view)(1, 2) = sample<S>(4000);
  const T written = (*array)(1, 2);
  if constexpr (std::is_same_v<S, T>) {
    EXPECT_TRUE(sameElement<T>(written, sample<S>(4000)));
  } else {
    T expected = sample<T>(7);
    expected[c] = sample<S>(4000);
    EXPECT_TRUE(sameElement<T>(written, expected));
  }
  view->setElement(0, sample<S>(4001));
  const T first = array->first();
  if constexpr (std::is_same_v<S, T>)
    EXPECT_TRUE(sameElement<T>(first, sample<S>(4001)));
  else
    EXPECT_TRUE(sameElement<S>(first[c], sample<S>(4001)));
}

TYPED_TEST(ComponentViewTest, ACompoundViewHoldsTheChunkAndDoesNotShowIt) {
  using T = TypeParam;
  using S = ComponentOf<T>;
  ArrayPtr<2, T> array = makeSamples<2, T>(MultiIndex<2>(3, 4));
  const ChunkPtr chunk = array->getChunk();
  const ArrayPtr<2, S> view(array->getComponent(0, nobody));
  const int nHolders = chunk.strongCount();
  array.reset();
  EXPECT_EQ(chunk.strongCount(), nHolders - 1);
  EXPECT_EQ(nHolders, 3) << "array, view and this test";
  EXPECT_EQ(view->nElements(), 12U);
  EXPECT_NE(view->getDataPointer(), nullptr);
  EXPECT_TRUE(sameElement<S>(view->last(), componentOfSample<T>(11, 0)));
  if constexpr (std::is_same_v<S, T>) {
    EXPECT_TRUE(view->getChunk() == chunk);
    EXPECT_EQ(view->memsize(), 12 * sizeof(T));
  } else {
    EXPECT_FALSE(view->getChunk());
    EXPECT_EQ(view->getChunk().getRecord(), nullptr);
    EXPECT_FALSE(view->getTypedChunk());
    EXPECT_EQ(view->memsize(), 0U);
    EXPECT_EQ(view->getElementString(0), "");
    EXPECT_FALSE(view->copy(nobody));
    EXPECT_FALSE(view->copyFromChunk(TreskTest::sampleChunk<S>(12)));
    const ArrayPtr<2, S> box(view->createSubArray(MultiIndex<2>(1, 1), MultiIndex<2>(2, 2), nobody));
    EXPECT_EQ((*box)(0, 0), (*view)(1, 1)) << "the walk works";
    EXPECT_EQ((*box)(1, 1), (*view)(2, 2));
  }
}

TYPED_TEST(ComponentViewTest, OfAnEmptyArrayIsEmpty) {
  using T = TypeParam;
  const ArrayPtr<2, T> array = makeArray<2, T>(MultiIndex<2>(0, 4));
  const MemBasePtr view = array->getComponent(0, nobody);
  ASSERT_TRUE(view);
  EXPECT_EQ(view->nElements(), 0U);
  EXPECT_EQ(view->getDataPointer(), nullptr);
}

/// What a view must look like, field by field.
struct Fields {
  unsigned long long count, stride, span, offset, tail;
};

template <int N, class S>
void expectFields(const MemArray<N, S>& view, const Fields& expected) {
  EXPECT_EQ(view.count, expected.count);
  EXPECT_EQ(view.stride, expected.stride);
  EXPECT_EQ(view.span, expected.span);
  EXPECT_EQ(view.offset, expected.offset);
  EXPECT_EQ(view.tail, expected.tail);
  EXPECT_EQ(view.source, nullptr);
}

class ComponentViewRulesTest : public TreskTest::RecordBalanceTest {};

TEST_F(ComponentViewRulesTest, ScalarOfAWholeArray) {
  const ArrayPtr<2, double> array = makeSamples<2, double>(MultiIndex<2>(4, 5));
  const ArrayPtr<2, double> view(array->getComponent(0, nobody));
  expectFields(*view, {20, 1, 20, 0, 0});
  EXPECT_EQ(view->data, array->data);
}

TEST_F(ComponentViewRulesTest, ScalarOfASliceFoldsTheOffsetIntoTheTail) {
  const ArrayPtr<2, unsigned int> array = makeSamples<2, unsigned int>(MultiIndex<2>(4, 5));
  const ArrayPtr<1, unsigned int> slice(array->getSlice(2, nobody));
  expectFields(*slice, {20, 1, 20, 8, 8});
  const ArrayPtr<1, unsigned int> view(slice->getComponent(0, nobody));
  expectFields(*view, {20, 1, 20, 0, 16});
  EXPECT_EQ(view->data, array->data);
  EXPECT_EQ(view->getIterator().nElements(), 4U);
  expectSamples(*view, [](unsigned long long e) { return e; });
}

TEST_F(ComponentViewRulesTest, ScalarOfAComponentViewWalksAdjacentUnits) {
  const ArrayPtr<1, Quorvel::PhysicalSpace::point> points =
      makeSamples<1, Quorvel::PhysicalSpace::point>(MultiIndex<1>(4));
  const ArrayPtr<1, double> y(points->getComponent(1, nobody));
  expectFields(*y, {12, 3, 0, 0, 0});
  const ArrayPtr<1, double> view(y->getComponent(0, nobody));
  expectFields(*view, {12, 1, 12, 0, 8});
  EXPECT_EQ(view->data, y->data);
  EXPECT_EQ((*view)(0), 101.0);
  EXPECT_EQ((*view)(1), 102.0) << "the z of the first point";
  EXPECT_EQ((*view)(2), 200.0) << "the x of the second one";
  EXPECT_EQ((*view)(3), 201.0);
}

TEST_F(ComponentViewRulesTest, ATailWithinTheReachIsDropped) {
  // The walk has fewer units than its span says; the rule compares the two as they stand.
  const ArrayPtr<1, double> array = makeSamples<1, double>(MultiIndex<1>(10));
  WalkParameters<double> walk = array->getWalk();
  walk.count = 3;
  walk.tail = 2;
  const ArrayPtr<1, double> short3(new MemArray<1, double>(walk, MultiIndex<1>(3), array->getChunk(), nobody));
  // Fitted to 3 of 10: the tail is 7. Reach less tail is 3, and the count is not less than that.
  expectFields(*short3, {3, 1, 10, 0, 7});
  expectFields(*ArrayPtr<1, double>(short3->getComponent(0, nobody)), {3, 1, 3, 0, 0});
  const ArrayPtr<1, double> short8(new MemArray<1, double>(walk, MultiIndex<1>(8), array->getChunk(), nobody));
  expectFields(*short8, {3, 1, 10, 0, 2});
  const ArrayPtr<1, double> view(short8->getComponent(0, nobody));
  expectFields(*view, {3, 1, 3, 0, 0});
}

template <int K>
void expectInterleavedRule() {
  using T = FixedArray<double, K>;
  constexpr auto k = static_cast<unsigned long long>(K);
  const ArrayPtr<2, T> array = makeSamples<2, T>(MultiIndex<2>(4, 5));
  const ArrayPtr<1, T> slice(array->getSlice(2, nobody));
  expectFields(*slice, {20 * k, k, 1, 8, 8});
  for (int c = 0; c < K; ++c) {
    const ArrayPtr<2, double> whole(array->getComponent(c, nobody));
    expectFields(*whole, {20 * k, k, 0, 0, 0});
    EXPECT_EQ(whole->data, array->data + c);
    const ArrayPtr<1, double> view(slice->getComponent(c, nobody));
    expectFields(*view, {20 * k, k, 0, 8, 8});
    EXPECT_EQ(view->data, array->data + c);
    for (unsigned long long e = 0; e < 4; ++e)
      EXPECT_EQ((*view)(e), componentOfSample<T>(8 + e, c)) << "the offset is kept";
  }
}

TEST_F(ComponentViewRulesTest, InterleavedKeepsOffsetAndTail) {
  expectInterleavedRule<2>();
  expectInterleavedRule<3>();
}

TEST_F(ComponentViewRulesTest, InterleavedWithAWiderStrideGetsTheStrideOfItsComponents) {
  using T = FixedArray<double, 3>;
  const ArrayPtr<1, T> array = makeSamples<1, T>(MultiIndex<1>(8));
  WalkParameters<double> walk = array->getWalk();
  walk.stride = 6;
  const ArrayPtr<1, T> everySecond(new MemArray<1, T>(walk, MultiIndex<1>(4), array->getChunk(), nobody));
  expectSamples(*everySecond, [](unsigned long long e) { return 2 * e; });
  const ArrayPtr<1, double> view(everySecond->getComponent(1, nobody));
  expectFields(*view, {24, 3, 0, 0, 4});
  EXPECT_EQ((*view)(1), 201.0);
}

/// An array whose walk is planar: all of component 0 of n elements, then all of component 1, ...
template <int K, int N>
ArrayPtr<N, FixedArray<double, K>> makePlanar(const MultiIndex<N>& extents) {
  using T = FixedArray<double, K>;
  const unsigned long long n = extents.nElements();
  const StrongPtr<Ostrel::Chunk<T>, ChunkBase> chunk(new Ostrel::Chunk<T>(n));
  double* const units = static_cast<double*>(static_cast<ChunkBase&>(*chunk).data());
  for (unsigned long long e = 0; e < n; ++e)
    for (int c = 0; c < K; ++c) units[static_cast<unsigned long long>(c) * n + e] = sample<T>(e)[c];
  WalkParameters<double> walk;
  walk.count = n * static_cast<unsigned long long>(K);
  walk.stride = 1;
  walk.span = n;
  walk.data = units;
  return ArrayPtr<N, T>(new MemArray<N, T>(walk, extents, chunk, nobody));
}

template <int K>
void expectPlanarRule() {
  using T = FixedArray<double, K>;
  const ArrayPtr<2, T> array = makePlanar<K>(MultiIndex<2>(4, 5));
  expectSamples(*array, [](unsigned long long e) { return e; });
  EXPECT_TRUE(sameElement<T>(array->last(), sample<T>(19)));
  const ArrayPtr<1, T> slice(array->getSlice(2, nobody));
  expectSamples(*slice, [](unsigned long long e) { return 8 + e; });
  for (int c = 0; c < K; ++c) {
    const ArrayPtr<2, double> view(array->getComponent(c, nobody));
    ASSERT_TRUE(view);
    expectFields(*view, {20, 1, 20, 0, 0});
    EXPECT_EQ(view->data, array->data + 20) << "the plane after the first, whatever the number";
    for (unsigned long long e = 0; e < 20; ++e) EXPECT_EQ(view->getElement(e), sample<T>(e)[1]);
    const ArrayPtr<1, double> ofSlice(slice->getComponent(c, nobody));
    expectFields(*ofSlice, {20, 1, 20, 8, 8});
    for (unsigned long long e = 0; e < 4; ++e) EXPECT_EQ((*ofSlice)(e), sample<T>(8 + e)[1]);
  }
  EXPECT_FALSE(array->getComponent(K, nobody));
}

TEST_F(ComponentViewRulesTest, PlanarShowsThePlaneAfterTheFirstForEveryNumber) {
  expectPlanarRule<2>();
  expectPlanarRule<3>();
}

TEST_F(ComponentViewRulesTest, PlanarElementsAreWrittenWhereTheirComponentsLie) {
  using T = FixedArray<double, 3>;
  const ArrayPtr<2, T> array = makePlanar<3>(MultiIndex<2>(2, 2));
  (*array)(1, 0) = T(7.0, 8.0, 9.0);
  EXPECT_EQ(array->data[1], 7.0);
  EXPECT_EQ(array->data[5], 8.0);
  EXPECT_EQ(array->data[9], 9.0);
  array->setElement(MultiIndex<2>(0, 1), T(4.0, 5.0, 6.0));
  EXPECT_EQ(array->data[2], 4.0);
  EXPECT_EQ(array->data[6], 5.0);
  EXPECT_EQ(array->data[10], 6.0);
  const ArrayPtr<2, double> view(array->getComponent(0, nobody));
  (*view)(0, 0) = -1;
  EXPECT_EQ(array->first()[1], -1.0);
  const ArrayPtr<2, T> box(array->createSubArray(MultiIndex<2>(1, 0), MultiIndex<2>(1, 2), nobody));
  EXPECT_EQ(box->stride, 3U) << "a copy is interleaved";
  EXPECT_TRUE(box->first() == T(7.0, 8.0, 9.0));
}

template <class T>
void expectCompoundRule() {
  using S = ComponentOf<T>;
  constexpr auto k = static_cast<unsigned long long>(nComponents<T>);
  const ArrayPtr<2, T> array = makeSamples<2, T>(MultiIndex<2>(4, 5));
  const ArrayPtr<1, T> slice(array->getSlice(2, nobody));
  expectFields(*slice, {20, 1, 20, 8, 8});
  for (int c = 0; c < nComponents<T>; ++c) {
    const ArrayPtr<2, S> whole(array->getComponent(c, nobody));
    expectFields(*whole, {20 * k, k, 0, 0, 0});
    EXPECT_EQ(static_cast<void*>(whole->data), static_cast<void*>(array->data->begin() + c));
    const ArrayPtr<1, S> view(slice->getComponent(c, nobody));
    expectFields(*view, {20 * k, k, 0, 0, 16});
    EXPECT_EQ(view->data, whole->data);
    for (unsigned long long e = 0; e < 4; ++e)
      EXPECT_EQ((*view)(e), componentOfSample<T>(e, c)) << "the offset is dropped";
  }
}

TEST_F(ComponentViewRulesTest, CompoundDropsTheOffset) {
  using Convention = Tresk::IJ_CellNamingConvention;
  expectCompoundRule<Quorvel::PhysicalSpace::point>();
  expectCompoundRule<Quorvel::Vector<double, 3>>();
  expectCompoundRule<Tresk::SimplexCell<1, unsigned int, Convention>>();
  expectCompoundRule<Tresk::SimplexCell<2, unsigned int, Convention>>();
  expectCompoundRule<Tresk::SimplexCell<3, unsigned int, Convention>>();
  expectCompoundRule<Tresk::RegularCell<2, unsigned int, Convention>>();
  expectCompoundRule<Tresk::RegularCell<3, unsigned int, Convention>>();
}

TEST_F(ComponentViewRulesTest, ALongerChunkLeavesATail) {
  const ArrayPtr<1, Quorvel::PhysicalSpace::point> points(new MemArray<1, Quorvel::PhysicalSpace::point>(
      TreskTest::sampleChunk<Quorvel::PhysicalSpace::point>(10), MultiIndex<1>(4), nobody));
  const ArrayPtr<1, double> z(points->getComponent(2, nobody));
  expectFields(*z, {30, 3, 0, 0, 6});
  using Pair = FixedArray<double, 2>;
  const ArrayPtr<1, Pair> pairs(new MemArray<1, Pair>(TreskTest::sampleChunk<Pair>(10), MultiIndex<1>(4), nobody));
  const ArrayPtr<1, double> second(pairs->getComponent(1, nobody));
  expectFields(*second, {20, 2, 0, 0, 6});
}

TEST_F(ComponentViewRulesTest, ThePointsOfASurfaceHaveAnXAYAndAZ) {
  const ArrayPtr<2, Quorvel::PhysicalSpace::point> points =
      makeSamples<2, Quorvel::PhysicalSpace::point>(MultiIndex<2>(3, 2));
  EXPECT_FALSE(points->getComponent(3, nobody));
  const ArrayPtr<2, double> z(points->getComponent(2, nobody));
  ASSERT_TRUE(z);
  for (int j = 0; j < 2; ++j)
    for (int i = 0; i < 3; ++i) EXPECT_EQ((*z)(i, j), (*points)(i, j)[2]);
}

TEST_F(ComponentViewRulesTest, ASliceOfAComponentViewIsALineOfThatComponent) {
  const ArrayPtr<2, Quorvel::PhysicalSpace::point> points =
      makeSamples<2, Quorvel::PhysicalSpace::point>(MultiIndex<2>(3, 4));
  const ArrayPtr<2, double> y(points->getComponent(1, nobody));
  const ArrayPtr<1, double> line(y->getSlice(2, nobody));
  expectFields(*line, {36, 3, 0, 6, 3});
  for (unsigned long long e = 0; e < 3; ++e) EXPECT_EQ((*line)(e), 100.0 * static_cast<double>(7 + e) + 1);
  std::vector<double> walked;
  line->getIterator().forEachElement([&](double value) { walked.push_back(value); });
  EXPECT_EQ(walked, (std::vector<double>{701, 801, 901}));
}

// -------------------------------------------------------------------------------------------- the view constructor

class ViewConstructorTest : public TreskTest::RecordBalanceTest {};

TEST_F(ViewConstructorTest, FitsTheWalkToTheExtents) {
  const ArrayPtr<1, double> array = makeSamples<1, double>(MultiIndex<1>(100));
  WalkParameters<double> walk = array->getWalk();
  const ArrayPtr<2, double> front(new MemArray<2, double>(walk, MultiIndex<2>(6, 10), array->getChunk(), nobody));
  expectFields(*front, {100, 1, 100, 0, 40});
  walk.offset = 10;
  const ArrayPtr<2, double> middle(new MemArray<2, double>(walk, MultiIndex<2>(6, 10), array->getChunk(), nobody));
  expectFields(*middle, {100, 1, 100, 10, 30});
  EXPECT_EQ(middle->first(), 11.0);
  EXPECT_EQ(middle->last(), 70.0);
  walk.tail = 5;
  const ArrayPtr<2, double> beyond(new MemArray<2, double>(walk, MultiIndex<2>(20, 10), array->getChunk(), nobody));
  expectFields(*beyond, {100, 1, 100, 10, 5});
}

TEST_F(ViewConstructorTest, WalksMemoryWithoutAChunkIfItsOwnerKeepsIt) {
  std::vector<double> values{1, 2, 3, 4, 5, 6};
  WalkParameters<double> walk;
  walk.count = 6;
  walk.stride = 2;
  walk.data = values.data();
  const ArrayPtr<1, double> odd(new MemArray<1, double>(walk, MultiIndex<1>(3), ChunkPtr(), nobody));
  EXPECT_EQ((*odd)(2), 5.0);
  EXPECT_EQ(odd->last(), 5.0);
  EXPECT_EQ(odd->memsize(), 0U);
  EXPECT_FALSE(odd->getChunk());
  EXPECT_EQ(odd->getDataPointer(), values.data());
  (*odd)(0) = 10;
  EXPECT_EQ(values[0], 10.0);
}

}  // namespace
