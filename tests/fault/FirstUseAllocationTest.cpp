// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemoryLedger.hpp>
#include <tresk/foundation/Cache.hpp>
#include <tresk/foundation/CacheOperation.hpp>
#include <tresk/foundation/Diagnostics.hpp>

#include <support/FieldDoubles.hpp>

#include <gtest/gtest.h>

#include "FailingAllocation.hpp"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>
#include <utility>

// What the library makes when it is first used it makes in a process that may have no memory at that moment. Each of
// these tests runs in a process of its own, where nothing has been used before.

namespace {

using Ostrel::Cache;
using Tresk::AsynchronCreator;
using Tresk::CachePtr;
using Tresk::CreatorPtr;
using Tresk::Field;
using Tresk::FieldPtr;
using Tresk::FragmentIDCollection;
using Tresk::FragmentIDCollectionPtr;
using Tresk::FunctionalCreator;
using Tresk::MemBasePtr;
using Tresk::MemoryLedger;
using Tresk::TypedArray;
using TreskTest::FailingAllocation;
using TreskTest::makeArray;

class FirstUseAllocationTest : public ::testing::Test {
 protected:
  FirstUseAllocationTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

/// Runs `f` with no memory from allocation `n` on, and ends the process: with 3 if it threw, with 0 if it came back.
template <class F>
[[noreturn]] void withoutMemory(const F& f, long long n = 0) {
  int result = 0;
  {
    const FailingAllocation failing(n, FailingAllocation::Kind::FromThereOn);
    try {
      f();
    } catch (const std::bad_alloc&) {
      FailingAllocation::end();
      result = 3;
    }
  }
  std::_Exit(result);
}

/// Keeps itself alive when its last pointer goes.
class Keeper : public Ostrel::ReferenceBase<Keeper> {
 public:
  Keeper() : ReferenceBase(this) {}
  void extremeUnction() override { kept = Ostrel::StrongPtr<Keeper, Keeper>(this); }
  Ostrel::StrongPtr<Keeper, Keeper> kept;
};

/// Runs `f` with one allocation that fails, and once more if it threw.
template <class F>
int coldRun(const F& f, long long n, FailingAllocation::Kind kind) {
  bool isThrown = false;
  {
    const FailingAllocation failing(n, kind);
    try {
      f();
    } catch (const std::bad_alloc&) {
      FailingAllocation::end();
      isThrown = true;
    }
  }
  if (isThrown) f();
  return 0;
}
TEST_F(FirstUseAllocationTest, FirstOperationOfAProcessWithoutMemoryGoesOnWithoutBooks) {
  for (long long n = 0; n < 4; ++n)
    EXPECT_EXIT(withoutMemory([] { const Ostrel::Detail::CacheOperation operation; }, n), testing::ExitedWithCode(0),
                "")
        << n;
}

TEST_F(FirstUseAllocationTest, FirstWalkOfAProcessAllocationOneByOne) {
  EXPECT_EXIT(
      {
        int result = 0;
        {
          const FailingAllocation failing(1, FailingAllocation::Kind::Once);
          try {
            const Ostrel::Detail::CacheWalk walk;
          } catch (...) {
            result = 3;
          }
        }
        std::_Exit(result);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(FirstUseAllocationTest, FirstQuestionForFragmentsWithoutMemory) {
  EXPECT_EXIT(
      {
        const FragmentIDCollectionPtr none(
            new FragmentIDCollection(Ostrel::StrongPtr<TypedArray<std::string>, Ostrel::Cacheable>()));
        withoutMemory([&] { none->nFragmentIDs(); });
      },
      [](int status) { return WIFEXITED(status); }, "");
}

TEST_F(FirstUseAllocationTest, FirstSpeakerWithoutMemory) {
  EXPECT_EXIT(
      withoutMemory([] { Ostrel::SpeakPtr::theSpeaker(); }), [](int status) { return WIFEXITED(status); }, "");
}

TEST_F(FirstUseAllocationTest, CacheThatEndsOnItsOwnThreadNeedsNoMemory) {
  EXPECT_EXIT(
      {
        auto* const holder = new CachePtr(new Cache);
        CachePtr& cache = *holder;
        std::atomic<bool> isOver{false};
        const MemBasePtr held = makeArray(4);
        const CreatorPtr creator(new TreskTest::ForgetfulArray(held, cache));
        std::atomic<bool> isSeen{false};
        const std::thread::id own = std::this_thread::get_id();
        cache->setListener([&](const Ostrel::CacheEvent& e) {
          if (std::this_thread::get_id() == own || isSeen.exchange(true)) return;
          if (e.kind != Ostrel::CacheEventKind::LimitExceeded) return;
          const FailingAllocation failing(0, FailingAllocation::Kind::FromThereOn);
          cache.reset();
          FailingAllocation::end();
          isOver = true;
        });
        cache->setLimit(8);
        cache->startThread();
        while (!isOver) std::this_thread::yield();
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(FirstUseAllocationTest, ReportOfAResurrectionNeedsNoMemory) {
  EXPECT_EXIT(
      {
        Ostrel::SpeakPtr::theSpeaker();
        using KeeperPtr = Ostrel::RefPtr<Keeper>;
        auto* const p = new KeeperPtr(new Keeper);
        withoutMemory([&] { delete p; });
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(FirstUseAllocationTest, FirstThreadOfAProcessThatFindsNoMemoryDoesNotBlockItsCreator) {
  for (long long n = 0; n < 8; ++n)
    EXPECT_EXIT(
        {
          const CachePtr cache(new Cache);
          auto* const creator = new Ostrel::RefPtr<AsynchronCreator>(
              new AsynchronCreator([](const std::atomic<bool>&) { return makeArray(3); }, cache));
          MemBasePtr data;
          {
            const TreskTest::FailingElsewhere failing(n);
            (*creator)->request({});
            while (!failing.hasStruck() && (*creator)->isUnderCreation() && !(*creator)->hasFailed())
              std::this_thread::yield();
            try {
              data = (*creator)->produce();
            } catch (const std::bad_alloc&) {
            }
          }
          std::_Exit(0);
        },
        testing::ExitedWithCode(0), "")
        << "allocation " << n;
}

TEST_F(FirstUseAllocationTest, AProcessThatCouldNotStartItsFirstThreadEndsAllTheSame) {
  for (long long n = 0; n < 8; ++n)
    EXPECT_EXIT(
        {
          bool hasData = false;
          {
            const Ostrel::RefPtr<AsynchronCreator> creator(
                new AsynchronCreator([](const std::atomic<bool>&) { return makeArray(3); }, CachePtr()));
            bool isRequested = false;
            {
              const FailingAllocation failing(n, FailingAllocation::Kind::Once);
              try {
                isRequested = creator->request({});
              } catch (const std::bad_alloc&) {
                FailingAllocation::end();
              }
            }
            if (isRequested || creator->request({})) creator->produce();
            hasData = creator->hasData();
          }
          std::exit(hasData ? 0 : 3);  // waits for all threads that count as started
        },
        testing::ExitedWithCode(0), "")
        << "allocation " << n;
}

TEST_F(FirstUseAllocationTest, FirstTextOfBytesIsWholeOrThrows) {
  for (long long n = 0; n < 4; ++n)
    EXPECT_EXIT(
        {
          std::string text;
          bool isThrown = false;
          {
            const FailingAllocation failing(n, FailingAllocation::Kind::Once);
            try {
              text = Ostrel::toByteText(1536ULL << 20U);
            } catch (const std::bad_alloc&) {
              isThrown = true;
            }
          }
          std::fprintf(stderr, "'%s'\n", text.c_str());
          std::_Exit(isThrown || text == "1.5 GiB" ? 0 : 1);
        },
        testing::ExitedWithCode(0), "")
        << "allocation " << n;
}

TEST_F(FirstUseAllocationTest, FirstOperationsOfAProcessThrowAndWorkAtTheSecondTry) {
  const std::pair<const char*, void (*)()> operations[] = {
      {"memcache", [] { static_cast<void>(Cache::MemCache()); }},
      {"caches", [] { static_cast<void>(Cache::getCaches()); }},
      {"cache", [] { const CachePtr cache(new Cache); }},
      {"array", [] { makeArray(3); }},
      {"creator",
       [] {
         const CreatorPtr c(new FunctionalCreator([] { return makeArray(3); }, false, Cache::MemCache()));
         c->create(false);
       }},
      {"field",
       [] {
         const FieldPtr f(new Field);
         f->makeFragmentID("a");
       }},
      {"thread of a cache",
       [] {
         const CachePtr cache(new Cache);
         cache->startThread();
         cache->stopThread();
       }},
      {"request",
       [] {
         const Ostrel::RefPtr<AsynchronCreator> c(
             new AsynchronCreator([](const std::atomic<bool>&) { return makeArray(3); }, Cache::MemCache()));
         c->request({});
         c->produce();
       }},
      {"ledger", [] { static_cast<void>(MemoryLedger::ofProcess().toText()); }},
      {"describe", [] { static_cast<void>(Cache::MemCache()->describe()); }},
  };
  for (const auto& [name, f] : operations)
    for (const auto kind : {FailingAllocation::Kind::Once, FailingAllocation::Kind::FromThereOn})
      for (long long n = 0; n < 14; ++n)
        EXPECT_EXIT({ std::_Exit(coldRun(f, n, kind)); }, testing::ExitedWithCode(0), "")
            << name << ", allocation " << n;
}

TEST_F(FirstUseAllocationTest, FieldConstructorThrowsWhenMemoryEndsInItsMiddle) {
  for (long long n = 0; n < 30; ++n)
    EXPECT_EXIT(
        withoutMemory(
            [] { const FieldPtr field(new Field(makeArray(3), FragmentIDCollectionPtr(new FragmentIDCollection))); },
            n),
        [](int status) { return WIFEXITED(status); }, "")
        << "allocation " << n;
}

}  // namespace
