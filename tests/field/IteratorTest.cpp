// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Iterator.hpp>

#include <field/ElementSamples.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <array>
#include <type_traits>
#include <vector>

namespace {

using Quorvel::FixedArray;
using Tresk::CreativeIterator;
using Tresk::ElementIterator;
using Tresk::HyperslabParameters;
using Tresk::Iterator;
using Tresk::IteratorBase;
using Tresk::WalkParameters;
using Tresk::WalkUnitType;
using TreskTest::sameElement;
using TreskTest::sample;

template <class T>
inline constexpr bool isWalkedByComponents =
    std::is_same_v<T, FixedArray<double, 2>> || std::is_same_v<T, FixedArray<double, 3>>;

template <class T>
class IteratorTest : public TreskTest::RecordBalanceTest {};
TYPED_TEST_SUITE(IteratorTest, TreskTest::AllElementTypes);

TYPED_TEST(IteratorTest, TheChainOfBasesCarriesNoVirtualOperation) {
  using T = TypeParam;
  using U = WalkUnitType<T>;
  EXPECT_TRUE((std::is_same_v<U, std::conditional_t<isWalkedByComponents<T>, double, T>>));
  EXPECT_TRUE((std::is_base_of_v<HyperslabParameters, ElementIterator<U>>));
  EXPECT_TRUE((std::is_base_of_v<ElementIterator<U>, IteratorBase<U>>));
  EXPECT_TRUE((std::is_base_of_v<IteratorBase<U>, Iterator<T>>));
  EXPECT_TRUE((std::is_base_of_v<Iterator<T>, CreativeIterator<T>>));
  EXPECT_FALSE(std::is_polymorphic_v<CreativeIterator<T>>);
  EXPECT_EQ(sizeof(ElementIterator<U>), 48U);
  EXPECT_EQ(sizeof(IteratorBase<U>), 48U);
  EXPECT_EQ(sizeof(Iterator<T>), 48U);
  EXPECT_EQ(sizeof(CreativeIterator<T>), 56U);
}

/// A walk over a vector of elements, whole or interleaved.
template <class T>
CreativeIterator<T> walkOver(std::vector<T>& elements) {
  CreativeIterator<T> walk;
  constexpr unsigned long long K = isWalkedByComponents<T> ? sizeof(T) / sizeof(double) : 1;
  walk.count = elements.size() * K;
  walk.stride = K;
  walk.span = isWalkedByComponents<T> ? 1 : elements.size();
  walk.data = reinterpret_cast<WalkUnitType<T>*>(elements.data());
  return walk;
}

template <class T>
std::vector<T> samples(unsigned long long n) {
  std::vector<T> elements(n);
  for (unsigned long long e = 0; e < n; ++e) elements[e] = sample<T>(e);
  return elements;
}

TYPED_TEST(IteratorTest, ReadsElementsInOrder) {
  using T = TypeParam;
  std::vector<T> elements = samples<T>(10);
  const CreativeIterator<T> walk = walkOver(elements);
  ASSERT_EQ(walk.nElements(), 10U);
  for (unsigned long long e = 0; e < 10; ++e) EXPECT_TRUE(sameElement<T>(walk.getElement(e), elements[e])) << e;
}

TYPED_TEST(IteratorTest, BeginsAtTheOffsetAndEndsBeforeTheTail) {
  using T = TypeParam;
  std::vector<T> elements = samples<T>(10);
  CreativeIterator<T> walk = walkOver(elements);
  walk.offset = 3;
  walk.tail = 2;
  ASSERT_EQ(walk.nElements(), 5U);
  for (unsigned long long e = 0; e < 5; ++e) EXPECT_TRUE(sameElement<T>(walk.getElement(e), elements[e + 3])) << e;
  std::vector<T> seen;
  walk.forEachElement([&](const T& element) { seen.push_back(element); });
  ASSERT_EQ(seen.size(), 5U);
  for (unsigned long long e = 0; e < 5; ++e) EXPECT_TRUE(sameElement<T>(seen[e], elements[e + 3])) << e;
}

TYPED_TEST(IteratorTest, WritesOneElementAndNoOther) {
  using T = TypeParam;
  std::vector<T> elements = samples<T>(5);
  CreativeIterator<T> walk = walkOver(elements);
  walk.offset = 1;
  walk.setElement(2, sample<T>(77));
  for (unsigned long long e = 0; e < 5; ++e) EXPECT_TRUE(sameElement<T>(elements[e], sample<T>(e == 3 ? 77 : e))) << e;
}

TYPED_TEST(IteratorTest, AWiderStrideSkipsElements) {
  using T = TypeParam;
  std::vector<T> elements = samples<T>(12);
  CreativeIterator<T> walk = walkOver(elements);
  walk.stride *= 3;
  walk.offset = 1;
  walk.tail = 1;
  ASSERT_EQ(walk.nElements(), 2U);
  EXPECT_TRUE(sameElement<T>(walk.getElement(0), elements[3]));
  EXPECT_TRUE(sameElement<T>(walk.getElement(1), elements[6]));
  std::vector<T> seen;
  walk.forEachElement([&](const T& element) { seen.push_back(element); });
  ASSERT_EQ(seen.size(), 2U);
  EXPECT_TRUE(sameElement<T>(seen[1], elements[6]));
}

TYPED_TEST(IteratorTest, AnEmptyWalkVisitsNothing) {
  using T = TypeParam;
  const CreativeIterator<T> walk;
  EXPECT_EQ(walk.data, nullptr);
  EXPECT_EQ(walk.source, nullptr);
  EXPECT_EQ(walk.nElements(), 0U);
  int nVisits = 0;
  walk.forEachElement([&](const T&) { ++nVisits; });
  EXPECT_EQ(nVisits, 0);
}

TYPED_TEST(IteratorTest, AWalkIsARecordOfSevenFields) {
  using T = TypeParam;
  using U = WalkUnitType<T>;
  std::vector<T> elements = samples<T>(3);
  WalkParameters<U> record;
  record.count = 1;
  record.stride = 2;
  record.span = 3;
  record.offset = 4;
  record.tail = 5;
  record.data = reinterpret_cast<U*>(elements.data());
  CreativeIterator<T> walk;
  walk.assign(record);
  EXPECT_EQ(walk.count, 1U);
  EXPECT_EQ(walk.stride, 2U);
  EXPECT_EQ(walk.span, 3U);
  EXPECT_EQ(walk.offset, 4U);
  EXPECT_EQ(walk.tail, 5U);
  EXPECT_EQ(walk.data, record.data);
  EXPECT_EQ(walk.source, nullptr);
  const WalkParameters<U> again = walk.getWalk();
  EXPECT_EQ(again.count, 1U);
  EXPECT_EQ(again.stride, 2U);
  EXPECT_EQ(again.span, 3U);
  EXPECT_EQ(again.offset, 4U);
  EXPECT_EQ(again.tail, 5U);
  EXPECT_EQ(again.data, record.data);
  EXPECT_EQ(again.source, nullptr);
}

/// Blocks of doubles whose elements have K components.
template <class T>
class ComponentWalkTest : public ::testing::Test {};
using ComponentWise = ::testing::Types<FixedArray<double, 2>, FixedArray<double, 3>>;
TYPED_TEST_SUITE(ComponentWalkTest, ComponentWise);

constexpr unsigned long long NElements = 4;

/// Component c of element e is 10 e + c.
template <int K>
std::vector<double> block(bool isPlanar) {
  std::vector<double> units(NElements * K);
  for (unsigned long long e = 0; e < NElements; ++e)
    for (unsigned long long c = 0; c < K; ++c)
      units[isPlanar ? c * NElements + e : e * K + c] = static_cast<double>(10 * e + c);
  return units;
}

template <class T>
CreativeIterator<T> walkOver(std::vector<double>& units, bool isPlanar) {
  CreativeIterator<T> walk;
  walk.count = units.size();
  walk.stride = isPlanar ? 1 : static_cast<unsigned long long>(T::Size);
  walk.span = isPlanar ? NElements : 1;
  walk.data = units.data();
  return walk;
}

TYPED_TEST(ComponentWalkTest, InterleavedAndPlanarBlocksGiveTheSameElements) {
  using T = TypeParam;
  constexpr int K = T::Size;
  for (const bool isPlanar : {false, true}) {
    SCOPED_TRACE(isPlanar ? "planar" : "interleaved");
    std::vector<double> units = block<K>(isPlanar);
    CreativeIterator<T> walk = walkOver<T>(units, isPlanar);
    ASSERT_EQ(walk.nBlockElements(), NElements);
    walk.offset = 1;
    ASSERT_EQ(walk.nElements(), 3U);
    std::vector<T> seen;
    walk.forEachElement([&](const T& element) { seen.push_back(element); });
    ASSERT_EQ(seen.size(), 3U);
    for (unsigned long long e = 0; e < 3; ++e) {
      const T element = walk.getElement(e);
      EXPECT_TRUE(seen[e] == element);
      for (int c = 0; c < K; ++c) EXPECT_EQ(element[c], static_cast<double>(10 * (e + 1)) + c);
    }
  }
}

TYPED_TEST(ComponentWalkTest, WritesReachTheComponentsWhereTheyLie) {
  using T = TypeParam;
  constexpr int K = T::Size;
  for (const bool isPlanar : {false, true}) {
    SCOPED_TRACE(isPlanar ? "planar" : "interleaved");
    std::vector<double> units = block<K>(isPlanar);
    CreativeIterator<T> walk = walkOver<T>(units, isPlanar);
    walk.setElement(2, sample<T>(0));
    for (unsigned long long e = 0; e < NElements; ++e)
      for (int c = 0; c < K; ++c) {
        const double expected = e == 2 ? 100.0 + c : static_cast<double>(10 * e) + c;
        const auto component = static_cast<unsigned long long>(c);
        EXPECT_EQ(units[isPlanar ? component * NElements + e : e * K + component], expected);
      }
  }
}

TYPED_TEST(ComponentWalkTest, TheDistanceOfComponentsIsTheSpan) {
  using T = TypeParam;
  constexpr int K = T::Size;
  // Elements three apart, components seven apart.
  std::vector<double> units(40, -1);
  for (std::size_t i = 0; i < units.size(); ++i) units[i] = static_cast<double>(i);
  CreativeIterator<T> walk;
  walk.count = units.size();
  walk.stride = 3;
  walk.span = 7;
  walk.offset = 2;
  walk.data = units.data();
  const T element = walk.getElement(1);
  for (int c = 0; c < K; ++c) EXPECT_EQ(element[c], 9 + 7 * c);
}

TEST(ComponentReferenceTest, ReadsWritesAndComparesInPlace) {
  using Pair = FixedArray<double, 2>;
  std::vector<double> units{1, 2, 3, 4, 5, 6};
  Tresk::ComponentReference<double, 2> first(units.data(), 3);
  Tresk::ComponentReference<double, 2> second(units.data() + 1, 3);
  EXPECT_TRUE(first == Pair(1.0, 4.0));
  EXPECT_FALSE(first == Pair(1.0, 5.0));
  EXPECT_EQ(second[1], 5.0);
  second = Pair(20.0, 50.0);
  EXPECT_EQ(units, (std::vector<double>{1, 20, 3, 4, 50, 6}));
  first = second;
  EXPECT_EQ(units, (std::vector<double>{20, 20, 3, 50, 50, 6})) << "assignment writes the element, not the reference";
  first[1] = 7;
  EXPECT_EQ(units[3], 7);
}

// ------------------------------------------------------------------------------------------------------- reductions

using ReductionTest = TreskTest::RecordBalanceTest;

TEST_F(ReductionTest, SumsAreThoseOfTheElementsForEachLengthAndStride) {
  for (unsigned long long n = 0; n <= 40; ++n) {
    for (const unsigned long long stride : {1ULL, 3ULL}) {
      std::vector<double> elements(n * stride);
      double expected = 1000;
      for (unsigned long long e = 0; e < n * stride; ++e) elements[e] = e % stride == 0 ? static_cast<double>(e) : 1e9;
      for (unsigned long long e = 0; e < n; ++e) expected += elements[e * stride];
      CreativeIterator<double> walk = walkOver(elements);
      walk.stride = stride;
      EXPECT_EQ(walk.reduceElements(1000.0, [](double a, double b) { return a + b; }), expected)
          << n << " by " << stride;
    }
  }
}

TEST_F(ReductionTest, OffsetAndTailAreLeftOut) {
  std::vector<double> elements(20, 1.0);
  elements[0] = elements[1] = elements[19] = 500;
  CreativeIterator<double> walk = walkOver(elements);
  walk.offset = 2;
  walk.tail = 1;
  EXPECT_EQ(walk.reduceElements(0.0, [](double a, double b) { return a + b; }), 17.0);
}

TEST_F(ReductionTest, TheOperationIsTheCallers) {
  std::vector<int> elements{3, 1, 4, 1, 5, 9, 2, 6, 5, 3, 5};
  const CreativeIterator<int> walk = walkOver(elements);
  EXPECT_EQ(walk.reduceElements(0, [](int a, int b) { return a > b ? a : b; }), 9);
  EXPECT_EQ(walk.reduceElements(100LL, [](long long a, long long b) { return a < b ? a : b; }), 1LL);
}

TEST_F(ReductionTest, AnEmptyWalkGivesTheStart) {
  const CreativeIterator<double> walk;
  EXPECT_EQ(walk.reduceElements(7.0, [](double, double) -> double { return 0; }), 7.0);
}

TEST_F(ReductionTest, SumsOfDoublesAreAlikeEachTimeAndCloserThanTheStrictOrder) {
  std::vector<double> elements(1000, 0.1);
  const CreativeIterator<double> walk = walkOver(elements);
  const auto plus = [](double a, double b) { return a + b; };
  const double sum = walk.reduceElements(0.0, plus);
  EXPECT_EQ(walk.reduceElements(0.0, plus), sum);
  EXPECT_NEAR(sum, 100.0, 1e-12);
}

TEST_F(ReductionTest, VectorsAreCombinedAsWholes) {
  using Vector = FixedArray<double, 3>;
  std::vector<Vector> elements;
  for (int e = 0; e < 11; ++e) elements.push_back(Vector(e, 2.0 * e, 1.0));
  const auto plus = [](const Vector& a, const Vector& b) { return Vector(a[0] + b[0], a[1] + b[1], a[2] + b[2]); };
  const Vector sum = walkOver(elements).reduceElements(Vector(0.0, 0.0, 0.0), plus);
  EXPECT_EQ(sum[0], 55.0);
  EXPECT_EQ(sum[1], 110.0);
  EXPECT_EQ(sum[2], 11.0);
}

}  // namespace
