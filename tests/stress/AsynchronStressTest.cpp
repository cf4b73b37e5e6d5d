// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/AsynchronCreator.hpp>

#include <support/AsynchronDoubles.hpp>
#include <support/RaceRunner.hpp>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Ostrel::Creature;
using Tresk::AsynchronCreator;
using TreskTest::Flag;
using TreskTest::KindPtr;
using TreskTest::makeArray;
using TreskTest::MemBasePtr;
using TreskTest::RaceRunner;
using TreskTest::Tokens;

using AsynchronPtr = KindPtr<AsynchronCreator>;

/// Rounds of `request` and `produce`, each of which starts a thread.
constexpr int nRounds = 20000;
/// Rounds of threads that do something different in each.
constexpr int nMixedRounds = 5000;
constexpr int nThreads = 4;

/// Memory that tells whether the object around it is alive.
class Canary {
 public:
  ~Canary() { song_ = 0xDEADDEADDEADDEADULL; }
  bool isAlive() const { return song_ == 0x5EED5EED5EED5EEDULL; }

 private:
  volatile std::uint64_t song_ = 0x5EED5EED5EED5EEDULL;
};

/// An array that knows its creator by a number.
class CanaryArray : public Tresk::MemArray<1, double> {
 public:
  explicit CanaryArray(unsigned int creatorNumber)
      : MemBase(index(), TreskTest::CreatorWeakPtr()),
        MemArray<1, double>(Tresk::MultiIndex<1>(1), TreskTest::CreatorWeakPtr()),
        number(creatorNumber) {
    ++nAlive;
  }
  ~CanaryArray() override { --nAlive; }

  static const Tresk::TreskTypeIndex& index() {
    static const Tresk::TreskTypeIndex theIndex = makeArray(1)->getTreskTypeIndex();
    return theIndex;
  }
  /// Whether `data` live and were made for the creator of that number.
  static bool isOf(const MemBasePtr& data, unsigned int number) {
    const auto* const array = dynamic_cast<const CanaryArray*>(data.get());
    return array != nullptr && array->canary.isAlive() && array->number == number && array->nElements() == 1;
  }

  static inline std::atomic<long long> nAlive{0};
  const unsigned int number;
  Canary canary;
};

/// Counts the creators, as the function of each dies with it, and waits for the last of them.
class AsynchronStressTest : public TreskTest::RecordBalanceTest {
 protected:
  AsynchronStressTest() { CanaryArray::index(); }
  ~AsynchronStressTest() override {
    joinAll();
    EXPECT_EQ(Tresk::Detail::nThreadsToJoin(), 0U);
    EXPECT_EQ(CanaryArray::nAlive, 0);
    EXPECT_EQ(cache->nCacheables(), 0U);
    EXPECT_EQ(cache->nCreatures(), 0U);
  }

  /// Waits until all creators of `make` are gone, on whatever thread they die, and joins their threads.
  void joinAll() {
    for (int n = nMade.exchange(0); n > 0; --n) dead.take();
    TreskTest::joinAllThreads();
  }

  AsynchronPtr make(const AsynchronCreator::Function& function) {
    ++nMade;
    const auto token = TreskTest::makeToken([this] { dead.add(); });
    return AsynchronPtr(
        new AsynchronCreator([function, token](const Flag& isDiscarded) { return function(isDiscarded); }, cache));
  }
  /// A creator whose function makes a small array and never fails.
  AsynchronPtr makeSimple(unsigned int number = 0) {
    return make([number](const Flag&) { return MemBasePtr(new CanaryArray(number)); });
  }

  /// `request` and `produce` on one creator, again and again. The creator is emptied in between.
  void requestAndProduce(const AsynchronPtr& creator) {
    for (int round = 0; round < nRounds; ++round) {
      if (!creator->request({})) ++nWrong;
      if (!CanaryArray::isOf(creator->produce(), 0)) ++nWrong;
      // The thread may have stored its result and not come to its end yet.
      while (creator->release() != Creature::Released) std::this_thread::yield();
    }
    if (creator->nCreations() != nRounds) ++nWrong;
  }

  Tresk::CachePtr cache{new Ostrel::Cache};
  Tokens dead;
  std::atomic<int> nMade{0};
  std::atomic<long long> nWrong{0};
};

TEST_F(AsynchronStressTest, ProductionRightAfterARequestNeverHangsOnOneThread) {
  requestAndProduce(makeSimple());
  EXPECT_EQ(nWrong, 0);
}

TEST_F(AsynchronStressTest, ProductionRightAfterARequestNeverHangsOnFourThreadsWithACreatorEach) {
  RaceRunner race;
  race.add(nThreads, [this](int) { requestAndProduce(makeSimple()); });
  race.run();
  EXPECT_EQ(nWrong, 0);
}

TEST_F(AsynchronStressTest, ProductionRightAfterTheFirstRequestOfACreatorNeverHangs) {
  RaceRunner race;
  race.add(nThreads, [this](int) {
    for (int round = 0; round < nRounds / nThreads; ++round) {
      const AsynchronPtr creator = makeSimple();
      if (!creator->request({})) ++nWrong;
      if (!CanaryArray::isOf(creator->produce(), 0)) ++nWrong;
      if (!creator->hasData() || creator->nCreations() != 1) ++nWrong;
    }
  });
  race.run();
  EXPECT_EQ(nWrong, 0);
}

TEST_F(AsynchronStressTest, ProductionRightAfterARequestNeverHangsOnFourThreadsWithOneCreator) {
  const AsynchronPtr creator = makeSimple();
  std::atomic<int> nTaken{0};
  std::atomic<int> nReleased{0};
  RaceRunner race;
  race.add(nThreads, [&](int) {
    for (int round = 0; round < nRounds; ++round) {
      if (creator->request({})) ++nTaken;
      if (!CanaryArray::isOf(creator->produce(), 0)) ++nWrong;
      const Creature::ReasonForReleasal reason = creator->release();
      if (reason == Creature::CannotRelease) ++nWrong;
      if (reason == Creature::Released) ++nReleased;
    }
  });
  race.run();
  while (creator->isUnderCreation()) std::this_thread::yield();
  EXPECT_EQ(nWrong, 0);
  EXPECT_EQ(creator->nCreations(), nTaken) << "each request that was taken has come to the function once";
  EXPECT_GT(nTaken, 0);
  RecordProperty("requests_taken", std::to_string(nTaken));
  RecordProperty("releases", std::to_string(nReleased));
}

TEST_F(AsynchronStressTest, FourThreadsRequestProduceReleaseAndDiscardOnSixteenCreators) {
  constexpr unsigned int nCreators = 16;
  constexpr unsigned int nFailing = 4;  ///< the last ones fail in their first run
  struct Counts {
    std::atomic<int> nRuns{0};
    std::atomic<int> nInside{0};
    std::atomic<int> nTaken{0};
    std::atomic<int> nFailures{0};
    std::atomic<bool> isDiscarded{false};
  };
  std::array<Counts, nCreators> counts;
  std::vector<AsynchronPtr> creators;
  for (unsigned int i = 0; i < nCreators; ++i) {
    creators.push_back(make([&counts, this, i](const Flag& isDiscarded) {
      Counts& mine = counts[i];
      if (++mine.nInside > 1) ++nWrong;  // one run at a time
      // Whoever has seen the flag up sees it up for good.
      const bool wasDiscarded = mine.isDiscarded;
      if (wasDiscarded && !isDiscarded) ++nWrong;
      const bool isFirst = ++mine.nRuns == 1;
      --mine.nInside;
      if (isFirst && i >= nCreators - nFailing) throw static_cast<int>(i);
      return MemBasePtr(new CanaryArray(i));
    }));
  }
  RaceRunner race;
  race.add(nThreads, [&](int thread) {
    std::mt19937 random(static_cast<unsigned int>(thread) + 1);
    for (int round = 0; round < nMixedRounds; ++round) {
      const unsigned int i = static_cast<unsigned int>(random() % nCreators);
      AsynchronCreator& creator = *creators[i];
      switch (random() % 8) {
        case 0:
        case 1:
        case 2:
          if (creator.request({})) ++counts[i].nTaken;
          break;
        case 3:
        case 4:
          try {
            if (!CanaryArray::isOf(creator.produce(), i)) ++nWrong;
          } catch (int failure) {
            if (failure != static_cast<int>(i)) ++nWrong;
            ++counts[i].nFailures;
          }
          break;
        case 5:
        case 6:
          if (creator.release() == Creature::CannotRelease) ++nWrong;
          break;
        default:
          if (creator.discardCreation()) ++nWrong;
          counts[i].isDiscarded = true;
          break;
      }
      const MemBasePtr held = creator.getData();
      if (held && !CanaryArray::isOf(held, i)) ++nWrong;
      const std::type_info& type = creator.getType();
      if (type != typeid(double) && type != typeid(void)) ++nWrong;
    }
  });
  race.run();
  int nStuck = 0;
  for (unsigned int i = 0; i < nCreators; ++i) {
    AsynchronCreator& creator = *creators[i];
    // A failure on the thread is passed on once, by whoever asks first; one on the caller's own thread leaves no mark.
    while (creators[i].strongCount() > 1) std::this_thread::yield();
    MemBasePtr last;
    try {
      last = creator.produce();
    } catch (int) {
      ++counts[i].nFailures;
      last = creator.produce();
    }
    EXPECT_TRUE(CanaryArray::isOf(last, i));
    last.reset();
    EXPECT_EQ(creator.nCreations(), counts[i].nTaken) << i;
    EXPECT_EQ(counts[i].nFailures, i >= nCreators - nFailing ? 1 : 0) << i;
    if (creator.isUnderCreation()) {
      ++nStuck;
      EXPECT_EQ(counts[i].nFailures, 1) << i;
      EXPECT_FALSE(creator.request({}));
      EXPECT_EQ(creator.release(), Creature::StillInUse);
      EXPECT_EQ(counts[i].nTaken, 1) << "the failure was that of the first request, and no other was taken";
    } else {
      EXPECT_EQ(creator.release(), Creature::Released);
      EXPECT_FALSE(creator.hasData());
    }
  }
  EXPECT_EQ(nWrong, 0);
  EXPECT_LE(nStuck, static_cast<int>(nFailing));
  RecordProperty("stuck", std::to_string(nStuck));
  creators.clear();
}

TEST_F(AsynchronStressTest, CreatorsThatDieOnTheirThreadsAreAllJoined) {
  constexpr int nDying = nRounds / 10;
  std::atomic<int> nDeadThere{0};
  RaceRunner race;
  race.add(nThreads, [&](int) {
    for (int round = 0; round < nDying; ++round) {
      Tokens entered;
      Tokens dropped;
      Tokens gone;
      const std::thread::id maker = std::this_thread::get_id();
      auto token = TreskTest::makeToken([&gone, &nDeadThere, maker] {
        if (std::this_thread::get_id() != maker) ++nDeadThere;
        gone.add();
      });
      AsynchronPtr creator = make([&entered, &dropped, token, round](const Flag&) {
        entered.add();
        dropped.take();
        if (round % 3 == 0) throw round;
        return MemBasePtr(new CanaryArray(0));
      });
      token.reset();
      if (!creator->request({})) ++nWrong;
      entered.take();
      creator.reset();
      dropped.add();
      gone.take();  // the function dies with its creator
    }
  });
  race.run();
  EXPECT_EQ(nWrong, 0);
  EXPECT_EQ(nDeadThere, nThreads * nDying);
  joinAll();
}

TEST_F(AsynchronStressTest, CreatorsDroppedWhileTheirThreadsBeginAndEndAreAllJoined) {
  std::atomic<int> nRuns{0};
  RaceRunner race;
  race.add(nThreads, [&](int) {
    for (int round = 0; round < nRounds / nThreads; ++round) {
      AsynchronPtr creator = make([&nRuns](const Flag&) {
        ++nRuns;
        return MemBasePtr(new CanaryArray(0));
      });
      if (!creator->request({})) ++nWrong;
      // Dropped at once, or in the middle of the work, or about its end.
      if (round % 3 == 1) std::this_thread::yield();
      if (round % 3 == 2)
        while (creator->isUnderCreation()) std::this_thread::yield();
      creator.reset();
    }
  });
  race.run();
  EXPECT_EQ(nWrong, 0);
  joinAll();
  EXPECT_LE(nRuns, nRounds);
  EXPECT_GE(nRuns, nRounds / nThreads / 3 * nThreads) << "those that were waited for have run";
  RecordProperty("runs", std::to_string(nRuns));
}

TEST_F(AsynchronStressTest, TheCacheTrimsWhileCreatorsAreFilledAndCollected) {
  constexpr unsigned int nCreators = 4;
  std::vector<AsynchronPtr> creators;
  for (unsigned int i = 0; i < nCreators; ++i) creators.push_back(makeSimple(i));
  std::atomic<int> nBusy{2};
  std::atomic<unsigned long long> nTrimmed{0};
  RaceRunner race;
  race.add(2, [&](int) {
    for (int round = 0; round < nMixedRounds || nTrimmed == 0; ++round) {
      const unsigned int i = static_cast<unsigned int>(round) % nCreators;
      creators[i]->request({});
      if (!CanaryArray::isOf(creators[i]->produce(), i)) ++nWrong;
    }
    --nBusy;
  });
  race.add([&](int) {
    while (nBusy > 0) nTrimmed += cache->trim(sizeof(double));
  });
  race.run();
  EXPECT_EQ(nWrong, 0);
  EXPECT_GT(nTrimmed, 0U);
  creators.clear();
}

}  // namespace
