// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ComputationalField.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Ostrel::Ageable;
using Ostrel::StrongPtr;
using Quorvel::FixedArray;
using Tresk::addFields;
using Tresk::BinaryOperator;
using Tresk::ComputationalField;
using Tresk::DynamicSize;
using Tresk::Field;
using Tresk::MemArray;
using Tresk::MemArrayProperties;
using Tresk::MultiIndex;
using Tresk::OnDemandCreator;
using Tresk::WalkParameters;
using TreskTest::clockNow;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::makeForgetful;
using TreskTest::makeFunctional;
using TreskTest::MemBasePtr;
using TreskTest::unnamed;

using ComputationalFieldTest = TreskTest::RecordBalanceTest;
using Plus = BinaryOperator<Quorvel::Operator<43, 0>, double, double, double>;
using Minus = BinaryOperator<Quorvel::Operator<'-', 0>, double, double, double>;
using Times = BinaryOperator<Quorvel::Operator<'*', 0>, double, double, double>;
using Sum = ComputationalField<Plus>;
using ChunkPtr = StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;
template <int N>
using Doubles = StrongPtr<MemArray<N, double>, Ostrel::Cacheable>;

static_assert(std::is_empty_v<Plus> && !std::is_polymorphic_v<Plus>);
static_assert(std::is_base_of_v<Field, Sum> && std::is_base_of_v<Plus, Sum>);
static_assert(std::is_convertible_v<Sum*, Field*> && std::is_convertible_v<Sum*, Plus*>);
static_assert(std::is_same_v<decltype(addFields(FieldPtr(), FieldPtr())), FieldPtr>);

const Tresk::CreatorWeakPtr nobody;

// ---------------------------------------------------------------------------------------------------------- operands

/// Element `e` of an operand of some seed: a number with a long mantissa.
double elementOf(int seed, unsigned long long e) { return 0.1 + seed * 3.7 + static_cast<double>(e) / 7.0; }

template <int N>
Doubles<N> makeDoubles(const MultiIndex<N>& extents, int seed) {
  const Doubles<N> array(new MemArray<N, double>(extents, nobody));
  for (unsigned long long e = 0; e < extents.nElements(); ++e) array->setElement(e, elementOf(seed, e));
  return array;
}
Doubles<3> makeConstant(const MultiIndex<3>& extents, double value) {
  const Doubles<3> array(new MemArray<3, double>(extents, nobody));
  for (unsigned long long e = 0; e < extents.nElements(); ++e) array->setElement(e, value);
  return array;
}

FieldPtr makeField() { return FieldPtr(new Field); }
FieldPtr makeSibling(const FieldPtr& field) { return FieldPtr((new Field(Tresk::FieldWeakPtr(field)))); }
FieldPtr makeFieldWithoutCollection() { return FieldPtr((new Field(FragmentIDCollectionPtr()))); }

/// Binds data to a fragment, which is made if need be.
CreatorPtr bindData(const FieldPtr& field, const std::string& name, const MemBasePtr& data) {
  const FragmentIDPtr fragment = field->makeFragmentID(name);
  return field->setPersistentData(data, fragment, Ostrel::Cache::MemCache(), "");
}
CreatorPtr bindCreator(const FieldPtr& field, const std::string& name, const CreatorPtr& creator) {
  const FragmentIDPtr fragment = field->makeFragmentID(name);
  return field->setCreator(creator, fragment);
}
/// A creator that says what it will yield.
template <class Creator>
Creator declare(const Creator& creator, int rank) {
  creator->addMetaInfo(rank, Tresk::getTreskType<double>());
  return creator;
}

MemBasePtr dataOf(const FieldPtr& field, const std::string& name) { return field->getData(field->getFragmentID(name)); }
template <int N>
Doubles<N> doublesOf(const FieldPtr& field, const std::string& name) {
  return Doubles<N>(dataOf(field, name));
}

std::uint64_t bitsOf(double value) { return std::bit_cast<std::uint64_t>(value); }

/// Two fields on one collection with data on fragment "a".
struct Operands {
  template <int N>
  Operands(const Doubles<N>& leftData, const Doubles<N>& rightData) {
    bindData(left, "a", leftData);
    bindData(right, "a", rightData);
  }
  FieldPtr left = makeField();
  FieldPtr right = makeSibling(left);
};

/// Compares the sum on fragment "a" with the sum of two arrays read index by index. The extents are those of `left`.
template <int N>
void expectSumOf(const Doubles<N>& left, const Doubles<N>& right) {
  const Operands operands(left, right);
  const FieldPtr sum = addFields(operands.left, operands.right);
  const Doubles<N> result = doublesOf<N>(sum, "a");
  ASSERT_TRUE(result);
  const MultiIndex<N> extents = left->getIndexSize();
  ASSERT_TRUE(result->getIndexSize() == extents);
  EXPECT_EQ(result->count, extents.nElements());
  EXPECT_EQ(result->stride, 1U);
  EXPECT_EQ(result->offset, 0U);
  if (extents.nElements() == 0) return;
  MultiIndex<N> index;
  for (bool isInside = true; isInside;) {
    const double expected = (*left)[index] + (*right)[index];
    ASSERT_EQ(bitsOf((*result)[index]), bitsOf(expected));
    isInside = false;
    for (int d = 0; d < N && !isInside; ++d) {
      if (++index[d] < extents[d])
        isInside = true;
      else
        index[d] = 0;
    }
  }
}

/// Component `c` of an array of triples, one component after the other for each element: stride 3.
template <int N>
Doubles<N> makeInterleaved(const MultiIndex<N>& extents, int seed, int c) {
  using Triples = MemArray<N, FixedArray<double, 3>>;
  const StrongPtr<Triples, Ostrel::Cacheable> triples(new Triples(extents, nobody));
  for (unsigned long long e = 0; e < extents.nElements(); ++e)
    triples->setElement(e, FixedArray<double, 3>(elementOf(seed, e), elementOf(seed + 1, e), elementOf(seed + 2, e)));
  return Doubles<N>(triples->getComponent(c, nobody));
}
/// The second plane of an array of triples whose components lie plane by plane.
template <int N>
Doubles<N> makePlane(const MultiIndex<N>& extents, int seed) {
  using Triple = FixedArray<double, 3>;
  const unsigned long long n = extents.nElements();
  const StrongPtr<Ostrel::Chunk<Triple>, Ostrel::ChunkBase> chunk(new Ostrel::Chunk<Triple>(n));
  auto* const units = static_cast<double*>(static_cast<Ostrel::ChunkBase&>(*chunk).data());
  for (unsigned long long u = 0; u < 3 * n; ++u) units[u] = elementOf(seed, u);
  WalkParameters<double> walk;
  walk.count = 3 * n;
  walk.stride = 1;
  walk.span = n;
  walk.data = units;
  const StrongPtr<MemArray<N, Triple>, Ostrel::Cacheable> planar(new MemArray<N, Triple>(walk, extents, chunk, nobody));
  return Doubles<N>(planar->getComponent(1, nobody));
}
/// A part of a longer block with an offset and any stride.
template <int N>
Doubles<N> makeWalk(const MultiIndex<N>& extents, int seed, unsigned long long stride, unsigned long long offset) {
  const unsigned long long nBlock = extents.nElements() + offset + 5;
  const StrongPtr<Ostrel::Chunk<double>, Ostrel::ChunkBase> chunk(new Ostrel::Chunk<double>(nBlock * stride));
  for (unsigned long long u = 0; u < nBlock * stride; ++u) chunk->vector()[u] = elementOf(seed, u);
  WalkParameters<double> walk;
  walk.count = nBlock * stride;
  walk.stride = stride;
  walk.span = stride == 1 ? nBlock : 0;
  walk.offset = offset;
  walk.data = chunk->vector().data();
  return Doubles<N>(new MemArray<N, double>(walk, extents, chunk, nobody));
}

/// Gives elements of a block one by one, without showing their memory.
template <int N>
class Source final : public Tresk::ElementSource<double> {
 public:
  Source(const MultiIndex<N>& extents, int seed) : extents_(extents), elements_(extents.nElements()) {
    for (unsigned long long e = 0; e < elements_.size(); ++e) elements_[e] = elementOf(seed, e);
  }
  WalkParameters<double> slice(int dimension, unsigned long long index) override {
    fixed_[dimension] = index;
    WalkParameters<double> walk;
    walk.source = this;
    return walk;
  }
  double* element(unsigned long long index) override {
    fixed_[0] = index;
    return elements_.data() + extents_.linear(fixed_);
  }

 private:
  MultiIndex<N> extents_;
  std::vector<double> elements_;
  MultiIndex<N> fixed_;
};
template <int N>
Doubles<N> makeSourced(Source<N>& source, const MultiIndex<N>& extents) {
  WalkParameters<double> walk;
  walk.source = &source;
  return Doubles<N>(new MemArray<N, double>(walk, extents, ChunkPtr(), nobody));
}

/// Tests every kind of left operand with every kind of right one.
template <int N>
void expectSumsOfAllKinds(const MultiIndex<N>& leftExtents, const MultiIndex<N>& rightExtents) {
  Source<N> leftSource(leftExtents, 1);
  Source<N> rightSource(rightExtents, 2);
  const auto kindsOf = [](const MultiIndex<N>& extents, int seed, Source<N>& source) {
    return std::vector<Doubles<N>>{makeDoubles<N>(extents, seed),        makeInterleaved<N>(extents, seed, 0),
                                   makeInterleaved<N>(extents, seed, 2), makePlane<N>(extents, seed),
                                   makeWalk<N>(extents, seed, 1, 3),     makeWalk<N>(extents, seed, 4, 2),
                                   makeSourced<N>(source, extents)};
  };
  for (const Doubles<N>& left : kindsOf(leftExtents, 1, leftSource))
    for (const Doubles<N>& right : kindsOf(rightExtents, 2, rightSource)) expectSumOf<N>(left, right);
}

// ------------------------------------------------------------------------------------------------------ construction

TEST_F(ComputationalFieldTest, TheSumSharesTheNumberingOfTheLeftOperandAndHoldsTheRightOne) {
  const Operands operands(makeConstant({3, 3, 3}, 42.0), makeConstant({3, 3, 3}, 1.0));
  const FieldPtr sum = addFields(operands.left, operands.right);
  ASSERT_TRUE(sum);
  EXPECT_EQ(sum.strongCount(), 1);
  EXPECT_NE(dynamic_cast<const Sum*>(sum.get()), nullptr);
  EXPECT_TRUE(sum->getFragmentIDCollection() == operands.left->getFragmentIDCollection());
  EXPECT_EQ(operands.right.strongCount(), 2);
  EXPECT_EQ(operands.left.strongCount(), 1) << "not stored";
  EXPECT_EQ(sum->nFragments(), 1U);
  const CreatorPtr left = operands.left->getCreatorByName("a");
  EXPECT_EQ(left.strongCount(), 3) << "the table, the creator of the sum, and here";
}

TEST_F(ComputationalFieldTest, TheCollectionOfTheLeftOperandIsAskedForThroughTheVirtualTable) {
  class Redirecting : public Field {
   public:
    FragmentIDCollectionPtr getFragmentIDCollection() const override { return shown; }
    FragmentIDCollectionPtr shown;
  };
  const StrongPtr<Redirecting, Tresk::CreatorContainer> left(new Redirecting);
  left->shown = FragmentIDCollectionPtr(new Tresk::FragmentIDCollection);
  const FieldPtr sum = addFields(left, makeField());
  EXPECT_TRUE(sum->getFragmentIDCollection() == left->shown);
}

TEST_F(ComputationalFieldTest, EachFragmentGetsACreatorThatKnowsItsRankAndType) {
  const FieldPtr left = makeField();
  bindData(left, "line", makeDoubles<1>({4}, 0));
  bindData(left, "plane", makeDoubles<2>({4, 2}, 0));
  bindData(left, "cube", makeDoubles<3>({4, 2, 3}, 0));
  const FieldPtr sum = addFields(left, makeSibling(left));
  ASSERT_EQ(sum->nFragments(), 3U);
  const auto expectCreator = [&sum]<int N>(std::integral_constant<int, N>, const char* name) {
    const CreatorPtr creator = sum->getCreatorByName(name);
    ASSERT_TRUE(creator);
    EXPECT_NE((dynamic_cast<const OnDemandCreator<typename Sum::FragmentComputer<N>, N, double>*>(creator.get())),
              nullptr);
    const auto properties = Ostrel::findInterface<MemArrayProperties>(*creator);
    ASSERT_TRUE(properties);
    EXPECT_EQ(properties->getRank(), N);
    EXPECT_TRUE(properties->getType() == Tresk::getTreskType<double>());
    EXPECT_EQ(creator->getType(), typeid(double));
    EXPECT_TRUE(creator->isOwnedBy(sum));
    EXPECT_FALSE(creator->hasData());
    EXPECT_FALSE(Tresk::getSize(*creator)) << "the size is not known before";
  };
  expectCreator(std::integral_constant<int, 1>(), "line");
  expectCreator(std::integral_constant<int, 2>(), "plane");
  expectCreator(std::integral_constant<int, 3>(), "cube");
  EXPECT_EQ(sum->getElementType(), typeid(double));
  EXPECT_EQ(sum->Dims(), 1);
}

TEST_F(ComputationalFieldTest, MakingASumComputesNothingAndHoldsNothing) {
  const FieldPtr left = makeField();
  const FieldPtr right = makeSibling(left);
  const auto leftCreator = declare(makeFunctional([] { return MemBasePtr(makeDoubles<1>({5}, 1)); }), 1);
  const auto rightCreator = makeFunctional([] { return MemBasePtr(makeDoubles<1>({5}, 2)); });
  bindCreator(left, "a", leftCreator);
  bindCreator(right, "a", rightCreator);
  const long long nBytes = Ostrel::ChunkBase::TotalMemsize;
  const FieldPtr sum = addFields(left, right);
  EXPECT_EQ(leftCreator->nProductions, 0);
  EXPECT_EQ(rightCreator->nProductions, 0);
  EXPECT_EQ(Ostrel::ChunkBase::TotalMemsize, nBytes);
  unsigned long long inMemory = 0;
  unsigned long long fullSize = 0;
  EXPECT_EQ(sum->getMemoryUsage(inMemory, fullSize), 0);
  EXPECT_EQ(inMemory, 0U);
  EXPECT_EQ(leftCreator->nProductions + rightCreator->nProductions, 0);
  const MemBasePtr data = dataOf(sum, "a");
  ASSERT_TRUE(data);
  EXPECT_EQ(leftCreator->nProductions, 1);
  EXPECT_EQ(rightCreator->nProductions, 1);
  EXPECT_EQ(sum->getMemoryUsage(inMemory, fullSize), 1);
  EXPECT_EQ(inMemory, 40U);
  EXPECT_EQ(fullSize, 40U);
}

TEST_F(ComputationalFieldTest, ANullCreatorOfTheLeftOperandIsPassedOver) {
  const FieldPtr left = makeField();
  bindData(left, "a", makeDoubles<1>({2}, 0));
  bindCreator(left, "b", CreatorPtr());
  bindData(left, "c", makeDoubles<1>({2}, 0));
  const FieldPtr sum = addFields(left, left);
  EXPECT_EQ(sum->nFragments(), 2U);
  EXPECT_TRUE(sum->getCreatorByName("a"));
  EXPECT_TRUE(sum->getCreatorByName("c"));
}

/// Puts a creator between two good fragments of a left operand, and expects that the first one alone is bound.
void expectStopAt(const CreatorPtr& unfit) {
  const FieldPtr left = makeField();
  bindData(left, "a", makeDoubles<1>({2}, 3));
  bindCreator(left, "b", unfit);
  bindData(left, "c", makeDoubles<1>({2}, 3));
  const FieldPtr sum = addFields(left, left);
  EXPECT_EQ(sum->nFragments(), 1U);
  EXPECT_FALSE(dataOf(sum, "b"));
  EXPECT_FALSE(dataOf(sum, "c"));
  const Doubles<1> data = doublesOf<1>(sum, "a");
  ASSERT_TRUE(data) << "an earlier fragment stays bound";
  EXPECT_EQ((*data)(1), 2 * elementOf(3, 1));
}

TEST_F(ComputationalFieldTest, AFragmentOfFourDimensionsEndsTheConstruction) {
  const MemBasePtr data(new MemArray<4, double>({2, 2, 2, 2}, nobody));
  expectStopAt(CreatorPtr(new Tresk::CreativeArray(data, Ostrel::Cache::MemCache())));
  expectStopAt(declare(makeForgetful(), 4));
}

TEST_F(ComputationalFieldTest, ARankThatNoArrayHasEndsTheConstruction) {
  expectStopAt(declare(makeForgetful(), 0));
  expectStopAt(declare(makeForgetful(), -1));
}

TEST_F(ComputationalFieldTest, AFragmentOfAnotherElementTypeEndsTheConstruction) {
  const auto cells = makeForgetful();
  cells->addMetaInfo(1, Tresk::getTreskType<unsigned int>());
  expectStopAt(cells);
  const auto triples = makeForgetful();
  triples->addMetaInfo(1, Tresk::getTreskType<FixedArray<double, 3>>());
  expectStopAt(triples);
}

TEST_F(ComputationalFieldTest, AFragmentThatTellsNoRankAndTypeEndsTheConstruction) {
  expectStopAt(makeForgetful());
  const auto sized = makeForgetful();
  sized->addMetaInfo(DynamicSize{2}, Tresk::TreskTypePtr());
  expectStopAt(sized);
}

TEST_F(ComputationalFieldTest, PropertiesWithoutALivingRecordAreNotDouble) {
  const auto creator = makeForgetful();
  creator->addInterface(
      StrongPtr<MemArrayProperties, Ostrel::InterfaceBase>(new MemArrayProperties(1, Tresk::TreskTypeWeakPtr())));
  expectStopAt(creator);
}

TEST_F(ComputationalFieldTest, AnUnfitFirstFragmentLeavesAnEmptyField) {
  const FieldPtr left = makeField();
  bindCreator(left, "a", makeForgetful());
  bindData(left, "b", makeDoubles<1>({2}, 3));
  const FieldPtr sum = addFields(left, left);
  EXPECT_EQ(sum->nFragments(), 0U);
  EXPECT_TRUE(sum->getFragmentIDCollection() == left->getFragmentIDCollection());
}

TEST_F(ComputationalFieldTest, WithoutALeftOperandThereAreNoFragments) {
  const FieldPtr sum = addFields(FieldPtr(), makeField());
  ASSERT_TRUE(sum);
  EXPECT_EQ(sum->nFragments(), 0U);
  EXPECT_FALSE(sum->getFragmentIDCollection());
}

TEST_F(ComputationalFieldTest, ALeftOperandWithoutACollectionGivesANewOneWithItsCreatorOnSlotZero) {
  const FieldPtr left = makeFieldWithoutCollection();
  left->setCreatorViaFragmentIndex(5, declare(makeForgetful(makeDoubles<1>({3}, 1)), 1));
  const FieldPtr right = makeField();
  right->setCreator(makeForgetful(makeDoubles<1>({3}, 2)), unnamed());
  const FieldPtr sum = addFields(left, right);
  EXPECT_FALSE(left->getFragmentIDCollection());
  ASSERT_TRUE(sum->getFragmentIDCollection());
  EXPECT_EQ(sum->getFragmentIDs().size(), 1U);
  EXPECT_FALSE(sum->getFragmentIDs()[0]);
  EXPECT_EQ(sum->nFragments(), 1U);
  EXPECT_TRUE(sum->isUnfragmented());
  const Doubles<1> data(sum->getData(unnamed()));
  ASSERT_TRUE(data);
  EXPECT_EQ((*data)(2), elementOf(1, 2) + elementOf(2, 2));
  EXPECT_TRUE(data == sum->getDataByNumericalID(0));
}

TEST_F(ComputationalFieldTest, UnnamedFragmentsOfALeftOperandWithoutACollectionOverwriteEachOther) {
  const FieldPtr left = makeFieldWithoutCollection();
  for (unsigned int i = 0; i < 3; ++i)
    left->setCreatorViaFragmentIndex(i, declare(makeForgetful(makeDoubles<1>({i + 1}, 1)), 1));
  const FieldPtr right = makeField();
  right->setCreator(makeForgetful(makeDoubles<1>({3}, 2)), unnamed());
  const FieldPtr sum = addFields(left, right);
  EXPECT_EQ(sum->nFragments(), 1U);
  EXPECT_EQ(sum->getFragmentIDs().size(), 1U);
  const MemBasePtr data = sum->getData(unnamed());
  ASSERT_TRUE(data);
  EXPECT_EQ(data->getSize().str(), "3") << "the last one stays";
}

TEST_F(ComputationalFieldTest, AnUnnamedFragmentOfASharedCollectionKeepsItsSlot) {
  const FieldPtr left = makeField();
  bindData(left, "a", makeDoubles<1>({2}, 1));
  left->setCreator(declare(makeForgetful(makeDoubles<1>({2}, 1)), 1), unnamed());
  const FieldPtr sum = addFields(left, left);
  EXPECT_EQ(sum->nFragments(), 2U);
  EXPECT_EQ(sum->getFragmentIDs().size(), 2U);
  EXPECT_TRUE(sum->getCreatorByNumericalID(1));
}

TEST_F(ComputationalFieldTest, LaterFragmentsOfTheLeftOperandAreNotInTheSum) {
  const FieldPtr left = makeField();
  bindData(left, "a", makeDoubles<1>({2}, 1));
  const FieldPtr sum = addFields(left, left);
  bindData(left, "b", makeDoubles<1>({2}, 1));
  EXPECT_EQ(sum->nFragments(), 1U);
  EXPECT_FALSE(dataOf(sum, "b"));
}

TEST_F(ComputationalFieldTest, TheLeftCreatorIsThatOfTheConstructionAndTheRightOneThatOfTheComputation) {
  const Operands operands(makeConstant({1, 1, 1}, 1.0), makeConstant({1, 1, 1}, 10.0));
  const FieldPtr sum = addFields(operands.left, operands.right);
  bindData(operands.left, "a", makeConstant({1, 1, 1}, 2.0));
  bindData(operands.right, "a", makeConstant({1, 1, 1}, 20.0));
  EXPECT_EQ(doublesOf<3>(sum, "a")->first(), 21.0);
}

TEST_F(ComputationalFieldTest, ASumIsMadeInsideAWalkOverItsOperand) {
  const Operands operands(makeConstant({2, 2, 2}, 1.0), makeConstant({2, 2, 2}, 2.0));
  FieldPtr sum;
  operands.left->iterate(
      [&](const FragmentIDPtr& fragment, const CreatorPtr&) {
        sum = addFields(operands.left, operands.right);
        EXPECT_TRUE(sum->getData(fragment));
        return true;
      },
      false, false);
  EXPECT_EQ(doublesOf<3>(sum, "a")->first(), 3.0);
}

TEST_F(ComputationalFieldTest, TheOperandsAreNotTouchedAndTheSumIs) {
  const Operands operands(makeConstant({2, 2, 2}, 1.0), makeConstant({2, 2, 2}, 2.0));
  const CreatorPtr left = operands.left->getCreatorByName("a");
  const long long leftStamp = TreskTest::fieldStamp(*operands.left);
  const long long rightStamp = TreskTest::fieldStamp(*operands.right);
  const long long creatorStamp = TreskTest::dataStamp(*left);
  const long long clock = clockNow();
  const FieldPtr sum = addFields(operands.left, operands.right);
  EXPECT_GT(TreskTest::fieldStamp(*sum), clock);
  EXPECT_EQ(TreskTest::fieldStamp(*operands.left), leftStamp);
  EXPECT_EQ(TreskTest::fieldStamp(*operands.right), rightStamp);
  EXPECT_EQ(TreskTest::dataStamp(*left), creatorStamp);
  EXPECT_FALSE(left->isOwnedBy(sum));
}

TEST_F(ComputationalFieldTest, ASumOfNoFragmentsIsNotTouched) {
  const FieldPtr left = makeField();
  const long long clock = clockNow();
  const FieldPtr sum = addFields(left, left);
  EXPECT_EQ(TreskTest::fieldStamp(*sum), 0);
  EXPECT_EQ(clockNow(), clock);
}

// ------------------------------------------------------------------------------------------------------- computation

TEST_F(ComputationalFieldTest, FortyTwoAndOneGiveFortyThreeEverywhere) {
  const Operands operands(makeConstant({3, 3, 3}, 42.0), makeConstant({3, 3, 3}, 1.0));
  const Doubles<3> data = doublesOf<3>(addFields(operands.left, operands.right), "a");
  ASSERT_TRUE(data);
  EXPECT_EQ(data->getSize().str(), "3x3x3");
  for (unsigned long long e = 0; e < 27; ++e) EXPECT_EQ(data->getElement(e), 43.0);
}

TEST_F(ComputationalFieldTest, LinesPlanesAndCubesAreAddedWhateverTheirLayout) {
  expectSumsOfAllKinds<1>({7}, {7});
  expectSumsOfAllKinds<2>({3, 4}, {3, 4});
  expectSumsOfAllKinds<3>({3, 4, 2}, {3, 4, 2});
}

TEST_F(ComputationalFieldTest, ALargerRightOperandIsReadInItsLowerPart) {
  expectSumsOfAllKinds<1>({7}, {9});
  expectSumsOfAllKinds<2>({3, 4}, {5, 4});
  expectSumsOfAllKinds<2>({3, 4}, {3, 6});
  expectSumsOfAllKinds<3>({3, 4, 2}, {3, 5, 2});
  expectSumsOfAllKinds<3>({3, 4, 2}, {4, 5, 3});
  // As many elements, and of another shape.
  expectSumOf<2>(makeDoubles<2>({2, 3}, 1), makeDoubles<2>({3, 3}, 2));
  expectSumOf<2>(makeDoubles<2>({1, 6}, 1), makeDoubles<2>({6, 6}, 2));
}

TEST_F(ComputationalFieldTest, SlicesOfArraysOfAHigherRankAreAdded) {
  const Doubles<3> cube = makeDoubles<3>({3, 4, 5}, 1);
  const MemBasePtr first = cube->getSlice(1, nobody);
  const MemBasePtr second = cube->getSlice(4, nobody);
  expectSumOf<2>(Doubles<2>(first), Doubles<2>(second));
  const StrongPtr<MemArray<4, double>, Ostrel::Cacheable> four(new MemArray<4, double>({2, 3, 2, 3}, nobody));
  for (unsigned long long e = 0; e < 36; ++e) four->setElement(e, elementOf(4, e));
  expectSumOf<3>(Doubles<3>(four->getSlice(2, nobody)), Doubles<3>(four->getSlice(0, nobody)));
  expectSumOf<1>(Doubles<1>(Doubles<2>(first)->getSlice(2, nobody)), makeDoubles<1>({3}, 9));
}

TEST_F(ComputationalFieldTest, ExtentsOfZeroGiveAnArrayOfThoseExtents) {
  expectSumOf<1>(makeDoubles<1>({0}, 1), makeDoubles<1>({0}, 2));
  expectSumOf<2>(makeDoubles<2>({0, 4}, 1), makeDoubles<2>({3, 4}, 2));
  expectSumOf<3>(makeDoubles<3>({3, 0, 2}, 1), makeDoubles<3>({3, 0, 2}, 2));
  expectSumOf<3>(makeDoubles<3>({3, 2, 0}, 1), makeDoubles<3>({3, 2, 5}, 2));
}

TEST_F(ComputationalFieldTest, AFieldIsAddedToItself) {
  const FieldPtr field = makeField();
  bindData(field, "a", makeDoubles<2>({3, 3}, 1));
  const Doubles<2> data = doublesOf<2>(addFields(field, field), "a");
  ASSERT_TRUE(data);
  for (unsigned long long e = 0; e < 9; ++e) EXPECT_EQ(data->getElement(e), 2 * elementOf(1, e));
}

/// Numbers of all magnitudes, both zeros, infinities and subnormal ones.
std::vector<double> makeHardNumbers(unsigned int seed, std::size_t n) {
  std::mt19937_64 random(seed);
  std::vector<double> numbers = {0.0,
                                 -0.0,
                                 1.0,
                                 -1.0,
                                 std::numeric_limits<double>::infinity(),
                                 std::numeric_limits<double>::denorm_min(),
                                 std::numeric_limits<double>::max()};
  while (numbers.size() < n) {
    const double number = std::bit_cast<double>(random());
    if (number == number) numbers.push_back(number);
  }
  std::shuffle(numbers.begin(), numbers.end(), random);
  return numbers;
}
Doubles<1> makeLine(const std::vector<double>& numbers) {
  const Doubles<1> array(new MemArray<1, double>({numbers.size()}, nobody));
  for (std::size_t e = 0; e < numbers.size(); ++e) array->setElement(e, numbers[e]);
  return array;
}

/// Compares all results of an operator with what `compute` gives, bit by bit. Only that a result is no number is
/// compared of those that are none.
template <class Op, class F>
void expectExactly(const F& compute) {
  constexpr std::size_t n = 4099;
  const std::vector<double> a = makeHardNumbers(1, n);
  const std::vector<double> b = makeHardNumbers(2, n);
  const Operands operands(makeLine(a), makeLine(b));
  const FieldPtr field = Tresk::combineFields<Op>(operands.left, operands.right);
  EXPECT_NE(dynamic_cast<const ComputationalField<Op>*>(field.get()), nullptr);
  const Doubles<1> result = doublesOf<1>(field, "a");
  ASSERT_TRUE(result);
  for (std::size_t i = 0; i < n; ++i) {
    const double got = (*result)(i);
    const volatile double rounded = compute(a[i], b[i]);
    const double expected = rounded;
    if (expected == expected)
      ASSERT_EQ(bitsOf(got), bitsOf(expected)) << a[i] << " and " << b[i];
    else
      ASSERT_NE(got, got);
  }
}

TEST_F(ComputationalFieldTest, SumsAreExactToTheBit) {
  expectExactly<Plus>([](double a, double b) { return a + b; });
}
TEST_F(ComputationalFieldTest, TheFieldServesDifferencesToo) {
  expectExactly<Minus>([](double a, double b) { return a - b; });
}
TEST_F(ComputationalFieldTest, TheFieldServesProductsToo) {
  expectExactly<Times>([](double a, double b) { return a * b; });
}

TEST_F(ComputationalFieldTest, OperatorsMixInOneExpression) {
  const FieldPtr a = makeField();
  const FieldPtr b = makeSibling(a);
  bindData(a, "x", makeDoubles<2>({4, 3}, 1));
  bindData(b, "x", makeDoubles<2>({4, 3}, 2));
  const FieldPtr sum = addFields(a, b);
  const FieldPtr difference = Tresk::combineFields<Minus>(a, b);
  const FieldPtr product = Tresk::combineFields<Times>(sum, difference);
  const Doubles<2> data = doublesOf<2>(product, "x");
  ASSERT_TRUE(data);
  for (unsigned long long e = 0; e < 12; ++e) {
    const volatile double s = elementOf(1, e) + elementOf(2, e);
    const volatile double d = elementOf(1, e) - elementOf(2, e);
    EXPECT_EQ(data->getElement(e), s * d);
  }
}

// ------------------------------------------------------------------------------------------------------ missing parts

TEST_F(ComputationalFieldTest, AFragmentThatIsAbsentInTheRightOperandHasNoData) {
  const FieldPtr left = makeField();
  bindData(left, "a", makeDoubles<1>({2}, 1));
  bindData(left, "b", makeDoubles<1>({2}, 1));
  const FieldPtr right = makeSibling(left);
  bindData(right, "b", makeDoubles<1>({2}, 2));
  const FieldPtr sum = addFields(left, right);
  const unsigned long long nListed = Ostrel::Cache::MemCache()->nCacheables();
  EXPECT_FALSE(dataOf(sum, "a"));
  const CreatorPtr creator = sum->getCreatorByName("a");
  EXPECT_FALSE(creator->hasData());
  EXPECT_FALSE(creator->getCacheable());
  EXPECT_EQ(TreskTest::dataStamp(*creator), 0);
  EXPECT_EQ(Ostrel::Cache::MemCache()->nCacheables(), nListed) << "no partial array stays";
  EXPECT_TRUE(dataOf(sum, "b"));
  bindData(right, "a", makeDoubles<1>({2}, 2));
  EXPECT_TRUE(dataOf(sum, "a")) << "bound later, it is found";
}

TEST_F(ComputationalFieldTest, WithoutARightOperandThereAreFragmentsAndNoData) {
  const FieldPtr left = makeField();
  bindData(left, "a", makeDoubles<1>({2}, 1));
  const FieldPtr sum = addFields(left, FieldPtr());
  EXPECT_EQ(sum->nFragments(), 1U);
  EXPECT_FALSE(dataOf(sum, "a"));
}

TEST_F(ComputationalFieldTest, ARightOperandOnAnotherCollectionHasNoneOfTheFragments) {
  const FieldPtr left = makeField();
  bindData(left, "a", makeDoubles<1>({2}, 1));
  const FieldPtr right = makeField();
  bindData(right, "a", makeDoubles<1>({2}, 2));
  EXPECT_FALSE(dataOf(addFields(left, right), "a"));
}

TEST_F(ComputationalFieldTest, ARightFragmentOfAnotherRankOrTypeGivesNoData) {
  const FieldPtr left = makeField();
  const FieldPtr right = makeSibling(left);
  for (const char* const name : {"rank", "type", "null"}) bindData(left, name, makeDoubles<1>({2}, 1));
  bindData(right, "rank", makeDoubles<2>({2, 2}, 2));
  bindData(right, "type", MemBasePtr(new MemArray<1, unsigned int>({2}, nobody)));
  bindCreator(right, "null", makeForgetful());
  const FieldPtr sum = addFields(left, right);
  EXPECT_EQ(sum->nFragments(), 3U);
  for (const char* const name : {"rank", "type", "null"}) EXPECT_FALSE(dataOf(sum, name)) << name;
}

TEST_F(ComputationalFieldTest, ALeftFragmentThatYieldsAnotherKindThanItDeclaredGivesNoDataAndAsksNoRightOne) {
  const FieldPtr left = makeField();
  const FieldPtr right = makeSibling(left);
  bindCreator(left, "rank", declare(makeFunctional([] { return MemBasePtr(makeDoubles<2>({2, 2}, 1)); }), 1));
  bindCreator(left, "type",
              declare(makeFunctional([] { return MemBasePtr(new MemArray<1, unsigned int>({2}, nobody)); }), 1));
  bindCreator(left, "null", declare(makeForgetful(), 1));
  const auto other = makeFunctional([] { return MemBasePtr(makeDoubles<1>({2}, 1)); });
  for (const char* const name : {"rank", "type", "null"}) bindCreator(right, name, other);
  const FieldPtr sum = addFields(left, right);
  EXPECT_EQ(sum->nFragments(), 3U);
  for (const char* const name : {"rank", "type", "null"}) EXPECT_FALSE(dataOf(sum, name)) << name;
  EXPECT_EQ(other->nProductions, 0);
}

TEST_F(ComputationalFieldTest, AnExceptionOfAnOperandReachesWhoeverAsks) {
  const FieldPtr left = makeField();
  const FieldPtr right = makeSibling(left);
  bool isBroken = true;
  bindData(left, "a", makeDoubles<1>({2}, 1));
  bindCreator(right, "a", makeFunctional([&isBroken]() -> MemBasePtr {
                if (isBroken) throw std::runtime_error("broken");
                return makeDoubles<1>({2}, 2);
              }));
  const FieldPtr sum = addFields(left, right);
  EXPECT_THROW(dataOf(sum, "a"), std::runtime_error);
  isBroken = false;
  EXPECT_TRUE(dataOf(sum, "a"));
}

// ------------------------------------------------------------------------------------------------ lifetime and cache

TEST_F(ComputationalFieldTest, TheResultBelongsToItsCreatorAndStandsInTheDefaultCache) {
  const Operands operands(makeConstant({2, 2, 2}, 1.0), makeConstant({2, 2, 2}, 2.0));
  const FieldPtr sum = addFields(operands.left, operands.right);
  const CreatorPtr creator = sum->getCreatorByName("a");
  const unsigned long long nListed = Ostrel::Cache::MemCache()->nCacheables();
  const long long clock = clockNow();
  const MemBasePtr data = dataOf(sum, "a");
  EXPECT_TRUE(data->getCreator() == creator);
  EXPECT_TRUE(data->isOnCacheList());
  EXPECT_EQ(Ostrel::Cache::MemCache()->nCacheables(), nListed + 1);
  EXPECT_TRUE(creator->hasData());
  EXPECT_TRUE(dataOf(sum, "a") == data) << "computed once";
  EXPECT_GT(TreskTest::dataStamp(*creator), clock);
  EXPECT_TRUE(sum->hasFragmentsNewerThan(Ageable(clock)));
  EXPECT_EQ(sum->getSize()->str(), "2x2x2");
}

TEST_F(ComputationalFieldTest, AResultInUseStaysAndADroppedOneIsComputedAgain) {
  const Operands operands(makeConstant({2, 2, 2}, 1.0), makeConstant({2, 2, 2}, 2.0));
  const FieldPtr sum = addFields(operands.left, operands.right);
  MemBasePtr data = dataOf(sum, "a");
  const CreatorPtr creator = sum->getCreatorByName("a");
  EXPECT_EQ(creator->release(), Ostrel::Creature::StillInUse);
  data.reset();
  EXPECT_EQ(creator->release(), Ostrel::Creature::Released);
  EXPECT_FALSE(creator->hasData());
  Doubles<3>(operands.right->getCreatorByName("a")->getData())->setElement(0ULL, 20.0);
  const Doubles<3> again = doublesOf<3>(sum, "a");
  ASSERT_TRUE(again);
  EXPECT_EQ(again->getElement(0), 21.0) << "of the operands of now";
  EXPECT_EQ(again->getElement(1), 3.0);
}

TEST_F(ComputationalFieldTest, TheCacheDropsResultsAndTheyAreComputedAgain) {
  const Operands operands(makeConstant({4, 4, 4}, 1.0), makeConstant({4, 4, 4}, 2.0));
  const FieldPtr sum = addFields(operands.left, operands.right);
  EXPECT_TRUE(dataOf(sum, "a"));
  const CreatorPtr creator = sum->getCreatorByName("a");
  ASSERT_TRUE(creator->hasData());
  EXPECT_GE(Ostrel::Cache::MemCache()->trim(~0ULL), 512U);
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(Tresk::getMemoryUsage(*creator), 0U);
  const Doubles<3> again = doublesOf<3>(sum, "a");
  ASSERT_TRUE(again);
  EXPECT_EQ(again->getElement(63), 3.0);
}

TEST_F(ComputationalFieldTest, OperandsAreAskedThroughCreateAndSoCountAsUsed) {
  const Operands operands(makeConstant({2, 2, 2}, 1.0), makeConstant({2, 2, 2}, 2.0));
  const FieldPtr sum = addFields(operands.left, operands.right);
  const MemBasePtr left = operands.left->getCreatorByName("a")->getData();
  const MemBasePtr right = operands.right->getCreatorByName("a")->getData();
  const auto before = left->getUseCount() + right->getUseCount();
  dataOf(sum, "a");
  EXPECT_EQ(left->getUseCount() + right->getUseCount(), before + 2);
}

TEST_F(ComputationalFieldTest, TheRightOperandLivesAsLongAsTheSumAndTheLeftCreatorsToo) {
  Tresk::FieldWeakPtr right;
  Tresk::CreatorWeakPtr leftCreator;
  FieldPtr sum;
  {
    const Operands operands(makeConstant({2, 2, 2}, 1.0), makeConstant({2, 2, 2}, 2.0));
    sum = addFields(operands.left, operands.right);
    right = operands.right;
    leftCreator = operands.left->getCreatorByName("a");
  }
  EXPECT_TRUE(right);
  EXPECT_TRUE(leftCreator);
  // The left field has asked its creator to release on its way out, which data without a producer survive.
  ASSERT_TRUE(dataOf(sum, "a"));
  EXPECT_EQ(doublesOf<3>(sum, "a")->first(), 3.0);
  sum.reset();
  EXPECT_FALSE(right);
  EXPECT_FALSE(leftCreator);
}

TEST_F(ComputationalFieldTest, ACreatorThatOutlivesItsFieldComputesNothing) {
  const Operands operands(makeConstant({2, 2, 2}, 1.0), makeConstant({2, 2, 2}, 2.0));
  CreatorPtr creator;
  {
    const FieldPtr sum = addFields(operands.left, operands.right);
    creator = sum->getCreatorByName("a");
  }
  EXPECT_EQ(operands.right.strongCount(), 1) << "it does not hold the right operand";
  EXPECT_FALSE(creator->create(false));
  EXPECT_FALSE(creator->hasData());
}

TEST_F(ComputationalFieldTest, AChainOfSumsIsComputedFromTheEndWhileItsLinksAreHeld) {
  const FieldPtr a = makeField();
  bindData(a, "x", makeConstant({2, 2, 2}, 1.0));
  std::vector<FieldPtr> sums = {a};
  for (int i = 0; i < 10; ++i) {
    const FieldPtr term = makeSibling(a);
    bindData(term, "x", makeConstant({2, 2, 2}, 10.0 + i));
    sums.push_back(addFields(sums.back(), term));
  }
  for (std::size_t i = 1; i < sums.size(); ++i) EXPECT_FALSE(sums[i]->getCreatorByName("x")->hasData());
  EXPECT_EQ(doublesOf<3>(sums.back(), "x")->first(), 1.0 + 145.0);
  for (std::size_t i = 1; i < sums.size(); ++i) EXPECT_TRUE(sums[i]->getCreatorByName("x")->hasData());
}

TEST_F(ComputationalFieldTest, ASumAsRightOperandIsHeldByTheChain) {
  const FieldPtr a = makeField();
  bindData(a, "x", makeConstant({2, 2, 2}, 1.0));
  const FieldPtr chain = addFields(a, addFields(a, addFields(a, a)));
  EXPECT_EQ(doublesOf<3>(chain, "x")->first(), 4.0);
}

TEST_F(ComputationalFieldTest, ASumAsLeftOperandThatNobodyHoldsYieldsNoDataOnceItIsGone) {
  const FieldPtr a = makeField();
  bindData(a, "x", makeConstant({2, 2, 2}, 1.0));
  FieldPtr inner = addFields(a, a);
  const FieldPtr outer = addFields(inner, a);
  inner.reset();
  EXPECT_EQ(outer->nFragments(), 1U);
  EXPECT_FALSE(dataOf(outer, "x"));
}

TEST_F(ComputationalFieldTest, AFieldThatNobodyHoldsYetComputesAndLives) {
  const Operands operands(makeConstant({2, 2, 2}, 1.0), makeConstant({2, 2, 2}, 2.0));
  {
    Sum sum(operands.left, operands.right);
    const Doubles<3> data(sum.getData(operands.left->getFragmentID("a")));
    ASSERT_TRUE(data);
    EXPECT_EQ(data->first(), 3.0);
    EXPECT_EQ(sum.nFragments(), 1U);
  }
  EXPECT_EQ(operands.right.strongCount(), 1);
}

TEST_F(ComputationalFieldTest, ThreadsThatAskAtOnceAllGetTheSum) {
  const FieldPtr left = makeField();
  const FieldPtr right = makeSibling(left);
  for (int i = 0; i < 20; ++i) {
    bindData(left, std::to_string(i), makeConstant({4, 4, 4}, i));
    bindData(right, std::to_string(i), makeConstant({4, 4, 4}, 0.5));
  }
  const FieldPtr sum = addFields(left, right);
  std::vector<double> seen[3];
  TreskTest::RaceRunner race;
  race.add(3, [&](int thread) {
    for (int i = 0; i < 20; ++i) {
      const Doubles<3> data = doublesOf<3>(sum, std::to_string(i));
      seen[thread].push_back(data ? data->last() : -1.0);
    }
  });
  race.run();
  for (const std::vector<double>& values : seen) {
    ASSERT_EQ(values.size(), 20U);
    for (std::size_t i = 0; i < 20; ++i) EXPECT_EQ(values[i], static_cast<double>(i) + 0.5);
  }
}

}  // namespace
