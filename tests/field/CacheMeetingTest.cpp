// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// What caches promise where several of them, their listeners, walks and threads meet.

#include <support/CacheDoubles.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Ostrel::Cache;
using Ostrel::CacheEvent;
using Ostrel::CacheEventKind;
using Ostrel::CacheHoldingState;
using testing::ElementsAre;
using CachePtr = Tresk::CachePtr;

/// Data of a stated number of bytes.
class SizedData : public Ostrel::Cacheable {
 public:
  explicit SizedData(unsigned long long nBytes) : Cacheable({}), nBytes_(nBytes) {}
  unsigned long long memsize() const override { return nBytes_; }

 private:
  const unsigned long long nBytes_;
};
using DataPtr = Ostrel::StrongPtr<SizedData, Ostrel::Cacheable>;
using SizedCreatorBase = Ostrel::CreatorBase<SizedData>;

/// A creator that makes its data by a function and tells when it is asked to let them go.
class ForgetfulCreator : public Ostrel::AlzheimerCreator<SizedData, SizedCreatorBase> {
 public:
  using AlzheimerCreator::AlzheimerCreator;
  DataPtr produce() override {
    DataPtr made = make();
    data = made;
    return made;
  }
  ReasonForReleasal release() override {
    if (onRelease) onRelease();
    return AlzheimerCreator::release();
  }
  std::function<DataPtr()> make;
  std::function<void()> onRelease;
};
using Creator = Ostrel::StrongPtr<ForgetfulCreator, Ostrel::Creature>;

class CacheMeetingTest : public TreskTest::RecordBalanceTest {
 protected:
  Creator make(int number, unsigned long long nBytes, const CachePtr& where) {
    Creator creator(new ForgetfulCreator(where));
    creator->make = [this, number, nBytes] {
      if (onProduce) onProduce(number);
      return DataPtr(new SizedData(nBytes));
    };
    creator->onRelease = [this, number] {
      asked.push_back(number);
      if (onRelease) onRelease(number);
    };
    return creator;
  }
  std::vector<Creator> makeMany(int n, unsigned long long nBytes, const CachePtr& where) {
    std::vector<Creator> all;
    for (int i = 0; i < n; ++i) all.push_back(make(i, nBytes, where));
    return all;
  }
  static unsigned long long nHeld(const CachePtr& where) { return where->getStatistics().nHeldBytes; }
  static unsigned long long nInFlight(const CachePtr& where) { return where->getStatistics().nInFlightBytes; }

  CachePtr cache = CachePtr(new Cache);
  std::vector<int> asked;
  std::function<void(int)> onProduce;
  std::function<void(int)> onRelease;
};

TEST_F(CacheMeetingTest, OneOperationBringsSeveralCachesBackToTheirLimits) {
  std::vector<CachePtr> caches;
  std::vector<Creator> former;
  std::vector<Creator> later;
  for (int i = 0; i < 4; ++i) {
    caches.push_back(CachePtr(new Cache));
    caches.back()->setLimit(100);
    former.push_back(make(i, 100, caches.back()));
    former.back()->create(false);
    later.push_back(make(10 + i, 100, caches.back()));
  }
  const Creator outer = make(100, 1, cache);
  onProduce = [&](int number) {
    if (number == 100)
      for (const Creator& creator : later) creator->create(false);
  };
  outer->create(false);
  for (const CachePtr& one : caches) {
    EXPECT_EQ(nHeld(one), 100U);
    EXPECT_EQ(nInFlight(one), 0U);
  }
}

TEST_F(CacheMeetingTest, ParentLimitHoldsThoughTheChildWasOverItsOwnAtFirst) {
  cache->setLimit(1000);
  const CachePtr small(new Cache(cache));
  small->setLimit(400);
  const CachePtr other(new Cache(cache));
  const auto many = makeMany(100, 10, other);
  for (const Creator& creator : many) creator->create(false);
  const Creator a = make(200, 300, small);
  const Creator b = make(201, 300, small);
  const Creator outer = make(202, 0, small);
  onProduce = [&](int number) {
    if (number != 202) return;
    a->create(false);
    b->create(false);
  };
  outer->create(false);
  EXPECT_LE(nHeld(small), 400U);
  EXPECT_LE(nHeld(cache), 1000U);
}

TEST_F(CacheMeetingTest, ChildThatPassesItsLimitWhileTheParentLetsGoLetsItsOwnDataGo) {
  cache->setLimit(300);
  const CachePtr a(new Cache(cache));
  a->setLimit(200);
  const CachePtr b(new Cache(cache));
  const auto inB = makeMany(3, 100, b);
  for (const Creator& creator : inB) creator->create(false);
  const Creator first = make(10, 200, a);
  const Creator second = make(11, 100, a);
  onRelease = [&](int number) {
    if (number == 0) second->create(false);
  };
  first->create(false);
  EXPECT_LE(nHeld(a), 200U);
  EXPECT_LE(nHeld(cache), 300U);
}

TEST_F(CacheMeetingTest, ACreatorIsNotAskedForDataThatItDoesNotHold) {
  cache->setLimit(300);
  const Creator x = make(1, 100, cache);
  const Creator y = make(2, 100, cache);
  const Creator z = make(3, 100, cache);
  x->create(false);
  const DataPtr taken = x->takeData();
  x->create(false);
  y->create(false);
  x->create(false);  // the data of y were used least recently, but for those taken
  z->create(false);
  EXPECT_TRUE(x->hasData());
  EXPECT_FALSE(y->hasData());
  EXPECT_EQ(cache->getStatistics().nEvicted, 1U);
  EXPECT_EQ(cache->getStatistics().nBytesGivenBack, 100U);
}

TEST_F(CacheMeetingTest, DataThatACallerAloneHoldsAreReportedAsHeldByCallers) {
  const Creator x = make(1, 100, cache);
  x->create(false);
  const DataPtr taken = x->takeData();
  ASSERT_EQ(cache->getHoldings().size(), 1U);
  EXPECT_EQ(cache->getHoldings()[0].state, CacheHoldingState::HeldByCallers);
  cache->setLimit(50);
  EXPECT_EQ(cache->getHoldings()[0].state, CacheHoldingState::HeldByCallers);
  EXPECT_EQ(cache->getStatistics().nEvicted, 0U) << "nothing was let go";
}

TEST_F(CacheMeetingTest, FreeMemoryIsReturnedWhenEachOperationLetsOneGo) {
  std::vector<unsigned long long> returned;
  cache->setListener([&](const CacheEvent& event) {
    if (event.kind == CacheEventKind::Returned) returned.push_back(event.nBytes);
  });
  cache->setLimit(300);
  cache->setReturnsMemoryAfter(500);
  const auto creators = makeMany(23, 100, cache);
  for (const Creator& creator : creators) creator->create(false);
  EXPECT_EQ(cache->getStatistics().nEvicted, 20U);
  EXPECT_THAT(returned, ElementsAre(500U, 500U, 500U, 500U));
  cache->setListener({});
}

TEST_F(CacheMeetingTest, AllEventsOfALongProductionAreHeard) {
  unsigned long long nProduced = 0;
  cache->setListener([&](const CacheEvent& event) { nProduced += event.kind == CacheEventKind::Produced ? 1U : 0U; });
  const auto inner = makeMany(1000, 1, cache);
  const Creator outer = make(5000, 1, cache);
  onProduce = [&](int number) {
    if (number == 5000)
      for (const Creator& creator : inner) creator->create(false);
  };
  outer->create(false);
  EXPECT_EQ(cache->getStatistics().nProductions, 1001U);
  EXPECT_EQ(nProduced, 1001U);
  cache->setListener({});
}

TEST_F(CacheMeetingTest, UsesOfAThreadThatEndsAreHeard) {
  unsigned long long nUses = 0;
  cache->setListener([&](const CacheEvent& event) { nUses += event.kind == CacheEventKind::Used ? event.nUses : 0; });
  const Creator creator = make(1, 100, cache);
  creator->create(false);
  std::thread([&] {
    make(2, 100, cache)->create(false);
    for (int i = 0; i < 10; ++i) creator->create(false);
  }).join();
  EXPECT_EQ(cache->getStatistics().nHits, 10U);
  EXPECT_EQ(nUses, 10U);
  cache->setListener({});
}

TEST_F(CacheMeetingTest, UsesOfAThreadThatOnlyUsesAreHeard) {
  unsigned long long nUses = 0;
  cache->setListener([&](const CacheEvent& event) { nUses += event.kind == CacheEventKind::Used ? event.nUses : 0; });
  const Creator creator = make(1, 100, cache);
  creator->create(false);
  std::thread([&] {
    for (int i = 0; i < 128; ++i) creator->create(false);
  }).join();
  EXPECT_EQ(cache->getStatistics().nHits, 128U);
  EXPECT_EQ(nUses, 128U);
  cache->setListener({});
}

TEST_F(CacheMeetingTest, AListenerHearsWhatItBringsAbout) {
  const Creator x = make(1, 100, cache);
  const Creator y = make(2, 100, cache);
  int nProduced = 0;
  cache->setListener([&](const CacheEvent& event) {
    if (event.kind == CacheEventKind::Produced && ++nProduced == 1) y->create(false);
  });
  x->create(false);
  cache->getStatistics();
  EXPECT_EQ(nProduced, 2);
  cache->setListener({});
}

TEST_F(CacheMeetingTest, WhatAListenerBringsInIsLetGoToo) {
  cache->setLimit(100);
  const Creator x = make(1, 100, cache);
  const Creator y = make(2, 100, cache);
  bool isFirst = true;
  cache->setListener([&](const CacheEvent&) {
    if (std::exchange(isFirst, false)) y->create(false);
  });
  x->create(false);
  cache->setListener({});
  EXPECT_EQ(nHeld(cache), 100U);
  EXPECT_EQ(nInFlight(cache), 0U);
}

TEST_F(CacheMeetingTest, WhatAListenerBringsInAfterATrimIsLetGoToo) {
  cache->setLimit(100);
  const CachePtr other(new Cache);
  const Creator x = make(1, 100, cache);
  const Creator y = make(2, 100, cache);
  const Creator z = make(3, 100, other);
  x->create(false);
  z->create(false);
  other->setListener([&](const CacheEvent& event) {
    if (event.kind == CacheEventKind::Evicted) y->create(false);
  });
  other->trim(100);
  other->setListener({});
  EXPECT_EQ(nHeld(cache), 100U);
  EXPECT_EQ(nInFlight(cache), 0U);
}

TEST_F(CacheMeetingTest, ALimitSetInsideAProductionHoldsAtItsEnd) {
  const auto creators = makeMany(3, 100, cache);
  for (const Creator& creator : creators) creator->create(false);
  const Creator outer = make(100, 0, cache);
  onProduce = [&](int number) {
    if (number != 100) return;
    cache->setLimit(100);
    throw std::runtime_error("no data");
  };
  EXPECT_THROW(outer->create(false), std::runtime_error);
  EXPECT_EQ(nHeld(cache), 100U);
}

TEST_F(CacheMeetingTest, TheNextOperationLetsGoWhatCallersHaveGivenBack) {
  cache->setLimit(100);
  const Creator x = make(1, 100, cache);
  const Creator y = make(2, 100, cache);
  {
    const DataPtr a = x->create(false);
    const DataPtr b = y->create(false);
  }
  EXPECT_EQ(nHeld(cache), 200U);
  onProduce = [](int) { throw std::runtime_error("no data"); };
  const Creator failing = make(3, 1, cache);
  EXPECT_THROW(failing->create(false), std::runtime_error);
  EXPECT_EQ(nHeld(cache), 100U);
}

TEST_F(CacheMeetingTest, DataThatSomebodyCanBringBackByNowGoWhenTheLimitIsEnforced) {
  cache->setLimit(100);
  const TreskTest::CreatorPtr x(new Tresk::CreativeArray(TreskTest::makeKnownArray({1, 1}, 16), cache));
  cache->setLimit(0);  // asked, and cannot release
  EXPECT_TRUE(x->hasData());
  TreskTest::attachArrayProducer(*x, [] { return TreskTest::makeKnownArray({1, 1}, 16); });
  const Creator y = make(1, 100, cache);
  y->create(false);
  y->create(false);
  const Creator z = make(2, 100, cache);
  z->create(false);
  EXPECT_TRUE(x->hasData()) << "nobody tells the cache of the producer";
  cache->enforceLimit();
  EXPECT_FALSE(x->hasData());
}

TEST_F(CacheMeetingTest, TheThreadMayBeStartedAndStoppedByManyAtOnce) {
  for (int i = 0; i < 200; ++i) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
      threads.emplace_back([&, t] {
        if (t % 2 == 0)
          cache->startThread();
        else
          cache->stopThread();
      });
    for (std::thread& thread : threads) thread.join();
  }
  cache->stopThread();
}

TEST_F(CacheMeetingTest, CachesMayComeAndGoWhileOthersLetGo) {
  cache->setLimit(1000);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 300; ++i) {
        const CachePtr child(new Cache(cache));
        child->setLimit(300);
        std::vector<Creator> mine;
        for (int k = 0; k < 8; ++k) {
          mine.push_back(Creator(new ForgetfulCreator(child)));
          mine.back()->make = [] { return DataPtr(new SizedData(100)); };
        }
        for (int k = 0; k < 20; ++k) mine[static_cast<std::size_t>((k * 7 + t) % 8)]->create(k % 5 == 0);
        if (i % 7 == 0) cache->getHoldings();
        if (i % 11 == 0)
          cache->setPolicy(
              i % 2 == 0 ? Ostrel::StrongPtr<Ostrel::CachePolicy, Ostrel::CachePolicy>(new Ostrel::CostAwarePolicy)
                         : Ostrel::StrongPtr<Ostrel::CachePolicy, Ostrel::CachePolicy>());
        if (i % 13 == 0) cache->trim(200);
        if (i % 17 == 0) cache->setListener(i % 2 == 0 ? [](const CacheEvent&) {} : Ostrel::CacheListener());
      }
    });
  for (std::thread& thread : threads) thread.join();
  cache->setListener({});
  EXPECT_EQ(nHeld(cache), 0U);
  EXPECT_EQ(nInFlight(cache), 0U);
}

class CacheAndFieldTest : public TreskTest::LimitedCacheTest {};

TEST_F(CacheAndFieldTest, SaverOfATrimInsideAWalkRunsWithoutTheLock) {
  const TreskTest::FieldPtr field(new Tresk::Field);
  bool isLocked = false;
  const auto owner = TreskTest::makeOwner<TreskTest::FieldOwner>([&](Ostrel::Intercube&, const Ostrel::Intercube&) {
    EXPECT_FALSE(isLocked);
    return true;
  });
  field->addOwner(owner);
  for (unsigned int i = 0; i < 3; ++i) {
    const TreskTest::CreatorPtr dirty(new Tresk::CreativeArray(TreskTest::makeKnownArray({1, 1}, 16), cache));
    TreskTest::attachArrayProducer(*dirty, [] { return TreskTest::makeKnownArray({1, 1}, 16); });
    field->setCreator(dirty, field->makeFragmentID(std::to_string(i)));
  }
  field->iterate(
      [&](const TreskTest::FragmentIDPtr&, const TreskTest::CreatorPtr&) {
        isLocked = true;
        cache->enforceLimit();
        cache->trim(1);
        isLocked = false;
        return true;
      },
      false, false);
}

TEST_F(CacheAndFieldTest, ALimitSetInsideAWalkHoldsAtItsEnd) {
  const TreskTest::FieldPtr field(new Tresk::Field);
  for (unsigned int i = 0; i < 3; ++i) {
    const TreskTest::CreatorPtr dirty(new Tresk::CreativeArray(TreskTest::makeKnownArray({1, 1}, 16), cache));
    TreskTest::attachArrayProducer(*dirty, [] { return TreskTest::makeKnownArray({1, 1}, 16); });
    field->setCreator(dirty, field->makeFragmentID(std::to_string(i)));
  }
  field->iterate(
      [&](const TreskTest::FragmentIDPtr&, const TreskTest::CreatorPtr&) {
        cache->setLimit(atStart.nHeldBytes + 128);
        return true;
      },
      false, false);
  EXPECT_EQ(cache->getStatistics().nHeldBytes, atStart.nHeldBytes + 128);
}

TEST_F(CacheAndFieldTest, AWalkThatWaitsForAThreadDoesNotWaitForSavers) {
  const TreskTest::FieldPtr field(new Tresk::Field);
  bool isInWalk = false;
  int nSavesInWalk = 0;
  const auto owner = TreskTest::makeOwner<TreskTest::FieldOwner>([&](Ostrel::Intercube&, const Ostrel::Intercube&) {
    nSavesInWalk += isInWalk ? 1 : 0;  // a saver that changes the field would wait for the walk, which waits for it
    return true;
  });
  field->addOwner(owner);
  const TreskTest::CreatorPtr dirty(new Tresk::CreativeArray(TreskTest::makeKnownArray({1, 1}, 16), cache));
  TreskTest::attachArrayProducer(*dirty, [] { return TreskTest::makeKnownArray({1, 1}, 16); });
  field->setCreator(dirty, field->makeFragmentID("0"));
  field->setCreator(makeAsynchron([](const TreskTest::Flag&) {
                      return TreskTest::makeKnownArray({2, 1}, 16);
                    }),
                    field->makeFragmentID("1"));
  cache->setLimit(atStart.nHeldBytes + 128);
  TreskTest::Tokens waiting;
  Tresk::Detail::asynchronHooks().beforeLock = [&] { waiting.take(); };
  Tresk::Detail::asynchronHooks().beforeWait = [&] { waiting.add(); };
  field->iterate(
      [&](const TreskTest::FragmentIDPtr&, const TreskTest::CreatorPtr& creator) {
        if (creator->hasData()) return true;
        isInWalk = true;
        creator->request({});
        EXPECT_TRUE(creator->create(false).isValid());
        isInWalk = false;
        return true;
      },
      false, false);
  Tresk::Detail::asynchronHooks() = {};
  EXPECT_EQ(nSavesInWalk, 0);
}

}  // namespace
