// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ComputationalField.hpp>

#include <support/CacheDoubles.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Ostrel::CacheStatistics;
using Tresk::AsynchronCreator;
using Tresk::Field;
using TreskTest::CreatorPtr;
using TreskTest::FieldOwner;
using TreskTest::FieldPtr;
using TreskTest::Flag;
using TreskTest::FragmentIDPtr;
using TreskTest::hasContent;
using TreskTest::KindPtr;
using TreskTest::knownContent;
using TreskTest::makeKnownArray;
using TreskTest::MemBasePtr;
using TreskTest::since;

constexpr std::size_t nElements = 16;
constexpr unsigned long long Bytes = nElements * sizeof(double);
/// Arrays that the limit has room for, and those of a field.
constexpr unsigned int nRoom = 10;
constexpr unsigned int nFragments = 4 * nRoom;

MemBasePtr makeFragmentArray(unsigned int i) { return makeKnownArray(knownContent(i), nElements); }

/// Fields of four times as many arrays as the limit of the default cache has room for.
class CacheWalkTest : public TreskTest::LimitedCacheTest {
 protected:
  CacheWalkTest() { cache->setLimit(atStart.nHeldBytes + nRoom * Bytes); }

  CreatorPtr makeFunctional(unsigned int i) {
    const CreatorPtr creator(new Tresk::FunctionalCreator([i] { return makeFragmentArray(i); }, false, cache));
    creator->addMetaInfo(1, Tresk::getTreskType<double>());
    return creator;
  }
  /// Data that exist, that were not saved, and that can be brought back.
  CreatorPtr makeDirty(unsigned int i) {
    const CreatorPtr creator(new Tresk::CreativeArray(makeFragmentArray(i), cache));
    TreskTest::attachArrayProducer(*creator, [i] { return makeFragmentArray(i); });
    return creator;
  }
  static FieldPtr makeField(const std::function<CreatorPtr(unsigned int)>& make,
                            const FieldPtr& field = FieldPtr(new Field)) {
    for (unsigned int i = 0; i < nFragments; ++i) {
      const FragmentIDPtr fragment = field->makeFragmentID(std::to_string(i));
      field->setCreator(make(i), fragment);
    }
    return field;
  }
  FieldPtr makeFunctionalField() {
    return makeField([this](unsigned int i) { return makeFunctional(i); });
  }
  /// A field of dirty data, whose owner counts in `nSaves` how often it was asked to save them.
  FieldPtr makeDirtyField() {
    const FieldPtr field(new Field);
    field->addOwner(owner_);
    return makeField([this](unsigned int i) { return makeDirty(i); }, field);
  }

  /// `create` on each fragment, under the shared lock of the field, and a look after each.
  void walk(const FieldPtr& field, const std::function<void(unsigned int)>& look) {
    unsigned int i = 0;
    const unsigned int nTrue = field->iterate(
        [&](const FragmentIDPtr&, const CreatorPtr& creator) {
          EXPECT_TRUE(hasContent(creator->create(false), knownContent(i), nElements));
          look(i++);
          return true;
        },
        false, false);
    EXPECT_EQ(nTrue, nFragments);
  }

  unsigned long long nHeld() const { return (cache->getStatistics().nHeldBytes - atStart.nHeldBytes) / Bytes; }
  unsigned long long nInFlight() const { return cache->getStatistics().nInFlightBytes / Bytes; }

  int nSaves = 0;

 private:
  const TreskTest::OwnerPtr<FieldOwner> owner_ =
      TreskTest::makeOwner<FieldOwner>([this](Ostrel::Intercube&, const Ostrel::Intercube&) {
        ++nSaves;
        return true;
      });
};

TEST_F(CacheWalkTest, WalkOverFourTimesTheLimitStaysWithinItAtEachStep) {
  const FieldPtr field = makeFunctionalField();
  for (unsigned int round = 1; round <= 3; ++round) {
    walk(field, [&](unsigned int i) {
      EXPECT_EQ(nHeld(), round == 1 ? std::min(i + 1, nRoom) : nRoom);
      EXPECT_EQ(nInFlight(), 0U);
    });
    // What a walk finds in the cache is always what comes last.
    const CacheStatistics now = counts();
    EXPECT_EQ(now.nProductions, round * nFragments);
    EXPECT_EQ(now.nHits, 0U);
    EXPECT_EQ(now.nEvicted, round * nFragments - nRoom);
    EXPECT_EQ(now.nAsked, now.nEvicted);
    EXPECT_EQ(now.nBytesGivenBack, now.nEvicted * Bytes);
    EXPECT_EQ(nHeld(), nRoom);
  }
}

TEST_F(CacheWalkTest, WalkForgetsWhatWasUsedLeastRecently) {
  const FieldPtr field = makeFunctionalField();
  walk(field, [&](unsigned int i) {
    // The first one is used again and again, and stays.
    EXPECT_TRUE(field->getCreatorByNumericalID(0)->hasData());
    field->getCreatorByNumericalID(0)->create(false);
    for (unsigned int other = 1; other <= i; ++other)
      EXPECT_EQ(field->getCreatorByNumericalID(other)->hasData(), other + nRoom - 1 > i) << other << " at " << i;
  });
  EXPECT_EQ(counts().nHits, nFragments);
  EXPECT_EQ(counts().nProductions, nFragments);
}

TEST_F(CacheWalkTest, DataThatTheCallbackHoldsAreLeftAlone) {
  const FieldPtr field = makeFunctionalField();
  std::vector<MemBasePtr> held;
  unsigned int i = 0;
  field->iterate(
      [&](const FragmentIDPtr&, const CreatorPtr& creator) {
        held.push_back(creator->create(false));
        EXPECT_EQ(nHeld(), ++i) << "beyond the limit, as nothing can be let go";
        return true;
      },
      false, false);
  EXPECT_EQ(counts().nAsked, 0U) << "nobody is asked for what callers hold";
  EXPECT_FALSE(cache->enforceLimit());
  held.clear();
  EXPECT_EQ(nHeld(), nFragments) << "nothing happens when a caller lets go";
  field->getCreatorByNumericalID(0)->release();
  field->getCreatorByNumericalID(0)->create(false);
  EXPECT_EQ(nHeld(), nRoom) << "until the next operation that brings data";
}

TEST_F(CacheWalkTest, RequestsAndQuestionsAloneStayWithinTheLimit) {
  const FieldPtr field = makeFunctionalField();
  for (unsigned int i = 0; i < nFragments; ++i) {
    const CreatorPtr creator = field->getCreatorByNumericalID(i);
    EXPECT_FALSE(creator->hasData());
    EXPECT_TRUE(creator->request({}));
    EXPECT_TRUE(creator->hasData());
    EXPECT_EQ(nHeld(), std::min(i + 1, nRoom));
    EXPECT_EQ(nInFlight(), 0U);
  }
  EXPECT_EQ(counts().nProductions, nFragments);
  EXPECT_EQ(counts().nEvicted, nFragments - nRoom);
  for (unsigned int i = 0; i < nFragments; ++i)
    EXPECT_EQ(field->getCreatorByNumericalID(i)->hasData(), i >= nFragments - nRoom);
}

TEST_F(CacheWalkTest, RequestsOfAsynchronousCreatorsStayWithinTheLimit) {
  std::vector<KindPtr<AsynchronCreator>> creators;
  for (unsigned int i = 0; i < nFragments; ++i)
    creators.push_back(makeAsynchron([i](const Flag&) { return makeFragmentArray(i); }));
  const auto look = [&] {
    const CacheStatistics now = cache->getStatistics();
    EXPECT_LE(now.nHeldBytes, now.limit + now.nInFlightBytes);
    return now.nInFlightBytes != 0;
  };
  for (const auto& creator : creators) {
    EXPECT_FALSE(creator->hasData());
    EXPECT_TRUE(creator->request({}));
    while (creator->isUnderCreation()) look();
    EXPECT_TRUE(creator->hasData());
    while (look()) std::this_thread::yield();  // the thread lets other data go at its end
    EXPECT_LE(nHeld(), nRoom);
  }
  EXPECT_EQ(counts().nProductions, nFragments);
  EXPECT_EQ(counts().nEvicted, nFragments - nRoom);
  EXPECT_EQ(nHeld(), nRoom);
}

// ---------------------------------------------------------------------------------------------------------- savers

TEST_F(CacheWalkTest, CreatorsWithSaversAreAskedAtTheEndOfTheWalk) {
  cache->setLimit(Ostrel::Cache::NoLimit);
  const FieldPtr field = makeDirtyField();
  EXPECT_EQ(nHeld(), nFragments);
  cache->setLimit(atStart.nHeldBytes + nRoom * Bytes);
  EXPECT_EQ(nSaves, static_cast<int>(nFragments - nRoom));
  EXPECT_EQ(nHeld(), nRoom);

  walk(field, [&](unsigned int i) {
    EXPECT_EQ(nSaves, static_cast<int>(nFragments - nRoom)) << "no saver runs under the lock";
    EXPECT_EQ(nHeld(), std::min(i + 1 + nRoom, nFragments));
  });
  // The last ones were held all the time.
  EXPECT_EQ(counts().nProductions, nFragments - nRoom);
  EXPECT_EQ(counts().nHits, nRoom);
  EXPECT_EQ(nSaves, static_cast<int>(2 * (nFragments - nRoom)));
  EXPECT_EQ(nHeld(), nRoom);
  EXPECT_EQ(nInFlight(), 0U);
  for (unsigned int i = 0; i < nFragments; ++i)
    EXPECT_EQ(field->getCreatorByNumericalID(i)->hasData(), i >= nFragments - nRoom);
}

TEST_F(CacheWalkTest, CreatorsWithoutSaversAreAskedInsteadWhileTheWalkLasts) {
  cache->setLimit(Ostrel::Cache::NoLimit);
  const FieldPtr dirty(new Field);
  for (unsigned int i = 0; i < nRoom / 2; ++i)
    dirty->setCreator(makeDirty(i), dirty->makeFragmentID(std::to_string(i)));
  cache->setLimit(atStart.nHeldBytes + nRoom * Bytes);
  const FieldPtr field = makeFunctionalField();
  walk(field, [&](unsigned int i) { EXPECT_EQ(nHeld(), std::min(nRoom / 2 + i + 1, nRoom)); });
  EXPECT_EQ(counts().nEvicted, nFragments - nRoom / 2);
  dirty->iterate(
      [](const FragmentIDPtr&, const CreatorPtr& creator) {
        EXPECT_TRUE(creator->hasData()) << "though it was used least recently";
        return true;
      },
      false, false);
}

TEST_F(CacheWalkTest, SaversAreAskedAtTheEndOfTheOutermostOfNestedWalks) {
  cache->setLimit(Ostrel::Cache::NoLimit);
  const FieldPtr field = makeDirtyField();
  cache->setLimit(atStart.nHeldBytes + nRoom * Bytes);
  const FieldPtr outer = makeFunctionalField();
  const int nSavesBefore = nSaves;
  walk(outer, [&](unsigned int i) {
    if (i != nRoom) return;
    walk(field, [](unsigned int) {});
    EXPECT_EQ(nSaves, nSavesBefore) << "the outer walk still holds its lock";
    EXPECT_GE(nHeld(), nFragments);
  });
  EXPECT_GT(nSaves, nSavesBefore);
  EXPECT_EQ(nHeld(), nRoom);
  EXPECT_EQ(nInFlight(), 0U);
}

TEST_F(CacheWalkTest, WalkThatIsLeftByAnExceptionLetsDataGoAllTheSame) {
  cache->setLimit(Ostrel::Cache::NoLimit);
  const FieldPtr field = makeDirtyField();
  cache->setLimit(atStart.nHeldBytes + nRoom * Bytes);
  EXPECT_THROW(walk(field,
                    [&](unsigned int i) {
                      if (i == nRoom) throw std::runtime_error("enough");
                    }),
               std::runtime_error);
  EXPECT_EQ(nHeld(), nRoom);
  EXPECT_TRUE(field->getCreatorByNumericalID(nRoom)->hasData());
  EXPECT_EQ(cache->getStatistics().nThrown, atStart.nThrown);
}

TEST_F(CacheWalkTest, WalksOverASnapshotLetSaversRunAtEachStep) {
  cache->setLimit(Ostrel::Cache::NoLimit);
  const FieldPtr field = makeDirtyField();
  cache->setLimit(atStart.nHeldBytes + nRoom * Bytes);
  const int nSavesBefore = nSaves;
  unsigned int i = 0;
  field->iterate(
      [&](const FragmentIDPtr&, const CreatorPtr& creator) {
        EXPECT_TRUE(creator->create(false));
        EXPECT_EQ(nSaves, nSavesBefore + static_cast<int>(++i)) << "each array took the place of another one";
        EXPECT_EQ(nHeld(), nRoom);
        return true;
      },
      false, true);
  EXPECT_EQ(i, nFragments);
}

// ----------------------------------------------------------------------------------------------------- productions

TEST_F(CacheWalkTest, WalkInsideAProductionLetsNothingGoAndCountsAllAsInFlight) {
  const FieldPtr field = makeFunctionalField();
  unsigned long long nAskedInside = 0;
  const CreatorPtr whole(new Tresk::FunctionalCreator(
      [&] {
        walk(field, [&](unsigned int i) {
          EXPECT_EQ(nHeld(), i + 1);
          EXPECT_EQ(nInFlight(), i < nRoom ? 0 : i + 1 - nRoom);
        });
        nAskedInside = counts().nAsked;
        return makeFragmentArray(nFragments);
      },
      false, cache));
  EXPECT_TRUE(hasContent(whole->create(false), knownContent(nFragments), nElements));
  EXPECT_EQ(nAskedInside, 0U);
  EXPECT_EQ(counts().nProductions, nFragments + 1);
  EXPECT_EQ(counts().nEvicted, nFragments + 1 - nRoom);
  EXPECT_EQ(nHeld(), nRoom);
  EXPECT_EQ(nInFlight(), 0U);
  EXPECT_TRUE(whole->hasData());
}

TEST_F(CacheWalkTest, ProductionThatFailsInTheMiddleOfAWalkGivesUpWhatItHasBroughtIn) {
  const FieldPtr field = makeFunctionalField();
  const CreatorPtr whole(new Tresk::FunctionalCreator(
      [&]() -> MemBasePtr {
        walk(field, [&](unsigned int i) {
          if (i == 2 * nRoom - 1) throw std::runtime_error("no such file");
        });
        return {};
      },
      false, cache));
  EXPECT_THROW(whole->create(false), std::runtime_error);
  EXPECT_EQ(counts().nProductions, 2 * nRoom);
  EXPECT_EQ(counts().nFailures, 1U);
  EXPECT_EQ(counts().nEvicted, nRoom);
  EXPECT_EQ(nHeld(), nRoom);
  EXPECT_EQ(nInFlight(), 0U);
}

TEST_F(CacheWalkTest, WalkOverAComputedFieldStaysWithinTheLimitWithItsOperands) {
  const FieldPtr left = makeFunctionalField();
  const FieldPtr right =
      makeField([this](unsigned int i) { return makeFunctional(i); }, FieldPtr((new Field(Tresk::FieldWeakPtr(left)))));
  const FieldPtr sum = Tresk::addFields(left, right);
  for (unsigned int round = 1; round <= 2; ++round) {
    unsigned int i = 0;
    sum->iterate(
        [&](const FragmentIDPtr&, const CreatorPtr& creator) {
          const MemBasePtr data = creator->create(false);
          EXPECT_TRUE(hasContent(data, knownContent(i) + knownContent(i), nElements));
          ++i;
          EXPECT_EQ(nHeld(), round == 1 ? std::min(3 * i, nRoom) : nRoom);
          EXPECT_EQ(nInFlight(), 0U);
          return true;
        },
        false, false);
    EXPECT_EQ(i, nFragments);
    EXPECT_EQ(counts().nProductions, round * 3 * nFragments);
    EXPECT_EQ(counts().nEvicted, round * 3 * nFragments - nRoom);
    EXPECT_EQ(counts().nHits, 0U);
  }
}

TEST_F(CacheWalkTest, EachAccessOfOneThreadIsAHitOrAProductionOrAFailure) {
  const FieldPtr field = makeFunctionalField();
  const CreatorPtr failing(new Tresk::FunctionalCreator([]() -> MemBasePtr { return {}; }, false, cache));
  unsigned int nAccesses = 0;
  for (unsigned int i = 0; i < 1000; ++i) {
    // Most of them hit; each tenth goes anywhere.
    const unsigned int which = i % 10 == 0 ? (i * 7) % nFragments : i % (nRoom / 2);
    field->getCreatorByNumericalID(which)->create(false);
    ++nAccesses;
    if (i % 100 != 0) continue;
    EXPECT_FALSE(failing->create(false));
    ++nAccesses;
  }
  const CacheStatistics now = counts();
  EXPECT_EQ(now.nFailures, 10U);
  EXPECT_GT(now.nHits, now.nProductions);
  EXPECT_EQ(now.nHits + now.nProductions + now.nFailures, nAccesses);
  EXPECT_EQ(now.nProductions, now.nEvicted + nHeld());
}

}  // namespace
