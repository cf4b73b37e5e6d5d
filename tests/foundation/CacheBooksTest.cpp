// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// What the books of a cache must not lose sight of: limits that one operation passes in several caches, data that
// change their size, their creator or their mind while they are asked for, policies and listeners that come and go.

#include <tresk/foundation/Cache.hpp>

#include <support/CreatorDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Ostrel::Cache;
using Ostrel::Cacheable;
using Ostrel::CacheCandidate;
using Ostrel::CacheEvent;
using Ostrel::CacheEventKind;
using Ostrel::CachePolicy;
using Ostrel::CacheStatistics;
using Ostrel::StrongPtr;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using TreskTest::attachProducer;
using TreskTest::CachePtr;
using TreskTest::CountingData;
using TreskTest::CreatorPtr;
using TreskTest::DataPtr;
using TreskTest::ForgetfulCreator;
using TreskTest::KeepingCreator;

using Creator = CreatorPtr<ForgetfulCreator>;
using PolicyPtr = StrongPtr<CachePolicy, CachePolicy>;

/// Data that say another size whenever they are told to.
class GrowingData : public CountingData {
 public:
  unsigned long long memsize() const override { return nBytes; }
  unsigned long long nBytes = 100;
};

/// A creator with something to do when it is asked which data it holds.
class QuestionedCreator : public ForgetfulCreator {
 public:
  using ForgetfulCreator::ForgetfulCreator;
  StrongPtr<Cacheable, Cacheable> getCacheable() override {
    if (onCacheableQuestion) onCacheableQuestion();
    return ForgetfulCreator::getCacheable();
  }
  std::function<void()> onCacheableQuestion;
};

/// Ranks by the time of use, the wrong way round: what was used last goes first.
class LatestFirst : public CachePolicy {
 public:
  /// Fails whenever it is asked more than so often.
  explicit LatestFirst(int nAnswers = std::numeric_limits<int>::max()) : nAnswers_(nAnswers) {}
  double worth(const CacheCandidate& candidate) const override {
    if (++nAsked > nAnswers_) throw std::runtime_error("no idea any more");
    return -static_cast<double>(candidate.recency);
  }
  mutable int nAsked = 0;  // on one thread

 private:
  const int nAnswers_;
};

/// Ranks by the size of data: the largest is worth least.
class LargestFirst : public CachePolicy {
 public:
  double worth(const CacheCandidate& candidate) const override { return -static_cast<double>(candidate.nBytes); }
};

class CacheBooksTest : public TreskTest::RecordBalanceTest {
 protected:
  /// Makes data of `nBytes` bytes for `creator`, and does something before it.
  template <class CreatorPointer>
  static CreatorPointer withProducer(const CreatorPointer& creator, unsigned long long nBytes = 100,
                                     std::function<void()> onProduce = {}) {
    attachProducer(*creator, [nBytes, onProduce = std::move(onProduce)](const auto& self) {
      if (onProduce) onProduce();
      return DataPtr(new CountingData(0, nBytes, self));
    });
    return creator;
  }
  static Creator makeIn(const CachePtr& where, unsigned long long nBytes = 100, std::function<void()> onProduce = {}) {
    return withProducer(Creator(new ForgetfulCreator(where)), nBytes, std::move(onProduce));
  }
  Creator make(unsigned long long nBytes = 100, std::function<void()> onProduce = {}) const {
    return makeIn(cache, nBytes, std::move(onProduce));
  }
  /// Creators with their data.
  std::vector<Creator> makeHolding(int n) const {
    std::vector<Creator> creators;
    for (int i = 0; i < n; ++i) {
      creators.push_back(make());
      creators.back()->create(false);
    }
    return creators;
  }

  /// What another thread does meanwhile.
  static void onAnotherThread(const std::function<void()>& work) { std::thread(work).join(); }
  /// Gives the data of one creator to another one.
  template <class Former>
  static void handOn(Former& from, ForgetfulCreator& to) {
    to.held() = from.takeData();
    to.held()->setCreator(to.getSelf());
  }

  static unsigned long long nHeldIn(const CachePtr& where) { return where->getStatistics().nHeldBytes; }
  unsigned long long nHeld() const { return nHeldIn(cache); }
  /// Places of the creators that have data.
  static std::vector<std::size_t> placesWithData(const std::vector<Creator>& creators) {
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < creators.size(); ++i)
      if (creators[i]->hasData()) places.push_back(i);
    return places;
  }

  const CachePtr cache = CachePtr(new Cache);
};

// --------------------------------------------------------------------------------------- several limits, one operation

TEST_F(CacheBooksTest, ProductionThatPassesTheLimitsOfTwoCachesBringsBothBackToThem) {
  const CachePtr other(new Cache);
  cache->setLimit(100);
  other->setLimit(100);
  // On a new thread, which has dealt with neither of them before.
  onAnotherThread([&] {
    const Creator formerOperand = make();
    const Creator operand = make();
    const Creator formerSum = makeIn(other);
    const Creator sum = makeIn(other, 100, [&] { operand->create(false); });
    formerOperand->create(false);
    formerSum->create(false);
    sum->create(false);
    EXPECT_EQ(nHeld(), 100U);
    EXPECT_TRUE(operand->hasData());
    EXPECT_EQ(nHeldIn(other), 100U);
    EXPECT_FALSE(formerSum->hasData());
    EXPECT_TRUE(sum->hasData());
  });
}

TEST_F(CacheBooksTest, ProductionThatPassesTheLimitsOfThreeCachesBringsAllBackToThem) {
  const CachePtr second(new Cache);
  const CachePtr third(new Cache);
  for (const CachePtr& each : {cache, second, third}) each->setLimit(100);
  onAnotherThread([&] {
    const std::vector<Creator> former = {make(), makeIn(second), makeIn(third)};
    const Creator operand = make();
    const Creator sum = makeIn(second, 100, [&] { operand->create(false); });
    const Creator sumOfSums = makeIn(third, 100, [&] { sum->create(false); });
    for (const Creator& creator : former) creator->create(false);
    sumOfSums->create(false);
    for (const CachePtr& each : {cache, second, third}) EXPECT_EQ(nHeldIn(each), 100U);
    for (const Creator& creator : former) EXPECT_FALSE(creator->hasData());
  });
}

TEST_F(CacheBooksTest, ProductionThatFailsBringsItsOwnCacheAndThoseOfItsOperandsBackToTheirLimits) {
  const CachePtr other(new Cache);
  cache->setLimit(100);
  other->setLimit(100);
  onAnotherThread([&] {
    const Creator formerOperand = make();
    const Creator operand = make();
    const std::vector<Creator> formerSums = {makeIn(other), makeIn(other)};
    const Creator failing = makeIn(other, 100, [&] {
      operand->create(false);
      throw std::runtime_error("no data");
    });
    formerOperand->create(false);
    onAnotherThread([&] {
      const DataPtr first = formerSums[0]->create(false);
      const DataPtr second = formerSums[1]->create(false);
    });
    EXPECT_EQ(nHeldIn(other), 200U) << "both were in use until there was no operation any more";
    EXPECT_THROW(failing->create(false), std::runtime_error);
    EXPECT_EQ(nHeld(), 100U);
    EXPECT_EQ(nHeldIn(other), 100U);
  });
}

// ---------------------------------------------------------------------------------- excused by what was about to leave

TEST_F(CacheBooksTest, DataThatCameInWhileOthersWereAskedAreMadeRoomForIfThoseAreRefused) {
  cache->setLimit(200);
  const Creator asked = make(100);
  const Creator small = make(10);
  const Creator next = make(90);
  const Creator comingIn = make(100);
  for (const Creator& creator : {asked, small, next}) creator->create(false);
  DataPtr inUse;
  asked->onRelease = [&] {
    if (comingIn->hasData()) return;
    onAnotherThread([&] { comingIn->create(false); });
    inUse = asked->getData();
  };
  cache->trim(5);
  EXPECT_TRUE(inUse.isValid()) << "and so they stay";
  EXPECT_TRUE(comingIn->hasData());
  EXPECT_FALSE(next->hasData()) << "for which somebody else has to go";
  EXPECT_EQ(nHeld(), 200U);
}

TEST_F(CacheBooksTest, DataThatCameInWhileOthersWereAskedAreMadeRoomForIfTheirReleaseThrows) {
  cache->setLimit(200);
  const Creator asked = make();
  const Creator next = make();
  const Creator comingIn = make();
  asked->create(false);
  next->create(false);
  asked->onRelease = [&] {
    onAnotherThread([&] { comingIn->create(false); });
    throw std::runtime_error("disk full");
  };
  EXPECT_THROW(cache->trim(5), std::runtime_error);
  EXPECT_TRUE(asked->hasData());
  EXPECT_FALSE(next->hasData());
  EXPECT_TRUE(comingIn->hasData());
  EXPECT_EQ(nHeld(), 200U);
}

TEST_F(CacheBooksTest, SiblingIsBroughtToItsLimitIfDataStayThatExcusedOthersThere) {
  const CachePtr left(new Cache(cache));
  const CachePtr right(new Cache(cache));
  cache->setLimit(300);
  right->setLimit(100);
  const Creator asked = makeIn(right);
  const Creator comingIn = makeIn(right);
  const std::vector<Creator> inLeft = {makeIn(left), makeIn(left), makeIn(left)};
  asked->create(false);
  inLeft[0]->create(false);
  inLeft[1]->create(false);
  bool hasThrown = false;
  asked->onRelease = [&] {
    if (std::exchange(hasThrown, true)) return;
    onAnotherThread([&] { comingIn->create(false); });
    throw std::runtime_error("cannot save");
  };
  inLeft[2]->create(false);
  EXPECT_TRUE(hasThrown);
  EXPECT_LE(nHeldIn(right), 100U) << right->describe();
  EXPECT_LE(nHeld(), 300U) << cache->describe();
}

// --------------------------------------------------------------------------------------------- data that are set again

TEST_F(CacheBooksTest, DataThatHaveGrownLetOthersGoWhenTheyAreSetAgain) {
  cache->setLimit(250);
  const Creator older = make();
  older->create(false);
  const StrongPtr<GrowingData, Cacheable> data(new GrowingData);
  const Creator holder(new ForgetfulCreator(data, cache));
  EXPECT_EQ(nHeld(), 200U);
  data->nBytes = 200;
  data->setCreator(holder->getSelf());
  EXPECT_FALSE(older->hasData());
  EXPECT_EQ(nHeld(), 200U);
}

TEST_F(CacheBooksTest, WhatDataHaveGrownByInsideAProductionIsInFlightUntilItsEnd) {
  cache->setLimit(250);
  const Creator older = make();
  older->create(false);
  const StrongPtr<GrowingData, Cacheable> data(new GrowingData);
  const Creator holder(new ForgetfulCreator(data, cache));
  CacheStatistics inside;
  const Creator outer = make(0, [&] {
    data->nBytes = 200;
    data->setCreator(holder->getSelf());
    inside = cache->getStatistics();
  });
  outer->create(false);
  EXPECT_EQ(inside.nHeldBytes, 300U);
  EXPECT_GE(inside.nInFlightBytes, 50U);
  EXPECT_FALSE(older->hasData());
  EXPECT_EQ(nHeld(), 200U);
  EXPECT_EQ(cache->getStatistics().nInFlightBytes, 0U);
}

TEST_F(CacheBooksTest, DataThatCouldNotBeLetGoAreAskedForWhenTheyGetACreatorThatCan) {
  cache->setLimit(100);
  const CreatorPtr<KeepingCreator> keeping(new KeepingCreator(DataPtr(new CountingData(0, 200)), cache));
  keeping->enableCaching(false);
  make(10)->create(false);
  EXPECT_EQ(cache->getStatistics().nCannotRelease, 1U);
  EXPECT_EQ(nHeld(), 200U);
  const Creator forgetful = make();
  handOn(*keeping, *forgetful);
  EXPECT_FALSE(forgetful->hasData());
  EXPECT_EQ(nHeld(), 0U);
}

// ----------------------------------------------------------------------------- a new creator while the former is asked

TEST_F(CacheBooksTest, TrimGoesOnToTheCreatorThatGotTheDataWhileTheFormerReleasedThem) {
  const Creator former = make();
  const Creator present = make();
  former->create(false);
  former->onRelease = [&] { handOn(*former, *present); };
  EXPECT_EQ(cache->trim(1), 100U) << cache->describe();
  EXPECT_EQ(former->nReleases, 1);
  EXPECT_EQ(present->nReleases, 1);
  EXPECT_FALSE(present->hasData());
  EXPECT_EQ(nHeld(), 0U);
  const CacheStatistics counts = cache->getStatistics();
  EXPECT_EQ(counts.nAsked, 2U);
  EXPECT_EQ(counts.nEvicted, 1U);
  EXPECT_EQ(counts.nStillInUse, 1U);
}

TEST_F(CacheBooksTest, TrimGoesOnToTheCreatorThatGotTheDataWhileTheFormerWasAskedForThem) {
  const CreatorPtr<QuestionedCreator> former =
      withProducer(CreatorPtr<QuestionedCreator>(new QuestionedCreator(cache)));
  const Creator present = make();
  former->create(false);
  former->onCacheableQuestion = [&] {
    if (former->hasData()) handOn(*former, *present);
  };
  EXPECT_EQ(cache->trim(1), 100U) << cache->describe();
  EXPECT_EQ(former->nReleases, 0);
  EXPECT_EQ(present->nReleases, 1);
  EXPECT_EQ(nHeld(), 0U);
}

TEST_F(CacheBooksTest, LoweringTheLimitGoesOnToTheCreatorThatGotTheDataMeanwhile) {
  const CreatorPtr<QuestionedCreator> former =
      withProducer(CreatorPtr<QuestionedCreator>(new QuestionedCreator(cache)));
  const Creator present = make();
  former->create(false);
  former->onCacheableQuestion = [&] {
    if (former->hasData()) handOn(*former, *present);
  };
  cache->setLimit(50);
  EXPECT_FALSE(present->hasData());
  EXPECT_EQ(nHeld(), 0U) << cache->describe();
  EXPECT_TRUE(cache->enforceLimit());
}

TEST_F(CacheBooksTest, EnforcingTheLimitGoesOnToTheCreatorThatGotTheDataMeanwhile) {
  const Creator former = make();
  const Creator present = make();
  {
    const DataPtr inUse = former->create(false);
    cache->setLimit(50);
    EXPECT_EQ(nHeld(), 100U);
  }
  former->onRelease = [&] { handOn(*former, *present); };
  EXPECT_TRUE(cache->enforceLimit()) << cache->describe();
  EXPECT_EQ(present->nReleases, 1);
  EXPECT_EQ(nHeld(), 0U);
}

// ------------------------------------------------------------------------------------------------------------ policies

TEST_F(CacheBooksTest, LimitHoldsIfThePolicyIsTakenAwayWhileDataAreLetGo) {
  const std::vector<Creator> creators = makeHolding(6);
  cache->setPolicy(PolicyPtr(new LatestFirst));
  creators[5]->onRelease = [&] { onAnotherThread([&] { cache->setPolicy(PolicyPtr()); }); };
  cache->setLimit(200);
  EXPECT_EQ(nHeld(), 200U);
  EXPECT_THAT(placesWithData(creators), ElementsAre(3, 4)) << "after the latest, those used least recently";
}

TEST_F(CacheBooksTest, LimitHoldsIfThePolicyIsReplacedWhileDataAreLetGo) {
  const std::vector<Creator> creators = makeHolding(6);
  cache->setPolicy(PolicyPtr(new LatestFirst));
  creators[5]->onRelease = [&] { onAnotherThread([&] { cache->setPolicy(PolicyPtr(new LatestFirst)); }); };
  cache->setLimit(200);
  EXPECT_EQ(nHeld(), 200U);
  EXPECT_FALSE(creators[5]->hasData());
}

TEST_F(CacheBooksTest, LimitHoldsIfThePolicyFailsWhenItRanksAgain) {
  constexpr int nData = 60;
  const std::vector<Creator> creators = makeHolding(nData);
  const StrongPtr<LatestFirst, CachePolicy> policy(new LatestFirst(nData));
  cache->setPolicy(policy);
  cache->trim(100);
  EXPECT_FALSE(creators.back()->hasData());
  EXPECT_EQ(policy->nAsked, nData) << "ranked once";
  cache->setLimit(200);
  EXPECT_GT(policy->nAsked, nData) << "has failed";
  EXPECT_EQ(nHeld(), 200U);
}

TEST_F(CacheBooksTest, EachCacheHasItsOwnPolicyWhenSeveralLimitsArePassedAtOnce) {
  const CachePtr child(new Cache(cache));
  child->setPolicy(PolicyPtr(new LargestFirst));
  cache->setPolicy(PolicyPtr(new LargestFirst));
  child->setLimit(450);
  cache->setLimit(310);
  std::vector<Creator> creators;
  for (const unsigned long long nBytes : {100U, 101U, 102U, 104U, 105U}) creators.push_back(makeIn(child, nBytes));
  for (std::size_t i = 0; i < 3; ++i) creators[i]->create(false);
  const Creator outer = makeIn(child, 1, [&] {
    creators[3]->create(false);
    creators[4]->create(false);
  });
  outer->create(false);
  EXPECT_THAT(placesWithData(creators), ElementsAre(0, 1, 2)) << "one went by each limit, the largest first";
}

// -------------------------------------------------------------------------------------------------- events and reports

/// What a listener has heard.
struct Heard {
  unsigned long long nUses = 0;
  int nProduced = 0;
  int nFailed = 0;
};

TEST_F(CacheBooksTest, ListenersOfAllLevelsHearOfEachUseHoweverManyAProductionMakes) {
  for (const std::size_t nLevels : {1U, 2U, 3U})
    for (const unsigned int nUses : {1U, 63U, 64U, 65U, 128U, 192U, 255U, 256U, 319U, 320U, 512U})
      for (const bool isFailing : {false, true}) {
        SCOPED_TRACE(std::to_string(nUses) + " uses in " + std::to_string(nLevels) + " levels" +
                     (isFailing ? ", failing" : ""));
        std::vector<Heard> heard(nLevels);
        std::vector<CachePtr> levels = {CachePtr(new Cache)};
        while (levels.size() < nLevels) levels.push_back(CachePtr(new Cache(levels.back())));
        std::vector<Creator> operands;
        for (unsigned int i = 0; i < nUses; ++i) {
          operands.push_back(makeIn(levels.back(), 1));
          operands.back()->create(false);
        }
        for (std::size_t level = 0; level < nLevels; ++level)
          levels[level]->setListener([&heard, level](const CacheEvent& event) {
            if (event.kind == CacheEventKind::Used) heard[level].nUses += event.nUses;
            if (event.kind == CacheEventKind::Produced) ++heard[level].nProduced;
            if (event.kind == CacheEventKind::Failed) ++heard[level].nFailed;
          });
        const Creator sum = makeIn(levels.back(), 1, [&] {
          for (const Creator& operand : operands) operand->create(false);
          if (isFailing) throw std::runtime_error("no data");
        });
        if (isFailing)
          EXPECT_THROW(sum->create(false), std::runtime_error);
        else
          sum->create(false);
        levels.back()->getStatistics();  // hands in what is left of the uses
        for (const Heard& each : heard) {
          EXPECT_EQ(each.nUses, nUses);
          EXPECT_EQ(each.nProduced, isFailing ? 0 : 1);
          EXPECT_EQ(each.nFailed, isFailing ? 1 : 0);
        }
      }
}

TEST_F(CacheBooksTest, ListenerThatIsRemovedInsideAProductionHearsNothingOfItAfterwards) {
  bool isRemoved = false;
  int nHeardLate = 0;
  cache->setListener([&](const CacheEvent&) {
    if (isRemoved) ++nHeardLate;
  });
  const Creator operand = make();
  const Creator sum = make(1, [&] {
    operand->create(false);
    cache->setListener({});
    isRemoved = true;
  });
  sum->create(false);
  EXPECT_EQ(nHeardLate, 0);
}

TEST_F(CacheBooksTest, ListenerThatRemovesItselfIsNotCalledAgain) {
  int nHeard = 0;
  cache->setListener([&](const CacheEvent&) {
    ++nHeard;
    cache->setListener({});
  });
  const Creator first = make();
  const Creator second = make();
  const Creator sum = make(1, [&] {
    first->create(false);
    second->create(false);
  });
  sum->create(false);
  EXPECT_EQ(nHeard, 1) << "of three productions that it is told of at the end of the last";
}

TEST_F(CacheBooksTest, DescriptionNamesAProductionThatRuns) {
  cache->setLimit(100);
  const Creator first = make();
  const Creator second = make();
  std::string inside;
  const Creator sum = make(100, [&] {
    first->create(false);
    second->create(false);
    inside = cache->describe();
  });
  sum->create(false);
  EXPECT_THAT(inside, HasSubstr("in production"));
  EXPECT_THAT(cache->describe(), Not(HasSubstr("in production")));
}

// ------------------------------------------------------------------------------------------------------------- numbers

/// Its release takes the data off the list, before they die or live on elsewhere.
class Dismissing : public ForgetfulCreator {
 public:
  using ForgetfulCreator::ForgetfulCreator;
  ReasonForReleasal release() override {
    if (const DataPtr taken = takeData()) taken->setCreator({});
    return Released;
  }
};

TEST_F(CacheBooksTest, ReleaseThatTakesItsDataOffTheListCountsAsAnEviction) {
  const CreatorPtr<Dismissing> creator = withProducer(CreatorPtr<Dismissing>(new Dismissing(cache)));
  creator->create(false);
  EXPECT_EQ(cache->trim(1), 100U);
  const CacheStatistics counts = cache->getStatistics();
  EXPECT_EQ(counts.nAsked, 1U);
  EXPECT_EQ(counts.nEvicted, 1U);
  EXPECT_EQ(counts.nBytesGivenBack, 100U);
  EXPECT_EQ(counts.nHeldBytes, 0U);
}

TEST_F(CacheBooksTest, DataThatLiveOnWithoutACreatorAreNoBytesGivenBack) {
  const CreatorPtr<Dismissing> creator = withProducer(CreatorPtr<Dismissing>(new Dismissing(cache)));
  const DataPtr held = creator->create(false);
  EXPECT_EQ(cache->trim(1), 0U);
  const CacheStatistics counts = cache->getStatistics();
  EXPECT_EQ(counts.nAsked, 1U);
  EXPECT_EQ(counts.nEvicted, 1U);
  EXPECT_EQ(counts.nBytesGivenBack, 0U);
}

TEST_F(CacheBooksTest, ProductionOfDataThatCannotTellTheirSizeCountsAsAFailure) {
  class Immeasurable : public CountingData {
   public:
    unsigned long long memsize() const override { throw std::runtime_error("no size"); }
  };
  const Creator creator(new ForgetfulCreator(cache));
  attachProducer(*creator, [](const auto&) { return DataPtr(new Immeasurable); });
  EXPECT_THROW(creator->create(false), std::runtime_error);
  const CacheStatistics counts = cache->getStatistics();
  EXPECT_EQ(counts.nFailures, 1U);
  EXPECT_EQ(counts.nProductions, 0U);
  EXPECT_EQ(counts.nHeldBytes, 0U);
  EXPECT_EQ(counts.nInFlightBytes, 0U);
  const std::vector<Creator> others = makeHolding(1);
  cache->setLimit(0);
  EXPECT_EQ(nHeld(), 0U) << "the thread is outside of all operations again";
}

TEST_F(CacheBooksTest, DataThatTwoCreatorsShareCountAsAProductionOfEach) {
  const Creator maker = make();
  const Creator sharing(new ForgetfulCreator(cache));
  attachProducer(*sharing, [&](const auto&) { return maker->create(false); });
  sharing->create(false);
  const CacheStatistics counts = cache->getStatistics();
  EXPECT_EQ(counts.nProductions, 2U);
  EXPECT_EQ(counts.nHits + counts.nFailures, 0U);
  EXPECT_EQ(counts.nHeldBytes, 100U) << "though their bytes count once";
}

}  // namespace
