// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/foundation/Cache.hpp>
#include <tresk/foundation/Provenance.hpp>

#include <support/FieldDoubles.hpp>

#include <gtest/gtest.h>

#include "EachAllocation.hpp"

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Ostrel::Cache;
using Ostrel::CacheHolding;
using Tresk::CachePtr;
using Tresk::CreatorPtr;
using Tresk::FunctionalCreator;
using Tresk::MemBasePtr;
using TreskTest::EachAllocation;

const std::string longPath = "the grid/the time step/the field with a long name";

/// A cache with a parent, and creators whose data it lists.
class CacheQuestionsTest : public ::testing::Test {
 protected:
  CacheQuestionsTest() {
    for (int i = 0; i < 3; ++i) {
      creators.emplace_back(new FunctionalCreator([] { return TreskTest::makeArray(4, 2.5); }, false, cache));
      creators.back()->addProvenance(
          Ostrel::StrongPtr<Ostrel::Provenance, Ostrel::Provenance>(new Ostrel::Provenance(longPath)));
    }
    makeAll();
  }
  ~CacheQuestionsTest() override {
    creators.clear();
    EXPECT_EQ(cache->getStatistics().nHeldBytes, 0U);
    EXPECT_EQ(cache->getStatistics().nInFlightBytes, 0U);
  }
  void makeAll() const {
    for (const CreatorPtr& creator : creators) creator->create(false);
  }
  int nHeld() const {
    return static_cast<int>(
        std::count_if(creators.begin(), creators.end(), [](const CreatorPtr& p) { return p->hasData(); }));
  }

  EachAllocation each;
  const CachePtr parent{new Cache};
  const CachePtr cache{new Cache(parent)};
  std::vector<CreatorPtr> creators;
};

TEST_F(CacheQuestionsTest, CachesAreMadeOrNot) {
  const auto nAll = Cache::getCaches().size();
  each.makes(
      "cache", [] { return CachePtr(new Cache); },
      [&](const CachePtr&) { return Cache::getCaches().size() == nAll + 1; });
  each.makes(
      "child", [&] { return CachePtr(new Cache(parent)); },
      [&](const CachePtr& p) { return p->getParent() == parent; });
  EXPECT_EQ(Cache::getCaches().size(), nAll);
}

TEST_F(CacheQuestionsTest, ListsAreWholeOrThrow) {
  each.makes(
      "caches", [] { return Cache::getCaches(); },
      [&](const auto& all) { return std::find(all.begin(), all.end(), cache) != all.end(); });
  each.makes(
      "creators", [&] { return cache->getCreatures(); }, [](const auto& all) { return all.size() == 3; });
  each.makes(
      "holdings", [&] { return parent->getHoldings(); },
      [](const std::vector<CacheHolding>& all) {
        return all.size() == 3 && all[2].path == longPath && all[0].creator == "Tresk::FunctionalCreator" &&
               all[1].nBytes == 32;
      });
  each.needsNone("numbers", [&] {
    return parent->getStatistics().nHeldBytes == 96 && cache->nCreatures() == 3 && cache->nCacheables() == 3 &&
           cache->getLimit() == Cache::NoLimit;
  });
}

TEST_F(CacheQuestionsTest, ProductionsAreListedOrTheQuestionThrows) {
  std::vector<CacheHolding> inside;
  const CreatorPtr asking(new FunctionalCreator(
      [&] {
        inside = parent->getHoldings();
        return TreskTest::makeArray(4, 2.5);
      },
      false, cache));
  each.changes(
      "holdings",
      [&] {
        asking->release();
        inside.clear();
        inside.shrink_to_fit();
        return MemBasePtr();
      },
      [&](MemBasePtr& data) { data = asking->create(false); },
      [&](const MemBasePtr& data) { return !data && (inside.empty() || inside.size() == 4); },
      [&](const MemBasePtr&) {
        const bool isRight = inside.size() == 4 && inside[3].state == Ostrel::CacheHoldingState::InProduction;
        inside = {};
        asking->release();
        return isRight;
      });
}

TEST_F(CacheQuestionsTest, DataAreLetGoWithoutMemory) {
  each.needsNone("trimming", [&] {
    cache->trim(32);
    cache->trim(1000);
    return nHeld() == 0;
  });
  makeAll();
  each.copes("limit", [&] {
    parent->setLimit(64);
    return nHeld() == 2 && parent->enforceLimit();
  });
  parent->setLimit(Cache::NoLimit);
  makeAll();
  each.needsNone("switches", [&] {
    cache->setReturnsMemoryAfter(Cache::NoLimit);
    cache->setPolicy({});
    cache->setListener({});
    cache->stopThread();
    return nHeld() == 3;
  });
}

TEST_F(CacheQuestionsTest, DataAreLetGoByAPolicyOrInTheOrderOfUse) {
  const Ostrel::StrongPtr<Ostrel::CachePolicy, Ostrel::CachePolicy> policy(new Ostrel::CostAwarePolicy);
  each.changes(
      "trimming",
      [&] {
        cache->setPolicy({});
        cache->setPolicy(policy);
        makeAll();
        return nHeld();
      },
      [&](int) { cache->trim(64); }, [&](int) { return nHeld() == 3; },
      [&](int) {
        cache->setPolicy({});  // and what it has ranked
        return nHeld() == 1;
      });
}

TEST_F(CacheQuestionsTest, ListenersAreSetOrNot) {
  int nTold = 0;
  const std::array<long long, 8> ballast{};
  each.changes(
      "listener", [] { return 0; },
      [&](int) {
        cache->setListener([&nTold, ballast](const Ostrel::CacheEvent&) { nTold += ballast[0] == 0 ? 1 : 2; });
      },
      [&](int) { return nTold == 0; },
      [&](int) {
        cache->trim(32);
        makeAll();
        cache->setListener({});
        return std::exchange(nTold, 0) > 0;
      });
}

TEST_F(CacheQuestionsTest, ThreadsAreStartedOrNot) {
  each.changes(
      "thread", [] { return 0; }, [&](int) { cache->startThread(); }, [](int) { return true; },
      [&](int) {
        cache->stopThread();
        return true;
      });
  EXPECT_EQ(nHeld(), 3);
}

TEST_F(CacheQuestionsTest, ThreadThatFindsNoMemoryLetsDataGoAllTheSame) {
  cache->startThread();
  bool hasStruck = true;
  for (long long n = 0; hasStruck; ++n) {
    makeAll();
    MemBasePtr held = creators[0]->getData();
    {
      const TreskTest::FailingElsewhere failing(n);
      cache->setLimit(0);  // the held data are left to the thread
      held.reset();
      while (nHeld() != 0) std::this_thread::yield();
      hasStruck = failing.hasStruck();
    }
    cache->setLimit(Cache::NoLimit);
  }
  cache->stopThread();
  EXPECT_EQ(cache->getStatistics().nInFlightBytes, 0U);
}

}  // namespace
