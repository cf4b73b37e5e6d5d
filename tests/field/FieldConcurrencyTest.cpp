// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <string>
#include <thread>
#include <vector>

namespace {

using Tresk::Field;
using TreskTest::CacheWeakPtr;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::makeArray;
using TreskTest::makeForgetful;
using TreskTest::MemBasePtr;
using TreskTest::RaceRunner;
using TreskTest::unnamed;

using FieldConcurrencyTest = TreskTest::RecordBalanceTest;

TEST_F(FieldConcurrencyTest, ACallbackUnderTheSharedLockReadsTheFieldWhileAWriterWaits) {
  const FieldPtr field(new Field);
  const auto creator = makeForgetful(makeArray(3));
  field->setCreatorViaFragmentIndex(0, creator);
  std::latch isReading(1);
  std::latch writerComes(1);
  std::atomic<bool> isWritten{false};
  unsigned long long nSeen = 0;
  bool wasWritten = true;
  creator->onRelease = [&] {
    isReading.count_down();
    writerComes.wait();
    // The writer is on its way to the lock or waits for it: it cannot get in, and the reads below do not wait for it.
    for (int i = 0; i < 1000; ++i) {
      nSeen = field->nFragments();
      field->getCreatorByNumericalID(0);
      std::this_thread::yield();
    }
    wasWritten = isWritten;
  };
  std::thread writer([&] {
    isReading.wait();
    writerComes.count_down();
    field->setCreatorViaFragmentIndex(1, makeForgetful());
    isWritten = true;
  });
  field->clear();
  writer.join();
  EXPECT_EQ(nSeen, 1U);
  EXPECT_FALSE(wasWritten);
  EXPECT_TRUE(isWritten);
  creator->onRelease = nullptr;
}

TEST_F(FieldConcurrencyTest, ACallbackUnderTheSharedLockRebindsAnEntryThatIsThere) {
  const FieldPtr field(new Field);
  const auto creator = makeForgetful(makeArray(3));
  const auto next = makeForgetful(makeArray(4));
  bool isDone = false;
  creator->onQuestion = [&] {
    if (isDone) return;
    isDone = true;
    field->setCreatorViaFragmentIndex(0, next);
  };
  field->setCreatorViaFragmentIndex(0, creator);
  EXPECT_EQ(field->getSize()->str(), "3") << "the walk goes on with the creator that it holds";
  EXPECT_TRUE(isDone);
  EXPECT_TRUE(field->getCreatorByNumericalID(0) == next);
  creator->onQuestion = nullptr;
}

TEST_F(FieldConcurrencyTest, ThreadsThatBindDifferentFragmentsAllSucceed) {
  const FieldPtr field(new Field);
  constexpr unsigned int nPerThread = 500;
  RaceRunner race;
  race.add(3, [&](int thread) {
    for (unsigned int i = 0; i < nPerThread; ++i)
      field->setCreatorViaFragmentIndex(3 * i + static_cast<unsigned int>(thread), makeForgetful());
  });
  race.add([&](int) {
    for (unsigned int i = 0; i < nPerThread; ++i) {
      field->getCreatorByNumericalID(i);
      field->nFragments();
    }
  });
  race.run();
  EXPECT_EQ(field->nFragments(), 3 * nPerThread);
  for (unsigned int i = 0; i < 3 * nPerThread; ++i) ASSERT_TRUE(field->getCreatorByNumericalID(i)) << i;
}

TEST_F(FieldConcurrencyTest, OfTwoThreadsThatBindOneFragmentOneCreatorStays) {
  for (int round = 0; round < 200; ++round) {
    const FieldPtr field(new Field);
    CreatorPtr creators[2];
    RaceRunner race;
    race.add(2, [&](int i) {
      creators[i] = makeForgetful();
      field->setCreatorViaFragmentIndex(0, creators[i]);
    });
    race.run();
    ASSERT_EQ(field->nFragments(), 1U);
    const CreatorPtr winner = field->getCreatorByNumericalID(0);
    ASSERT_TRUE(winner == creators[0] || winner == creators[1]);
    const CreatorPtr& loser = winner == creators[0] ? creators[1] : creators[0];
    ASSERT_EQ(loser.strongCount(), 1) << "dropped without a word";
    ASSERT_TRUE(loser->isOwnedBy(field));
  }
}

TEST_F(FieldConcurrencyTest, FragmentsAreProducedByManyThreadsOncePerFragment) {
  constexpr unsigned int nFragments = 8;
  const FieldPtr field(new Field);
  std::atomic<int> nRuns{0};
  for (unsigned int i = 0; i < nFragments; ++i) {
    field->setCreatorViaFragmentIndex(i, TreskTest::makeFunctional([&nRuns, i] {
                                        ++nRuns;
                                        return makeArray(i + 1);
                                      }));
  }
  std::vector<MemBasePtr> seen[3];
  RaceRunner race;
  race.add(3, [&](int thread) {
    for (unsigned int i = 0; i < nFragments; ++i) {
      const CreatorPtr creator = field->getCreatorByNumericalID(i);
      // The results stay in use, so that no second production can follow.
      seen[thread].push_back(static_cast<TreskTest::WatchedFunctional&>(*creator).FunctionalCreator::produce());
    }
  });
  race.run();
  EXPECT_EQ(nRuns, static_cast<int>(nFragments));
  for (unsigned int i = 0; i < nFragments; ++i) {
    ASSERT_TRUE(seen[0][i]);
    EXPECT_TRUE(seen[0][i] == seen[1][i]);
    EXPECT_TRUE(seen[0][i] == seen[2][i]);
  }
}

TEST_F(FieldConcurrencyTest, SizesAreAskedByManyThreadsWhileEntriesCome) {
  const FieldPtr field(new Field);
  constexpr unsigned int nEntries = 300;
  RaceRunner race;
  race.add([&](int) {
    for (unsigned int i = 0; i < nEntries; ++i) {
      const auto creator = makeForgetful();
      creator->addMetaInfo(Tresk::DynamicSize{2, 3}, Tresk::TreskTypePtr());
      field->setCreatorViaFragmentIndex(i, creator);
    }
  });
  std::atomic<int> nOdd{0};
  race.add(2, [&](int) {
    for (unsigned int i = 0; i < nEntries; ++i) {
      const Tresk::SizePtr size = field->getSize();
      if (size && (*size)[0] * 3 != (*size)[1] * 2) ++nOdd;
    }
  });
  race.run();
  EXPECT_EQ(nOdd, 0);
  EXPECT_EQ(field->getSize()->str(), "600x900");
}

TEST_F(FieldConcurrencyTest, TheLastReferenceGoesOnAnyThreadWhileACreatorTellsItsOwners) {
  for (int round = 0; round < 300; ++round) {
    FieldPtr field(new Field);
    const auto creator = makeForgetful(makeArray(1));
    field->setCreator(creator, unnamed());
    RaceRunner race;
    race.add([&](int) { field.reset(); });
    race.add([&](int) {
      creator->touch();
      creator->save(MemBasePtr());
      creator->touchAttributes();
    });
    race.run();
    ASSERT_EQ(creator.strongCount(), 1);
  }
}

}  // namespace
