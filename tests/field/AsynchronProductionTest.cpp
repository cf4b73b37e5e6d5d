// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/AsynchronCreator.hpp>

#include <support/AsynchronDoubles.hpp>
#include <support/RaceRunner.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::Creature;
using Tresk::AsynchronCreator;
using TreskTest::ArrayObserver;
using TreskTest::clockNow;
using TreskTest::Failure;
using TreskTest::Flag;
using TreskTest::Gate;
using TreskTest::makeArray;
using TreskTest::MemBasePtr;
using TreskTest::MortalArray;
using TreskTest::SubjectPtr;
using TreskTest::SubjectWeakPtr;

using AsynchronProductionTest = TreskTest::AsynchronCreatorFixture;

// ----------------------------------------------------------------------------------------------------------- the body

TEST_F(AsynchronProductionTest, TheThreadHoldsTheCreatorOnlyFromItsBeginningToItsEnd) {
  Gate beginning;
  Tresk::Detail::asynchronHooks().beforeUpgrade = [&beginning] { beginning.pass(); };
  const SubjectPtr creator = makeGated();
  EXPECT_TRUE(creator->request({}));
  beginning.waitForVisitor();
  EXPECT_EQ(creator.strongCount(), 1);
  beginning.open();
  gate.waitForVisitor();
  EXPECT_EQ(creator.strongCount(), 2);
  finish(*creator);
  creator->takeData().reset();
  EXPECT_TRUE(creator->produce()) << "which joins the thread";
  EXPECT_EQ(creator.strongCount(), 1);
}

TEST_F(AsynchronProductionTest, ACreatorThatDiesBeforeItsThreadBeginsSkipsTheWork) {
  Gate beginning;
  Tresk::Detail::asynchronHooks().beforeUpgrade = [&beginning] { beginning.pass(); };
  SubjectPtr creator = makeGated(0);
  creator->onDeath = [&beginning] { beginning.open(); };
  EXPECT_TRUE(creator->request({}));
  beginning.waitForVisitor();
  creator.reset();  // waits for the thread
  EXPECT_EQ(nRuns, 0);
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 0U);
}

TEST_F(AsynchronProductionTest, TheBodyOfADeadCreatorDoesNothing) {
  SubjectPtr creator = makeGated(0);
  const SubjectWeakPtr observer(creator);
  creator.reset();
  EXPECT_FALSE(AsynchronCreator::createData(observer, {}));
  EXPECT_FALSE(AsynchronCreator::createData(SubjectWeakPtr(), {}));
  EXPECT_EQ(nRuns, 0);
}

TEST_F(AsynchronProductionTest, TheBodyServesOnAnyThread) {
  const SubjectPtr creator = makeGated(0);
  int nCalls = 0;
  EXPECT_TRUE(AsynchronCreator::createData(SubjectWeakPtr(creator), [&nCalls](const auto&, const auto&) { ++nCalls; }));
  EXPECT_EQ(nCalls, 0);
  EXPECT_EQ(creator->nCreations(), 1);
  EXPECT_FALSE(creator->isUnderCreation());
  const MemBasePtr held = creator->getData();
  ASSERT_TRUE(held);
  EXPECT_EQ(held.strongCount(), 2);
  EXPECT_TRUE(held->getCreator() == creator);
  EXPECT_EQ(held->getUseCount(), 1);
  EXPECT_EQ(creator.strongCount(), 1);
}

TEST_F(AsynchronProductionTest, ABodyOnTheCallersThreadLetsItsCreatorDieThereWithAFormerThreadUnread) {
  SubjectPtr creator;
  creator = make([&](const Flag&) {
    if (++nRuns == 2) creator.reset();
    return makeArray(1);
  });
  EXPECT_TRUE(creator->request({}));
  waitForEnd(*creator);
  const SubjectWeakPtr observer(creator);
  EXPECT_TRUE(AsynchronCreator::createData(observer, {}));
  EXPECT_FALSE(observer.isValid());
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 0U) << "the thread is another one and was waited for";
}

TEST_F(AsynchronProductionTest, AnInvalidResultLeavesTheCreatorIdleAndTheNextProductionRunsHere) {
  std::vector<std::thread::id> runners;
  const SubjectPtr creator = make([&](const Flag&) {
    runners.push_back(std::this_thread::get_id());
    if (++nRuns == 1) gate.pass();
    return nRuns == 1 ? TreskTest::makeDeadArray() : MemBasePtr();
  });
  start(*creator);
  finish(*creator);
  EXPECT_FALSE(creator->hasData());
  EXPECT_FALSE(creator->isUnderCreation());
  EXPECT_EQ(creator->getData().getRecord(), nullptr) << "the slot was not touched";
  EXPECT_EQ(creator->getCachingCount(), 1);
  EXPECT_EQ(creator->nCreations(), 1);
  EXPECT_FALSE(creator->produce());
  ASSERT_EQ(runners.size(), 2U);
  EXPECT_NE(runners[0], std::this_thread::get_id());
  EXPECT_EQ(runners[1], std::this_thread::get_id());
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_TRUE(creator->request({})) << "and it can be requested again";
  waitForEnd(*creator);
  EXPECT_EQ(creator->nCreations(), 2);
}

TEST_F(AsynchronProductionTest, AnInvalidResultLeavesFormerDataAsTheyWere) {
  const SubjectPtr creator = make([this](const Flag&) {
    gate.pass();
    return MemBasePtr();
  });
  start(*creator);
  const MemBasePtr former = makeArray(7);
  creator->hold(former);
  finish(*creator);
  EXPECT_TRUE(creator->getData() == former);
  EXPECT_EQ(former->getUseCount(), 0);
  EXPECT_EQ(former->getCreator().getRecord(), nullptr);
}

TEST_F(AsynchronProductionTest, FormerDataStandUntilTheResultReplacesThem) {
  const SubjectPtr creator = makeGated();
  start(*creator);
  const MemBasePtr former = makeArray(7);
  creator->hold(former);
  EXPECT_TRUE(creator->hasData());
  EXPECT_TRUE(creator->isUnderCreation());
  EXPECT_TRUE(creator->getData() == former);
  EXPECT_FALSE(creator->request({}));
  EXPECT_TRUE(creator->produce() == former) << "held data are given without waiting";
  EXPECT_EQ(former->getUseCount(), 1);
  finish(*creator);
  EXPECT_FALSE(creator->getData() == former);
  EXPECT_EQ(creator->getData()->nElements(), 1U);
  EXPECT_EQ(former->getUseCount(), 1);
}

TEST_F(AsynchronProductionTest, AFunctionThatYieldsTheHeldDataTiesThemAnew) {
  const MemBasePtr known = makeArray(7);
  const SubjectPtr creator = make([&](const Flag&) {
    gate.pass();
    return known;
  });
  start(*creator);
  creator->hold(known);
  finish(*creator);
  EXPECT_TRUE(creator->getData() == known);
  EXPECT_TRUE(known->getCreator() == creator);
  EXPECT_EQ(known->getUseCount(), 1);
}

TEST_F(AsynchronProductionTest, ReleaseWhileWorkingIsRefusedAndLeavesFormerDataAlone) {
  const SubjectPtr creator = makeGated();
  start(*creator);
  EXPECT_EQ(creator->release(), Creature::StillInUse) << "nothing is held, but something is coming";
  creator->hold(makeArray(7));
  const ArrayObserver former = creator->getData();
  EXPECT_EQ(creator->release(), Creature::StillInUse);
  EXPECT_TRUE(former.isValid());
  EXPECT_TRUE(creator->getData() == former);
  EXPECT_EQ(cache->trim(1000), 0U);
  finish(*creator);
}

TEST_F(AsynchronProductionTest, ReleaseIsGrantedAsSoonAsTheWorkIsDone) {
  Gate end;
  const SubjectPtr creator = makeGated();
  start(*creator);
  creator->hold(MemBasePtr(new MortalArray([&end] { end.pass(); })));
  gate.open();
  end.waitForVisitor();  // the thread has done its work and lets the former data die
  EXPECT_FALSE(creator->isUnderCreation());
  EXPECT_TRUE(creator->hasData());
  EXPECT_EQ(creator->release(), Creature::Released) << "the thread has no use for the data any more";
  EXPECT_FALSE(creator->hasData());
  end.open();
  while (creator.strongCount() > 1) std::this_thread::yield();  // the thread is done with the gate
}

TEST_F(AsynchronProductionTest, ReleaseGivesEachOfItsAnswersAfterTheWork) {
  const SubjectPtr creator = makeGated();
  start(*creator);
  finish(*creator);
  MemBasePtr held = creator->getData();
  EXPECT_EQ(creator->release(), Creature::StillInUse);
  EXPECT_TRUE(creator->getData() == held);
  const ArrayObserver observer = held;
  held.reset();
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_FALSE(observer.isValid());
  EXPECT_EQ(creator->getData().getRecord(), nullptr);
  EXPECT_EQ(cache->nCacheables(), 0U);
  EXPECT_EQ(creator->release(), Creature::Released) << "nothing is held";
}

TEST_F(AsynchronProductionTest, TheFunctionMayAskItsOwnCreator) {
  SubjectPtr watched;
  bool isUnderCreation = false;
  bool hasData = true;
  bool isRequested = true;
  int nCreations = 0;
  auto reason = Creature::CannotRelease;
  const std::type_info* type = nullptr;
  const SubjectPtr creator = make([&](const Flag& isDiscarded) {
    isUnderCreation = watched->isUnderCreation();
    hasData = watched->hasData();
    isRequested = watched->request({});
    nCreations = watched->nCreations();
    reason = watched->release();
    type = &watched->getType();
    EXPECT_FALSE(watched->discardCreation());
    EXPECT_TRUE(isDiscarded);
    watched.reset();
    gate.pass();
    return makeArray(1);
  });
  watched = creator;
  start(*creator);
  finish(*creator);
  EXPECT_TRUE(isUnderCreation);
  EXPECT_FALSE(hasData);
  EXPECT_FALSE(isRequested);
  EXPECT_EQ(nCreations, 1) << "counted before the function is called";
  EXPECT_EQ(reason, Creature::StillInUse);
  EXPECT_EQ(*type, typeid(void));
}

// ------------------------------------------------------------------------------------------------------------ produce

TEST_F(AsynchronProductionTest, AnUnrequestedProductionRunsHereAndStoresNothing) {
  std::thread::id runner;
  bool isUnderCreation = true;
  SubjectPtr watched;
  const SubjectPtr creator = make([&](const Flag&) {
    ++nRuns;
    runner = std::this_thread::get_id();
    isUnderCreation = watched->isUnderCreation();
    return makeArray(1);
  });
  watched = creator;
  const long long clock = clockNow();
  const MemBasePtr made = creator->produce();
  watched.reset();
  ASSERT_TRUE(made);
  EXPECT_EQ(runner, std::this_thread::get_id());
  EXPECT_FALSE(isUnderCreation);
  EXPECT_EQ(made.strongCount(), 1) << "it lies with the caller alone";
  EXPECT_EQ(made->getUseCount(), 0);
  EXPECT_EQ(made->getCreator().getRecord(), nullptr);
  EXPECT_FALSE(made->isOnCacheList());
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->nCreations(), 0);
  EXPECT_EQ(creator->getCachingCount(), 1);
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_EQ(clockNow(), clock);
}

TEST_F(AsynchronProductionTest, EachUnrequestedProductionRunsTheFunction) {
  const SubjectPtr creator = makeGated(0);
  const MemBasePtr one = creator->produce();
  const MemBasePtr two = creator->produce();
  EXPECT_FALSE(one == two);
  EXPECT_EQ(nRuns, 2);
}

TEST_F(AsynchronProductionTest, TheUsualAccessTiesWhatItMakesAndLeavesTheCreatorEmpty) {
  const SubjectPtr creator = makeGated(0);
  MemBasePtr made = creator->create(false);
  ASSERT_TRUE(made);
  EXPECT_TRUE(made->getCreator() == creator);
  EXPECT_EQ(cache->nCacheables(), 1U);
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(made.strongCount(), 1);
  made.reset();
  EXPECT_EQ(cache->nCacheables(), 0U);
}

TEST_F(AsynchronProductionTest, ServesAField) {
  const TreskTest::FieldPtr field(new Tresk::Field);
  const SubjectPtr creator = makeGated();
  field->setCreator(creator, TreskTest::unnamed());
  EXPECT_EQ(nRuns, 0);
  start(*creator);
  finish(*creator);
  const MemBasePtr held = field->getData(TreskTest::unnamed());
  EXPECT_TRUE(held == creator->getData());
  EXPECT_EQ(held->getUseCount(), 2);
  EXPECT_EQ(nRuns, 1);
}

TEST_F(AsynchronProductionTest, ProductionOfHeldDataMarksThemAndNeitherWaitsNorRuns) {
  const SubjectPtr creator = makeGated();
  start(*creator);  // the thread holds the creation mutex
  creator->hold(makeArray(7));
  EXPECT_EQ(creator->produce()->nElements(), 7U);
  EXPECT_EQ(creator->produce()->getUseCount(), 2);
  EXPECT_EQ(nRuns, 1);
  finish(*creator);
}

TEST_F(AsynchronProductionTest, ProductionDuringTheWorkWaitsForTheResultAndMarksIt) {
  const SubjectPtr creator = makeGated();
  start(*creator);
  MemBasePtr produced;
  TreskTest::RaceRunner race;
  race.add([&](int) { produced = creator->produce(); });
  race.add([&](int) { gate.open(); });
  race.run();
  ASSERT_TRUE(produced);
  EXPECT_TRUE(produced == creator->getData());
  EXPECT_EQ(produced->getUseCount(), 2) << "by the thread, and as data that were found";
  EXPECT_EQ(nRuns, 1);
  waitForEnd(*creator);
  EXPECT_EQ(creator->release(), Creature::StillInUse);
}

TEST_F(AsynchronProductionTest, ProductionRightAfterARequestLetsTheThreadBeginAndCollectsItsResult) {
  letProduceComeFirst();
  const SubjectPtr creator = makeGated(0);
  EXPECT_TRUE(creator->request({}));
  MemBasePtr collected = creator->produce();
  ASSERT_TRUE(collected);
  EXPECT_TRUE(collected == creator->getData());
  EXPECT_TRUE(collected->getCreator() == creator);
  EXPECT_EQ(collected->getUseCount(), 1) << "by the thread alone";
  EXPECT_EQ(nRuns, 1);
  EXPECT_EQ(creator->nCreations(), 1);
  EXPECT_FALSE(creator->isUnderCreation());
  EXPECT_EQ(collected.strongCount(), 2) << "the thread has been joined";
  EXPECT_EQ(creator.strongCount(), 1);
}

TEST_F(AsynchronProductionTest, CollectedDataAreReleasedAndRequestedAgain) {
  letProduceComeFirst();
  const SubjectPtr creator = makeGated(0);
  for (int round = 1; round <= 3; ++round) {
    EXPECT_TRUE(creator->request({}));
    EXPECT_EQ(creator->produce()->getUseCount(), 1);
    EXPECT_EQ(creator->produce()->getUseCount(), 2) << "found, and so marked";
    EXPECT_FALSE(creator->request({}));
    EXPECT_EQ(creator->release(), Creature::Released);
    EXPECT_FALSE(creator->hasData());
    EXPECT_EQ(creator->nCreations(), round);
  }
  EXPECT_EQ(nRuns, 3);
}

TEST_F(AsynchronProductionTest, CollectingAnInvalidResultRunsTheFunctionHere) {
  letProduceComeFirst();
  const SubjectPtr creator = make([this](const Flag&) { return ++nRuns == 1 ? MemBasePtr() : makeArray(1); });
  EXPECT_TRUE(creator->request({}));
  const MemBasePtr made = creator->produce();
  EXPECT_EQ(made.strongCount(), 1);
  EXPECT_EQ(nRuns, 2);
  EXPECT_EQ(creator->nCreations(), 1);
  EXPECT_FALSE(creator->hasData());
  EXPECT_FALSE(creator->isUnderCreation());
}

TEST_F(AsynchronProductionTest, AFinishedThreadIsReadOnceAndThenTheFunctionRunsHere) {
  const SubjectPtr creator = makeGated();
  start(*creator);
  finish(*creator);
  EXPECT_EQ(creator->release(), Creature::Released);
  for (int run = 2; run <= 3; ++run) {
    const MemBasePtr made = creator->produce();
    EXPECT_EQ(made->nElements(), static_cast<unsigned long long>(run));
    EXPECT_EQ(made.strongCount(), 1);
    EXPECT_FALSE(creator->hasData());
  }
  EXPECT_EQ(nRuns, 3);
  EXPECT_EQ(creator->nCreations(), 1);
}

TEST_F(AsynchronProductionTest, TwoProductionsThatWaitForOneThreadGetTheSameData) {
  letProduceComeFirst(2);
  const SubjectPtr creator = makeGated(0);
  EXPECT_TRUE(creator->request({}));
  MemBasePtr results[2];
  TreskTest::RaceRunner race;
  race.add(2, [&](int i) { results[i] = creator->produce(); });
  race.run();
  ASSERT_TRUE(results[0]);
  EXPECT_TRUE(results[0] == results[1]);
  EXPECT_EQ(results[0]->getUseCount(), 1) << "neither marks what it waited for";
  EXPECT_EQ(nRuns, 1);
}

TEST_F(AsynchronProductionTest, UnrequestedProductionsOfTwoThreadsEachRunTheFunctionAndNeverAtOnce) {
  std::atomic<int> nInside{0};
  std::atomic<int> nAtOnce{0};
  const SubjectPtr creator = make([&](const Flag&) {
    if (++nInside > 1) ++nAtOnce;
    ++nRuns;
    std::this_thread::yield();
    --nInside;
    return makeArray(1);
  });
  TreskTest::RaceRunner race;
  race.add(2, [&](int) {
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(creator->produce());
  });
  race.run();
  EXPECT_EQ(nAtOnce, 0);
  EXPECT_EQ(nRuns, 200);
}

TEST_F(AsynchronProductionTest, TakenDataLeaveItReadyForAnotherRequest) {
  const SubjectPtr creator = makeGated(2);
  start(*creator);
  finish(*creator);
  const MemBasePtr taken = creator->takeData();
  ASSERT_TRUE(taken);
  EXPECT_TRUE(taken->getCreator() == creator);
  EXPECT_FALSE(creator->hasData());
  start(*creator);
  finish(*creator);
  EXPECT_FALSE(creator->getData() == taken);
}

// ------------------------------------------------------------------------------------------------------------ failure

TEST_F(AsynchronProductionTest, AFailureOnTheThreadLeavesTheCreatorStuck) {
  const SubjectPtr creator = makeFailing();
  start(*creator);
  gate.open();
  EXPECT_THROW(creator->produce(), Failure);
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(creator->isUnderCreation());
    EXPECT_FALSE(creator->hasData());
    EXPECT_FALSE(creator->request({}));
    EXPECT_EQ(creator->release(), Creature::StillInUse);
    // Each production runs the function here from now on, and stores nothing.
    const MemBasePtr made = creator->produce();
    EXPECT_EQ(made.strongCount(), 1);
    EXPECT_EQ(nRuns, 2 + i);
  }
  EXPECT_EQ(creator->nCreations(), 1);
  EXPECT_EQ(creator->getCachingCount(), 1);
  EXPECT_EQ(creator.strongCount(), 1) << "the thread has let go of it";
}

TEST_F(AsynchronProductionTest, AFailureIsStuckBeforeAnybodyReadsIt) {
  const SubjectPtr creator = makeFailing();
  start(*creator);
  gate.open();
  // Unread, the failure changes nothing of what the others see, whether the thread has ended or not.
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(creator->isUnderCreation());
    EXPECT_FALSE(creator->request({}));
    EXPECT_EQ(creator->release(), Creature::StillInUse);
    EXPECT_FALSE(creator->hasData());
    if (i == 0)
      while (creator.strongCount() > 1) std::this_thread::yield();
  }
  EXPECT_EQ(nRuns, 1);
}

TEST_F(AsynchronProductionTest, AProductionThatWaitsGetsTheFailure) {
  letProduceComeFirst();
  const SubjectPtr creator = makeFailing();
  gate.open();
  EXPECT_TRUE(creator->request({}));
  EXPECT_THROW(creator->produce(), Failure);
  EXPECT_TRUE(creator->isUnderCreation());
  EXPECT_TRUE(creator->produce()) << "the creation mutex is free";
}

TEST_F(AsynchronProductionTest, OfTwoProductionsThatWaitOneGetsTheFailureAndTheOtherRunsTheFunction) {
  letProduceComeFirst(2);
  const SubjectPtr creator = makeFailing();
  gate.open();
  EXPECT_TRUE(creator->request({}));
  std::atomic<int> nFailures{0};
  std::atomic<int> nArrays{0};
  TreskTest::RaceRunner race;
  race.add(2, [&](int) {
    try {
      nArrays += creator->produce() ? 1 : 0;
    } catch (const Failure&) {
      ++nFailures;
    }
  });
  race.run();
  EXPECT_EQ(nFailures, 1);
  EXPECT_EQ(nArrays, 1);
  EXPECT_EQ(nRuns, 2);
}

TEST_F(AsynchronProductionTest, ExceptionsOfTheThreadArriveUnchanged) {
  const SubjectPtr creator = makeFailing();
  gate.open();
  EXPECT_TRUE(creator->request({}));
  try {
    creator->produce();
    ADD_FAILURE() << "the exception got lost";
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(), "no such file");
  }
  const SubjectPtr plain = make([](const Flag&) -> MemBasePtr { throw 42; });
  EXPECT_TRUE(plain->request({}));
  try {
    plain->produce();
    ADD_FAILURE() << "the exception got lost";
  } catch (int number) {
    EXPECT_EQ(number, 42);
  }
}

TEST_F(AsynchronProductionTest, AFailureLeavesFormerDataWhichHideItFromProductions) {
  const SubjectPtr creator = makeFailing();
  start(*creator);
  const MemBasePtr former = makeArray(7);
  creator->hold(former);
  gate.open();
  while (creator.strongCount() > 1) std::this_thread::yield();
  EXPECT_TRUE(creator->produce() == former);
  EXPECT_EQ(creator->release(), Creature::StillInUse);
  EXPECT_TRUE(creator->getData() == former);
  creator->takeData();
  EXPECT_THROW(creator->produce(), Failure) << "the failure is still to be read";
  EXPECT_TRUE(creator->produce());
}

TEST_F(AsynchronProductionTest, AStuckCreatorDiesLikeAnyOther) {
  SubjectPtr creator = makeFailing();
  start(*creator);
  gate.open();
  while (creator.strongCount() > 1) std::this_thread::yield();
  creator.reset();
  EXPECT_EQ(cache->nCreatures(), 0U);
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 0U);
}

TEST_F(AsynchronProductionTest, AFailureOfAnUnrequestedProductionPassesAndLeavesTheCreatorIdle) {
  gate.open();
  const SubjectPtr creator = makeFailing();
  EXPECT_THROW(creator->produce(), Failure);
  EXPECT_FALSE(creator->isUnderCreation());
  EXPECT_FALSE(creator->hasData());
  EXPECT_TRUE(creator->produce()) << "the creation mutex is free";
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_TRUE(creator->request({}));
  waitForEnd(*creator);
  EXPECT_TRUE(creator->hasData());
}

TEST_F(AsynchronProductionTest, AFailureAfterAGoodRunIsAsStuckAsTheFirst) {
  const SubjectPtr creator = make([this](const Flag&) {
    if (++nRuns == 2) throw Failure("the second time");
    return makeArray(1);
  });
  EXPECT_TRUE(creator->request({}));
  waitForEnd(*creator);
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_TRUE(creator->request({}));
  EXPECT_THROW(creator->produce(), Failure);
  EXPECT_FALSE(creator->request({}));
  EXPECT_EQ(creator->release(), Creature::StillInUse);
  EXPECT_EQ(creator->nCreations(), 2);
}

}  // namespace
