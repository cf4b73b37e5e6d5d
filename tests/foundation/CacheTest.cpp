// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Cache.hpp>

#include <support/CreatorDoubles.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace {

using Ostrel::Cache;
using Ostrel::CacheBase;
using Ostrel::Creature;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using TreskTest::CachePtr;
using TreskTest::CountingData;
using TreskTest::CreatorPtr;
using TreskTest::DataPtr;
using TreskTest::ForgetfulCreator;
using TreskTest::KeepingCreator;
using TreskTest::WeakCache;

class CacheTest : public TreskTest::RecordBalanceTest {
 protected:
  /// A forgetful creator of this cache with data of 100 bytes; its releases are noted by `number`.
  CreatorPtr<ForgetfulCreator> makeCreator(int number) {
    CreatorPtr<ForgetfulCreator> creator(new ForgetfulCreator(DataPtr(new CountingData(number, 100)), cache));
    creator->onRelease = [this, number] { released.push_back(number); };
    return creator;
  }

  CachePtr cache = CachePtr(new Cache);
  std::vector<int> released;
};

TEST_F(CacheTest, DefaultCacheIsOneAndConvertsToBothKindsOfPointer) {
  const StrongPtr<Cache, CacheBase> strong = Cache::MemCache();
  const WeakPtr<Cache, CacheBase> weak = Cache::MemCache();
  EXPECT_TRUE(strong.isValid());
  EXPECT_TRUE(strong == weak);
  EXPECT_TRUE(Cache::MemCache() == strong);
}

TEST_F(CacheTest, NewDataStandOnNoList) {
  const DataPtr data(new CountingData);
  EXPECT_FALSE(data->isOnCacheList());
  const auto creator = makeCreator(0);
  const DataPtr made(new CountingData(0, 1, creator->getSelf()));
  EXPECT_FALSE(made->isOnCacheList()) << "a creator named at construction does not list the data";
  EXPECT_TRUE(made->getCreator() == creator);
}

TEST_F(CacheTest, CreatorWithACacheListsItsData) {
  const auto creator = makeCreator(0);
  const DataPtr data = creator->getData();
  EXPECT_TRUE(data->isOnCacheList());
  EXPECT_EQ(cache->nCacheables(), 1U);
}

TEST_F(CacheTest, CreatorWithoutCacheListsNothing) {
  const CreatorPtr<KeepingCreator> creator(new KeepingCreator(WeakCache()));
  const DataPtr data(new CountingData);
  data->setCreator(creator->getSelf());
  EXPECT_FALSE(data->isOnCacheList());
  EXPECT_TRUE(data->getCreator() == creator);
}

TEST_F(CacheTest, EmptyOrDeadCreatorTakesTheDataOffTheList) {
  const auto creator = makeCreator(0);
  const DataPtr data = creator->getData();
  data->setCreator(TreskTest::WeakCreature());
  EXPECT_FALSE(data->isOnCacheList());
  EXPECT_EQ(data->getCreator().getRecord(), nullptr);
  data->setCreator(creator->getSelf());
  EXPECT_TRUE(data->isOnCacheList());
  TreskTest::WeakCreature dead;
  { dead = makeCreator(1); }
  data->setCreator(dead);
  EXPECT_FALSE(data->isOnCacheList());
  EXPECT_TRUE(data->getCreator().sameRecord(dead));
}

TEST_F(CacheTest, AnotherCreatorMovesTheDataToItsCache) {
  const CachePtr other(new Cache);
  const auto creator = makeCreator(0);
  const DataPtr data = creator->getData();
  const CreatorPtr<KeepingCreator> successor(new KeepingCreator(other));
  data->setCreator(successor->getSelf());
  EXPECT_EQ(cache->nCacheables(), 0U);
  EXPECT_EQ(other->nCacheables(), 1U);
  EXPECT_TRUE(data->isOnCacheList());
}

TEST_F(CacheTest, SettingTheCreatorClaimsNothing) {
  const auto creator = makeCreator(0);
  const DataPtr data = creator->getData();
  data->setCreator(creator->getSelf());
  data->setCreator(creator->getSelf());
  EXPECT_EQ(creator.strongCount(), 1);
  EXPECT_EQ(creator->getCachingCount(), 1);
  EXPECT_EQ(cache->nCacheables(), 1U);
}

TEST_F(CacheTest, DyingDataLeaveTheList) {
  const int nListedBefore = CountingData::nListedAtDeath;
  {
    const auto creator = makeCreator(0);
    EXPECT_EQ(cache->nCacheables(), 1U);
  }
  EXPECT_EQ(cache->nCacheables(), 0U);
  EXPECT_EQ(CountingData::nListedAtDeath, nListedBefore);
}

TEST_F(CacheTest, DataOnTheStackLeaveTheListInTheirDestructor) {
  const auto creator = makeCreator(0);
  {
    CountingData data;
    data.setCreator(creator->getSelf());
    EXPECT_EQ(cache->nCacheables(), 2U);
  }
  EXPECT_EQ(cache->nCacheables(), 1U);
}

TEST_F(CacheTest, DataThatOutliveTheirCreatorStayListedAndAreSkipped) {
  auto creator = makeCreator(0);
  const DataPtr data = creator->getData();
  creator.reset();
  EXPECT_TRUE(data->isOnCacheList());
  EXPECT_EQ(cache->trim(1000), 0U);
  EXPECT_TRUE(data.isValid());
}

TEST_F(CacheTest, CacheThatDiesFirstLeavesItsDataOnNoList) {
  const auto first = makeCreator(1);
  const auto second = makeCreator(2);
  const DataPtr data = first->getData();
  cache.reset();
  EXPECT_FALSE(data->isOnCacheList());
  EXPECT_FALSE(second->getData()->isOnCacheList());
  EXPECT_FALSE(first->getCache().isValid());
  data->markAsUsed();
  data->setCreator(first->getSelf());
  EXPECT_FALSE(data->isOnCacheList()) << "a dead cache lists nothing";
  first->enableCaching(true);
  EXPECT_TRUE(first->hasData());
}

TEST_F(CacheTest, CreatorMadeForADeadCacheWorks) {
  const WeakCache dead = [] { return WeakCache(CachePtr(new Cache)); }();
  const CreatorPtr<ForgetfulCreator> creator(new ForgetfulCreator(DataPtr(new CountingData), dead));
  EXPECT_FALSE(creator->getData()->isOnCacheList());
  EXPECT_EQ(creator->release(), Creature::Released);
}

TEST_F(CacheTest, CreaturesEnterTheBooksAtTheirFirstEnabling) {
  auto* const object = new ForgetfulCreator(cache);
  EXPECT_EQ(cache->nCreatures(), 0U);
  {
    const CreatorPtr<ForgetfulCreator> creator(object);
    EXPECT_EQ(cache->nCreatures(), 1U);
    creator->enableCaching(true);
    creator->enableCaching(false);
    EXPECT_EQ(cache->nCreatures(), 1U);
  }
  EXPECT_EQ(cache->nCreatures(), 0U) << "a dying creature leaves the books";
}

TEST_F(CacheTest, UseIsCounted) {
  const auto creator = makeCreator(0);
  const DataPtr data = creator->getData();
  data->markAsUsed();
  data->markAsUsed();
  EXPECT_EQ(data->getUseCount(), 2);
  const DataPtr unlisted(new CountingData);
  unlisted->markAsUsed();
  EXPECT_EQ(unlisted->getUseCount(), 1);
  EXPECT_FALSE(unlisted->isOnCacheList());
}

TEST_F(CacheTest, TrimAsksTheLeastRecentlyUsedFirst) {
  const std::vector<CreatorPtr<ForgetfulCreator>> creators = {makeCreator(0), makeCreator(1), makeCreator(2),
                                                              makeCreator(3)};
  creators[0]->getData()->markAsUsed();
  creators[2]->getData()->markAsUsed();
  EXPECT_EQ(cache->trim(1000), 400U);
  EXPECT_EQ(released, (std::vector<int>{1, 3, 0, 2}));
  EXPECT_EQ(cache->nCacheables(), 0U);
}

TEST_F(CacheTest, CreateMovesHeldDataToTheEndOfTheList) {
  const std::vector<CreatorPtr<ForgetfulCreator>> creators = {makeCreator(0), makeCreator(1), makeCreator(2)};
  creators[0]->create(false).reset();
  creators[1]->create(true).reset();
  cache->trim(1000);
  EXPECT_EQ(released, (std::vector<int>{1, 2, 0})) << "an access with keep is no use";
}

TEST_F(CacheTest, TrimStopsWhenEnoughIsGiven) {
  const std::vector<CreatorPtr<ForgetfulCreator>> creators = {makeCreator(0), makeCreator(1), makeCreator(2)};
  EXPECT_EQ(cache->trim(101), 200U);
  EXPECT_EQ(released, (std::vector<int>{0, 1}));
  EXPECT_TRUE(creators[2]->hasData());
  EXPECT_EQ(cache->trim(0), 0U);
  EXPECT_EQ(released.size(), 2U);
}

TEST_F(CacheTest, TrimGoesByTheAnswer) {
  const auto shared = makeCreator(0);
  const DataPtr holder = shared->getData();
  const auto free = makeCreator(1);
  const CreatorPtr<KeepingCreator> keeping(new KeepingCreator(DataPtr(new CountingData), cache));
  EXPECT_EQ(cache->trim(1000), 100U);
  EXPECT_EQ(released, (std::vector<int>{0, 1}));
  EXPECT_TRUE(shared->hasData());
  EXPECT_FALSE(free->hasData());
  EXPECT_TRUE(keeping->hasData());
  EXPECT_EQ(keeping->nReleases, 1);
}

TEST_F(CacheTest, TrimDoesNotAskForDataThatAreToBeKept) {
  const auto kept = makeCreator(0);
  const auto free = makeCreator(1);
  kept->enableCaching(true);
  EXPECT_EQ(cache->trim(1000), 100U);
  EXPECT_EQ(released, std::vector<int>{1});
  kept->enableCaching(false);
  EXPECT_EQ(cache->trim(1000), 100U);
}

TEST_F(CacheTest, TrimLeavesCreatorsAloneThatNobodyHasHeldYet) {
  auto* const object = new ForgetfulCreator(DataPtr(new CountingData), cache);
  EXPECT_EQ(cache->nCacheables(), 1U);
  EXPECT_EQ(cache->trim(1000), 0U);
  EXPECT_EQ(object->nReleases, 0);
  const CreatorPtr<ForgetfulCreator> creator(object);
  EXPECT_EQ(cache->trim(1000), 100U);
}

TEST_F(CacheTest, ReleaseMayAskTheCacheAgain) {
  const auto first = makeCreator(0);
  const auto second = makeCreator(1);
  first->onRelease = [&] { released.push_back(static_cast<int>(cache->nCacheables())); };
  second->onRelease = [&] {
    released.push_back(static_cast<int>(cache->nCreatures()));
    first->getData();
  };
  EXPECT_EQ(cache->trim(1000), 200U);
  EXPECT_EQ(released, (std::vector<int>{2, 2}));
}

TEST_F(CacheTest, CreatorMayDieWhileItIsAsked) {
  auto creator = makeCreator(0);
  const TreskTest::WeakCreature observer(creator);
  creator->onRelease = [&] { creator.reset(); };
  EXPECT_EQ(cache->trim(1000), 100U);
  EXPECT_FALSE(observer.isValid());
}

TEST_F(CacheTest, ExceptionOfAReleaseEndsTheWalkAndPasses) {
  const auto first = makeCreator(0);
  const auto second = makeCreator(1);
  first->onRelease = [] { throw std::runtime_error("saving"); };
  EXPECT_THROW(cache->trim(1000), std::runtime_error);
  EXPECT_TRUE(first->hasData());
  EXPECT_TRUE(second->hasData());
  EXPECT_EQ(first.strongCount(), 1);
  EXPECT_EQ(cache->nCacheables(), 2U);
}

TEST_F(CacheTest, DescriptionIsFreeText) {
  const DataPtr data(new CountingData);
  EXPECT_EQ(data->getDescription(), "");
  data->setDescription("temperature");
  EXPECT_EQ(data->getDescription(), "temperature");
}

TEST_F(CacheTest, DataAndCreaturesCannotBeCopied) {
  static_assert(!std::is_constructible_v<TreskTest::CountingData, const TreskTest::CountingData&>);
  static_assert(!std::is_copy_constructible_v<TreskTest::CountingCreature>);
}

TEST_F(CacheTest, ListsStandConcurrentUse) {
  std::vector<CreatorPtr<ForgetfulCreator>> creators;
  for (int i = 0; i < 4; ++i) {
    creators.emplace_back(new ForgetfulCreator(cache));
    TreskTest::attachProducer(*creators.back(), [](const auto&) { return DataPtr(new CountingData(1, 100)); });
  }
  std::atomic<int> nMissing{0};
  TreskTest::RaceRunner race;
  // Each creator is produced by one thread; use and release come from others.
  race.add(2, [&](int thread) {
    for (int i = 0; i < 500; ++i)
      for (int c = 0; c < 2; ++c)
        if (!creators[static_cast<std::size_t>(2 * thread + c)]->create(false)) ++nMissing;
  });
  race.add([&](int) {
    for (int i = 0; i < 500; ++i) cache->trim(150);
  });
  race.add([&](int) {
    for (int i = 0; i < 500; ++i)
      if (const DataPtr data = creators[static_cast<std::size_t>(i % 4)]->held()) data->markAsUsed();
  });
  race.run();
  EXPECT_EQ(nMissing, 0);
  EXPECT_LE(cache->nCacheables(), 4U);
  EXPECT_EQ(cache->nCreatures(), 4U);
}

}  // namespace
