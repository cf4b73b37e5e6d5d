// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/AsynchronCreator.hpp>

#include <support/AsynchronDoubles.hpp>
#include <support/RaceRunner.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::Creature;
using Tresk::AsynchronCreator;
using Tresk::CachePtr;
using Tresk::MemBase;
using TreskTest::clockNow;
using TreskTest::dataStamp;
using TreskTest::Failure;
using TreskTest::Flag;
using TreskTest::makeArray;
using TreskTest::MemBasePtr;
using TreskTest::MortalArray;
using TreskTest::SubjectPtr;
using TreskTest::Tokens;

using Callback = AsynchronCreator::Callback;

using AsynchronCreatorTest = TreskTest::AsynchronCreatorFixture;

/// A producer that is asked to make data in the background.
class AskedProducer : public TreskTest::ArrayProducer {
 public:
  AskedProducer() : ArrayProducer([] { return makeArray(9); }) {}
  bool request(const Callback& callback) override {
    ++nRequests;
    lastCallback = callback;
    if (onRequest) onRequest();
    return answer;
  }

  int nRequests = 0;
  bool answer = true;
  Callback lastCallback;
  std::function<void()> onRequest;
};
using AskedProducerPtr = Ostrel::StrongPtr<AskedProducer, Ostrel::InterfaceBase>;

// ------------------------------------------------------------------------------------------------------- construction

TEST_F(AsynchronCreatorTest, IsAForgetfulCreator) {
  EXPECT_TRUE((std::is_base_of_v<TreskTest::ForgetfulArray, AsynchronCreator>));
  EXPECT_FALSE(std::is_abstract_v<AsynchronCreator>);
}

TEST_F(AsynchronCreatorTest, BeginsIdleAndEmpty) {
  const long long clock = clockNow();
  const SubjectPtr creator = makeGated();
  EXPECT_FALSE(creator->isUnderCreation());
  EXPECT_FALSE(creator->hasData());
  EXPECT_FALSE(creator->getData());
  EXPECT_EQ(creator->nCreations(), 0);
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_EQ(dataStamp(*creator), 0);
  EXPECT_EQ(clockNow(), clock);
  EXPECT_EQ(creator->getCachingCount(), 1);
  EXPECT_EQ(cache->nCreatures(), 1U);
  EXPECT_EQ(cache.strongCount(), 1) << "the creator observes its cache";
  EXPECT_EQ(nRuns, 0);
}

TEST_F(AsynchronCreatorTest, KeepsACopyOfTheFunctionForItsWholeLife) {
  const auto token = std::make_shared<int>(3);
  {
    const AsynchronCreator::Function function = [token](const Flag&) {
      return makeArray(static_cast<unsigned long long>(*token));
    };
    const SubjectPtr creator = make(function);
    EXPECT_EQ(token.use_count(), 3) << "here, in the function, and in its copy";
    EXPECT_EQ(creator->produce()->nElements(), 3U);
  }
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(AsynchronCreatorTest, NeedsNoCache) {
  const SubjectPtr creator = make(
      [this](const Flag&) {
        gate.pass();
        return makeArray(1);
      },
      CachePtr());
  start(*creator);
  finish(*creator);
  ASSERT_TRUE(creator->hasData());
  EXPECT_FALSE(creator->getData()->isOnCacheList());
}

// -------------------------------------------------------------------------------------------------------- create_data

TEST_F(AsynchronCreatorTest, CreatingDataDirectlyRunsTheFunctionHereAndStoresNothing) {
  std::thread::id runner;
  const SubjectPtr creator = make([&runner](const Flag&) {
    runner = std::this_thread::get_id();
    return makeArray(1);
  });
  const MemBasePtr one = creator->create_data();
  const MemBasePtr two = creator->create_data();
  ASSERT_TRUE(one);
  EXPECT_FALSE(one == two);
  EXPECT_EQ(runner, std::this_thread::get_id());
  EXPECT_EQ(one.strongCount(), 1);
  EXPECT_EQ(one->getCreator().getRecord(), nullptr);
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->nCreations(), 0) << "only the thread counts";
}

TEST_F(AsynchronCreatorTest, CreatingDataDirectlyTakesNoLock) {
  const SubjectPtr creator = makeGated();
  start(*creator);  // the thread holds the creation mutex
  EXPECT_TRUE(creator->create_data());
  EXPECT_EQ(nRuns, 2);
  finish(*creator);
}

TEST_F(AsynchronCreatorTest, WithoutAFunctionNothingIsMade) {
  const SubjectPtr creator(new TreskTest::Subject(AsynchronCreator::Function(), cache));
  EXPECT_EQ(creator->create_data().getRecord(), nullptr);
  EXPECT_EQ(creator->produce().getRecord(), nullptr);
  EXPECT_TRUE(creator->request({}));
  waitForEnd(*creator);
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->nCreations(), 1);
  EXPECT_EQ(creator->produce().getRecord(), nullptr);
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_TRUE(creator->request({})) << "the creator is idle again";
  waitForEnd(*creator);
  EXPECT_FALSE(creator->produce()) << "which joins the thread";
}

// ------------------------------------------------------------------------------------------------------------ request

TEST_F(AsynchronCreatorTest, ARequestRunsTheFunctionOnAThreadOfItsOwn) {
  std::atomic<std::thread::id> runner;
  const SubjectPtr creator = make([&](const Flag&) {
    runner = std::this_thread::get_id();
    gate.pass();
    return makeArray(1);
  });
  start(*creator);
  EXPECT_NE(runner.load(), std::this_thread::get_id());
  EXPECT_NE(runner.load(), std::thread::id());
  EXPECT_TRUE(creator->isUnderCreation());
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->nCreations(), 1);
  finish(*creator);
  EXPECT_TRUE(creator->hasData());
}

TEST_F(AsynchronCreatorTest, TheResultBelongsToTheCreatorAfterwards) {
  const SubjectPtr creator = makeGated();
  const long long clock = clockNow();
  start(*creator);
  EXPECT_EQ(creator->getCachingCount(), 1);
  EXPECT_EQ(cache->nCacheables(), 0U);
  finish(*creator);
  const MemBasePtr held = creator->getData();
  ASSERT_TRUE(held);
  EXPECT_EQ(held->nElements(), 1U);
  EXPECT_TRUE(held->getCreator() == creator);
  EXPECT_EQ(creator->getCachingCount(), 2);
  EXPECT_FALSE(creator->isKept());
  EXPECT_EQ(held->getUseCount(), 1) << "the thread marks what it made";
  EXPECT_TRUE(held->isOnCacheList());
  EXPECT_EQ(cache->nCacheables(), 1U);
  EXPECT_EQ(Tresk::getMemoryUsage(*creator), sizeof(double));
  EXPECT_FALSE(Ostrel::findInterface<Tresk::SizeInterface>(*creator)) << "nobody has asked for the size";
  EXPECT_EQ(clockNow(), clock);
  EXPECT_EQ(dataStamp(*creator), 0);
}

TEST_F(AsynchronCreatorTest, TheResultIsNotKeptAgainstTheCache) {
  const SubjectPtr creator = makeGated();
  creator->enableCaching(true);
  start(*creator);
  EXPECT_TRUE(creator->isKept());
  finish(*creator);
  EXPECT_FALSE(creator->isKept());
}

TEST_F(AsynchronCreatorTest, TheCacheCanEmptyIt) {
  const SubjectPtr creator = makeGated();
  start(*creator);
  EXPECT_EQ(cache->trim(1), 0U);
  finish(*creator);
  EXPECT_EQ(cache->trim(1), sizeof(double));
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(cache->nCacheables(), 0U);
}

TEST_F(AsynchronCreatorTest, ARequestWithDataPresentIsRefusedAndStartsNothing) {
  const SubjectPtr creator = makeGated();
  const AskedProducerPtr producer(new AskedProducer);
  creator->addInterface(producer);
  creator->hold(makeArray(5));
  EXPECT_FALSE(creator->request({}));
  EXPECT_FALSE(creator->isUnderCreation());
  EXPECT_EQ(creator->nCreations(), 0);
  EXPECT_EQ(nRuns, 0);
  EXPECT_EQ(producer->nRequests, 0);
  EXPECT_EQ(creator->getData()->getUseCount(), 0);
}

TEST_F(AsynchronCreatorTest, ARequestDuringTheWorkIsRefusedAndDoesNotWait) {
  const SubjectPtr creator = makeGated();
  const AskedProducerPtr producer(new AskedProducer);
  creator->addInterface(producer);
  start(*creator);
  EXPECT_EQ(producer->nRequests, 1);
  EXPECT_FALSE(creator->request({}));  // the thread holds the creation mutex
  EXPECT_FALSE(creator->request({}));
  EXPECT_EQ(producer->nRequests, 1);
  finish(*creator);
  EXPECT_EQ(nRuns, 1);
  EXPECT_EQ(creator->nCreations(), 1);
}

TEST_F(AsynchronCreatorTest, OfTwoRequestsAtOnceOneIsTakenAndTheFunctionRunsOnce) {
  const SubjectPtr creator = makeGated();
  std::atomic<int> nTaken{0};
  TreskTest::RaceRunner race;
  race.add(2, [&](int) { nTaken += creator->request({}) ? 1 : 0; });
  race.run();
  EXPECT_EQ(nTaken, 1);
  gate.waitForVisitor();
  finish(*creator);
  EXPECT_EQ(nRuns, 1);
  EXPECT_EQ(creator->nCreations(), 1);
}

TEST_F(AsynchronCreatorTest, TheThreadCallsNoCallback) {
  std::atomic<int> nCalls{0};
  const SubjectPtr creator = makeGated();
  EXPECT_TRUE(creator->request([&nCalls](const auto&, const auto&) { ++nCalls; }));
  gate.waitForVisitor();
  finish(*creator);
  EXPECT_TRUE(creator->produce());
  EXPECT_EQ(nCalls, 0);
}

TEST_F(AsynchronCreatorTest, FilledForgottenAndRequestedAgainIsANormalCycle) {
  const SubjectPtr creator = makeGated(3);
  for (int round = 1; round <= 3; ++round) {
    start(*creator);
    EXPECT_TRUE(creator->isUnderCreation());
    EXPECT_FALSE(creator->hasData());
    EXPECT_EQ(creator->release(), Creature::StillInUse);
    finish(*creator);
    EXPECT_EQ(creator->getData()->nElements(), static_cast<unsigned long long>(round));
    EXPECT_FALSE(creator->request({})) << "there are data";
    EXPECT_EQ(creator->release(), Creature::Released);
    EXPECT_FALSE(creator->hasData());
    EXPECT_FALSE(creator->isUnderCreation());
    EXPECT_EQ(creator->nCreations(), round);
    EXPECT_EQ(creator->getCachingCount(), round + 1);
  }
}

/// A functor that cannot be copied when told so.
struct UncopyableWhen {
  explicit UncopyableWhen(const bool& condition) : isUncopyable(condition) {}
  UncopyableWhen(const UncopyableWhen& other) : isUncopyable(other.isUncopyable) {
    if (isUncopyable) throw Failure("out of memory");
  }
  void operator()(const Ostrel::CreatorBase<MemBase>&, const MemBasePtr&) const {}
  const bool& isUncopyable;
};

TEST_F(AsynchronCreatorTest, ARequestThatCannotStartAThreadPassesTheErrorAndLeavesTheCreatorIdle) {
  const SubjectPtr creator = makeGated(0);
  bool isUncopyable = false;
  const Callback callback{UncopyableWhen(isUncopyable)};
  isUncopyable = true;
  EXPECT_THROW(creator->request(callback), Failure);
  EXPECT_FALSE(creator->isUnderCreation());
  EXPECT_EQ(nRuns, 0);
  EXPECT_TRUE(creator->produce()) << "nobody is waited for";
  EXPECT_EQ(creator->release(), Creature::Released);
  isUncopyable = false;
  EXPECT_TRUE(creator->request(callback));
  waitForEnd(*creator);
  EXPECT_TRUE(creator->hasData());
}

TEST_F(AsynchronCreatorTest, ARequestStartsItsThreadBeforeItWaitsForTheFormerOne) {
  Tokens end;
  std::atomic<bool> hasEnded{false};
  const SubjectPtr creator = makeGated(2);
  start(*creator);
  creator->hold(MemBasePtr(new MortalArray([&] {  // dies at the end of the first thread
    end.take();
    hasEnded = true;
  })));
  gate.open();
  waitForEnd(*creator);
  EXPECT_TRUE(creator->takeData());
  bool hadEnded = false;
  TreskTest::RaceRunner race;
  race.add([&](int) {
    EXPECT_TRUE(creator->request({}));
    hadEnded = hasEnded;
  });
  race.add([&](int) {
    gate.waitForVisitor();  // in the second run
    EXPECT_FALSE(hasEnded);
    end.add();
  });
  race.run();
  EXPECT_TRUE(hadEnded);
  finish(*creator);
  EXPECT_EQ(creator->nCreations(), 2);
}

// ----------------------------------------------------------------------------------------------- an attached producer

TEST_F(AsynchronCreatorTest, TheCallbackGoesToAnAttachedProducerAndBothRun) {
  const SubjectPtr creator = makeGated();
  const AskedProducerPtr producer(new AskedProducer);
  creator->addInterface(producer);
  int nCalls = 0;
  EXPECT_TRUE(creator->request([&nCalls](const auto&, const auto&) { ++nCalls; }));
  EXPECT_EQ(producer->nRequests, 1);
  EXPECT_EQ(nCalls, 0);
  ASSERT_TRUE(producer->lastCallback);
  producer->lastCallback(*creator, MemBasePtr());
  EXPECT_EQ(nCalls, 1) << "it is the caller's own";
  gate.waitForVisitor();
  finish(*creator);
  EXPECT_EQ(nRuns, 1);
  EXPECT_EQ(creator->getData()->nElements(), 1U) << "what the function made";
  EXPECT_EQ(producer->nProductions, 0);
}

TEST_F(AsynchronCreatorTest, ARequestGivesTheAnswerOfTheProducer) {
  const SubjectPtr creator = makeGated();
  const AskedProducerPtr producer(new AskedProducer);
  producer->answer = false;
  creator->addInterface(producer);
  EXPECT_FALSE(creator->request({}));
  EXPECT_TRUE(creator->isUnderCreation()) << "the function runs all the same";
  gate.waitForVisitor();
  finish(*creator);
  EXPECT_TRUE(creator->hasData());
}

TEST_F(AsynchronCreatorTest, AProducerThatSaysNothingAnswersTrue) {
  const SubjectPtr creator = makeGated();
  const auto producer = TreskTest::attachArrayProducer(*creator, [] { return makeArray(9); });
  start(*creator);
  finish(*creator);
  EXPECT_EQ(producer->nProductions, 0);
}

TEST_F(AsynchronCreatorTest, TheProducerIsAskedAfterTheThreadHasBeenStartedAndBeforeTheFunctionRuns) {
  Tokens started;
  Tresk::Detail::asynchronHooks().beforeLock = [&started] { started.add(); };
  const SubjectPtr creator = makeGated(0);
  const AskedProducerPtr producer(new AskedProducer);
  int nRunsThen = -1;
  producer->onRequest = [&] {
    started.take();  // hangs if nobody has been started
    nRunsThen = creator->nCreations();
  };
  creator->addInterface(producer);
  EXPECT_TRUE(creator->request({}));
  EXPECT_EQ(nRunsThen, 0) << "the creation mutex is held meanwhile";
  waitForEnd(*creator);
  EXPECT_EQ(creator->nCreations(), 1);
}

TEST_F(AsynchronCreatorTest, AnExceptionOfTheProducerPassesAndTheWorkGoesOn) {
  const SubjectPtr creator = makeGated();
  const AskedProducerPtr producer(new AskedProducer);
  producer->onRequest = [] { throw Failure("no such producer"); };
  creator->addInterface(producer);
  EXPECT_THROW(creator->request({}), Failure);
  EXPECT_TRUE(creator->isUnderCreation());
  gate.waitForVisitor();  // the creation mutex is free
  finish(*creator);
  EXPECT_TRUE(creator->hasData());
}

TEST_F(AsynchronCreatorTest, AProducerReplacesTheFunctionInNoProduction) {
  const SubjectPtr creator = makeGated(0);
  const auto producer = TreskTest::attachArrayProducer(*creator, [] { return makeArray(9); });
  EXPECT_EQ(creator->produce()->nElements(), 1U);
  EXPECT_EQ(producer->nProductions, 0);
  EXPECT_TRUE(creator->canProduce()) << "the question for a producer is answered by the one attached";
}

// --------------------------------------------------------------------------------------------------------- discarding

TEST_F(AsynchronCreatorTest, AFunctionThatWasDiscardedBeforeIsCalledAllTheSame) {
  std::atomic<int> nDiscarded{0};
  const SubjectPtr creator = make([&](const Flag& isDiscarded) {
    nDiscarded += isDiscarded ? 1 : 0;
    gate.pass();
    return makeArray(1);
  });
  EXPECT_FALSE(creator->discardCreation());
  EXPECT_FALSE(creator->isUnderCreation());
  start(*creator);
  EXPECT_EQ(nDiscarded, 1);
  finish(*creator);
  EXPECT_TRUE(creator->hasData());
}

TEST_F(AsynchronCreatorTest, DiscardingReachesTheRunningFunction) {
  std::atomic<bool> before{true};
  std::atomic<bool> after{false};
  const SubjectPtr creator = make([&](const Flag& isDiscarded) {
    before = isDiscarded.load();
    gate.pass();
    after = isDiscarded.load();
    return isDiscarded ? MemBasePtr() : makeArray(1);
  });
  start(*creator);
  EXPECT_FALSE(creator->discardCreation());
  EXPECT_TRUE(creator->isUnderCreation()) << "it ends when the function ends";
  finish(*creator);
  EXPECT_FALSE(before);
  EXPECT_TRUE(after);
  EXPECT_FALSE(creator->hasData());
}

TEST_F(AsynchronCreatorTest, ADiscardedCreatorStaysDiscardedInEveryLaterRun) {
  std::vector<const Flag*> flags;
  std::vector<bool> values;
  const SubjectPtr creator = make([&](const Flag& isDiscarded) {
    flags.push_back(&isDiscarded);
    values.push_back(isDiscarded);
    return makeArray(1);
  });
  EXPECT_TRUE(creator->produce());
  EXPECT_FALSE(creator->discardCreation());
  EXPECT_FALSE(creator->discardCreation());
  EXPECT_TRUE(creator->produce());
  EXPECT_TRUE(creator->create_data());
  EXPECT_TRUE(creator->request({}));
  waitForEnd(*creator);
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_TRUE(creator->request({}));
  waitForEnd(*creator);
  EXPECT_EQ(values, (std::vector<bool>{false, true, true, true, true}));
  for (const Flag* flag : flags) EXPECT_EQ(flag, flags.front()) << "it is one flag, seen by reference";
}

// ----------------------------------------------------------------------------------------------------- type and setup

TEST_F(AsynchronCreatorTest, WithoutDataOrDescriptionTheTypeIsVoid) {
  const SubjectPtr creator = makeGated(0);
  EXPECT_EQ(creator->getType(), typeid(void));
  EXPECT_FALSE(creator->getTreskType());
}

TEST_F(AsynchronCreatorTest, ADeclaredTypeIsToldBeforeThereAreData) {
  const SubjectPtr creator = makeGated(0);
  creator->setup(Tresk::DynamicSize{3, 2}, Tresk::TreskTypePtr(Tresk::TreskTypeBase::find(typeid(unsigned int))));
  EXPECT_EQ(creator->getType(), typeid(unsigned int));
  ASSERT_TRUE(creator->getTreskType());
  EXPECT_EQ(creator->getTreskType()->getType(), typeid(unsigned int));
  ASSERT_TRUE(Ostrel::findInterface<Tresk::SizeInterface>(*creator));
  EXPECT_EQ(Tresk::getSize(*creator)->str(), "3x2");
  EXPECT_TRUE(Ostrel::findInterface<Tresk::MemArrayProperties>(*creator));
  EXPECT_EQ(nRuns, 0);
  EXPECT_FALSE(creator->hasData());
}

TEST_F(AsynchronCreatorTest, AnInvalidTypeDeclaresNothingNotEvenTheSize) {
  const SubjectPtr creator = makeGated(0);
  creator->setup(Tresk::DynamicSize{3, 2}, Tresk::TreskTypePtr());
  EXPECT_FALSE(Ostrel::findInterface<Tresk::SizeInterface>(*creator));
  EXPECT_FALSE(Ostrel::findInterface<Tresk::MemArrayProperties>(*creator));
  EXPECT_FALSE(Tresk::getSize(*creator));
  EXPECT_EQ(creator->getType(), typeid(void));
}

TEST_F(AsynchronCreatorTest, HeldDataTellTheirElementTypeWhateverWasDeclared) {
  const SubjectPtr creator = makeGated();
  creator->setup(Tresk::DynamicSize{3}, Tresk::TreskTypePtr(Tresk::TreskTypeBase::find(typeid(unsigned int))));
  start(*creator);
  EXPECT_EQ(creator->getType(), typeid(unsigned int)) << "asked without a lock while the thread works";
  finish(*creator);
  EXPECT_EQ(creator->getType(), typeid(double));
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_EQ(creator->getType(), typeid(unsigned int));
}

}  // namespace
