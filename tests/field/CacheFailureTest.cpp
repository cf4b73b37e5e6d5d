// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// The limit of a cache where things do not go on as planned: productions that fail, alone, in walks and on threads of
// their own, and walks that ask for more than can be done under their lock.

#include <support/AsynchronDoubles.hpp>
#include <support/CacheDoubles.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using Ostrel::CacheStatistics;
using Tresk::AsynchronCreator;
using Tresk::Field;
using TreskTest::CreatorPtr;
using TreskTest::Failure;
using TreskTest::FieldPtr;
using TreskTest::Flag;
using TreskTest::FragmentIDPtr;
using TreskTest::Gate;
using TreskTest::hasContent;
using TreskTest::KindPtr;
using TreskTest::knownContent;
using TreskTest::makeKnownArray;
using TreskTest::MemBasePtr;

constexpr std::size_t nElements = 16;
constexpr unsigned long long Bytes = nElements * sizeof(double);
/// Arrays that the limit has room for.
constexpr unsigned int nRoom = 3;

MemBasePtr makeNumberedArray(unsigned int i) { return makeKnownArray(knownContent(i), nElements); }

class CacheFailureTest : public TreskTest::LimitedCacheTest {
 protected:
  CacheFailureTest() { limitTo(nRoom); }

  void limitTo(unsigned int nArrays) { cache->setLimit(atStart.nHeldBytes + nArrays * Bytes); }
  unsigned long long nHeld() const { return (cache->getStatistics().nHeldBytes - atStart.nHeldBytes) / Bytes; }
  unsigned long long nInFlight() const { return cache->getStatistics().nInFlightBytes / Bytes; }

  CreatorPtr makeFunctional(const Tresk::FunctionalCreator::Function& function) const {
    return CreatorPtr(new Tresk::FunctionalCreator(function, false, cache));
  }
  /// A creator whose release calls nobody.
  CreatorPtr makeSilent(unsigned int i) const {
    return makeFunctional([i] { return makeNumberedArray(i); });
  }
  std::vector<CreatorPtr> makeManySilent(unsigned int n) const {
    std::vector<CreatorPtr> creators;
    for (unsigned int i = 0; i < n; ++i) creators.push_back(makeSilent(i));
    return creators;
  }
  /// A creator of data that exist and were not saved: its release calls savers and producers.
  CreatorPtr makeDirty(unsigned int i) const {
    const CreatorPtr creator(new Tresk::CreativeArray(makeNumberedArray(i), cache));
    TreskTest::attachArrayProducer(*creator, [i] { return makeNumberedArray(i); });
    return creator;
  }
  CreatorPtr makeFailing() const {
    return makeFunctional([]() -> MemBasePtr { throw Failure("no such file"); });
  }

  /// Uses the data of all at once and gives them back: they stay, as nobody is told.
  void useAtOnce(const std::vector<CreatorPtr>& creators) const {
    std::vector<MemBasePtr> inUse;
    for (const CreatorPtr& creator : creators) inUse.push_back(creator->create(false));
    inUse.clear();
    EXPECT_EQ(nHeld(), creators.size());
  }

  static FieldPtr makeField(const std::vector<CreatorPtr>& creators) {
    const FieldPtr field(new Field);
    for (const CreatorPtr& creator : creators)
      field->setCreator(creator, field->makeFragmentID(std::to_string(field->nFragments())));
    return field;
  }
  /// Calls `visit` for each creator under the shared lock of the field.
  static unsigned int walk(const FieldPtr& field, const std::function<void(const CreatorPtr&)>& visit) {
    unsigned int nVisited = 0;
    field->iterate(
        [&](const FragmentIDPtr&, const CreatorPtr& creator) {
          visit(creator);
          ++nVisited;
          return true;
        },
        false, false);
    return nVisited;
  }
};

// -------------------------------------------------------------------------------------------------- failures in a walk

TEST_F(CacheFailureTest, WalkOverProductionsThatFailStaysWithinTheLimitWithTheirOperands) {
  constexpr unsigned int nFragments = 20;
  const std::vector<CreatorPtr> earlier = makeManySilent(nRoom + 1);
  const std::vector<CreatorPtr> operands = makeManySilent(nFragments);
  std::vector<CreatorPtr> failing;
  for (const CreatorPtr& operand : operands)
    failing.push_back(makeFunctional([&operand]() -> MemBasePtr {
      operand->create(false);
      throw Failure("no such file");
    }));
  const FieldPtr field = makeField(failing);
  useAtOnce(earlier);
  const unsigned int nVisited = walk(field, [&](const CreatorPtr& creator) {
    EXPECT_THROW(creator->create(false), Failure);
    EXPECT_LE(nHeld(), nRoom);
    EXPECT_EQ(nInFlight(), 0U) << "no production runs any more";
  });
  EXPECT_EQ(nVisited, nFragments);
  EXPECT_EQ(counts().nFailures, nFragments);
  EXPECT_TRUE(operands.back()->hasData());
}

TEST_F(CacheFailureTest, ProductionThatFailsInAWalkLetsGoWhatCallersHaveGivenBack) {
  const std::vector<CreatorPtr> earlier = makeManySilent(2 * nRoom);
  const FieldPtr field = makeField({makeFailing()});
  useAtOnce(earlier);
  walk(field, [&](const CreatorPtr& creator) {
    EXPECT_THROW(creator->create(false), Failure);
    EXPECT_EQ(nHeld(), nRoom) << "at once, as all of them are silent";
  });
  EXPECT_EQ(nHeld(), nRoom);
}

// ------------------------------------------------------------------------------------------ failures on another thread

TEST_F(CacheFailureTest, AsynchronousProductionWithoutAResultLetsGoWhatCallersHaveGivenBack) {
  const std::vector<CreatorPtr> earlier = makeManySilent(2 * nRoom);
  useAtOnce(earlier);
  Gate gate;
  {
    const KindPtr<AsynchronCreator> creator = makeAsynchron([&](const Flag&) {
      gate.pass();
      return MemBasePtr();
    });
    EXPECT_TRUE(creator->request({}));
    gate.waitForVisitor();
    gate.open();
    while (creator->isUnderCreation()) std::this_thread::yield();
  }
  joinAll();
  EXPECT_EQ(counts().nFailures, 1U);
  EXPECT_EQ(nHeld(), nRoom);
}

TEST_F(CacheFailureTest, AsynchronousProductionThatThrowsLetsItsOperandsGo) {
  const std::vector<CreatorPtr> earlier = makeManySilent(2 * nRoom);
  const std::vector<CreatorPtr> operands = makeManySilent(2 * nRoom);
  useAtOnce(earlier);
  Gate gate;
  {
    const KindPtr<AsynchronCreator> creator = makeAsynchron([&](const Flag&) -> MemBasePtr {
      gate.pass();
      for (const CreatorPtr& operand : operands) operand->create(false);
      throw Failure("no such file");
    });
    EXPECT_TRUE(creator->request({}));
    gate.waitForVisitor();
    gate.open();
    EXPECT_THROW(creator->produce(), Failure) << "which it passes on from its thread";
  }
  joinAll();
  EXPECT_EQ(counts().nFailures, 1U);
  EXPECT_EQ(nHeld(), nRoom);
  EXPECT_EQ(nInFlight(), 0U);
}

TEST_F(CacheFailureTest, AsynchronousProductionThatThrowsWhenNobodyWaitsForItLetsItsOperandsGo) {
  const std::vector<CreatorPtr> earlier = makeManySilent(2 * nRoom);
  const std::vector<CreatorPtr> operands = makeManySilent(2 * nRoom);
  useAtOnce(earlier);
  Gate gate;
  {
    const KindPtr<AsynchronCreator> creator = makeAsynchron([&](const Flag&) -> MemBasePtr {
      gate.pass();
      std::vector<MemBasePtr> inUse;
      for (const CreatorPtr& operand : operands) inUse.push_back(operand->create(false));
      throw Failure("no such file");
    });
    EXPECT_TRUE(creator->request({}));
    gate.waitForVisitor();  // from here on its thread keeps it
  }
  gate.open();
  joinAll();
  EXPECT_EQ(counts().nFailures, 1U);
  EXPECT_EQ(nHeld(), nRoom);
  EXPECT_EQ(nInFlight(), 0U);
}

// ------------------------------------------------------------------------------------------------ limits inside a walk

TEST_F(CacheFailureTest, EnforcingTheLimitInAWalkAnswersFalseAndIsMadeUpForAtItsEnd) {
  limitTo(1);
  const std::vector<CreatorPtr> dirty = {makeDirty(0), makeDirty(1)};
  for (const CreatorPtr& creator : dirty) creator->release();
  EXPECT_EQ(nHeld(), 0U);
  const FieldPtr field = makeField({dirty[0]});
  walk(field, [&](const CreatorPtr&) {
    for (const CreatorPtr& creator : dirty) creator->create(false);
    EXPECT_EQ(nHeld(), 2U) << "nobody is asked who may call others";
    EXPECT_FALSE(cache->enforceLimit());
    EXPECT_EQ(nHeld(), 2U);
  });
  EXPECT_EQ(nHeld(), 1U);
  EXPECT_TRUE(cache->enforceLimit());
}

TEST_F(CacheFailureTest, EnforcingTheLimitInAWalkOfAThreadThatBroughtNothingInIsMadeUpForAtItsEnd) {
  limitTo(1);
  const std::vector<CreatorPtr> dirty = {makeDirty(0), makeDirty(1)};
  const FieldPtr field = makeField(dirty);
  useAtOnce(dirty);
  std::thread([&] {
    walk(field, [&](const CreatorPtr&) {
      EXPECT_FALSE(cache->enforceLimit());
      EXPECT_EQ(nHeld(), 2U);
    });
    EXPECT_EQ(nHeld(), 1U);
  }).join();
}

TEST_F(CacheFailureTest, LoweringTheLimitInAWalkLetsSilentCreatorsGoAtOnce) {
  limitTo(2 * nRoom);
  const std::vector<CreatorPtr> creators = makeManySilent(2 * nRoom);
  const FieldPtr field = makeField({creators.front()});
  for (const CreatorPtr& creator : creators) creator->create(false);
  EXPECT_EQ(nHeld(), 2 * nRoom);
  walk(field, [&](const CreatorPtr&) {
    limitTo(nRoom);
    EXPECT_EQ(nHeld(), nRoom);
  });
  EXPECT_EQ(nHeld(), nRoom);
}

// ---------------------------------------------------------------------------------------------------- bare productions

TEST_F(CacheFailureTest, DataOfABareProductionOfAFunctionalCreatorDoNotCountAlsoWhenCreateFindsThem) {
  const std::vector<CreatorPtr> creators = makeManySilent(2 * nRoom);
  for (const CreatorPtr& creator : creators) EXPECT_TRUE(creator->produce());
  EXPECT_EQ(nHeld(), 0U);
  for (unsigned int i = 0; i < 2 * nRoom; ++i)
    EXPECT_TRUE(hasContent(creators[i]->create(false), knownContent(i), nElements));
  EXPECT_EQ(nHeld(), 0U);
  const CacheStatistics now = counts();
  EXPECT_EQ(now.nProductions + now.nEntries + now.nFailures, 0U);
  EXPECT_EQ(now.nAsked, 0U);
  for (const CreatorPtr& creator : creators) EXPECT_TRUE(creator->hasData()) << "and nobody lets them go";
  creators[0]->release();
  creators[0]->create(false);
  EXPECT_EQ(nHeld(), 1U) << "what create has made counts";
}

}  // namespace
