// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemArray.hpp>

#include <field/ElementSamples.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

namespace {

using Tresk::CreatorWeakPtr;
using Tresk::MemArray;
using Tresk::MemBasePtr;
using Tresk::MultiIndex;
using Tresk::WalkParameters;
using Tresk::WalkUnitType;
using TreskTest::advance;
using TreskTest::ArrayPtr;
using TreskTest::forEachRank;
using TreskTest::sameElement;
using TreskTest::sample;
using TreskTest::sampleExtents;

using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;

const CreatorWeakPtr nobody;

/// Units of the walk in one element.
template <class T>
constexpr unsigned long long nUnits = static_cast<unsigned long long>(Tresk::WalkUnit<T>::nComponents);

/// Gives the elements of a block of rank N on demand and writes down what it is asked.
///
/// A slice of dimension `memoryDimension` comes with its data; slices of others only fix their index for what is asked
/// next. No slice has data if `memoryDimension` is 0.
template <int N, class T>
class Source final : public Tresk::ElementSource<WalkUnitType<T>> {
 public:
  using U = WalkUnitType<T>;

  Source(const MultiIndex<N>& blockExtents, int memoryDimension)
      : extents(blockExtents), elements(blockExtents.nElements()), memoryDimension_(memoryDimension) {
    for (unsigned long long e = 0; e < elements.size(); ++e) elements[e] = sample<T>(e);
  }

  WalkParameters<U> slice(int dimension, unsigned long long index) override {
    calls += "slice(" + std::to_string(dimension) + "," + std::to_string(index) + ") ";
    fixed_[dimension] = index;
    WalkParameters<U> walk;
    if (dimension != memoryDimension_) {
      walk.source = this;
      return walk;
    }
    // The whole block, with an offset to the slice.
    walk.count = elements.size() * nUnits<T>;
    walk.stride = nUnits<T>;
    walk.span = std::is_same_v<U, T> ? elements.size() : 1;
    MultiIndex<N> start;
    for (int d = dimension; d < N; ++d) start[d] = fixed_[d];
    walk.offset = extents.linear(start);
    walk.data = reinterpret_cast<U*>(elements.data());
    return walk;
  }

  U* element(unsigned long long index) override {
    calls += "element(" + std::to_string(index) + ") ";
    fixed_[0] = index;
    return reinterpret_cast<U*>(elements.data() + extents.linear(fixed_));
  }

  /// What was asked since the last time.
  std::string takeCalls() {
    std::string taken;
    taken.swap(calls);
    return taken;
  }

  MultiIndex<N> extents;
  std::vector<T> elements;
  std::string calls;

 private:
  int memoryDimension_;
  MultiIndex<N> fixed_;
};

/// An array that reads all of its elements through a source.
template <int N, class T>
ArrayPtr<N, T> makeSourced(Source<N, T>& source) {
  WalkParameters<WalkUnitType<T>> walk;
  walk.source = &source;
  return ArrayPtr<N, T>(new MemArray<N, T>(walk, source.extents, ChunkPtr(), nobody));
}

/// The questions for one element when slices of `memoryDimension` come with their data.
template <int N>
std::string callsFor(const MultiIndex<N>& index, int memoryDimension) {
  std::string calls;
  for (int d = N - 1; d >= 1; --d) {
    calls += "slice(" + std::to_string(d) + "," + std::to_string(index[d]) + ") ";
    if (d == memoryDimension) return calls;
  }
  return calls + "element(" + std::to_string(index[0]) + ") ";
}

template <class T>
class ElementSourceTest : public TreskTest::RecordBalanceTest {};
TYPED_TEST_SUITE(ElementSourceTest, TreskTest::AllElementTypes);

TYPED_TEST(ElementSourceTest, AnArrayTakesTheSourceOver) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    Source<N, T> source(sampleExtents<N>(), 0);
    const ArrayPtr<N, T> array = makeSourced(source);
    EXPECT_EQ(array->source, &source);
    EXPECT_EQ(array->data, nullptr);
    EXPECT_EQ(array->getDataPointer(), nullptr);
    EXPECT_EQ(array->nElements(), sampleExtents<N>().nElements());
    EXPECT_EQ(source.takeCalls(), "");
  });
}

TYPED_TEST(ElementSourceTest, AsksFromTheHighestDimensionDownToTheElement) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    Source<N, T> source(sampleExtents<N>(), 0);
    const ArrayPtr<N, T> array = makeSourced(source);
    const MemArray<N, T>& constArray = *array;
    MultiIndex<N> index;
    unsigned long long e = 0;
    do {
      const T read = constArray[index];
      EXPECT_TRUE(sameElement<T>(read, sample<T>(e)));
      EXPECT_EQ(source.takeCalls(), callsFor(index, 0));
      const T referred = (*array)[index];
      EXPECT_TRUE(sameElement<T>(referred, sample<T>(e)));
      EXPECT_EQ(source.takeCalls(), callsFor(index, 0));
      ++e;
    } while (advance(index, sampleExtents<N>()));
  });
}

TYPED_TEST(ElementSourceTest, StopsAtTheHighestSliceIfThatHasData) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    if constexpr (N > 1) {
      Source<N, T> source(sampleExtents<N>(), N - 1);
      const ArrayPtr<N, T> array = makeSourced(source);
      const MemArray<N, T>& constArray = *array;
      MultiIndex<N> index;
      unsigned long long e = 0;
      do {
        const T read = constArray[index];
        EXPECT_TRUE(sameElement<T>(read, sample<T>(e)));
        EXPECT_EQ(source.takeCalls(), callsFor(index, N - 1));
        ++e;
      } while (advance(index, sampleExtents<N>()));
    }
  });
}

TYPED_TEST(ElementSourceTest, RankFourStopsAtASliceOfADimensionLessToo) {
  using T = TypeParam;
  Source<4, T> source(sampleExtents<4>(), 2);
  const ArrayPtr<4, T> array = makeSourced(source);
  const MemArray<4, T>& constArray = *array;
  MultiIndex<4> index;
  unsigned long long e = 0;
  do {
    const T read = constArray[index];
    EXPECT_TRUE(sameElement<T>(read, sample<T>(e)));
    EXPECT_EQ(source.takeCalls(), callsFor(index, 2));
    ++e;
  } while (advance(index, sampleExtents<4>()));
}

TYPED_TEST(ElementSourceTest, ASourceWithLinesInMemoryGivesTheSameElements) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    if constexpr (N > 1) {
      Source<N, T> source(sampleExtents<N>(), 1);
      const ArrayPtr<N, T> array = makeSourced(source);
      MultiIndex<N> index;
      unsigned long long e = 0;
      do {
        const T read = (*array)[index];
        EXPECT_TRUE(sameElement<T>(read, sample<T>(e)));
        ++e;
      } while (advance(index, sampleExtents<N>()));
    }
  });
}

TYPED_TEST(ElementSourceTest, AccessByNumbersTakesTheSameRoad) {
  using T = TypeParam;
  Source<3, T> source(MultiIndex<3>(2, 3, 4), 0);
  const ArrayPtr<3, T> array = makeSourced(source);
  const T element = static_cast<const MemArray<3, T>&>(*array)(1, 2, 3);
  EXPECT_TRUE(sameElement<T>(element, sample<T>(23)));
  EXPECT_EQ(source.takeCalls(), "slice(2,3) slice(1,2) element(1) ");
}

TYPED_TEST(ElementSourceTest, FirstAndLastGoThroughTheSource) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    for (int memoryDimension = 0; memoryDimension < N; memoryDimension += N == 1 ? 1 : N - 1) {
      Source<N, T> source(sampleExtents<N>(), memoryDimension);
      const ArrayPtr<N, T> array = makeSourced(source);
      EXPECT_TRUE(sameElement<T>(array->first(), sample<T>(0)));
      EXPECT_EQ(source.takeCalls(), callsFor(MultiIndex<N>(), memoryDimension));
      MultiIndex<N> highest = sampleExtents<N>();
      for (int d = 0; d < N; ++d) --highest[d];
      EXPECT_TRUE(sameElement<T>(array->last(), sample<T>(sampleExtents<N>().nElements() - 1)));
      EXPECT_EQ(source.takeCalls(), callsFor(highest, memoryDimension));
    }
  });
}

TYPED_TEST(ElementSourceTest, WritesReachTheSource) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    for (const int memoryDimension : {0, N - 1}) {
      Source<N, T> source(sampleExtents<N>(), memoryDimension);
      const ArrayPtr<N, T> array = makeSourced(source);
      MultiIndex<N> index;
      for (int d = 0; d < N; ++d) index[d] = 1;
      array->setElement(index, sample<T>(500));
      EXPECT_EQ(source.takeCalls(), callsFor(index, memoryDimension));
      const unsigned long long place = sampleExtents<N>().linear(index);
      for (unsigned long long e = 0; e < source.elements.size(); ++e)
        EXPECT_TRUE(sameElement<T>(source.elements[e], sample<T>(e == place ? 500 : e))) << e;
    }
  });
}

TYPED_TEST(ElementSourceTest, ASliceIsTheWalkThatTheSourceGives) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    if constexpr (N > 1) {
      const unsigned long long perSlice = sampleExtents<N>().nElements() / sampleExtents<N>()[N - 1];
      for (unsigned long long i = 0; i < sampleExtents<N>()[N - 1]; ++i) {
        Source<N, T> source(sampleExtents<N>(), N - 1);
        const ArrayPtr<N, T> array = makeSourced(source);
        const ArrayPtr<N - 1, T> slice(array->getSlice(i, nobody));
        ASSERT_TRUE(slice);
        EXPECT_EQ(source.takeCalls(), "slice(" + std::to_string(N - 1) + "," + std::to_string(i) + ") ");
        EXPECT_EQ(static_cast<void*>(slice->data), static_cast<void*>(source.elements.data()));
        EXPECT_EQ(slice->source, nullptr);
        EXPECT_EQ(slice->offset, i * perSlice);
        EXPECT_EQ(slice->tail, source.elements.size() - (i + 1) * perSlice) << "fitted to the extents";
        TreskTest::expectSamples(*slice, [&](unsigned long long e) { return i * perSlice + e; });
        EXPECT_EQ(source.takeCalls(), "") << "its elements are in memory";
      }
    }
  });
}

TYPED_TEST(ElementSourceTest, ASliceWithoutDataReadsThroughItsSource) {
  using T = TypeParam;
  Source<3, T> source(MultiIndex<3>(2, 3, 4), 0);
  const ArrayPtr<3, T> array = makeSourced(source);
  const ArrayPtr<2, T> slice(array->getSlice(2, nobody));
  ASSERT_TRUE(slice);
  EXPECT_EQ(source.takeCalls(), "slice(2,2) ");
  EXPECT_EQ(slice->source, &source);
  EXPECT_TRUE(sameElement<T>(slice->last(), sample<T>(2 * 6 + 5)));
  EXPECT_EQ(source.takeCalls(), "slice(1,2) element(1) ");
  const ArrayPtr<1, T> line(slice->getSlice(1, nobody));
  ASSERT_TRUE(line);
  EXPECT_EQ(source.takeCalls(), "slice(1,1) ");
  EXPECT_TRUE(sameElement<T>(line->first(), sample<T>(2 * 6 + 2)));
  EXPECT_EQ(source.takeCalls(), "element(0) ");
}

TYPED_TEST(ElementSourceTest, ASubArrayIsACopyInMemory) {
  using T = TypeParam;
  Source<3, T> source(MultiIndex<3>(2, 3, 4), 0);
  const ArrayPtr<3, T> array = makeSourced(source);
  const ArrayPtr<3, T> box(array->createSubArray(MultiIndex<3>(1, 0, 2), MultiIndex<3>(1, 3, 2), nobody));
  ASSERT_TRUE(box);
  EXPECT_EQ(box->source, nullptr);
  EXPECT_EQ(box->memsize(), 6 * sizeof(T));
  for (unsigned long long k = 0; k < 2; ++k)
    for (unsigned long long j = 0; j < 3; ++j)
      EXPECT_TRUE(sameElement<T>((*box)(0, j, k), sample<T>(((k + 2) * 3 + j) * 2 + 1)));
}

TYPED_TEST(ElementSourceTest, WithoutDataAndSourceFirstAndLastHaveAValueAllTheSame) {
  using T = TypeParam;
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    const ArrayPtr<N, T> array(new MemArray<N, T>(ChunkPtr(), sampleExtents<N>(), nobody));
    const T first = array->first();
    const T last = array->last();
    EXPECT_TRUE(sameElement<T>(first, last));
    if constexpr (N > 1) {
      const ArrayPtr<N - 1, T> slice(array->getSlice(0, nobody));
      ASSERT_TRUE(slice);
      EXPECT_EQ(slice->data, nullptr);
    }
  });
}

/// A source of planar slices: the components of an element lie a plane apart.
class PlanarSource final : public Tresk::ElementSource<double> {
 public:
  WalkParameters<double> slice(int, unsigned long long index) override {
    WalkParameters<double> walk;
    walk.count = units.size();
    walk.stride = 1;
    walk.span = 6;
    walk.offset = 3 * index;
    walk.data = units.data();
    return walk;
  }
  double* element(unsigned long long) override { return nullptr; }

  std::vector<double> units{1, 2, 3, 4, 5, 6, 10, 20, 30, 40, 50, 60};
};

TEST(PlanarSourceTest, ElementsAreAssembledByTheSpanOfTheSlice) {
  using Pair = Quorvel::FixedArray<double, 2>;
  PlanarSource source;
  WalkParameters<double> walk;
  walk.source = &source;
  const ArrayPtr<2, Pair> array(new MemArray<2, Pair>(walk, MultiIndex<2>(3, 2), ChunkPtr(), nobody));
  const MemArray<2, Pair>& constArray = *array;
  EXPECT_TRUE(constArray(0, 0) == Pair(1.0, 10.0));
  EXPECT_TRUE(constArray(1, 1) == Pair(5.0, 50.0));
  EXPECT_TRUE(array->last() == Pair(6.0, 60.0));
  (*array)(2, 0) = Pair(7.0, 70.0);
  EXPECT_EQ(source.units[2], 7.0);
  EXPECT_EQ(source.units[8], 70.0);
}

}  // namespace
