// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentMutex.hpp>

#include <support/RaceRunner.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <type_traits>

// The cases below take and release the mutex across functions and threads, which the analysis cannot follow.
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wthread-safety"
#endif

namespace {

using Tresk::ExclusiveFragmentLock;
using Tresk::FragmentMutex;
using Tresk::SharedFragmentLock;

TEST(FragmentMutexTest, AWriterExcludesEverybody) {
  FragmentMutex mutex;
  mutex.lock();
  EXPECT_FALSE(mutex.try_lock());
  EXPECT_FALSE(mutex.try_lock_shared());
  mutex.unlock();
  ASSERT_TRUE(mutex.try_lock());
  mutex.unlock();
}

TEST(FragmentMutexTest, ReadersShareAndExcludeAWriterUntilTheLastOneLeaves) {
  FragmentMutex mutex;
  mutex.lock_shared();
  ASSERT_TRUE(mutex.try_lock_shared());
  EXPECT_FALSE(mutex.try_lock());
  mutex.unlock_shared();
  EXPECT_FALSE(mutex.try_lock()) << "one reader is left";
  mutex.unlock_shared();
  ASSERT_TRUE(mutex.try_lock());
  EXPECT_FALSE(mutex.try_lock_shared());
  mutex.unlock();
  ASSERT_TRUE(mutex.try_lock_shared());
  mutex.unlock_shared();
}

TEST(FragmentMutexTest, AReaderGetsInWhileAWriterWaits) {
  FragmentMutex mutex;
  std::latch writerComes(1);
  std::atomic<bool> isWritten{false};
  mutex.lock_shared();
  std::thread writer([&] {
    writerComes.count_down();
    mutex.lock();
    isWritten = true;
    mutex.unlock();
  });
  writerComes.wait();
  // Whether the writer waits already or comes in the middle of this makes no difference: it can never get in.
  for (int i = 0; i < 10000; ++i) {
    ASSERT_TRUE(mutex.try_lock_shared());
    mutex.unlock_shared();
    mutex.lock_shared();
    mutex.unlock_shared();
  }
  EXPECT_FALSE(isWritten);
  mutex.unlock_shared();
  writer.join();
  EXPECT_TRUE(isWritten) << "the last reader lets the writer in";
}

TEST(FragmentMutexTest, AReaderThatWaitsGetsInAfterTheWriter) {
  FragmentMutex mutex;
  std::latch readersCome(2);
  int value = 0;
  mutex.lock();
  int seen[2] = {0, 0};
  std::thread readers[2];
  for (int i = 0; i < 2; ++i) {
    readers[i] = std::thread([&, i] {
      readersCome.count_down();
      mutex.lock_shared();
      seen[i] = value;
      mutex.unlock_shared();
    });
  }
  readersCome.wait();
  value = 7;
  mutex.unlock();
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(seen[0], 7);
  EXPECT_EQ(seen[1], 7);
}

TEST(FragmentMutexTest, WritersThatWaitAllGetInOneAfterTheOther) {
  FragmentMutex mutex;
  int value = 0;
  TreskTest::RaceRunner race;
  race.add(4, [&](int) {
    for (int i = 0; i < 5000; ++i) {
      mutex.lock();
      ++value;
      mutex.unlock();
    }
  });
  race.run();
  EXPECT_EQ(value, 20000);
}

TEST(FragmentMutexTest, ReadersNeverSeeAHalfWrittenPair) {
  FragmentMutex mutex;
  long long first = 0;
  long long second = 0;
  std::atomic<int> nMismatches{0};
  TreskTest::RaceRunner race;
  race.add([&](int) {
    for (int i = 0; i < 20000; ++i) {
      mutex.lock();
      ++first;
      ++second;
      mutex.unlock();
      if (i % 64 == 0) std::this_thread::yield();
    }
  });
  race.add(2, [&](int) {
    for (int i = 0; i < 20000; ++i) {
      mutex.lock_shared();
      if (first != second) ++nMismatches;
      mutex.unlock_shared();
      if (i % 64 == 0) std::this_thread::yield();
    }
  });
  race.run();
  EXPECT_EQ(nMismatches, 0);
  EXPECT_EQ(first, 20000);
}

TEST(FragmentMutexTest, WorksWithTheLocksOfTheStandardLibrary) {
  FragmentMutex mutex;
  {
    const std::shared_lock one(mutex);
    const std::shared_lock two(mutex, std::try_to_lock);
    EXPECT_TRUE(two.owns_lock());
    const std::unique_lock writer(mutex, std::try_to_lock);
    EXPECT_FALSE(writer.owns_lock());
  }
  const std::unique_lock writer(mutex);
  const std::shared_lock reader(mutex, std::try_to_lock);
  EXPECT_FALSE(reader.owns_lock());
}

TEST(FragmentMutexTest, ScopesReleaseWhatTheyHold) {
  FragmentMutex mutex;
  {
    const SharedFragmentLock outer(mutex);
    const SharedFragmentLock inner(mutex);
    EXPECT_FALSE(mutex.try_lock());
  }
  {
    const ExclusiveFragmentLock writer(mutex);
    EXPECT_FALSE(mutex.try_lock_shared());
  }
  ASSERT_TRUE(mutex.try_lock());
  mutex.unlock();
}

TEST(FragmentMutexTest, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<FragmentMutex>);
  EXPECT_FALSE(std::is_copy_assignable_v<FragmentMutex>);
}

}  // namespace
