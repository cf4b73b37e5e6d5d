// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/DirectProductMemArray.hpp>

#include <tresk/field/TreskType.hpp>
#include <tresk/foundation/SaveRegistry.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <set>
#include <type_traits>

namespace {

using namespace Tresk;
using Quorvel::FixedArray;
using Point = Quorvel::PhysicalSpace::point;
using Linear = LinearCoordinateAxisArray;
using Explicit = ExplicitCoordinateAxisArray;
using LinearAxis = CoordinateAxisArray<double, Linear>;
using ExplicitAxis = CoordinateAxisArray<double, Explicit>;
using LinearAxisPtr = CoordinateAxisPtr<Linear>;
using ExplicitAxisPtr = CoordinateAxisPtr<Explicit>;
const CreatorWeakPtr nobody;

template <class Array>
using Ptr = Ostrel::StrongPtr<Array, Ostrel::Cacheable>;

template <class T, int N>
Ptr<DirectProductMemArray<T, Linear, N>> linearArray(const MultiIndex<N>& size, double origin = 1.0,
                                                     double step = 0.5) {
  Ptr<DirectProductMemArray<T, Linear, N>> array(new DirectProductMemArray<T, Linear, N>(nobody));
  for (int c = 0; c < N; ++c) array->setAxis(c, LinearAxisPtr(new LinearAxis(origin + c, step + c, size[c])));
  return array;
}

/// The bits of a double, so that equal means equal to the last one, also for zeros and infinities.
std::uint64_t bitsOf(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

/// Compares every point of `explicitArray` with the computed one.
template <class T, class Kind, int N>
void expectSamePoints(const DirectProductMemArray<T, Kind, N>& array, const MemBasePtr& explicitArray) {
  const Ptr<MemArray<N, T>> typed(explicitArray);
  ASSERT_TRUE(typed);
  ASSERT_EQ(typed->getIndexSize(), array.getIndexSize());
  const MultiIndex<N> size = array.getIndexSize();
  MultiIndex<N> index;
  for (unsigned long long e = 0; e < size.nElements(); ++e) {
    FixedArray<double, N> expected;
    for (int c = 0; c < N; ++c) expected[c] = 0.0;
    array.computeCoordinate(index, expected);
    const T stored = (*typed)[index];
    for (int c = 0; c < N; ++c)
      ASSERT_EQ(bitsOf(stored[c]), bitsOf(expected[c])) << "point " << e << " component " << c;
    for (int d = 0; d < N; ++d) {
      if (++index[d] < size[d]) break;
      index[d] = 0;
    }
  }
}

TEST(CoordinateAxisTest, LinearAxisHoldsOriginAndStepWhateverItsLength) {
  const long long before = Ostrel::ChunkBase::TotalMemsize;
  {
    const LinearAxisPtr axis(new LinearAxis(2.0, 0.25, 1000000));
    EXPECT_EQ(Ostrel::ChunkBase::TotalMemsize - before, 16);
    EXPECT_EQ(axis->vector(), (std::vector<double>{2.0, 0.25}));
    EXPECT_EQ(axis->nPositions(), 1000000U);
    EXPECT_EQ(axis->getPosition(4), 3.0);
  }
  EXPECT_EQ(Ostrel::ChunkBase::TotalMemsize, before);
}

TEST(CoordinateAxisTest, ExplicitAxisHoldsOneDoubleAPosition) {
  const long long before = Ostrel::ChunkBase::TotalMemsize;
  {
    const ExplicitAxisPtr axis(new ExplicitAxis({10.0, 30.0, 75.0}));
    EXPECT_EQ(Ostrel::ChunkBase::TotalMemsize - before, 24);
    EXPECT_EQ(axis->nPositions(), 3U);
    EXPECT_EQ(axis->getPosition(2), 75.0);
    EXPECT_TRUE(axis->lookup.empty());
  }
  EXPECT_EQ(Ostrel::ChunkBase::TotalMemsize, before);
}

TEST(CoordinateAxisTest, CopyOfAnExplicitAxisBeginsWithAnEmptyLookup) {
  const ExplicitAxisPtr axis(new ExplicitAxis({1.0, 2.0}));
  axis->lookup[1.0] = 0;
  const ExplicitAxisPtr copy = copyAxis(*axis);
  EXPECT_EQ(copy->vector(), axis->vector());
  EXPECT_TRUE(copy->lookup.empty());
}

TEST(CoordinateAxisTest, PositionsAreProductThenSumEachRounded) {
  std::mt19937_64 random(11);
  std::uniform_real_distribution<double> uniform(-1e3, 1e3);
  for (int round = 0; round < 1000; ++round) {
    const double origin = uniform(random);
    const double step = uniform(random);
    const LinearAxisPtr axis(new LinearAxis(origin, step, ~0ULL));
    const unsigned long long i = random();
    const volatile double product = static_cast<double>(i) * step;
    const volatile double sum = product + origin;
    ASSERT_EQ(bitsOf(axis->getPosition(i)), bitsOf(sum)) << i;
  }
}

template <class Array>
class DirectProductArrayTest : public testing::Test {};
template <class T, class K, int N>
struct Case {
  using Element = T;
  using Kind = K;
  static constexpr int rank = N;
};
using Cases =
    testing::Types<Case<FixedArray<double, 2>, Explicit, 2>, Case<FixedArray<double, 2>, Linear, 2>,
                   Case<FixedArray<double, 3>, Explicit, 3>, Case<FixedArray<double, 3>, Linear, 3>,
                   Case<Point, Explicit, 3>, Case<Point, Linear, 3>, Case<Quorvel::Vector<double, 3>, Linear, 3>>;
TYPED_TEST_SUITE(DirectProductArrayTest, Cases);

/// An array of extents 4 x 3 (x 2).
template <class C>
auto makeCase() {
  constexpr int N = C::rank;
  using Array = DirectProductMemArray<typename C::Element, typename C::Kind, N>;
  Ptr<Array> array(new Array(nobody));
  for (int c = 0; c < N; ++c) {
    if constexpr (std::is_same_v<typename C::Kind, Linear>)
      array->setAxis(c,
                     LinearAxisPtr(new LinearAxis(1.0 + c, 0.1 * (c + 1), 4ULL - static_cast<unsigned long long>(c))));
    else
      array->setAxis(c, ExplicitAxisPtr(new ExplicitAxis(c == 0   ? std::vector<double>{0, 1, 4, 9}
                                                         : c == 1 ? std::vector<double>{-5, 0, 7}
                                                                  : std::vector<double>{100, 1000})));
  }
  return array;
}

TYPED_TEST(DirectProductArrayTest, AnswersSizeTypeAndRankOfItsAxes) {
  constexpr int N = TypeParam::rank;
  const auto array = makeCase<TypeParam>();
  EXPECT_EQ(array->rank(), N);
  EXPECT_EQ(array->getSize().str(), N == 2 ? "4x3" : "4x3x2");
  EXPECT_EQ(array->nElements(), N == 2 ? 12U : 24U);
  EXPECT_EQ(array->getElementType(), typeid(typename TypeParam::Element));
  EXPECT_EQ(array->getTreskTypeIndex(),
            static_cast<const TreskTypeIndex&>(*getTreskType<typename TypeParam::Element>()));
}

TYPED_TEST(DirectProductArrayTest, HasNothingToGiveWhereAnArrayWithStorageGivesIt) {
  constexpr int N = TypeParam::rank;
  const auto array = makeCase<TypeParam>();
  EXPECT_EQ(array->memsize(), 0U) << "although the axes have memory";
  EXPECT_EQ(array->getDataPointer(), nullptr);
  EXPECT_FALSE(array->getTypedChunk());
  EXPECT_FALSE(array->getChunk());
  EXPECT_EQ(array->getOrigin(), nullptr);
  EXPECT_EQ(array->getDelta(), nullptr);
  EXPECT_FALSE(array->copyFromChunk(Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>(
      new Ostrel::Chunk<typename TypeParam::Element>(array->nElements()))));
  EXPECT_FALSE(array->createArray(MultiIndex<N>(), nobody));
  EXPECT_FALSE(array->createSubArray(MultiIndex<N>(), array->getIndexSize(), nobody));
  EXPECT_FALSE(array->createSubArray(array->getSize(), array->getSize(), nobody));
  EXPECT_FALSE(array->getSlice(0, nobody));
  EXPECT_FALSE(array->getComponent(0, nobody));
}

TYPED_TEST(DirectProductArrayTest, WalksAreSharedAllZeroRecords) {
  const auto array = makeCase<TypeParam>();
  const auto other = makeCase<TypeParam>();
  const HyperslabParameters& walk = array->getHyperslab();
  EXPECT_EQ(&walk, &other->getHyperslab());
  EXPECT_EQ(walk.count + walk.stride + walk.span + walk.offset + walk.tail, 0U);
  const auto& constant = *array;
  EXPECT_EQ(&constant.getIterator(), &static_cast<const decltype(constant)&>(*other).getIterator());
  EXPECT_EQ(array->getIterator().data, nullptr);
  EXPECT_EQ(array->getIterator().nElements(), 0U);
}

TYPED_TEST(DirectProductArrayTest, FirstAndLastAreTheCorners) {
  constexpr int N = TypeParam::rank;
  const auto array = makeCase<TypeParam>();
  const auto first = array->first();
  const auto last = array->last();
  for (int c = 0; c < N; ++c) {
    EXPECT_EQ(first[c], array->getAxis(c)->getPosition(0));
    EXPECT_EQ(last[c], array->getAxis(c)->getPosition(array->getAxis(c)->nPositions() - 1));
  }
}

TYPED_TEST(DirectProductArrayTest, MakeExplicitWritesEveryPointBitForBit) {
  const auto array = makeCase<TypeParam>();
  expectSamePoints(*array, array->makeExplicit(nobody));
}

TYPED_TEST(DirectProductArrayTest, CopyHasAxesOfItsOwnWithEqualValues) {
  constexpr int N = TypeParam::rank;
  using Array = DirectProductMemArray<typename TypeParam::Element, typename TypeParam::Kind, N>;
  const auto array = makeCase<TypeParam>();
  array->setAxisMap(0, 1);
  array->setAxisMap(1, 0);
  const Ptr<Array> copy(array->copy(nobody));
  ASSERT_TRUE(copy);
  for (int c = 0; c < N; ++c) {
    EXPECT_FALSE(copy->getAxis(c).sameRecord(array->getAxis(c)));
    EXPECT_EQ(copy->getAxis(c)->vector(), array->getAxis(c)->vector());
    EXPECT_EQ(copy->getAxis(c)->nPositions(), array->getAxis(c)->nPositions());
    EXPECT_EQ(copy->getAxisMap(c), array->getAxisMap(c));
  }
  EXPECT_EQ(copy->first(), array->first());
  EXPECT_EQ(copy->last(), array->last());
}

TYPED_TEST(DirectProductArrayTest, CopyKeepsAnEmptyAxisEmpty) {
  constexpr int N = TypeParam::rank;
  using Array = DirectProductMemArray<typename TypeParam::Element, typename TypeParam::Kind, N>;
  const Ptr<Array> array(new Array(nobody));
  const Ptr<Array> copy(array->copy(nobody));
  for (int c = 0; c < N; ++c) EXPECT_EQ(copy->getAxis(c).getRecord(), nullptr);
}

TYPED_TEST(DirectProductArrayTest, CreateOnChunkTakesAChunkOfItsElementCount) {
  constexpr int N = TypeParam::rank;
  using T = typename TypeParam::Element;
  const auto array = makeCase<TypeParam>();
  const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> fitting(new Ostrel::Chunk<T>(array->nElements()));
  const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> longer(new Ostrel::Chunk<T>(array->nElements() + 1));
  const Ptr<MemArray<N, T>> made(array->createOnChunk(fitting, nobody));
  ASSERT_TRUE(made);
  EXPECT_EQ(made->getIndexSize(), array->getIndexSize());
  EXPECT_TRUE(made->getChunk().sameRecord(fitting));
  EXPECT_FALSE(array->createOnChunk(longer, nobody));
  EXPECT_FALSE(array->createOnChunk(Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>(), nobody));
}

TEST(DirectProductMemArrayTest, DimensionWithoutAnAxisHasExtentOneAndLeavesItsComponent) {
  const auto array = linearArray<Point, 3>({4, 5, 6});
  array->setAxisMap(1, 7);
  EXPECT_EQ(array->getSize().str(), "4x1x6");
  EXPECT_EQ(array->last()[1], 0.0);
  FixedArray<double, 3> tuple(-1.0, -2.0, -3.0);
  array->computeCoordinate(MultiIndex<3>(1, 0, 1), tuple);
  EXPECT_EQ(tuple[1], -2.0);
  expectSamePoints(*array, array->makeExplicit(nobody));
}

TEST(DirectProductMemArrayTest, AxisMapLetsTheFastestIndexRunAlongAnyComponent) {
  const auto array = linearArray<FixedArray<double, 3>, 3>({2, 3, 4});
  array->setAxisMap(0, 2);
  array->setAxisMap(2, 0);
  EXPECT_EQ(array->getSize().str(), "4x3x2");
  expectSamePoints(*array, array->makeExplicit(nobody));
}

TEST(DirectProductMemArrayTest, OfTwoDimensionsAlongOneComponentTheLaterOneCounts) {
  const auto array = linearArray<FixedArray<double, 3>, 3>({4, 3, 2});
  for (unsigned int first = 0; first < 5; ++first) {
    for (unsigned int second = 0; second < 5; ++second) {
      for (unsigned int third = 0; third < 5; ++third) {
        array->setAxisMap(0, first);
        array->setAxisMap(1, second);
        array->setAxisMap(2, third);
        expectSamePoints(*array, array->makeExplicit(nobody));
      }
    }
  }
}

TEST(DirectProductMemArrayTest, StepOfZeroGivesEveryVertexTheSameCoordinate) {
  const auto array = linearArray<Point, 3>({3, 3, 3}, 2.0, 0.0);
  const Ptr<MemArray<3, Point>> points(array->makeExplicit(nobody));
  for (int i = 0; i < 3; ++i) EXPECT_EQ((*points)(i, 1, 1)[0], 2.0);
}

TEST(DirectProductMemArrayTest, MakeExplicitOfALinearArrayRunsTheFirstIndexFastest) {
  const auto array = linearArray<Point, 3>({2, 3, 4});
  const MemBasePtr points = array->makeExplicit(nobody);
  EXPECT_EQ(points->nElements(), 24U);
  EXPECT_EQ(points->getElementString(0), "{1,2,3}");
  EXPECT_EQ(points->getElementString(1), "{1.5,2,3}");
  EXPECT_EQ(points->getElementString(2), "{1,3.5,3}");
  EXPECT_EQ(points->getElementString(23), array->getElementString(23));
}

TEST(DirectProductMemArrayTest, MakeExplicitOfManyPointsIsStreamedAndStillBitForBit) {
  // An odd row length, so that rows begin at both alignments; more bytes than the last cache of common machines.
  const auto array = linearArray<FixedArray<double, 3>, 3>({401, 75, 101}, 0.1, 0.3);
  expectSamePoints(*array, array->makeExplicit(nobody));
  const auto plane = linearArray<FixedArray<double, 2>, 2>({2049, 1201}, 0.1, 0.3);
  expectSamePoints(*plane, plane->makeExplicit(nobody));
}

TEST(DirectProductMemArrayTest, MakeExplicitOfAnEmptyArrayIsEmpty) {
  for (const MultiIndex<3>& size : {MultiIndex<3>(0, 2, 3), MultiIndex<3>(2, 0, 3), MultiIndex<3>(2, 3, 0)}) {
    const auto array = linearArray<Point, 3>(size);
    const MemBasePtr points = array->makeExplicit(nobody);
    EXPECT_EQ(points->nElements(), 0U);
    EXPECT_EQ(points->getSize().str(), array->getSize().str());
    EXPECT_EQ(array->getElementString(0), "");
  }
}

TEST(DirectProductMemArrayTest, LastOfAnExtentOfZeroReadsIndexZero) {
  const auto array = linearArray<Point, 3>({0, 1, 3});
  EXPECT_EQ(array->last(), Point(1.0, 2.0, 3.0 + 2 * 2.5));
}

TEST(DirectProductMemArrayTest, ElementStringSplitsTheLinearIndexByTheExtents) {
  const auto array = linearArray<FixedArray<double, 2>, 2>({3, 2});
  EXPECT_EQ(array->getElementString(0), "{1,2}");
  EXPECT_EQ(array->getElementString(4), "{1.5,3.5}");
  EXPECT_EQ(array->getElementString(6), "{1,2}") << "beyond the end the index begins anew";
}

TEST(LinearDirectProductMemArrayTest, OriginAndDeltaAreAtHandAndFillTheAxes) {
  using Array = LinearDirectProductMemArray<FixedArray<double, 2>, FixedArray<double, 2>, 2>;
  const Ptr<Array> array(new Array({3, 4}, {10.0, 20.0}, {0.5, -1.0}, nobody));
  ASSERT_NE(array->getOrigin(), nullptr);
  EXPECT_EQ(array->getOrigin()[0], 10.0);
  EXPECT_EQ(array->getOrigin()[1], 20.0);
  EXPECT_EQ(array->getDelta()[0], 0.5);
  EXPECT_EQ(array->getDelta()[1], -1.0);
  EXPECT_EQ(array->getAxis(1)->vector(), (std::vector<double>{20.0, -1.0}));
  EXPECT_EQ(array->getAxis(1)->nPositions(), 4U);
  EXPECT_EQ(array->getSize().str(), "3x4");
}

TEST(LinearDirectProductMemArrayTest, CopyIsAPlainDirectProductArray) {
  using Array = LinearDirectProductMemArray<FixedArray<double, 3>, FixedArray<double, 3>, 3>;
  const Ptr<Array> array(new Array({3, 4, 5}, {1.0, 2.0, 3.0}, {1.0, 1.0, 1.0}, nobody));
  const MemBasePtr copy = array->copy(nobody);
  EXPECT_EQ(copy->getOrigin(), nullptr);
  EXPECT_EQ(copy->getDelta(), nullptr);
  const MemBase& object = *copy;
  EXPECT_EQ(typeid(object), typeid(DirectProductMemArray<FixedArray<double, 3>, Linear, 3>));
  EXPECT_EQ(copy->getElementString(59), array->getElementString(59));
}

/// Counts the objects that it is offered.
template <class T>
struct Counter : Ostrel::SaveInterfaceCreator<T> {
  long long createInterface(T* object) override {
    objects.insert(object);
    return 0;
  }
  std::set<const void*> objects;
};

TEST(DirectProductMemArrayTest, IsOfferedToSaversOfItsBaseAndNotToThoseOfArrays) {
  using Base = DirectProductMemArrayBase<FixedArray<double, 3>, Linear, 3>;
  const Ostrel::StrongPtr<Counter<Base>, Ostrel::SaveInterfaceCreatorBase> ofBase(new Counter<Base>);
  const Ostrel::StrongPtr<Counter<MemBase>, Ostrel::SaveInterfaceCreatorBase> ofArrays(new Counter<MemBase>);
  ASSERT_TRUE(Ostrel::SaveRegistryBase::registerCreator(typeid(Base), ofBase));
  ASSERT_TRUE(Ostrel::SaveRegistryBase::registerCreator(typeid(MemBase), ofArrays));
  const auto array = linearArray<Point, 3>({2, 2, 2});
  EXPECT_EQ(ofBase->objects.size(), 1U);
  EXPECT_EQ(ofArrays->objects.size(), 0U);
  EXPECT_TRUE(Ostrel::SaveRegistryBase::unregisterCreator(typeid(Base), ofBase));
  EXPECT_TRUE(Ostrel::SaveRegistryBase::unregisterCreator(typeid(MemBase), ofArrays));
}

TEST(DirectProductMemArrayTest, RandomRectilinearGridsAgreeWithTheirPoints) {
  std::mt19937 random(5);
  for (int round = 0; round < 200; ++round) {
    const Ptr<DirectProductMemArray<Point, Explicit, 3>> array(new DirectProductMemArray<Point, Explicit, 3>(nobody));
    for (int c = 0; c < 3; ++c) {
      std::vector<double> positions(1 + random() % 7);
      for (double& position : positions) position = static_cast<double>(random()) / 1000.0;
      array->setAxis(c, ExplicitAxisPtr(new ExplicitAxis(positions)));
      array->setAxisMap(c, random() % 4);
    }
    expectSamePoints(*array, array->makeExplicit(nobody));
  }
}

}  // namespace
