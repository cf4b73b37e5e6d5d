// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Limits, orders of eviction, numbers, events and the thread of a cache.

#include <tresk/foundation/Cache.hpp>

#include <support/CreatorDoubles.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Ostrel::Cache;
using Ostrel::CacheCandidate;
using Ostrel::CacheEvent;
using Ostrel::CacheEventKind;
using Ostrel::CacheHolding;
using Ostrel::CacheHoldingState;
using Ostrel::CachePolicy;
using Ostrel::CacheStatistics;
using Ostrel::CostAwarePolicy;
using Ostrel::Creature;
using Ostrel::StrongPtr;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using TreskTest::attachProducer;
using TreskTest::CachePtr;
using TreskTest::CountingData;
using TreskTest::CreatorPtr;
using TreskTest::DataPtr;
using TreskTest::ForgetfulCreator;
using TreskTest::KeepingCreator;

using PolicyPtr = StrongPtr<CachePolicy, CachePolicy>;
using Creator = CreatorPtr<ForgetfulCreator>;

class CacheLimitTest : public TreskTest::RecordBalanceTest {
 protected:
  /// A creator in `where` whose producer makes data of `nBytes` bytes. What it lets go is noted by `number`.
  Creator make(int number, unsigned long long nBytes = 100, const CachePtr& where = {}) {
    Creator creator(new ForgetfulCreator(where ? where : cache));
    attachProducer(*creator, [this, number, nBytes](const auto& self) {
      if (onProduce) onProduce(number);
      return DataPtr(new CountingData(number, nBytes, self));
    });
    creator->onRelease = [this, number] { asked.push_back(number); };
    return creator;
  }
  std::vector<Creator> makeMany(int n, unsigned long long nBytes = 100) {
    std::vector<Creator> all;
    for (int i = 0; i < n; ++i) all.push_back(make(i, nBytes));
    return all;
  }
  std::vector<int> held(const std::vector<Creator>& creators) const {
    std::vector<int> numbers;
    for (std::size_t i = 0; i < creators.size(); ++i)
      if (creators[i]->hasData()) numbers.push_back(static_cast<int>(i));
    return numbers;
  }
  unsigned long long nHeld() const { return cache->getStatistics().nHeldBytes; }

  CachePtr cache = CachePtr(new Cache);
  std::vector<int> asked;
  std::function<void(int)> onProduce;
};

TEST_F(CacheLimitTest, WithoutALimitNothingIsEverLetGo) {
  EXPECT_EQ(cache->getLimit(), Cache::NoLimit);
  const auto creators = makeMany(50);
  for (const Creator& creator : creators) creator->create(false);
  EXPECT_THAT(asked, IsEmpty());
  EXPECT_EQ(nHeld(), 5000U);
  EXPECT_EQ(cache->getStatistics().limit, Cache::NoLimit);
}

TEST_F(CacheLimitTest, LeastRecentlyUsedDataGoWhenTheLimitIsPassed) {
  cache->setLimit(300);
  const auto creators = makeMany(5);
  for (int i = 0; i < 3; ++i) creators[static_cast<std::size_t>(i)]->create(false);
  EXPECT_THAT(asked, IsEmpty());
  creators[0]->create(false);
  creators[3]->create(false);
  EXPECT_THAT(asked, ElementsAre(1));
  creators[2]->create(false);
  creators[4]->create(false);
  EXPECT_THAT(asked, ElementsAre(1, 0));
  EXPECT_THAT(held(creators), ElementsAre(2, 3, 4));
  EXPECT_EQ(nHeld(), 300U);
}

TEST_F(CacheLimitTest, UseOrderIsExactAcrossListingsAndBatches) {
  const auto creators = makeMany(100);
  for (const Creator& creator : creators) creator->create(false);
  // More uses than fit one batch, then new data, then old ones again.
  for (int i = 99; i >= 0; --i) creators[static_cast<std::size_t>(i)]->create(false);
  const Creator late = make(100);
  late->create(false);
  creators[50]->create(false);
  cache->trim(Cache::NoLimit);
  std::vector<int> expected;
  for (int i = 99; i >= 0; --i)
    if (i != 50) expected.push_back(i);
  expected.push_back(100);
  expected.push_back(50);
  EXPECT_EQ(asked, expected);
}

TEST_F(CacheLimitTest, DataLargerThanTheLimitStayWhileTheyAreHeldAndGoNext) {
  cache->setLimit(50);
  const Creator large = make(0);
  DataPtr data = large->create(false);
  EXPECT_TRUE(data.isValid());
  EXPECT_EQ(nHeld(), 100U) << "held by a caller";
  EXPECT_THAT(asked, IsEmpty()) << "data that a caller holds are not asked for";
  data.reset();
  EXPECT_EQ(nHeld(), 100U) << "nobody is told that a caller lets go";
  const Creator small = make(1, 10);
  small->create(false);
  EXPECT_FALSE(large->hasData());
  EXPECT_EQ(nHeld(), 10U);
}

TEST_F(CacheLimitTest, EnforcingTheLimitLetsGoWhatCallersHaveGivenBack) {
  cache->setLimit(50);
  const Creator large = make(0);
  {
    const DataPtr data = large->create(false);
    EXPECT_FALSE(cache->enforceLimit());
  }
  EXPECT_TRUE(cache->enforceLimit());
  EXPECT_FALSE(large->hasData());
  EXPECT_EQ(nHeld(), 0U);
}

TEST_F(CacheLimitTest, LoweringTheLimitLetsGoAtOnce) {
  const auto creators = makeMany(5);
  for (const Creator& creator : creators) creator->create(false);
  cache->setLimit(250);
  EXPECT_THAT(held(creators), ElementsAre(3, 4));
  cache->setLimit(0);
  EXPECT_THAT(held(creators), IsEmpty());
  cache->setLimit(Cache::NoLimit);
  for (const Creator& creator : creators) creator->create(false);
  EXPECT_EQ(nHeld(), 500U);
}

TEST_F(CacheLimitTest, NothingIsLetGoInsideAProduction) {
  cache->setLimit(200);
  const auto operands = makeMany(4);
  CacheStatistics inside;
  Creator sum(new ForgetfulCreator(cache));
  attachProducer(*sum, [&](const auto& self) {
    for (const Creator& operand : operands) operand->create(false);
    inside = cache->getStatistics();
    EXPECT_THAT(held(operands), ElementsAre(0, 1, 2, 3));
    return DataPtr(new CountingData(9, 100, self));
  });
  const DataPtr data = sum->create(false);
  EXPECT_EQ(inside.nHeldBytes, 400U);
  EXPECT_EQ(inside.nInFlightBytes, 200U) << "what is above the limit is in flight";
  EXPECT_THAT(asked, ElementsAre(0, 1, 2)) << "in the order of use, when all is done";
  EXPECT_EQ(cache->getStatistics().nHeldBytes, 200U);
  EXPECT_EQ(cache->getStatistics().nInFlightBytes, 0U);
}

TEST_F(CacheLimitTest, ProducingDirectlyIsAnOperationToo) {
  cache->setLimit(100);
  const auto operands = makeMany(3);
  Creator sum(new ForgetfulCreator(cache));
  attachProducer(*sum, [&](const auto& self) {
    for (const Creator& operand : operands) operand->create(false);
    return DataPtr(new CountingData(9, 100, self));
  });
  sum->produce();
  EXPECT_THAT(held(operands), ElementsAre(2));
}

TEST_F(CacheLimitTest, SettingDataCountsAndLetsOthersGo) {
  cache->setLimit(150);
  const Creator first = make(0);
  first->create(false);
  const DataPtr data(new CountingData(1, 100));
  const Creator second(new ForgetfulCreator(data, cache));
  EXPECT_FALSE(first->hasData());
  EXPECT_EQ(nHeld(), 100U);
  const CacheStatistics counts = cache->getStatistics();
  EXPECT_EQ(counts.nEntries, 1U);
  EXPECT_EQ(counts.nProductions, 1U);
}

TEST_F(CacheLimitTest, DataTiedAgainCountOnceWithTheirNewSize) {
  struct Growing : CountingData {
    unsigned long long memsize() const override { return nBytes; }
    unsigned long long nBytes = 100;
  };
  const StrongPtr<Growing, Ostrel::Cacheable> data(new Growing);
  const Creator creator(new ForgetfulCreator(data, cache));
  EXPECT_EQ(nHeld(), 100U);
  data->nBytes = 300;
  data->setCreator(creator->getSelf());
  EXPECT_EQ(nHeld(), 300U);
  EXPECT_EQ(cache->getStatistics().nEntries, 1U);
  EXPECT_EQ(cache->getStatistics().nPeakBytes, 300U);
}

TEST_F(CacheLimitTest, NumbersAddUp) {
  cache->setLimit(200);
  const auto creators = makeMany(4);
  for (int round = 0; round < 3; ++round)
    for (const Creator& creator : creators) creator->create(false);
  creators[3]->create(false);
  const CacheStatistics counts = cache->getStatistics();
  EXPECT_EQ(counts.nProductions, 12U);
  EXPECT_EQ(counts.nHits, 1U);
  EXPECT_EQ(counts.nFailures, 0U);
  EXPECT_EQ(counts.nEvicted, 10U);
  EXPECT_EQ(counts.nAsked, 10U);
  EXPECT_EQ(counts.nBytesGivenBack, 1000U);
  EXPECT_EQ(counts.nPeakBytes, 300U);
  EXPECT_EQ(counts.nInFlightBytes, 0U);
}

TEST_F(CacheLimitTest, FailuresAreCountedAndLeaveNothingInFlight) {
  cache->setLimit(100);
  Creator throwing(new ForgetfulCreator(cache));
  attachProducer(*throwing, [](const auto&) -> DataPtr { throw std::runtime_error("no data"); });
  Creator empty(new ForgetfulCreator(cache));
  attachProducer(*empty, [](const auto&) { return DataPtr(); });
  EXPECT_THROW(throwing->create(false), std::runtime_error);
  EXPECT_FALSE(empty->create(false).isValid());
  const CacheStatistics counts = cache->getStatistics();
  EXPECT_EQ(counts.nFailures, 2U);
  EXPECT_EQ(counts.nProductions, 0U);
  EXPECT_EQ(counts.nInFlightBytes, 0U);
  const auto creators = makeMany(2);
  for (const Creator& creator : creators) creator->create(false);
  EXPECT_EQ(nHeld(), 100U) << "the thread is outside of all operations again";
}

TEST_F(CacheLimitTest, KeptDataStayAndGoWhenTheyAreKeptNoLonger) {
  cache->setLimit(200);
  const auto creators = makeMany(4);
  creators[0]->create(true);
  for (std::size_t i = 1; i < 4; ++i) creators[i]->create(false);
  EXPECT_THAT(held(creators), ElementsAre(0, 3)) << "the oldest, but kept";
  creators[0]->enableCaching(false);
  creators[1]->create(false);
  EXPECT_THAT(held(creators), ElementsAre(1, 3));
}

TEST_F(CacheLimitTest, WhatNobodyCanBringBackIsAskedOnceUntilItIsUsedOrAskedForExplicitly) {
  cache->setLimit(100);
  const CreatorPtr<KeepingCreator> keeping(new KeepingCreator(DataPtr(new CountingData(0, 80)), cache));
  const auto creators = makeMany(3);
  for (const Creator& creator : creators) creator->create(false);
  EXPECT_EQ(keeping->nReleases, 1);
  EXPECT_EQ(cache->getStatistics().nCannotRelease, 1U);
  keeping->create(false);
  for (const Creator& creator : creators) creator->create(false);
  EXPECT_EQ(keeping->nReleases, 2) << "used since";
  cache->trim(Cache::NoLimit);
  EXPECT_EQ(keeping->nReleases, 3) << "asked explicitly";
  EXPECT_TRUE(cache->enforceLimit());
  EXPECT_EQ(keeping->nReleases, 3) << "the limit holds: nobody is asked";
}

TEST_F(CacheLimitTest, ACreatorThatRefusesOnceIsPassedOverAndAskedAgainLater) {
  class Stubborn : public ForgetfulCreator {
   public:
    using ForgetfulCreator::ForgetfulCreator;
    ReasonForReleasal release() override { return ++nRefusals == 1 ? StillInUse : ForgetfulCreator::release(); }
    int nRefusals = 0;
  };
  const CreatorPtr<Stubborn> stubborn(new Stubborn(DataPtr(new CountingData(0, 100)), cache));
  const auto creators = makeMany(3);
  creators[0]->create(false);
  cache->setLimit(200);
  creators[1]->create(false);
  EXPECT_EQ(cache->getStatistics().nStillInUse, 1U);
  EXPECT_TRUE(stubborn->hasData());
  EXPECT_FALSE(creators[0]->hasData()) << "the next in the order went instead";
  creators[2]->create(false);
  EXPECT_FALSE(stubborn->hasData());
}

TEST_F(CacheLimitTest, ReleasesThatBringInAsMuchAsTheyLetGoComeToAnEnd) {
  cache->setLimit(100);
  const auto creators = makeMany(3);
  for (std::size_t i = 0; i < 3; ++i) creators[i]->onRelease = [&, i] { creators[(i + 1) % 3]->create(false); };
  for (const Creator& creator : creators) creator->create(false);
  EXPECT_GT(nHeld(), 0U);
  for (const Creator& creator : creators) creator->onRelease = {};
  creators[0]->release();
  creators[0]->create(false);
  EXPECT_LE(nHeld(), 100U);
  EXPECT_EQ(cache->getStatistics().nInFlightBytes, 0U);
}

TEST_F(CacheLimitTest, AnExceptionOfAReleaseIsCountedAndReachesNobodyWhoDidNotAsk) {
  cache->setLimit(100);
  const auto creators = makeMany(2);
  creators[0]->create(false);
  creators[0]->onRelease = [] { throw std::runtime_error("cannot save"); };
  DataPtr data;
  EXPECT_NO_THROW(data = creators[1]->create(false));
  EXPECT_TRUE(data.isValid());
  EXPECT_TRUE(creators[0]->hasData());
  EXPECT_EQ(cache->getStatistics().nThrown, 1U);
  data.reset();
  EXPECT_THROW(cache->enforceLimit(), std::runtime_error) << "the caller has asked";
  EXPECT_THROW(cache->trim(1000), std::runtime_error);
  EXPECT_EQ(cache->getStatistics().nAsked, 3U);
  EXPECT_EQ(cache->getStatistics().nThrown, 3U);
  EXPECT_EQ(cache->getStatistics().nInFlightBytes, 0U);
}

TEST_F(CacheLimitTest, ReleaseMayUseTheCacheAndIsNotInterrupted) {
  cache->setLimit(100);
  const auto creators = makeMany(4);
  creators[0]->create(false);
  creators[0]->onRelease = [&] {
    creators[2]->create(false);
    EXPECT_TRUE(creators[2]->hasData());
    EXPECT_EQ(cache->trim(0), 0U);
  };
  creators[1]->create(false);
  EXPECT_LE(nHeld(), 100U);
  EXPECT_EQ(cache->getStatistics().nInFlightBytes, 0U);
}

TEST_F(CacheLimitTest, ACreatorMayDieWhileItIsAsked) {
  cache->setLimit(100);
  auto creators = makeMany(2);
  creators[0]->create(false);
  creators[0]->onRelease = [&] { creators[0].reset(); };
  creators[1]->create(false);
  EXPECT_EQ(nHeld(), 100U);
  EXPECT_EQ(cache->nCreatures(), 1U);
}

TEST_F(CacheLimitTest, TheCacheMayDieWhileItAsks) {
  cache->setLimit(100);
  auto creators = makeMany(3);
  creators[0]->create(false);
  creators[0]->onRelease = [&] { cache.reset(); };
  creators[1]->create(false);
  EXPECT_FALSE(creators[0]->hasData());
  EXPECT_FALSE(cache.isValid());
  creators[2]->create(false);
  EXPECT_THAT(held(creators), ElementsAre(1, 2)) << "nobody keeps books any more";
}

TEST_F(CacheLimitTest, AMovedUseOfAnotherThreadIsSeenAfterSixtyFour) {
  const auto creators = makeMany(2);
  for (const Creator& creator : creators) creator->create(false);
  std::atomic<bool> isUsed{false};
  std::atomic<bool> isOver{false};
  std::thread other([&] {
    for (int i = 0; i < 64; ++i) creators[0]->create(false);
    isUsed = true;
    while (!isOver) std::this_thread::yield();
  });
  while (!isUsed) std::this_thread::yield();
  EXPECT_EQ(cache->trim(1), 100U);
  EXPECT_THAT(held(creators), ElementsAre(0));
  EXPECT_EQ(cache->getStatistics().nHits, 64U);
  isOver = true;
  other.join();
}

TEST_F(CacheLimitTest, AThreadHandsItsUsesInWhenItEnds) {
  const auto creators = makeMany(2);
  for (const Creator& creator : creators) creator->create(false);
  std::thread([&] { creators[0]->create(false); }).join();
  EXPECT_EQ(cache->getStatistics().nHits, 1U);
  cache->trim(1);
  EXPECT_THAT(held(creators), ElementsAre(0));
}

TEST_F(CacheLimitTest, DataMayDieBetweenTheirUseAndTheHandingIn) {
  for (int round = 0; round < 200; ++round) {
    Creator creator = make(round);
    creator->create(false);
    creator->create(false);  // noted
    creator.reset();         // data and record go, and the record is used again
  }
  const CacheStatistics counts = cache->getStatistics();
  EXPECT_EQ(counts.nHeldBytes, 0U);
  EXPECT_EQ(counts.nProductions, 200U);
}

TEST_F(CacheLimitTest, HitsOfDataThatDieBeforeTheirUsesAreHandedInCount) {
  const Creator creator = make(0);
  for (int i = 0; i < 11; ++i) creator->create(false);
  creator->release();
  EXPECT_EQ(cache->getStatistics().nHits, 10U);
}

TEST_F(CacheLimitTest, UsesBeforeTheListingCountWithIt) {
  const DataPtr data(new CountingData);
  for (int i = 0; i < 5; ++i) data->markAsUsed();
  const Creator creator(new ForgetfulCreator(data, cache));
  EXPECT_EQ(cache->getStatistics().nHits, 5U);
  EXPECT_EQ(data->getUseCount(), 5);
}

TEST_F(CacheLimitTest, DataThatTheirCreatorDoesNotHoldAreAskedForOnce) {
  cache->setLimit(100);
  const Creator creator = make(0);
  const DataPtr orphan = creator->create(false);
  creator->takeData().reset();  // the caller alone holds them now
  const auto others = makeMany(4);
  for (const Creator& other : others) other->create(false);
  EXPECT_TRUE(orphan.isValid());
  EXPECT_LE(creator->nReleases, 1);
  EXPECT_EQ(cache->getHoldings().front().nBytes, 100U);
  orphan->markAsUsed();
  for (const Creator& other : others) other->create(false);
  EXPECT_LE(creator->nReleases, 1) << "its creator would let go other data";
}

// ---------------------------------------------------------------------------------------------------- several caches

TEST_F(CacheLimitTest, AParentLimitHoldsOverItsChildrenInOneOrderOfUse) {
  cache->setLimit(300);
  const CachePtr left(new Cache(cache));
  const CachePtr right(new Cache(cache));
  const Creator a = make(0, 100, left);
  const Creator b = make(1, 100, right);
  const Creator c = make(2, 100, left);
  const Creator d = make(3, 100, right);
  const Creator own = make(4, 100);
  a->create(false);
  b->create(false);
  c->create(false);
  a->create(false);
  d->create(false);
  EXPECT_THAT(asked, ElementsAre(1));
  own->create(false);
  EXPECT_THAT(asked, ElementsAre(1, 2));
  EXPECT_EQ(left->getStatistics().nHeldBytes, 100U);
  EXPECT_EQ(right->getStatistics().nHeldBytes, 100U);
  EXPECT_EQ(nHeld(), 300U) << "with those of the children";
  EXPECT_EQ(cache->getStatistics().nProductions, 5U);
  EXPECT_EQ(left->getStatistics().nProductions, 2U);
  EXPECT_EQ(cache->nCacheables(), 1U) << "on its own list";
}

TEST_F(CacheLimitTest, AChildHasALimitOfItsOwn) {
  cache->setLimit(1000);
  const CachePtr child(new Cache(cache));
  child->setLimit(100);
  const Creator a = make(0, 100, child);
  const Creator b = make(1, 100, child);
  const Creator other = make(2, 100);
  other->create(false);
  a->create(false);
  b->create(false);
  EXPECT_THAT(asked, ElementsAre(0)) << "what stands in the parent has nothing to do with it";
  EXPECT_EQ(nHeld(), 200U);
}

TEST_F(CacheLimitTest, AChildThatDiesTakesItsBytesOutOfTheParent) {
  CachePtr child(new Cache(cache));
  const Creator a = make(0, 100, child);
  a->create(false);
  EXPECT_EQ(nHeld(), 100U);
  child.reset();
  EXPECT_EQ(nHeld(), 0U);
  EXPECT_TRUE(a->hasData());
}

TEST_F(CacheLimitTest, AChildHoldsItsParent) {
  CachePtr child(new Cache(cache));
  const Ostrel::WeakPtr<Cache, Ostrel::CacheBase> parent(cache);
  cache.reset();
  EXPECT_TRUE(parent.isValid());
  child.reset();
  EXPECT_FALSE(parent.isValid());
}

// ---------------------------------------------------------------------------------------------------------- policies

/// Ranks by the size of data: the smallest is worth least.
class SmallestFirst : public CachePolicy {
 public:
  double worth(const CacheCandidate& candidate) const override {
    ++nAsked;
    return static_cast<double>(candidate.nBytes);
  }
  mutable std::atomic<int> nAsked{0};
};

TEST_F(CacheLimitTest, APolicyReplacesTheOrder) {
  const std::vector<Creator> creators = {make(0, 400), make(1, 100), make(2, 300), make(3, 100)};
  for (const Creator& creator : creators) creator->create(false);
  cache->setPolicy(PolicyPtr(new SmallestFirst));
  cache->trim(450);
  EXPECT_THAT(asked, ElementsAre(1, 3, 2)) << "the least recently used first among equals";
  cache->setPolicy(PolicyPtr());
  creators[1]->create(false);
  cache->trim(1);
  EXPECT_EQ(asked.back(), 0) << "the order of use holds again";
}

TEST_F(CacheLimitTest, APolicyRanksNowAndThenAndNotForEachEviction) {
  const StrongPtr<SmallestFirst, CachePolicy> policy(new SmallestFirst);
  cache->setPolicy(policy);
  cache->setLimit(6400);
  const auto creators = makeMany(192);
  for (const Creator& creator : creators) creator->create(false);
  EXPECT_EQ(nHeld(), 6400U);
  EXPECT_EQ(asked.size(), 128U);
  EXPECT_LE(policy->nAsked, 128 / 16 * 66) << "at least 16 evictions for each ranking of 65";
}

TEST_F(CacheLimitTest, DataUsedAfterTheRankingWaitForTheNext) {
  cache->setPolicy(PolicyPtr(new SmallestFirst));
  const std::vector<Creator> creators = {make(0, 100), make(1, 101), make(2, 102), make(3, 103)};
  for (const Creator& creator : creators) creator->create(false);
  cache->trim(1);
  creators[1]->create(false);
  cache->trim(1);
  EXPECT_THAT(asked, ElementsAre(0, 2));
}

TEST_F(CacheLimitTest, APolicyThatThrowsLeavesTheOrderOfUse) {
  class Throwing : public CachePolicy {
   public:
    double worth(const CacheCandidate&) const override { throw std::runtime_error("no idea"); }
  };
  cache->setPolicy(PolicyPtr(new Throwing));
  cache->setLimit(200);
  const auto creators = makeMany(4);
  for (const Creator& creator : creators) creator->create(false);
  EXPECT_THAT(asked, ElementsAre(0, 1));
}

TEST_F(CacheLimitTest, CostAwarePolicyLetsGoMostBytesForLeastTime) {
  const CostAwarePolicy policy;
  CacheCandidate cheap{1000, 0.001, 1, 0};
  CacheCandidate dear{1000, 1.0, 1, 0};
  CacheCandidate large{1000000, 1.0, 1, 0};
  CacheCandidate unknown{10, 0, 1, 0};
  EXPECT_LT(policy.worth(cheap), policy.worth(dear));
  EXPECT_LT(policy.worth(large), policy.worth(dear));
  EXPECT_LT(policy.worth(unknown), policy.worth(cheap));
  EXPECT_DOUBLE_EQ(policy.worth(dear), 1.0 / 1000);
}

TEST_F(CacheLimitTest, ProductionTimesAreMeasuredForAPolicyAndKeptByTheCreator) {
  const Creator before = make(0);
  before->create(false);
  EXPECT_EQ(before->getProductionSeconds(), 0) << "nobody wanted to know";
  cache->setPolicy(PolicyPtr(new CostAwarePolicy));
  // The second one works a thousand times as long as the first.
  std::atomic<unsigned long long> work{0};
  onProduce = [&](int number) {
    for (int i = 0; i < (number == 2 ? 3000000 : 3000); ++i) work.fetch_add(1);
  };
  const Creator quick = make(1);
  const Creator slow = make(2);
  slow->create(false);
  quick->create(false);
  EXPECT_GT(quick->getProductionSeconds(), 0);
  EXPECT_GT(slow->getProductionSeconds(), quick->getProductionSeconds());
  cache->trim(150);
  EXPECT_THAT(asked, ElementsAre(0, 1)) << "though the slow one is older";
  const double seconds = slow->getProductionSeconds();
  slow->release();
  EXPECT_EQ(slow->getProductionSeconds(), seconds) << "known after the data have gone";
}

// ------------------------------------------------------------------------------------------------- events and reports

TEST_F(CacheLimitTest, AListenerHearsWhatHappens) {
  std::vector<std::string> heard;
  cache->setListener([&](const CacheEvent& event) {
    heard.push_back(std::string(Ostrel::toString(event.kind)) + " " + std::to_string(event.nBytes) + " held " +
                    std::to_string(event.nHeldBytes));
  });
  cache->setLimit(150);
  const auto creators = makeMany(2);
  creators[0]->create(false);
  creators[1]->create(false);
  EXPECT_THAT(heard, ElementsAre("Produced 100 held 100", "Produced 100 held 200", "Evicted 100 held 100"));
  heard.clear();
  creators[1]->create(false);
  creators[1]->create(false);
  creators[0]->create(false);
  EXPECT_THAT(heard, ElementsAre("Used 100 held 100", "Produced 100 held 200", "Evicted 100 held 100"));
  heard.clear();
  {
    const DataPtr a = creators[0]->create(false);
    const DataPtr b = creators[1]->create(false);
  }
  EXPECT_EQ(heard.back(), "LimitExceeded 50 held 200");
  cache->setListener({});
  heard.clear();
  cache->trim(Cache::NoLimit);
  EXPECT_THAT(heard, IsEmpty());
}

TEST_F(CacheLimitTest, AListenerHearsTheTimeOfAProductionThatItsCreatorKeeps) {
  std::vector<CacheEvent> heard;
  cache->setListener([&](const CacheEvent& event) { heard.push_back(event); });
  const auto creators = makeMany(10);
  for (const Creator& creator : creators) creator->create(false);
  cache->setListener({});
  ASSERT_EQ(heard.size(), creators.size());
  for (std::size_t i = 0; i < heard.size(); ++i) {
    ASSERT_EQ(heard[i].kind, CacheEventKind::Produced);
    EXPECT_EQ(heard[i].seconds, creators[i]->getProductionSeconds()) << "measured once";
    if (i > 0) {
      EXPECT_GE(heard[i].time, heard[i - 1].time);
    }
  }
}

TEST_F(CacheLimitTest, AListenerHearsFailuresRefusalsAndWhoIsConcerned) {
  std::vector<CacheEvent> heard;
  cache->setListener([&](const CacheEvent& event) { heard.push_back(event); });
  Creator empty(new ForgetfulCreator(cache));
  attachProducer(*empty, [](const auto&) { return DataPtr(); });
  empty->create(false);
  ASSERT_EQ(heard.size(), 1U);
  EXPECT_EQ(heard[0].kind, CacheEventKind::Failed);
  EXPECT_TRUE(heard[0].creator == empty);
  const CreatorPtr<KeepingCreator> keeping(new KeepingCreator(DataPtr(new CountingData(0, 80)), cache));
  const Creator throwing = make(1);
  const DataPtr data = throwing->create(false);
  throwing->onRelease = [] { throw std::runtime_error("cannot save"); };
  EXPECT_THROW(cache->trim(1000), std::runtime_error);
  std::vector<CacheEventKind> kinds;
  for (const CacheEvent& event : heard) kinds.push_back(event.kind);
  EXPECT_THAT(kinds, ElementsAre(CacheEventKind::Failed, CacheEventKind::Entered, CacheEventKind::Produced,
                                 CacheEventKind::CannotRelease, CacheEventKind::Thrown));
  EXPECT_EQ(heard.back().text, "cannot save");
  EXPECT_TRUE(heard.back().creator == throwing);
  throwing->onRelease = [] { throw 7; };
  EXPECT_THROW(cache->trim(1000), int);
  EXPECT_EQ(heard.back().text, "an exception of unknown type");
  cache->setListener({});
}

TEST_F(CacheLimitTest, AListenerThatThrowsIsIgnoredAndOneMayUseTheCache) {
  int nHeard = 0;
  cache->setListener([&](const CacheEvent&) {
    if (++nHeard == 1) cache->getStatistics();
    throw std::runtime_error("not my day");
  });
  const Creator creator = make(0);
  EXPECT_NO_THROW(creator->create(false));
  EXPECT_EQ(nHeard, 1);
  cache->setListener({});
}

TEST_F(CacheLimitTest, AParentHearsItsChildren) {
  int nHeard = 0;
  cache->setListener([&](const CacheEvent&) { ++nHeard; });
  const CachePtr child(new Cache(cache));
  make(0, 100, child)->create(false);
  EXPECT_EQ(nHeard, 1);
  cache->setListener({});
}

TEST_F(CacheLimitTest, HoldingsSayWhoHoldsWhat) {
  const Creator free = make(0, 100);
  const Creator used = make(1, 400);
  const Creator kept = make(2, 300);
  Creator gone = make(3, 200);
  free->create(false);
  const DataPtr data = used->create(false);
  const DataPtr second = data;
  kept->create(true);
  const DataPtr orphan = gone->create(false);
  gone.reset();
  used->addProvenance(StrongPtr<Ostrel::Provenance, Ostrel::Provenance>(new Ostrel::Provenance("run/step/wind")));
  const std::vector<CacheHolding> all = cache->getHoldings();
  ASSERT_EQ(all.size(), 4U);
  EXPECT_EQ(all[0].nBytes, 400U);
  EXPECT_EQ(all[0].state, CacheHoldingState::HeldByCallers);
  EXPECT_EQ(all[0].nHolders, 2);
  EXPECT_EQ(all[0].path, "run/step/wind");
  EXPECT_THAT(all[0].creator, HasSubstr("CountingCreator"));
  EXPECT_EQ(all[1].state, CacheHoldingState::Kept);
  EXPECT_EQ(all[2].state, CacheHoldingState::HeldByCallers);
  EXPECT_EQ(all[2].creator, "");
  EXPECT_EQ(all[3].state, CacheHoldingState::Held);
  EXPECT_EQ(all[3].nHolders, 0);
}

TEST_F(CacheLimitTest, HoldingsShowProductionsThatRun) {
  Creator creator = make(0);
  creator->create(false);
  std::vector<CacheHolding> inside;
  const DataPtr data = creator->takeData();
  onProduce = [&](int) { inside = cache->getHoldings(); };
  creator->create(false);
  ASSERT_EQ(inside.size(), 1U);
  EXPECT_EQ(inside[0].state, CacheHoldingState::InProduction);
}

TEST_F(CacheLimitTest, DescriptionTellsTheNumbersAndWhatStandsInTheWay) {
  cache->setLimit(150);
  const Creator used = make(0, 2048);
  used->addProvenance(StrongPtr<Ostrel::Provenance, Ostrel::Provenance>(new Ostrel::Provenance("run/wind")));
  const DataPtr data = used->create(false);
  const std::string text = cache->describe();
  EXPECT_THAT(text, HasSubstr("limit 150 B, held 2.0 KiB (peak 2.0 KiB), in flight 0 B\n"));
  EXPECT_THAT(text, HasSubstr("hits 0, productions 1, failures 0, entries 0\n"));
  EXPECT_THAT(text,
              HasSubstr("the limit is passed by 1.9 KiB; in the way are\n  2.0 KiB  held by callers (1 besides the "
                        "creator), "));
  EXPECT_THAT(text, HasSubstr(", run/wind\n"));
  EXPECT_THAT(text, HasSubstr("resident set "));
  EXPECT_THAT(CachePtr(new Cache)->describe(), HasSubstr("limit none, held 0 B"));
}

TEST_F(CacheLimitTest, DescriptionCountsWhatIsBeyondItsLines) {
  cache->setLimit(50);
  const auto creators = makeMany(4);
  std::vector<DataPtr> data;
  for (const Creator& creator : creators) data.push_back(creator->create(false));
  const std::string text = cache->describe(1);
  EXPECT_THAT(text, testing::ContainsRegex("in the way are\n  100 B  held by callers [^\n]*\n  and 3 more\n$"));
  EXPECT_THAT(cache->describe(4), Not(HasSubstr("more\n")));
}

TEST_F(CacheLimitTest, EachKindAndStateHasAName) {
  for (int kind = 0; kind <= static_cast<int>(CacheEventKind::Returned); ++kind)
    EXPECT_STRNE(Ostrel::toString(static_cast<CacheEventKind>(kind)), "");
  for (int state = 0; state <= static_cast<int>(CacheHoldingState::InProduction); ++state)
    EXPECT_STRNE(Ostrel::toString(static_cast<CacheHoldingState>(state)), "");
}

TEST_F(CacheLimitTest, FreeMemoryIsReturnedAfterEnoughEvictions) {
  std::vector<unsigned long long> returned;
  cache->setListener([&](const CacheEvent& event) {
    if (event.kind == CacheEventKind::Returned) returned.push_back(event.nBytes);
  });
  cache->setReturnsMemoryAfter(250);
  const auto creators = makeMany(5);
  for (const Creator& creator : creators) creator->create(false);
  cache->trim(100);
  cache->trim(100);
  EXPECT_THAT(returned, IsEmpty());
  cache->trim(100);
  EXPECT_THAT(returned, ElementsAre(300U));
  cache->trim(Cache::NoLimit);
  EXPECT_THAT(returned, ElementsAre(300U));
  cache->setListener({});
}

TEST_F(CacheLimitTest, TheResidentSetIsKnown) { EXPECT_GT(Ostrel::getResidentBytes(), 100000U); }

// --------------------------------------------------------------------------------------------------- thread of a cache

TEST_F(CacheLimitTest, TheThreadOfTheCacheLetsGoWhatCallersGiveBackLater) {
  std::mutex mutex;
  std::condition_variable changed;
  bool isGone = false;
  cache->setListener([&](const CacheEvent& event) {
    if (event.kind != CacheEventKind::Evicted) return;
    const std::lock_guard lock(mutex);
    isGone = true;
    changed.notify_all();
  });
  cache->setLimit(50);
  cache->startThread();
  cache->startThread();  // runs already
  const Creator large = make(0);
  large->onRelease = {};
  {
    const DataPtr data = large->create(false);
    EXPECT_EQ(nHeld(), 100U);
  }
  {
    std::unique_lock lock(mutex);
    changed.wait(lock, [&] { return isGone; });
  }
  EXPECT_EQ(nHeld(), 0U);
  cache->stopThread();
  cache->stopThread();
  cache->setListener({});
}

TEST_F(CacheLimitTest, ACacheEndsWithItsThread) {
  cache->startThread();
  cache.reset();
  CachePtr second(new Cache);
  second->startThread();
  second->stopThread();
  second->startThread();
}

TEST_F(CacheLimitTest, ACacheMayEndOnItsOwnThread) {
  std::atomic<bool> isAsked{false};
  cache->setLimit(50);
  Creator creator = make(0);
  {
    const DataPtr data = creator->create(false);
    creator->onRelease = [&] {
      cache.reset();
      isAsked = true;
    };
    cache->startThread();
  }
  while (!isAsked) std::this_thread::yield();
  while (creator->hasData()) std::this_thread::yield();
  while (creator.strongCount() > 1) std::this_thread::yield();
  EXPECT_FALSE(creator->getCache().isValid());
}

// ------------------------------------------------------------------------------------------------------ many threads

TEST_F(CacheLimitTest, TheLimitHoldsUnderManyThreadsAtAnyMoment) {
  constexpr unsigned long long Limit = 2000;
  cache->setLimit(Limit);
  std::vector<Creator> creators;
  for (int i = 0; i < 100; ++i) {
    Creator creator(new ForgetfulCreator(cache));
    attachProducer(*creator, [i](const auto& self) { return DataPtr(new CountingData(i, 100, self)); });
    creators.push_back(creator);
  }
  std::atomic<int> nWrong{0};
  // Each thread has creators of its own, as these have no lock for their production.
  TreskTest::RaceRunner race;
  race.add(4, [&](int thread) {
    for (int i = 0; i < 5000; ++i) {
      const int number = thread * 25 + (i * 7 + i / 25) % 25;
      const DataPtr data = creators[static_cast<std::size_t>(number)]->create(false);
      if (!data || data->value != number) ++nWrong;
      const CacheStatistics counts = cache->getStatistics();
      if (counts.nHeldBytes > Limit + counts.nInFlightBytes) ++nWrong;
    }
  });
  race.run();
  EXPECT_EQ(nWrong, 0);
  EXPECT_TRUE(cache->enforceLimit());
  const CacheStatistics counts = cache->getStatistics();
  EXPECT_LE(counts.nHeldBytes, Limit);
  EXPECT_EQ(counts.nInFlightBytes, 0U);
  EXPECT_EQ(counts.nHits + counts.nProductions, 20000U);
  EXPECT_EQ(counts.nAsked, counts.nEvicted + counts.nStillInUse);
}

}  // namespace
