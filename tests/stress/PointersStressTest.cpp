// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Chunks.hpp>
#include <tresk/foundation/Pointers.hpp>

#include <support/CreatorDoubles.hpp>
#include <support/PointerClasses.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>
#include <support/SpeakRecorder.hpp>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <random>
#include <vector>

namespace {

using Ostrel::Cacheable;
using Ostrel::Creature;
using Ostrel::InterfaceBase;
using Ostrel::Pin;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using TreskTest::RaceRunner;
using TreskTest::WeakCreature;

/// An object whose memory tells whether it is alive.
class Canary {
 public:
  ~Canary() { song_ = Silence; }
  bool isAlive() const { return song_ == Song; }

 private:
  static constexpr std::uint64_t Song = 0x5EED5EED5EED5EEDULL;
  static constexpr std::uint64_t Silence = 0xDEADDEADDEADDEADULL;
  volatile std::uint64_t song_ = Song;
};

/// Data that stand behind a virtual base, as arrays do: their typed pointer cannot be computed from the record.
class CanaryBase : public virtual Cacheable {
 public:
  CanaryBase() : Cacheable(WeakCreature()) {}
  unsigned long long memsize() const override { return nBytes; }
  static constexpr unsigned long long nBytes = 4711;
};
class CanaryData : public CanaryBase {
 public:
  explicit CanaryData(int creator) : Cacheable(WeakCreature()), number(creator) { ++nAlive; }
  ~CanaryData() override { --nAlive; }

  static inline std::atomic<long long> nAlive{0};
  const int number;
  Canary canary;
};

using CanaryPtr = StrongPtr<CanaryData, Cacheable>;
using CanaryCreatorBase = Ostrel::CreatorBase<CanaryData>;
using CanaryCreator = Ostrel::AlzheimerCreator<CanaryData, CanaryCreatorBase>;

class CanaryProducer : public CanaryCreatorBase::Producer {
 public:
  explicit CanaryProducer(int creator) : number_(creator) {}
  CanaryPtr produce(const WeakPtr<CanaryCreatorBase, Creature>&) override { return CanaryPtr(new CanaryData(number_)); }
  bool canProduce() override { return true; }
  bool isUnderCreation() const override { return false; }

 private:
  int number_;
};

/// Keeps several runners busy until the last of them has done its rounds, so that they overlap from start to end.
class CommonEnd {
 public:
  explicit CommonEnd(int nRunners) : nBusy_(nRunners) {}

  /// Calls `round(i)` for i from 0, at least `nRounds` times and until `isContent()`, and on while others are busy.
  template <class Round, class Condition>
  void run(int nRounds, Round round, Condition isContent) {
    bool isBusy = true;
    for (int i = 0; isBusy || nBusy_ > 0; i = i == WrapAround ? 0 : i + 1) {
      round(i);
      if (isBusy && i + 1 >= nRounds && isContent()) {
        isBusy = false;
        --nBusy_;
      }
    }
  }
  template <class Round>
  void run(int nRounds, Round round) {
    run(nRounds, round, [] { return true; });
  }

 private:
  static constexpr int WrapAround = 1 << 30;
  std::atomic<int> nBusy_;
};

class PointersStressTest : public TreskTest::RecordBalanceTest {
 protected:
  ~PointersStressTest() override {
    EXPECT_TRUE(recorder.invalidWeaks().empty());
    EXPECT_TRUE(recorder.unctionChanges().empty());
  }
  TreskTest::SpeakRecorder recorder;
};

TEST_F(PointersStressTest, ReadersCopyDataOfCreatorsThatAreReleasedAndProducedMeanwhile) {
  constexpr int nCreators = 8;
  constexpr int nRounds = 200000;
  std::vector<StrongPtr<CanaryCreator, Creature>> creators;
  for (int i = 0; i < nCreators; ++i) {
    creators.emplace_back(new CanaryCreator(Ostrel::Cache::MemCache()));
    creators.back()->addInterface(StrongPtr<CanaryProducer, InterfaceBase>(new CanaryProducer(i)));
  }
  std::atomic<long long> nWrong{0};
  std::atomic<long long> nEmpty{0};
  CommonEnd common(4);
  RaceRunner race;
  race.add(2, [&](int) {
    long long nRead = 0;
    const auto round = [&](int i) {
      const int which = i % nCreators;
      CanaryCreator& creator = *creators[static_cast<std::size_t>(which)];
      static_cast<void>(creator.hasData());
      const CanaryPtr data = creator.getData();
      if (!data) return;
      ++nRead;
      if (!data->canary.isAlive() || data->number != which) ++nWrong;
      const StrongPtr<Cacheable, Cacheable> base = creator.getCacheable();
      if (base && base->memsize() != CanaryBase::nBytes) ++nWrong;
    };
    common.run(nRounds, round, [&] { return nRead > 0; });
  });
  race.add([&](int) {
    common.run(nRounds, [&](int i) {
      if (creators[static_cast<std::size_t>(i % nCreators)]->release() == Creature::CannotRelease) ++nWrong;
    });
  });
  race.add([&](int) {
    common.run(nRounds, [&](int i) {
      const int which = (5 * (i % nCreators)) % nCreators;
      const CanaryPtr data = creators[static_cast<std::size_t>(which)]->create(false);
      if (!data)
        ++nEmpty;
      else if (!data->canary.isAlive() || data->number != which)
        ++nWrong;
    });
  });
  race.run();
  EXPECT_EQ(nWrong, 0);
  EXPECT_EQ(nEmpty, 0) << "a release must not turn a production into an empty answer";
  for (const auto& creator : creators) {
    const CanaryPtr data = creator->getData();
    EXPECT_EQ(data.strongCount(), data ? 2 : 0);
  }
  creators.clear();
  EXPECT_EQ(CanaryData::nAlive, 0);
}

class SlotObject : public TreskTest::Root {
 public:
  Canary canary;
};
/// The same behind a virtual base.
class VirtualSlotObject : public TreskTest::Virtual {
 public:
  Canary canary;
};

template <class T>
class SlotStressTest : public PointersStressTest {};
using SlotTypes = ::testing::Types<SlotObject, VirtualSlotObject>;
TYPED_TEST_SUITE(SlotStressTest, SlotTypes);

TYPED_TEST(SlotStressTest, SlotsAreAssignedTakenCopiedForgottenAndUpgradedAtOnce) {
  using T = TypeParam;
  using Strong = StrongPtr<T, TreskTest::Root>;
  constexpr int nSlots = 4;
  constexpr int nRounds = 50000;
  const int nAliveAtStart = TreskTest::Root::nAlive;
  {
    std::array<Strong, nSlots> slots;
    std::array<WeakPtr<T, TreskTest::Root>, nSlots> observers;
    std::atomic<int> nWrong{0};
    RaceRunner race;
    CommonEnd common(4);
    // One thread assigns; all others take, copy, forget and observe.
    race.add([&](int) {
      std::mt19937 random(1);
      common.run(nRounds, [&](int) {
        const std::size_t slot = random() % nSlots;
        switch (random() % 4) {
          case 0:
            slots[slot] = Strong(new T);
            break;
          case 1: {
            const Strong made(new T);
            slots[slot] = made;
            break;
          }
          case 2: {
            const Strong former = slots[slot].exchangeFor(Strong(new T));
            if (former && !former->canary.isAlive()) ++nWrong;
            break;
          }
          default: {
            const Strong copy(slots[slot]);
            observers[slot] = copy;
            break;
          }
        }
      });
    });
    race.add([&](int) {
      std::mt19937 random(2);
      common.run(nRounds, [&](int) {
        const std::size_t slot = random() % nSlots;
        switch (random() % 3) {
          case 0: {
            const Strong taken = slots[slot].take();
            if (taken && !taken->canary.isAlive()) ++nWrong;
            break;
          }
          case 1:
            slots[slot].reset();
            break;
          default:
            static_cast<void>(slots[slot].forgetIfSole());
            break;
        }
      });
    });
    race.add([&](int) {
      common.run(nRounds, [&](int i) {
        const std::size_t slot = static_cast<std::size_t>(i) % nSlots;
        static_cast<void>(slots[slot].isValid());
        const Strong copy(slots[slot]);
        if (copy && (!copy->canary.isAlive() || copy.strongCount() < 1)) ++nWrong;
        const StrongPtr<TreskTest::Root, TreskTest::Root> base(slots[slot]);
        const Strong down(base);
        if (base.isValid() != down.isValid()) ++nWrong;
      });
    });
    race.add([&](int) {
      common.run(nRounds, [&](int i) {
        const std::size_t slot = static_cast<std::size_t>(i) % nSlots;
        const Strong upgraded(observers[slot]);
        if (upgraded && !upgraded->canary.isAlive()) ++nWrong;
        const Pin<TreskTest::Root> pin(observers[slot]);
        if (pin && pin->getRecord()->strong.load() < 1) ++nWrong;
        const WeakPtr<TreskTest::Root, TreskTest::Root> weak(observers[slot]);
        const WeakPtr<T, TreskTest::Root> down(weak);
        static_cast<void>(down.isValid());
      });
    });
    race.run();
    EXPECT_EQ(nWrong, 0);
  }
  EXPECT_EQ(TreskTest::Root::nAlive, nAliveAtStart);
}

TEST_F(PointersStressTest, OneObjectIsSharedAndReleasedByAll) {
  constexpr int nRounds = 3000;
  const int nAliveAtStart = TreskTest::Root::nAlive;
  for (int round = 0; round < nRounds / 100; ++round) {
    std::array<StrongPtr<SlotObject, TreskTest::Root>, 4> holders;
    holders.fill(StrongPtr<SlotObject, TreskTest::Root>(new SlotObject));
    const WeakPtr<SlotObject, TreskTest::Root> observer(holders[0]);
    std::atomic<int> nWrong{0};
    RaceRunner race;
    race.add(4, [&](int thread) {
      StrongPtr<SlotObject, TreskTest::Root>& mine = holders[static_cast<std::size_t>(thread)];
      for (int i = 0; i < 100; ++i) {
        const StrongPtr<SlotObject, TreskTest::Root> copy(mine);
        if (!copy->canary.isAlive() || copy.strongCount() < 2) ++nWrong;
      }
      mine.reset();
    });
    race.run();
    EXPECT_EQ(nWrong, 0);
    EXPECT_EQ(observer.strongCount(), -111);
    EXPECT_EQ(observer.weakCount(), 1);
  }
  EXPECT_EQ(TreskTest::Root::nAlive, nAliveAtStart);
}

TEST_F(PointersStressTest, FirstStrongPointerIsClaimedOnceBySeveralThreads) {
  for (int round = 0; round < 300; ++round) {
    auto* const object = new TreskTest::CountingData;
    const WeakPtr<TreskTest::CountingData, Cacheable> observer(object);
    std::array<TreskTest::DataPtr, 3> holders;
    // The object is held while the threads race for the unit of its birth.
    {
      const Pin<Cacheable> pin(observer);
      RaceRunner race;
      race.add(3, [&](int thread) { holders[static_cast<std::size_t>(thread)] = TreskTest::DataPtr(observer); });
      race.run();
      ASSERT_EQ(observer.strongCount(), 4) << "three holders and the pin";
    }
    ASSERT_EQ(object->nDeferred, 1);
    ASSERT_EQ(observer.strongCount(), 3);
    ASSERT_EQ(observer.weakCount(), 6);
  }
}

/// Counts its last chances; the hook looks at the object like any visitor.
class Visited : public Ostrel::ReferenceBase<Visited> {
 public:
  Visited() : ReferenceBase<Visited>(this) { ++nAlive; }
  ~Visited() override { --nAlive; }
  void extremeUnction() override {
    ++nUnctions;
    const StrongPtr<Visited, Visited> mine(this);
    if (!mine->canary.isAlive()) ++nWrong;
  }

  static inline std::atomic<int> nAlive{0};
  static inline std::atomic<int> nUnctions{0};
  static inline std::atomic<int> nWrong{0};
  Canary canary;
};

TEST_F(PointersStressTest, VisitorsDuringTheLastChanceNeitherWarnNorLeak) {
  constexpr int nRounds = 20000;
  StrongPtr<Visited, Visited> slot;
  WeakPtr<Visited, Visited> observer;
  std::atomic<bool> isDone{false};
  std::atomic<int> nWrong{0};
  Visited::nUnctions = 0;
  RaceRunner race;
  race.add([&](int) {
    for (int i = 0; i < nRounds; ++i) {
      slot = StrongPtr<Visited, Visited>(new Visited);
      observer = slot;
      slot.reset();
    }
    isDone = true;
  });
  race.add(2, [&](int) {
    while (!isDone) {
      const StrongPtr<Visited, Visited> visitor(observer);
      if (visitor && !visitor->canary.isAlive()) ++nWrong;
    }
  });
  race.run();
  observer.reset();
  EXPECT_EQ(nWrong, 0);
  EXPECT_EQ(Visited::nWrong, 0);
  EXPECT_EQ(Visited::nAlive, 0) << "every object has died";
  EXPECT_GE(Visited::nUnctions, nRounds);
}

TEST_F(PointersStressTest, RecordsWanderBetweenThreads) {
  // One thread makes objects, another lets them die: records flow one way through the shared store.
  constexpr int nObjects = 50000;
  std::array<StrongPtr<SlotObject, TreskTest::Root>, 16> mailboxes;
  const int nAliveAtStart = TreskTest::Root::nAlive;
  std::atomic<bool> isDone{false};
  RaceRunner race;
  race.add([&](int) {
    for (std::size_t i = 0; i < nObjects; ++i)
      mailboxes[i % 16] = StrongPtr<SlotObject, TreskTest::Root>(new SlotObject);
    isDone = true;
  });
  race.add([&](int) {
    for (std::size_t i = 0; !isDone; ++i) mailboxes[i % 16].take().reset();
  });
  race.run();
  for (auto& mailbox : mailboxes) mailbox.reset();
  EXPECT_EQ(TreskTest::Root::nAlive, nAliveAtStart);
  EXPECT_EQ(nLiveSinceStart(), 0);
}

}  // namespace
