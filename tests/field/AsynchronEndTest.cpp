// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/AsynchronCreator.hpp>

#include <support/AsynchronDoubles.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>
#include <utility>

namespace {

using TreskTest::ArrayObserver;
using TreskTest::Failure;
using TreskTest::Flag;
using TreskTest::Gate;
using TreskTest::joinAllThreads;
using TreskTest::makeArray;
using TreskTest::makeToken;
using TreskTest::MemBasePtr;
using TreskTest::MortalArray;
using TreskTest::SubjectPtr;
using TreskTest::Tokens;

/// Tells of the end of its thread, which comes after the result of the thread has been stored.
struct Farewell {
  ~Farewell() {
    if (onEnd) onEnd();
  }
  std::function<void()> onEnd;
};
void atThreadEnd(std::function<void()> onEnd) {
  static thread_local Farewell farewell;
  farewell.onEnd = std::move(onEnd);
}

/// Lets creators die on their own threads.
class AsynchronEndTest : public TreskTest::AsynchronCreatorFixture {
 protected:
  ~AsynchronEndTest() override { joinAll(); }

  /// A creator whose function waits at the gate and fails if told so. Its death tells the thread and, at the end of the
  /// function object, when its future has been handed on, passes `afterwards`.
  SubjectPtr makeMortal(bool fails = false) {
    auto token = makeToken([this] { afterwards.pass(); });
    SubjectPtr creator = make([this, fails, token](const Flag&) {
      atThreadEnd([this] { ended.add(); });
      gate.pass();
      if (fails) throw Failure("no such file");
      return MemBasePtr(new MortalArray([this] { ++nDeadArrays; }));
    });
    creator->onDeath = [this] { mourner = std::this_thread::get_id(); };
    return creator;
  }
  /// Lets the creator die on its thread, and returns when the thread stands in the middle of that.
  void letDie(SubjectPtr creator) {
    start(*creator);
    creator.reset();
    EXPECT_EQ(mourner.load(), std::thread::id()) << "the thread holds the creator";
    gate.open();
    afterwards.waitForVisitor();
  }
  void expectDeathOnItsThread() const {
    EXPECT_NE(mourner.load(), std::thread::id());
    EXPECT_NE(mourner.load(), std::this_thread::get_id());
  }

  Gate afterwards;
  Tokens ended;  ///< one for each thread of `makeMortal` that has ended
  std::atomic<std::thread::id> mourner{};
  std::atomic<int> nDeadArrays{0};
};

TEST_F(AsynchronEndTest, DeathWaitsForTheThreadAndThenLetsTheFunctionGoAndTheDataLast) {
  Gate beginning;
  std::atomic<bool> hasPassed{false};
  Tresk::Detail::asynchronHooks().beforeUpgrade = [&] {
    beginning.pass();
    hasPassed = true;
  };
  bool hadPassed = false;
  bool hadData = false;
  ArrayObserver observer;
  auto token = makeToken([&] {
    hadPassed = hasPassed;
    hadData = observer.isValid();
  });
  SubjectPtr creator = make([token](const Flag&) { return makeArray(1); });
  token.reset();
  EXPECT_TRUE(creator->request({}));
  beginning.waitForVisitor();
  creator->hold(makeArray(1));
  observer = creator->getData();
  creator->onDeath = [&beginning] { beginning.open(); };
  creator.reset();
  EXPECT_TRUE(hadPassed);
  EXPECT_TRUE(hadData);
  EXPECT_FALSE(observer.isValid());
}

TEST_F(AsynchronEndTest, AFinishedThreadThatNobodyReadIsJoinedByTheDeathOfItsCreator) {
  SubjectPtr creator = makeGated();
  start(*creator);
  finish(*creator);
  const MemBasePtr held = creator->getData();
  while (creator.strongCount() > 1) std::this_thread::yield();
  creator.reset();
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 0U);
  EXPECT_EQ(held.strongCount(), 1);
  EXPECT_FALSE(held->getCreator().isValid());
}

TEST_F(AsynchronEndTest, ACreatorWhoseLastReferenceIsThatOfItsThreadDiesThere) {
  letDie(makeMortal());
  expectDeathOnItsThread();
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 1U);
  afterwards.open();
  joinAllThreads();
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 0U);
  EXPECT_EQ(nDeadArrays, 1) << "nobody else held the data";
  EXPECT_EQ(cache->nCreatures(), 0U);
  EXPECT_EQ(cache->nCacheables(), 0U);
}

TEST_F(AsynchronEndTest, AFailureIsNoHindrance) {
  letDie(makeMortal(true));
  expectDeathOnItsThread();
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 1U);
  afterwards.open();
  joinAllThreads();
  EXPECT_EQ(nDeadArrays, 0);
}

TEST_F(AsynchronEndTest, AThreadThatHasNotEndedIsNotWaitedFor) {
  letDie(makeMortal());
  Tresk::Detail::joinFinishedThreads();  // would hang
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 1U);
  const SubjectPtr other = makeGated(0);
  EXPECT_TRUE(other->request({}));  // likewise
  waitForEnd(*other);
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 1U);
  afterwards.open();
}

TEST_F(AsynchronEndTest, AThreadNeverJoinsItself) {
  std::size_t nLeft = 0;
  Tokens done;
  auto token = makeToken([&] {
    Tresk::Detail::joinFinishedThreads();
    nLeft = Tresk::Detail::nThreadsToJoin();
    done.add();
  });
  SubjectPtr creator = make([this, token](const Flag&) {
    gate.pass();
    return makeArray(1);
  });
  token.reset();
  start(*creator);
  creator.reset();
  gate.open();
  done.take();
  EXPECT_EQ(nLeft, 1U);
}

TEST_F(AsynchronEndTest, ThreadsThatHaveEndedAreJoinedByTheNextRequestOfAnyCreator) {
  for (int i = 0; i < 3; ++i) {
    letDie(makeMortal());
    mourner = std::thread::id();
  }
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 3U);
  for (int i = 0; i < 3; ++i) afterwards.open();
  for (int i = 0; i < 3; ++i) ended.take();
  const SubjectPtr other = makeGated(0);
  EXPECT_TRUE(other->request({}));
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 0U);
  waitForEnd(*other);
}

TEST_F(AsynchronEndTest, ARequestThatFindsDataJoinsNobody) {
  const SubjectPtr other = makeGated(0);
  other->hold(makeArray(1));
  letDie(makeMortal());
  afterwards.open();
  ended.take();
  // This way takes no lock, and no thread can hold it up.
  EXPECT_FALSE(other->request({}));
  EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 1U);
}

TEST_F(AsynchronEndTest, DataHeldElsewhereOutliveACreatorThatDiesOnItsThread) {
  const MemBasePtr known = makeArray(7);
  auto token = makeToken([this] { afterwards.pass(); });
  SubjectPtr creator = make([this, known, token](const Flag&) {
    gate.pass();
    return known;
  });
  token.reset();
  letDie(std::move(creator));
  afterwards.open();
  joinAllThreads();
  EXPECT_EQ(known.strongCount(), 1);
  EXPECT_FALSE(known->getCreator().isValid());
}

TEST_F(AsynchronEndTest, ACreatorThatDiesOnTheThreadOfAnotherIsJoinedThere) {
  Tokens done;
  SubjectPtr inner = makeGated(0);
  EXPECT_TRUE(inner->request({}));
  waitForEnd(*inner);
  while (inner.strongCount() > 1) std::this_thread::yield();
  inner->onDeath = [this] { mourner = std::this_thread::get_id(); };
  std::size_t nLeft = 1;
  const SubjectPtr outer = make([&](const Flag&) {
    inner.reset();
    nLeft = Tresk::Detail::nThreadsToJoin();
    done.add();
    return makeArray(1);
  });
  EXPECT_TRUE(outer->request({}));
  done.take();
  waitForEnd(*outer);
  expectDeathOnItsThread();
  EXPECT_EQ(nLeft, 0U) << "that thread could wait for it";
}

TEST_F(AsynchronEndTest, DataThatAskTheirDyingThreadForMoreDoNotMakeItWaitForItself) {
  // The array that the result replaces dies at the end of the thread, behind the lock, and asks the creator again.
  SubjectPtr watched;
  MemBasePtr produced;
  Tokens done;
  const SubjectPtr creator = makeGated();
  start(*creator);
  watched = creator;
  creator->hold(MemBasePtr(new MortalArray([&] {
    watched->takeData();
    produced = watched->produce();
    watched.reset();
    done.add();
  })));
  gate.open();
  done.take();
  EXPECT_TRUE(produced);
  EXPECT_EQ(nRuns, 2);
  EXPECT_FALSE(creator->hasData());
}

TEST_F(AsynchronEndTest, DataThatRequestTheirSuccessorsOnTheEndingThreadDoNotMakeItWaitForItself) {
  SubjectPtr watched;
  Tokens done;
  const SubjectPtr creator = makeGated();
  start(*creator);
  watched = creator;
  creator->hold(MemBasePtr(new MortalArray([&] {
    watched->takeData();
    EXPECT_TRUE(watched->request({}));
    watched.reset();
    done.add();
  })));
  gate.open();
  done.take();
  waitForEnd(*creator);
  EXPECT_TRUE(creator->hasData());
  EXPECT_EQ(creator->nCreations(), 2);
}

TEST_F(AsynchronEndTest, ThreadsThatWaitToBeJoinedAreJoinedAtExit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        Tokens done;
        auto token = makeToken([&done] { done.add(); });
        SubjectPtr creator = make([this, token](const Flag&) {
          atThreadEnd([] { std::fputs("the thread has ended\n", stderr); });
          gate.pass();
          return makeArray(1);
        });
        token.reset();
        start(*creator);
        creator.reset();
        gate.open();
        done.take();
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "the thread has ended");
}

TEST_F(AsynchronEndTest, AThreadOnWhichItsCreatorHasDiedMayEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        // The function ends on the thread, when the thread is already among those that are to be joined.
        auto token = makeToken([] {
          std::fprintf(stderr, "%zu to join\n", Tresk::Detail::nThreadsToJoin());
          std::exit(0);
        });
        SubjectPtr creator = make([this, token](const Flag&) {
          gate.pass();
          return makeArray(1);
        });
        token.reset();
        start(*creator);
        creator.reset();
        gate.open();
        Gate never;
        never.pass();
      },
      ::testing::ExitedWithCode(0), "1 to join");
}

TEST_F(AsynchronEndTest, AThreadThatStillWorksForNobodyIsWaitedForAtExit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        SubjectPtr creator = make([this](const Flag&) {
          gate.pass();
          for (int i = 0; i < 1000; ++i) std::this_thread::yield();
          std::fputs("the work has ended\n", stderr);
          return makeArray(1);
        });
        start(*creator);
        creator.reset();
        gate.open();
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "the work has ended");
}

}  // namespace
