// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ArrayInterpolator.hpp>
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/RawData.hpp>
#include <tresk/field/UniformCartesianArray.hpp>
#include <tresk/foundation/SaveRegistry.hpp>
#include <tresk/foundation/Vec3Pack.hpp>

#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace Tresk;
using Quorvel::FixedArray;
using Point = Quorvel::PhysicalSpace::point;
using Step = Quorvel::PhysicalSpace::vector;
using Pair = FixedArray<double, 2>;
using Triple = FixedArray<double, 3>;
using Linear = LinearCoordinateAxisArray;
using Explicit = ExplicitCoordinateAxisArray;
using LinearAxis = CoordinateAxisArray<double, Linear>;
using ExplicitAxis = CoordinateAxisArray<double, Explicit>;
using LinearAxisPtr = CoordinateAxisPtr<Linear>;
using ExplicitAxisPtr = CoordinateAxisPtr<Explicit>;
using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;
using GridPtr = Ostrel::StrongPtr<UniformCartesianArray, Ostrel::Cacheable>;
const CreatorWeakPtr nobody;

template <class Array>
using Ptr = Ostrel::StrongPtr<Array, Ostrel::Cacheable>;

std::uint64_t bitsOf(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

/// `double(i) * step + origin` with both results rounded.
double position(unsigned long long i, double step, double origin) {
  const volatile double product = static_cast<double>(i) * step;
  const volatile double sum = product + origin;
  return sum;
}

CreatorPtr someCreator() { return CreatorPtr(new CreativeArray(MemBasePtr(), Ostrel::Cache::MemCache())); }

bool isMadeFor(const MemBasePtr& array, const CreatorPtr& creator) {
  return array && array->getCreator().sameRecord(creator);
}

template <class T, int N>
Ptr<DirectProductMemArray<T, Linear, N>> linearArray(const MultiIndex<N>& size) {
  Ptr<DirectProductMemArray<T, Linear, N>> array(new DirectProductMemArray<T, Linear, N>(nobody));
  for (int c = 0; c < N; ++c) array->setAxis(c, LinearAxisPtr(new LinearAxis(0.1 + c, 0.3 + 0.7 * c, size[c])));
  return array;
}

// ------------------------------------------------------------------------------------- memory form

// What an array adds to its base, in bytes.
static_assert(sizeof(UniformCartesianArray) == sizeof(LinearDirectProductMemArray<Point, Step, 3>));
static_assert(sizeof(LinearDirectProductMemArray<Point, Step, 3>) ==
              sizeof(DirectProductMemArray<Point, Linear, 3>) + sizeof(Point) + sizeof(Step));
static_assert(sizeof(LinearDirectProductMemArray<Pair, Pair, 2>) ==
              sizeof(DirectProductMemArray<Pair, Linear, 2>) + 2 * sizeof(Pair));
static_assert(sizeof(DirectProductMemArray<Point, Linear, 3>) == sizeof(DirectProductMemArray<Triple, Linear, 3>));
static_assert(sizeof(LinearAxis) == sizeof(Ostrel::Chunk<double>) + 8);
static_assert(sizeof(RawData) == sizeof(Ostrel::Interface<RawData>) + sizeof(CreatorPtr));
static_assert(sizeof(VecPacked_10_11_11) == sizeof(RawData) + 2 * sizeof(Triple));
static_assert(sizeof(ArrayInterpolator) == sizeof(Ostrel::InterfaceBase));
// A computing array is copied for a creator, by `copy` or the constructor that takes one, and in no other way.
static_assert(!std::is_copy_constructible_v<DirectProductMemArray<Point, Linear, 3>>);
static_assert(!std::is_copy_constructible_v<UniformCartesianArray>);
static_assert(std::is_abstract_v<ArrayInterpolator> && std::has_virtual_destructor_v<ArrayInterpolator>);

class ComputingArrayTest : public TreskTest::RecordBalanceTest {};

TEST_F(ComputingArrayTest, GridOfAnySizeCostsThreeChunksOfTwoDoubles) {
  const long long before = Ostrel::ChunkBase::TotalMemsize;
  {
    const GridPtr grid(
        new UniformCartesianArray(MultiIndex<3>(1 << 20, 1 << 20, 1 << 20), Point(0, 0, 0), Step(1, 1, 1), nobody));
    EXPECT_EQ(grid->nElements(), 1ULL << 60);
    EXPECT_EQ(grid->memsize(), 0U);
    EXPECT_EQ(Ostrel::ChunkBase::TotalMemsize - before, 48);
    const GridPtr copy(grid->copy(nobody));
    EXPECT_EQ(Ostrel::ChunkBase::TotalMemsize - before, 96);
  }
  EXPECT_EQ(Ostrel::ChunkBase::TotalMemsize, before);
}

TEST_F(ComputingArrayTest, AxesDieWithTheArrayUnlessSomebodyElseHoldsThem) {
  Ostrel::WeakPtr<LinearAxis, Ostrel::ChunkBase> observer;
  LinearAxisPtr held;
  {
    const GridPtr grid(new UniformCartesianArray({2, 2, 2}, Point(0, 0, 0), Step(1, 1, 1), nobody));
    EXPECT_EQ(grid->getAxis(0).strongCount(), 1);
    observer = grid->getAxis(0);
    held = grid->getAxis(1);
  }
  EXPECT_FALSE(observer);
  EXPECT_EQ(held.strongCount(), 1);
  EXPECT_EQ(held->nPositions(), 2U);
}

TEST_F(ComputingArrayTest, OriginAndDeltaAreFieldsOfTheObjectOneAfterTheOther) {
  const GridPtr grid(new UniformCartesianArray({2, 2, 2}, Point(1, 2, 3), Step(4, 5, 6), nobody));
  const GridPtr copy(grid->copy(nobody));
  for (const GridPtr& array : {grid, copy}) {
    const auto object = reinterpret_cast<std::uintptr_t>(array.get());
    const auto origin = reinterpret_cast<std::uintptr_t>(array->getOrigin());
    EXPECT_GT(origin, object);
    EXPECT_LT(origin, object + sizeof(UniformCartesianArray));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(array->getDelta()), origin + sizeof(Point));
    EXPECT_EQ(array->getOrigin(), array->getOrigin());
  }
}

// ------------------------------------------------------------------------------------- computing forms

TEST_F(ComputingArrayTest, ArraysMadeFromAnArrayBelongToTheGivenCreator) {
  const CreatorPtr ofArray = someCreator();
  const CreatorPtr other = someCreator();
  const MultiIndex<3> size(2, 3, 4);
  const GridPtr grid(new UniformCartesianArray(size, Point(0, 0, 0), Step(1, 1, 1), ofArray));
  const GridPtr cornered(new UniformCartesianArray(Point(0, 0, 0), size, Point(1, 1, 1), ofArray));
  const Ostrel::StrongPtr<Quorvel::BoundingBox, Ostrel::InterfaceBase> box = grid->getBoundingBox();
  const GridPtr boxed(new UniformCartesianArray(*box, size, ofArray));
  const Ptr<LinearDirectProductMemArray<Triple, Triple, 3>> linear(
      new LinearDirectProductMemArray<Triple, Triple, 3>(size, Triple(0, 0, 0), Triple(1, 1, 1), ofArray));
  const Ptr<DirectProductMemArray<Triple, Explicit, 3>> listed(new DirectProductMemArray<Triple, Explicit, 3>(ofArray));
  for (int c = 0; c < 3; ++c) listed->setAxis(c, ExplicitAxisPtr(new ExplicitAxis(std::vector<double>(size[c]))));
  for (const MemBasePtr& array :
       {MemBasePtr(grid), MemBasePtr(cornered), MemBasePtr(boxed), MemBasePtr(linear), MemBasePtr(listed)}) {
    EXPECT_TRUE(isMadeFor(array, ofArray));
    EXPECT_TRUE(isMadeFor(array->copy(other), other));
    EXPECT_TRUE(isMadeFor(array->makeExplicit(other), other));
    EXPECT_FALSE(array->copy(nobody)->getCreator());
  }
  const ChunkPtr chunk(new Ostrel::Chunk<Point>(24));
  EXPECT_TRUE(isMadeFor(grid->createOnChunk(chunk, other), other));
}

TEST_F(ComputingArrayTest, CopyKeepsTypeRankAndSizeOfItsSource) {
  const GridPtr grid(new UniformCartesianArray({2, 3, 4}, Point(0, 0, 0), Step(1, 1, 1), nobody));
  const MemBasePtr copy = grid->copy(nobody);
  EXPECT_EQ(copy->getTreskTypeIndex(), grid->getTreskTypeIndex());
  EXPECT_EQ(copy->getElementType(), typeid(Point));
  EXPECT_EQ(copy->rank(), 3);
  EXPECT_EQ(copy->getSize().str(), "2x3x4");
  const MemBase& object = *copy;
  EXPECT_EQ(typeid(object), typeid(UniformCartesianArray));
  EXPECT_EQ(copy->makeExplicit(nobody)->getTreskTypeIndex(), grid->getTreskTypeIndex());
}

TEST_F(ComputingArrayTest, CopyIsDetachedFromLaterChangesOfTheSource) {
  const GridPtr grid(new UniformCartesianArray({2, 3, 4}, Point(0, 0, 0), Step(1, 1, 1), nobody));
  const GridPtr copy(grid->copy(nobody));
  grid->getAxis(0)->vector()[1] = 100.0;
  grid->setAxisMap(1, 7);
  EXPECT_EQ(copy->last(), Point(1, 2, 3));
  EXPECT_EQ(copy->getSize().str(), "2x3x4");
}

TEST_F(ComputingArrayTest, CoordinatesComeFromTheAxesAndNotFromOriginAndDelta) {
  const GridPtr grid(new UniformCartesianArray({3, 1, 1}, Point(0, 0, 0), Step(1, 1, 1), nobody));
  grid->getAxis(0)->vector() = {10.0, 5.0};
  EXPECT_EQ(grid->last(), Point(20, 0, 0));
  EXPECT_EQ(grid->getOrigin()[0], 0.0);
  EXPECT_EQ(Point((*grid->getBoundingBox())[0]), Point(10, 0, 0));
  EXPECT_EQ(grid->getElementString(2), "{20,0,0}");
}

TEST_F(ComputingArrayTest, OneAxisCanServeSeveralComponentsAndArrays) {
  const ExplicitAxisPtr axis(new ExplicitAxis({2.0, 3.0, 5.0}));
  const Ptr<DirectProductMemArray<Pair, Explicit, 2>> array(new DirectProductMemArray<Pair, Explicit, 2>(nobody));
  array->setAxis(0, axis);
  array->setAxis(1, axis);
  const Ptr<MemArray<2, Pair>> points(array->makeExplicit(nobody));
  for (unsigned long long j = 0; j < 3; ++j)
    for (unsigned long long i = 0; i < 3; ++i)
      EXPECT_EQ((*points)(i, j), Pair(axis->getPosition(i), axis->getPosition(j)));
  const Ptr<DirectProductMemArray<Pair, Explicit, 2>> copy(array->copy(nobody));
  EXPECT_FALSE(copy->getAxis(0).sameRecord(copy->getAxis(1)));
  axis->vector().push_back(7.0);
  EXPECT_EQ(array->getSize().str(), "4x4") << "the extent is the number of values";
  EXPECT_EQ(copy->getSize().str(), "3x3");
  axis->vector().pop_back();
}

TEST_F(ComputingArrayTest, ComponentWithoutAnAxisOrADimensionIsZero) {
  // Component 1 has no axis and no dimension runs along it; component 2 has an axis that no dimension uses.
  const Ptr<DirectProductMemArray<Triple, Linear, 3>> array(new DirectProductMemArray<Triple, Linear, 3>(nobody));
  array->setAxis(0, LinearAxisPtr(new LinearAxis(5.0, 1.0, 3)));
  array->setAxis(2, LinearAxisPtr(new LinearAxis(9.0, 1.0, 4)));
  array->setAxisMap(0, 3);
  array->setAxisMap(1, 0);
  array->setAxisMap(2, ~0U);
  EXPECT_EQ(array->getSize().str(), "1x3x1");
  EXPECT_EQ(array->nElements(), 3U);
  EXPECT_EQ(array->first(), Triple(5, 0, 0));
  EXPECT_EQ(array->last(), Triple(7, 0, 0));
  EXPECT_EQ(array->getElementString(1), "{6,0,0}");
  const MemBasePtr points = array->makeExplicit(nobody);
  for (unsigned long long i = 0; i < 3; ++i) EXPECT_EQ(points->getElementString(i), array->getElementString(i));
  const MemBasePtr copyOfPoints = array->copy(nobody)->makeExplicit(nobody);
  EXPECT_EQ(copyOfPoints->getElementString(2), "{7,0,0}");
}

TEST_F(ComputingArrayTest, ArrayWithoutAnyMappedAxisIsOnePointAtTheOrigin) {
  const Ptr<DirectProductMemArray<Pair, Explicit, 2>> array(new DirectProductMemArray<Pair, Explicit, 2>(nobody));
  array->setAxisMap(0, 2);
  array->setAxisMap(1, 2);
  EXPECT_EQ(array->getSize().str(), "1x1");
  EXPECT_EQ(array->getElementString(0), "{0,0}");
  EXPECT_EQ(array->makeExplicit(nobody)->getElementString(0), "{0,0}");
}

TEST_F(ComputingArrayTest, ComputedCoordinateIgnoresExtents) {
  const auto array = linearArray<Triple, 3>({2, 2, 2});
  Triple tuple(0, 0, 0);
  array->computeCoordinate(MultiIndex<3>(~0ULL, 1ULL << 63, 5), tuple);
  EXPECT_EQ(bitsOf(tuple[0]), bitsOf(position(~0ULL, (*array->getAxis(0))[1], (*array->getAxis(0))[0])));
  EXPECT_EQ(bitsOf(tuple[1]), bitsOf(position(1ULL << 63, (*array->getAxis(1))[1], (*array->getAxis(1))[0])));
  EXPECT_EQ(bitsOf(tuple[2]), bitsOf(position(5, (*array->getAxis(2))[1], (*array->getAxis(2))[0])));
}

TEST_F(ComputingArrayTest, ZerosAndInfinitiesGoThroughProductAndSum) {
  const double infinity = std::numeric_limits<double>::infinity();
  const Ptr<DirectProductMemArray<Triple, Linear, 3>> array(new DirectProductMemArray<Triple, Linear, 3>(nobody));
  array->setAxis(0, LinearAxisPtr(new LinearAxis(-0.0, -1.0, 2)));     // 0 * -1 + -0 is -0
  array->setAxis(1, LinearAxisPtr(new LinearAxis(-0.0, 1.0, 1)));      // 0 * 1 + -0 is +0
  array->setAxis(2, LinearAxisPtr(new LinearAxis(1.0, infinity, 2)));  // 0 * infinity is not a number
  const Ptr<MemArray<3, Triple>> points(array->makeExplicit(nobody));
  for (const Triple& point : {array->first(), points->first()}) {
    EXPECT_EQ(bitsOf(point[0]), bitsOf(-0.0));
    EXPECT_EQ(bitsOf(point[1]), bitsOf(0.0));
    EXPECT_TRUE(std::isnan(point[2]));
  }
  EXPECT_EQ(points->last()[2], infinity);
}

TEST_F(ComputingArrayTest, ElementStringNeedsNoProductOfExtentsThatFits64Bits) {
  // 2^32 times 2^32 points: no extent is zero, though their product is, modulo 2^64.
  const Ptr<LinearDirectProductMemArray<Pair, Pair, 2>> array(new LinearDirectProductMemArray<Pair, Pair, 2>(
      MultiIndex<2>(1ULL << 32, 1ULL << 32), Pair(0, 0), Pair(1, 1), nobody));
  EXPECT_EQ(array->getElementString(5), "{5,0}");
  EXPECT_EQ(array->getElementString((7ULL << 32) + 3), "{3,7}");
}

TEST_F(ComputingArrayTest, CreateOnChunkTestsTheElementCountAlone) {
  const auto array = linearArray<Point, 3>({2, 3, 2});
  const MemBasePtr foreign = array->createOnChunk(ChunkPtr(new Ostrel::Chunk<double>(12)), nobody);
  ASSERT_TRUE(foreign);
  EXPECT_EQ(foreign->getElementType(), typeid(Point));
  EXPECT_EQ(foreign->nElements(), 12U);
  EXPECT_FALSE(foreign->getChunk());
  EXPECT_EQ(foreign->getDataPointer(), nullptr);

  const auto empty = linearArray<Point, 3>({2, 0, 2});
  EXPECT_TRUE(empty->createOnChunk(ChunkPtr(new Ostrel::Chunk<Point>(0)), nobody));
  EXPECT_FALSE(empty->createOnChunk(ChunkPtr(), nobody)) << "no chunk, although its count would be right";
}

TEST_F(ComputingArrayTest, EmptyWalksAreOnePerKindOfArray) {
  const auto plane = linearArray<Pair, 2>({2, 2});
  const auto space = linearArray<Triple, 3>({2, 2, 2});
  const Ptr<DirectProductMemArray<Triple, Explicit, 3>> listed(new DirectProductMemArray<Triple, Explicit, 3>(nobody));
  EXPECT_NE(&plane->getHyperslab(), &space->getHyperslab());
  EXPECT_NE(&listed->getHyperslab(), &space->getHyperslab());
  EXPECT_EQ(listed->getHyperslab().nElements(), 0U);
}

TEST_F(ComputingArrayTest, IsFoundAsTypedArrayAndAsArrayOfItsRank) {
  const MemBasePtr grid(new UniformCartesianArray({2, 3, 4}, Point(0, 0, 0), Step(1, 1, 1), nobody));
  const auto* typed = dynamic_cast<const TypedArray<Point>*>(grid.get());
  ASSERT_NE(typed, nullptr);
  EXPECT_EQ(typed->last(), Point(1, 2, 3));
  EXPECT_FALSE(typed->getChunk());
  const auto* ranked = dynamic_cast<const MemArrayBase<3>*>(grid.get());
  ASSERT_NE(ranked, nullptr);
  EXPECT_EQ(ranked->getIndexSize(), MultiIndex<3>(2, 3, 4));
  EXPECT_EQ(dynamic_cast<const TypedArray<Triple>*>(grid.get()), nullptr);
  EXPECT_FALSE(ranked->createArray(MultiIndex<3>(1, 1, 1), nobody));
  const DynamicSize size = linearArray<Pair, 2>({1, 1})->getSize();
  EXPECT_FALSE(grid->createSubArray(size, size, nobody)) << "also for a size of another rank";
}

TEST_F(ComputingArrayTest, ManyThreadsMayReadOneArray) {
  const auto array = linearArray<Triple, 3>({7, 5, 3});
  std::vector<int> nWrong(4, -1);
  std::vector<std::thread> threads;
  threads.reserve(nWrong.size());
  for (int& wrong : nWrong) {
    threads.emplace_back([&array, &wrong] {
      int count = array->getHyperslab().nElements() == 0 && std::as_const(*array).getIterator().data == nullptr ? 0 : 1;
      for (unsigned long long k = 0; k < 3; ++k) {
        Triple tuple(0, 0, 0);
        array->computeCoordinate(MultiIndex<3>(1ULL, 2ULL, k), tuple);
        if (bitsOf(tuple[2]) != bitsOf(position(k, (*array->getAxis(2))[1], (*array->getAxis(2))[0]))) ++count;
      }
      if (array->makeExplicit(nobody)->getElementString(104) != array->getElementString(104)) ++count;
      wrong = count;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(nWrong, std::vector<int>(4, 0));
}

// ------------------------------------------------------------------------------------- blocks in memory

/// Counts the coordinates of `array` that its explicit form does not hold, on positions that the test computes.
template <int N>
unsigned long long countWrongCoordinates(const DirectProductMemArray<FixedArray<double, N>, Linear, N>& array) {
  std::vector<double> positions[N];
  int dimensionOf[N];
  std::fill_n(dimensionOf, N, -1);
  for (int d = 0; d < N; ++d) {
    const unsigned int c = array.getAxisMap(d);
    if (c >= static_cast<unsigned int>(N)) continue;
    dimensionOf[c] = d;
    const LinearAxis& axis = *array.getAxis(static_cast<int>(c));
    positions[c].clear();
    for (unsigned long long i = 0; i < axis.nPositions(); ++i) positions[c].push_back(position(i, axis[1], axis[0]));
  }
  const MultiIndex<N> size = array.getIndexSize();
  const MemBasePtr points = array.makeExplicit(nobody);
  const auto* stored = static_cast<const double*>(points->getDataPointer());
  unsigned long long nWrong = 0;
  MultiIndex<N> index;
  for (unsigned long long e = 0; e < size.nElements(); ++e) {
    for (int c = 0; c < N; ++c) {
      const double expected = dimensionOf[c] < 0 ? 0.0 : positions[c][index[dimensionOf[c]]];
      if (bitsOf(*stored++) != bitsOf(expected)) ++nWrong;
    }
    for (int d = 0; d < N; ++d) {
      if (++index[d] < size[d]) break;
      index[d] = 0;
    }
  }
  return nWrong;
}

/// Bytes of the last cache of this machine, at most 32 MiB, above which blocks are written past the caches.
unsigned long long lastCacheBytes() {
  constexpr unsigned long long Largest = 32ULL << 20;
  const long bytes = sysconf(_SC_LEVEL3_CACHE_SIZE);
  return bytes > 0 ? std::min(static_cast<unsigned long long>(bytes), Largest) : Largest;
}

/// The number of rows of `rowBytes` that fill the last cache of this machine.
unsigned long long nRowsBeyondTheCache(unsigned long long rowBytes) { return lastCacheBytes() / rowBytes + 1; }

TEST_F(ComputingArrayTest, TriplesBeyondTheLastCacheAreWrittenBitForBitAtEveryRowLength) {
  // Rows of odd length begin at both alignments of a pair of doubles; a row of one point is never two points long.
  for (const unsigned long long n : {4001ULL, 3ULL, 1ULL}) {
    const unsigned long long nRows = nRowsBeyondTheCache(n * sizeof(Triple));
    const auto array = linearArray<Triple, 3>(MultiIndex<3>(n, 7ULL, nRows / 7 + 1));
    EXPECT_EQ(countWrongCoordinates<3>(*array), 0U) << "rows of " << n;
  }
}

TEST_F(ComputingArrayTest, TriplesBeyondTheLastCacheAreWrittenBitForBitAlongEveryComponent) {
  const unsigned long long nRows = nRowsBeyondTheCache(4001 * sizeof(Triple));
  for (const unsigned int varying : {1U, 2U}) {
    // Dimension 0 runs along component `varying`, dimension 1 along no component.
    auto array = linearArray<Triple, 3>(varying == 1 ? MultiIndex<3>(nRows, 4001ULL, 1ULL)
                                                     : MultiIndex<3>(nRows, 1ULL, 4001ULL));
    array->setAxisMap(0, varying);
    array->setAxisMap(1, 7);
    array->setAxisMap(2, 0);
    EXPECT_EQ(countWrongCoordinates<3>(*array), 0U) << "component " << varying;
  }
}

TEST_F(ComputingArrayTest, RowsOfEqualPointsBeyondTheLastCacheAreWrittenBitForBit) {
  // Both dimensions run along component 0, so that the second one counts and the points of a row are equal.
  unsigned long long n = 1001;
  while (n * n * sizeof(Pair) < lastCacheBytes()) n += 100;
  const auto plane = linearArray<Pair, 2>(MultiIndex<2>(n, 3ULL));
  plane->setAxisMap(1, 0);
  EXPECT_EQ(plane->nElements(), n * n);
  EXPECT_EQ(countWrongCoordinates<2>(*plane), 0U);
}

TEST_F(ComputingArrayTest, RowsOfEqualTriplesBeyondTheLastCacheAreWrittenBitForBit) {
  unsigned long long n = 1001;
  while (n * n * sizeof(Triple) < lastCacheBytes()) n += 100;
  const auto array = linearArray<Triple, 3>(MultiIndex<3>(n, 3ULL, 1ULL));
  array->setAxisMap(1, 0);
  EXPECT_EQ(array->nElements(), n * n);
  EXPECT_EQ(countWrongCoordinates<3>(*array), 0U);
}

TEST_F(ComputingArrayTest, RowsOfASmallPlaneMayRunAlongTheSecondComponent) {
  const auto plane = linearArray<Pair, 2>(MultiIndex<2>(5ULL, 3ULL));
  plane->setAxisMap(0, 1);
  plane->setAxisMap(1, 0);
  EXPECT_EQ(plane->nElements(), 15U);
  EXPECT_EQ(countWrongCoordinates<2>(*plane), 0U);
}

TEST_F(ComputingArrayTest, PairsThatJustFillTheLastCacheAreWrittenBitForBit) {
  const unsigned long long nPoints = lastCacheBytes() / sizeof(Pair);
  unsigned long long n = 1;
  while (n < 4096 && nPoints % (2 * n) == 0) n *= 2;
  const auto plane = linearArray<Pair, 2>(MultiIndex<2>(n, nPoints / n));
  EXPECT_EQ(countWrongCoordinates<2>(*plane), 0U) << n << " points a row";
  plane->setAxisMap(0, 1);
  plane->setAxisMap(1, 0);
  EXPECT_EQ(countWrongCoordinates<2>(*plane), 0U) << "rows along component 1";
}

// ------------------------------------------------------------------------------------- uniform grids

TEST_F(ComputingArrayTest, StepIsTheRoundedDiagonalDividedByTheSizeLessOne) {
  std::mt19937_64 random(3);
  std::uniform_real_distribution<double> uniform(-1e3, 1e3);
  for (int round = 0; round < 1000; ++round) {
    const Point low(uniform(random), uniform(random), uniform(random));
    const Point high(uniform(random), uniform(random), uniform(random));
    const MultiIndex<3> size(random() >> (random() % 64), random() % 4, 2 + random() % 1000);
    const GridPtr grid(new UniformCartesianArray(low, size, high, nobody));
    const Point last = grid->last();
    for (int c = 0; c < 3; ++c) {
      const volatile double diagonal = high[c] - low[c];
      const volatile double step = size[c] > 1 ? diagonal / static_cast<double>(size[c] - 1) : diagonal;
      ASSERT_EQ(bitsOf(grid->getDelta()[c]), bitsOf(step)) << size[c];
      ASSERT_EQ(bitsOf(last[c]), bitsOf(position(size[c] > 1 ? size[c] - 1 : 0, step, low[c]))) << size[c];
    }
    const auto box = grid->getBoundingBox();
    EXPECT_EQ((*box)[0], grid->first());
    EXPECT_EQ((*box)[1], last) << "as computed, and not the corner that was given";
  }
}

TEST_F(ComputingArrayTest, CornersOfTwoPointsAlongEachAxisAreBothInTheGrid) {
  const GridPtr grid(new UniformCartesianArray(Point(1, 2, 3), {2, 2, 2}, Point(1.5, 8, -3), nobody));
  EXPECT_EQ(grid->first(), Point(1, 2, 3));
  EXPECT_EQ(grid->last(), Point(1.5, 8, -3));
}

TEST_F(ComputingArrayTest, ExtentOfZeroKeepsTheWholeDiagonalAsItsStep) {
  const GridPtr grid(new UniformCartesianArray(Point(1, 1, 1), {0, 0, 0}, Point(2, 4, 8), nobody));
  EXPECT_EQ(grid->getDelta()[0], 1.0);
  EXPECT_EQ(grid->getDelta()[1], 3.0);
  EXPECT_EQ(grid->getDelta()[2], 7.0);
  EXPECT_EQ(grid->last(), Point(1, 1, 1));
  EXPECT_EQ((*grid->getBoundingBox())[1], Point(1, 1, 1));
  EXPECT_EQ(grid->makeExplicit(nobody)->nElements(), 0U);
  EXPECT_EQ(grid->copy(nobody)->getSize().str(), "0x0x0");
}

TEST_F(ComputingArrayTest, BoundingBoxIsANewObjectOnEachCall) {
  const GridPtr grid(new UniformCartesianArray({2, 2, 2}, Point(0, 0, 0), Step(1, 1, 1), nobody));
  const auto first = grid->getBoundingBox();
  const auto second = grid->getBoundingBox();
  EXPECT_FALSE(first.sameRecord(second));
  EXPECT_EQ(first.strongCount(), 1);
}

// ------------------------------------------------------------------------------------- deferred constructor

/// Notes the sizes of the arrays that it is offered.
template <class T>
struct Witness : Ostrel::SaveInterfaceCreator<T> {
  long long createInterface(T* object) override {
    sizes.push_back(object->getSize().str());
    return 0;
  }
  std::vector<std::string> sizes;
};

TEST_F(ComputingArrayTest, EveryFinishedArrayIsOfferedOnceToTheSaversOfItsBase) {
  using Base = DirectProductMemArrayBase<Triple, Linear, 3>;
  using ListedBase = DirectProductMemArrayBase<Triple, Explicit, 3>;
  const Ostrel::StrongPtr<Witness<Base>, Ostrel::SaveInterfaceCreatorBase> ofBase(new Witness<Base>);
  const Ostrel::StrongPtr<Witness<ListedBase>, Ostrel::SaveInterfaceCreatorBase> ofListed(new Witness<ListedBase>);
  const Ostrel::StrongPtr<Witness<MemBase>, Ostrel::SaveInterfaceCreatorBase> ofArrays(new Witness<MemBase>);
  ASSERT_TRUE(Ostrel::SaveRegistryBase::registerCreator(typeid(Base), ofBase));
  ASSERT_TRUE(Ostrel::SaveRegistryBase::registerCreator(typeid(ListedBase), ofListed));
  ASSERT_TRUE(Ostrel::SaveRegistryBase::registerCreator(typeid(MemBase), ofArrays));
  {
    const GridPtr grid(new UniformCartesianArray({2, 3, 4}, Point(0, 0, 0), Step(1, 1, 1), nobody));
    const MemBasePtr again = grid;
    EXPECT_EQ(ofBase->sizes, std::vector<std::string>{"2x3x4"});
    const MemBasePtr copy = grid->copy(nobody);
    EXPECT_EQ(ofBase->sizes, (std::vector<std::string>{"2x3x4", "2x3x4"})) << "the copy, with its axes in place";
    EXPECT_TRUE(ofArrays->sizes.empty());
    const MemBasePtr points = grid->makeExplicit(nobody);
    EXPECT_EQ(ofArrays->sizes, std::vector<std::string>{"2x3x4"}) << "the explicit form is a plain array";
    EXPECT_EQ(ofBase->sizes.size(), 2U);
    const MemBasePtr listed(new DirectProductMemArray<Point, Explicit, 3>(nobody));
    EXPECT_EQ(ofListed->sizes.size(), 1U);
    EXPECT_EQ(ofBase->sizes.size(), 2U);
  }
  EXPECT_TRUE(Ostrel::SaveRegistryBase::unregisterCreator(typeid(Base), ofBase));
  EXPECT_TRUE(Ostrel::SaveRegistryBase::unregisterCreator(typeid(ListedBase), ofListed));
  EXPECT_TRUE(Ostrel::SaveRegistryBase::unregisterCreator(typeid(MemBase), ofArrays));
}

// ------------------------------------------------------------------------------------- interpolators

struct Nearest : ArrayInterpolator {};

/// Stands under the key of interpolators without being one.
struct Impostor : Ostrel::InterfaceBase {
  const std::type_info& getInterfaceType() const override { return typeid(ArrayInterpolator); }
};

template <class Array>
void expectCarriesInterpolator(const Ptr<Array>& array) {
  EXPECT_EQ(array->getInterpolator().getRecord(), nullptr);
  const Ostrel::StrongPtr<Nearest, Ostrel::InterfaceBase> nearest(new Nearest);
  EXPECT_EQ(nearest->getInterfaceType(), typeid(ArrayInterpolator));
  array->addInterface(nearest);
  const Array& constant = *array;
  EXPECT_EQ(constant.getInterpolator().get(), nearest.get());
  EXPECT_TRUE(constant.getInterpolator().sameRecord(nearest));
  EXPECT_EQ(nearest.strongCount(), 2) << "this pointer and the array";
}

TEST_F(ComputingArrayTest, ArraysOfEveryRankAndFormCarryInterpolators) {
  expectCarriesInterpolator(Ptr<MemArray<1, double>>(new MemArray<1, double>({2}, nobody)));
  expectCarriesInterpolator(Ptr<MemArray<2, double>>(new MemArray<2, double>({2, 2}, nobody)));
  expectCarriesInterpolator(Ptr<MemArray<3, double>>(new MemArray<3, double>({2, 2, 2}, nobody)));
  expectCarriesInterpolator(Ptr<MemArray<4, double>>(new MemArray<4, double>({2, 2, 2, 2}, nobody)));
  expectCarriesInterpolator(linearArray<Pair, 2>({2, 2}));
  expectCarriesInterpolator(GridPtr(new UniformCartesianArray({2, 2, 2}, Point(0, 0, 0), Step(1, 1, 1), nobody)));
}

TEST_F(ComputingArrayTest, InterpolatorsStayWithTheArrayThatCarriesThem) {
  const auto array = linearArray<Pair, 2>({2, 2});
  array->addInterface(Ostrel::StrongPtr<Nearest, Ostrel::InterfaceBase>(new Nearest));
  const Ptr<MemArrayBase<2>> copy(array->copy(nobody));
  ASSERT_TRUE(copy);
  EXPECT_FALSE(copy->getInterpolator()) << "a copy is a new object that carries nothing";
}

TEST_F(ComputingArrayTest, InterfaceUnderTheKeyOfInterpolatorsThatIsNoneGivesNoObject) {
  const auto array = linearArray<Pair, 2>({2, 2});
  const Ostrel::StrongPtr<Impostor, Ostrel::InterfaceBase> impostor(new Impostor);
  array->addInterface(impostor);
  const auto found = array->getInterpolator();
  EXPECT_FALSE(found);
  EXPECT_EQ(found.get(), nullptr);
  EXPECT_TRUE(found.sameRecord(impostor)) << "the record is that of the interface";
}

// ------------------------------------------------------------------------------------- packed vectors

using Vectors = Ostrel::StrongPtr<Ostrel::TypedChunkBase<Triple>, Ostrel::ChunkBase>;
using Packed = Ostrel::StrongPtr<Ostrel::TypedChunkBase<unsigned int>, Ostrel::ChunkBase>;

TEST_F(ComputingArrayTest, RawDataAndPackedVectorsReportTheTypeOfRawData) {
  const Ostrel::StrongPtr<RawData, Ostrel::InterfaceBase> raw(new RawData(CreatorPtr()));
  const Ostrel::StrongPtr<RawData, Ostrel::InterfaceBase> packed(
      new VecPacked_10_11_11(CreatorPtr(), Triple(0, 0, 0), Triple(1, 1, 1)));
  EXPECT_EQ(raw->getInterfaceType(), typeid(RawData));
  EXPECT_EQ(packed->getInterfaceType(), typeid(RawData));
  EXPECT_FALSE(raw->getCreator()) << "raw data of nobody";
}

TEST_F(ComputingArrayTest, PackedVectorsKeepTheirCreatorAliveAndLetItGo) {
  CreatorPtr creator = someCreator();
  const CreatorWeakPtr observer(creator);
  {
    const Ostrel::StrongPtr<VecPacked_10_11_11, Ostrel::InterfaceBase> packed(
        new VecPacked_10_11_11(creator, Triple(0, 0, 0), Triple(1, 1, 1)));
    EXPECT_NE(packed->getCreator().getPointerID(), creator.getPointerID()) << "a pointer of its own";
    creator.reset();
    EXPECT_EQ(observer.strongCount(), 1);
  }
  EXPECT_FALSE(observer);
}

TEST_F(ComputingArrayTest, PackedChunkBelongsToTheCallerAlone) {
  const Vectors vectors(new Ostrel::Chunk<Triple>(3));
  for (Triple& vector : vectors->vector()) vector = Triple(0.5, 2.0, -1.0);
  Packed first;
  {
    VecPacked_10_11_11* const packer = new VecPacked_10_11_11(CreatorPtr(), Triple(0, 0, 0), Triple(1, 1, 1));
    const Ostrel::StrongPtr<VecPacked_10_11_11, Ostrel::InterfaceBase> holder(packer);
    first = packer->pack(vectors);
    const Packed second(packer->pack(vectors));
    first->vector()[0] = 7;
    EXPECT_EQ(second->vector()[0], second->vector()[1]) << "writing to one leaves the other";
    EXPECT_EQ(packer->getUpperBound(), Triple(1, 1, 1));
  }
  ASSERT_TRUE(first) << "beyond the life of the packer";
  EXPECT_EQ(first.strongCount(), 1);
  EXPECT_EQ(first->size(), 3U);
  EXPECT_EQ(first->vector()[1], 512U | 2047U << 10);
  EXPECT_EQ(vectors.strongCount(), 1);
}

TEST_F(ComputingArrayTest, PackingAChunkThatHoldsNoVectorsGivesAnEmptyChunk) {
  const Vectors numbers(ChunkPtr(new Ostrel::Chunk<double>(6)));
  const Ostrel::StrongPtr<VecPacked_10_11_11, Ostrel::InterfaceBase> packer(
      new VecPacked_10_11_11(CreatorPtr(), Triple(0, 0, 0), Triple(1, 1, 1)));
  for (const Vectors& vectors : {Vectors(), numbers}) {
    const ChunkPtr packed = packer->pack(vectors);
    ASSERT_TRUE(packed);
    EXPECT_EQ(packed->size(), 0U);
  }
}

TEST_F(ComputingArrayTest, VectorsAtTheEndsOfTheNumberRangeComeBackWithinHalfAStep) {
  const double least = std::numeric_limits<double>::denorm_min();
  const double normal = std::numeric_limits<double>::min();
  const std::pair<double, double> ranges[] = {
      {0.0, least},   {-least, least}, {0.0, 3 * least},  {-normal, normal},  {-8e307, 8e307},
      {0.0, 1.7e308}, {-1.7e308, 0.0}, {-1.7e308, 5e306}, {1.0, 1.0 + 1e-15}, {-1e16, -1e16 + 4}};
  std::mt19937 random(31);
  std::uniform_real_distribution<double> unit(0, 1);
  const double greatest[3] = {1023, 2047, 2047};
  for (const auto& [lower, upper] : ranges) {
    const Triple low(lower, lower, lower);
    const Triple high(upper, upper, upper);
    const Vectors vectors(new Ostrel::Chunk<Triple>(100));
    for (Triple& vector : vectors->vector())
      for (int c = 0; c < 3; ++c) vector[c] = std::clamp(lower + unit(random) * (upper - lower), lower, upper);
    vectors->vector()[0] = low;
    vectors->vector()[1] = high;
    const Quorvel::Vec3Pack_10_11_11 pack(vectors, low, high);
    EXPECT_EQ(pack.getPacked()->vector()[0], 0U);
    EXPECT_EQ(pack.getPacked()->vector()[1], ~0U);
    for (std::size_t i = 0; i < 100; ++i) {
      const Triple back = Quorvel::Vec3Pack_10_11_11::unpack(pack.getPacked()->vector()[i], low, high);
      for (int c = 0; c < 3; ++c) {
        const double rounding = 4 * least + 4 * std::numeric_limits<double>::epsilon() *
                                                std::max({std::abs(lower), std::abs(upper), upper - lower});
        EXPECT_LE(std::abs(back[c] - vectors->vector()[i][c]), (upper - lower) / (2 * greatest[c]) + rounding)
            << lower << " to " << upper;
      }
    }
  }
}

// ------------------------------------------------------------------------------------- axes without positions

TEST_F(ComputingArrayTest, CornersOfAnArrayWithAnAxisThatListsNothingAreZeroThere) {
  const Ptr<DirectProductMemArray<Pair, Explicit, 2>> array(new DirectProductMemArray<Pair, Explicit, 2>(nobody));
  array->setAxis(0, ExplicitAxisPtr(new ExplicitAxis({})));
  array->setAxis(1, ExplicitAxisPtr(new ExplicitAxis({3.0, 4.0})));
  EXPECT_EQ(array->getSize().str(), "0x2");
  EXPECT_EQ(array->getElementString(0), "");
  EXPECT_EQ(array->makeExplicit(nobody)->nElements(), 0U);
  EXPECT_EQ(array->copy(nobody)->getSize().str(), "0x2");
  EXPECT_EQ(array->first(), Pair(0, 3)) << "there is no position to read";
  EXPECT_EQ(array->last(), Pair(0, 4)) << "there is no position to read";
}

}  // namespace
