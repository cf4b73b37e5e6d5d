// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FunctionalCreator.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <latch>
#include <memory>
#include <stdexcept>
#include <type_traits>

namespace {

using Ostrel::Creature;
using Tresk::FunctionalCreator;
using Tresk::FunctionalCreatorBase;
using TreskTest::CacheWeakPtr;
using TreskTest::clockNow;
using TreskTest::CreatorPtr;
using TreskTest::dataStamp;
using TreskTest::KindPtr;
using TreskTest::makeArray;
using TreskTest::makeFunctional;
using TreskTest::MemBasePtr;

using FunctionalCreatorTest = TreskTest::RecordBalanceTest;

/// A callback that counts its calls.
Ostrel::CreatorBase<Tresk::MemBase>::Callback countIn(int& n) {
  return [&n](const auto&, const auto&) { ++n; };
}

TEST_F(FunctionalCreatorTest, IsAForgetfulCreator) {
  EXPECT_TRUE((std::is_base_of_v<TreskTest::ForgetfulArray, FunctionalCreatorBase>));
  EXPECT_TRUE((std::is_base_of_v<FunctionalCreatorBase, FunctionalCreator>));
  EXPECT_TRUE(std::is_abstract_v<FunctionalCreatorBase>);
}

TEST_F(FunctionalCreatorTest, ConstructionRunsNothing) {
  int nRuns = 0;
  const long long clock = clockNow();
  const auto creator = makeFunctional([&nRuns] {
    ++nRuns;
    return makeArray(1);
  });
  EXPECT_EQ(nRuns, 0);
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(dataStamp(*creator), 0);
  EXPECT_EQ(clockNow(), clock);
}

TEST_F(FunctionalCreatorTest, ComputeRunsTheFunctionAndKeepsNothing) {
  const auto creator = makeFunctional([] { return makeArray(1); });
  const MemBasePtr one = creator->compute();
  const MemBasePtr two = creator->compute();
  ASSERT_TRUE(one);
  EXPECT_FALSE(one == two);
  EXPECT_EQ(one.strongCount(), 1);
  EXPECT_FALSE(creator->hasData());
}

TEST_F(FunctionalCreatorTest, WithoutAFunctionNothingIsComputed) {
  const auto creator = makeFunctional(FunctionalCreator::Function());
  EXPECT_EQ(creator->compute().getRecord(), nullptr);
  EXPECT_EQ(creator->produce().getRecord(), nullptr);
  EXPECT_TRUE(creator->request({}));
  EXPECT_EQ(creator->create(false).getRecord(), nullptr);
  EXPECT_FALSE(creator->hasData());
}

TEST_F(FunctionalCreatorTest, AnExceptionOfTheFunctionReachesTheCallerUnchanged) {
  class Failure : public std::runtime_error {
   public:
    using runtime_error::runtime_error;
  };
  const auto creator = makeFunctional([]() -> MemBasePtr { throw Failure("no such file"); });
  try {
    creator->compute();
    ADD_FAILURE() << "the exception got lost";
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(), "no such file");
  }
  const auto plain = makeFunctional([]() -> MemBasePtr { throw 42; });
  try {
    plain->produce();
    ADD_FAILURE() << "the exception got lost";
  } catch (int number) {
    EXPECT_EQ(number, 42);
  }
}

TEST_F(FunctionalCreatorTest, AFailedProductionLeavesTheCreatorEmptyUnlockedAndUsable) {
  bool fails = true;
  const auto creator = makeFunctional([&fails] {
    if (fails) throw std::runtime_error("no such file");
    return makeArray(3);
  });
  EXPECT_THROW(creator->produce(), std::runtime_error);
  EXPECT_THROW(creator->create(false), std::runtime_error);
  EXPECT_THROW(creator->request({}), std::runtime_error);
  EXPECT_FALSE(creator->hasData());
  fails = false;
  EXPECT_TRUE(creator->create(false));
}

TEST_F(FunctionalCreatorTest, ProductionHoldsTheResultAndNeitherTiesNorTouchesNorEnablesCaching) {
  const auto creator = makeFunctional([] { return makeArray(1); });
  const long long clock = clockNow();
  const MemBasePtr made = creator->produce();
  ASSERT_TRUE(made);
  EXPECT_TRUE(creator->getData() == made);
  EXPECT_EQ(made->getCreator().getRecord(), nullptr);
  EXPECT_EQ(made->getUseCount(), 0);
  EXPECT_EQ(creator->getCachingCount(), 1) << "that of the first strong pointer";
  EXPECT_EQ(clockNow(), clock);
  EXPECT_EQ(dataStamp(*creator), 0);
}

TEST_F(FunctionalCreatorTest, ProductionOfHeldDataMarksThemAsUsedAndRunsNothing) {
  int nRuns = 0;
  const auto creator = makeFunctional([&nRuns] {
    ++nRuns;
    return makeArray(1);
  });
  const MemBasePtr made = creator->produce();
  EXPECT_TRUE(creator->produce() == made);
  EXPECT_TRUE(creator->produce() == made);
  EXPECT_EQ(nRuns, 1);
  EXPECT_EQ(made->getUseCount(), 2);
}

TEST_F(FunctionalCreatorTest, AnInvalidResultIsHeldAsItIs) {
  bool isDead = true;
  const auto creator = makeFunctional([&isDead] { return isDead ? TreskTest::makeDeadArray() : MemBasePtr(); });
  EXPECT_EQ(creator->getType(), typeid(std::nullptr_t));
  EXPECT_FALSE(creator->produce());
  EXPECT_EQ(creator->getType(), typeid(void)) << "the creator refers to data that have died";
  isDead = false;
  EXPECT_FALSE(creator->produce());
  EXPECT_EQ(creator->getType(), typeid(std::nullptr_t));
}

TEST_F(FunctionalCreatorTest, AnEmptyResultIsTriedAnewAtTheNextAccess) {
  int nRuns = 0;
  const auto creator = makeFunctional([&nRuns] { return ++nRuns < 3 ? MemBasePtr() : makeArray(1); });
  EXPECT_FALSE(creator->create(false));
  EXPECT_FALSE(creator->create(false));
  EXPECT_EQ(creator->getCachingCount(), 1) << "nothing was made";
  EXPECT_TRUE(creator->create(false));
  EXPECT_EQ(nRuns, 3);
}

TEST_F(FunctionalCreatorTest, ARequestProducesAtOnceTiesAndEnablesCaching) {
  const auto creator = makeFunctional([] { return makeArray(1); });
  creator->enableCaching(true);
  const long long nCachings = creator->getCachingCount();
  int nCalls = 0;
  EXPECT_TRUE(creator->request(countIn(nCalls)));
  EXPECT_EQ(nCalls, 0);
  EXPECT_EQ(creator->nProductions, 1) << "through the virtual operation";
  const MemBasePtr made = creator->getData();
  ASSERT_TRUE(made) << "when the request returns, the data exist";
  EXPECT_TRUE(made->getCreator() == creator);
  EXPECT_EQ(creator->getCachingCount(), nCachings + 1);
  EXPECT_FALSE(creator->isKept());
  EXPECT_EQ(made->getUseCount(), 0);
  EXPECT_EQ(dataStamp(*creator), 0);
}

TEST_F(FunctionalCreatorTest, ARequestForHeldDataMarksThemAsUsedAndCallsNothing) {
  int nRuns = 0;
  const auto creator = makeFunctional([&nRuns] {
    ++nRuns;
    return makeArray(1);
  });
  const MemBasePtr made = creator->produce();
  int nCalls = 0;
  EXPECT_TRUE(creator->request(countIn(nCalls)));
  EXPECT_EQ(nCalls, 0);
  EXPECT_EQ(nRuns, 1);
  EXPECT_EQ(creator->nProductions, 1);
  EXPECT_EQ(made->getUseCount(), 1);
  EXPECT_EQ(made->getCreator().getRecord(), nullptr) << "a hit ties nothing";
  EXPECT_EQ(creator->getCachingCount(), 1);
}

TEST_F(FunctionalCreatorTest, ARequestThatYieldsNothingIsTrueAllTheSame) {
  const auto creator = makeFunctional([] { return MemBasePtr(); });
  int nCalls = 0;
  EXPECT_TRUE(creator->request(countIn(nCalls)));
  EXPECT_EQ(nCalls, 0);
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->getCachingCount(), 1);
}

TEST_F(FunctionalCreatorTest, AProducerThatIsAttachedDoesNotReplaceTheFunction) {
  const auto creator = makeFunctional([] { return makeArray(1); });
  const auto producer = TreskTest::attachArrayProducer(*creator, [] { return makeArray(9); });
  EXPECT_EQ(creator->create(false)->nElements(), 1U);
  EXPECT_TRUE(creator->request({}));
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_EQ(producer->nProductions, 0);
  EXPECT_EQ(producer->nQuestions, 0);
  EXPECT_TRUE(creator->canProduce()) << "the question for a producer is answered by the one attached";
}

TEST_F(FunctionalCreatorTest, NoProductionIsEverUnderWay) {
  CreatorPtr watched;
  bool isUnderCreation = true;
  const auto creator = makeFunctional([&] {
    isUnderCreation = watched->isUnderCreation();
    return makeArray(1);
  });
  watched = creator;
  EXPECT_FALSE(creator->isUnderCreation());
  creator->produce();
  EXPECT_FALSE(isUnderCreation);
  EXPECT_FALSE(creator->isUnderCreation());
  EXPECT_FALSE(creator->discardCreation());
}

/// Fills the future that the base offers.
class FutureCreator : public FunctionalCreatorBase {
 public:
  explicit FutureCreator(bool creatorFlag) : FunctionalCreatorBase(creatorFlag, CacheWeakPtr()) {}
  MemBasePtr compute() const override { return makeArray(1); }
  void setFuture(std::future<MemBasePtr> future) { creationFuture = std::move(future); }
  bool getFlag() const { return flag; }
};

TEST_F(FunctionalCreatorTest, ADerivedClassThatFillsTheFutureIsUnderCreationUntilItIsReady) {
  const KindPtr<FutureCreator> creator(new FutureCreator(false));
  EXPECT_FALSE(creator->isUnderCreation());
  std::promise<MemBasePtr> promise;
  creator->setFuture(promise.get_future());
  EXPECT_TRUE(creator->isUnderCreation());
  promise.set_value(makeArray(1));
  EXPECT_FALSE(creator->isUnderCreation());
}

TEST_F(FunctionalCreatorTest, AFutureThatNobodyRunsIsUnderCreation) {
  const KindPtr<FutureCreator> creator(new FutureCreator(false));
  creator->setFuture(std::async(std::launch::deferred, [] { return makeArray(1); }));
  EXPECT_TRUE(creator->isUnderCreation());
}

TEST_F(FunctionalCreatorTest, TheFlagIsStoredForDerivedClasses) {
  const KindPtr<FutureCreator> raised(new FutureCreator(true));
  const KindPtr<FutureCreator> lowered(new FutureCreator(false));
  EXPECT_TRUE(raised->getFlag());
  EXPECT_FALSE(lowered->getFlag());
  EXPECT_TRUE(raised->create(false));
}

TEST_F(FunctionalCreatorTest, ReleaseIsRefusedWhileACallerHoldsTheArrayAndGrantedAfterwards) {
  int nRuns = 0;
  const auto creator = makeFunctional([&nRuns] {
    ++nRuns;
    return makeArray(1);
  });
  MemBasePtr held = creator->produce();
  EXPECT_EQ(creator->release(), Creature::StillInUse);
  EXPECT_TRUE(creator->hasData());
  held.reset();
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_FALSE(creator->hasData());
  EXPECT_TRUE(creator->produce());
  EXPECT_EQ(nRuns, 2);
}

TEST_F(FunctionalCreatorTest, ReleaseTakesNoLockNotEvenDuringAProduction) {
  CreatorPtr releasing;
  auto reason = Creature::CannotRelease;
  const auto creator = makeFunctional([&] {
    reason = releasing->release();
    return makeArray(1);
  });
  releasing = creator;
  const MemBasePtr made = creator->produce();
  EXPECT_EQ(reason, Creature::Released);
  EXPECT_TRUE(made);
}

TEST_F(FunctionalCreatorTest, TheFunctionLivesAsLongAsItsCreator) {
  const auto token = std::make_shared<int>(3);
  {
    const auto creator = makeFunctional([token] { return makeArray(static_cast<unsigned long long>(*token)); });
    EXPECT_EQ(token.use_count(), 2);
    EXPECT_EQ(creator->create(false)->nElements(), 3U);
  }
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(FunctionalCreatorTest, OfTwoThreadsThatProduceAtOnceOneRunsTheFunctionAndBothGetTheArray) {
  std::latch bothAreThere(2);
  std::atomic<int> nRuns{0};
  const auto creator = makeFunctional([&] {
    ++nRuns;
    bothAreThere.wait();  // the other thread is about to ask, and finds the mutex taken or the data there
    return makeArray(1);
  });
  MemBasePtr results[2];
  TreskTest::RaceRunner race;
  race.add(2, [&](int i) {
    bothAreThere.count_down();
    results[i] = creator->FunctionalCreator::produce();
  });
  race.run();
  EXPECT_EQ(nRuns, 1);
  ASSERT_TRUE(results[0]);
  EXPECT_TRUE(results[0] == results[1]);
  EXPECT_EQ(results[0]->getUseCount(), 1) << "the second caller marks what it finds";
}

TEST_F(FunctionalCreatorTest, AThreadThatPollsSeesTheDataWhenTheyAreThere) {
  const KindPtr<FunctionalCreator> creator(new FunctionalCreator([] { return makeArray(5); }, false, CacheWeakPtr()));
  unsigned long long nSeen = 0;
  TreskTest::RaceRunner race;
  race.add([&](int) { creator->produce(); });
  race.add([&](int) {
    while (!creator->hasData()) std::this_thread::yield();
    nSeen = creator->getData()->nElements();
  });
  race.run();
  EXPECT_EQ(nSeen, 5U);
}

}  // namespace
