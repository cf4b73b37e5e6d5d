// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

namespace {

using Tresk::CachePtr;
using Tresk::CacheWeakPtr;
using Tresk::Field;
using Tresk::FragmentMutex;
using TreskTest::CreatorPtr;
using TreskTest::CreatorWeakPtr;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::MemBasePtr;
using TreskTest::RaceRunner;

constexpr unsigned int nFragments = 8;
/// Rounds of each reader, at least: readers go on until every changing thread has made its rounds too.
constexpr int nRounds = 200000;
constexpr long long nChanges = 20000;

/// Memory that tells whether the object around it is alive.
class Canary {
 public:
  ~Canary() { song_ = 0xDEADDEADDEADDEADULL; }
  bool isAlive() const { return song_ == 0x5EED5EED5EED5EEDULL; }

 private:
  volatile std::uint64_t song_ = 0x5EED5EED5EED5EEDULL;
};

/// An array that knows its fragment.
class CanaryArray : public Tresk::MemArray<1, double> {
 public:
  explicit CanaryArray(unsigned int number)
      : MemBase(index(), CreatorWeakPtr()),
        MemArray<1, double>(Tresk::MultiIndex<1>(1), CreatorWeakPtr()),
        fragment(number) {
    ++nAlive;
  }
  ~CanaryArray() override { --nAlive; }

  static const Tresk::TreskTypeIndex& index() {
    static const Tresk::TreskTypeIndex theIndex = TreskTest::makeArray(1)->getTreskTypeIndex();
    return theIndex;
  }
  static inline std::atomic<long long> nAlive{0};

  const unsigned int fragment;
  Canary canary;
};

/// A creator that makes such arrays.
class CanaryCreator : public Tresk::FunctionalCreator {
 public:
  CanaryCreator(unsigned int number, const CacheWeakPtr& cache)
      : FunctionalCreator([number] { return MemBasePtr(new CanaryArray(number)); }, false, cache), fragment(number) {
    ++nAlive;
  }
  ~CanaryCreator() override { --nAlive; }

  static inline std::atomic<long long> nAlive{0};
  const unsigned int fragment;
  Canary canary;
};

/// A field of eight fragments, and what the readers found wrong in it.
class FieldStressTest : public TreskTest::RecordBalanceTest {
 protected:
  FieldStressTest() {
    CanaryArray::index();
    for (unsigned int i = 0; i < nFragments; ++i) {
      fragments[i] = field->makeFragmentID(std::to_string(i));
      field->setCreator(makeCreator(i), fragments[i]);
    }
  }

  CreatorPtr makeCreator(unsigned int number) { return CreatorPtr(new CanaryCreator(number, cache)); }

  /// Copies creator and data of one fragment and uses both.
  void readFragment(unsigned int i) {
    const CreatorPtr creator = field->getCreator(fragments[i]);
    if (!creator) {
      ++nAbsent;
      return;
    }
    const auto* const known = dynamic_cast<const CanaryCreator*>(creator.get());
    if (known == nullptr || !known->canary.isAlive() || known->fragment != i) ++nWrong;
    const MemBasePtr data = field->getData(fragments[i]);
    if (!data) return;
    ++nRead;
    const auto* const array = dynamic_cast<const CanaryArray*>(data.get());
    if (array == nullptr || !array->canary.isAlive() || array->fragment != i || array->nElements() != 1) ++nWrong;
  }

  void addReaders(RaceRunner& race) {
    race.add(2, [this](int) {
      for (int round = 0; round < nRounds; ++round) readFragment(static_cast<unsigned int>(round) % nFragments);
      for (unsigned int round = 0; nChanging > 0 || nRead == 0; ++round) {
        readFragment(round % nFragments);
        std::this_thread::yield();
      }
      ++nReadersDone;
    });
  }

  /// Adds a thread that runs `change(round)` until the readers have ended.
  template <class F>
  void addChanging(RaceRunner& race, const F& change) {
    ++nChanging;
    race.add([this, change](int) {
      for (unsigned int round = 0; nReadersDone < 2; ++round) {
        change(round);
        if (round == nChanges) --nChanging;
      }
    });
  }

  void expectNothingWrong() {
    EXPECT_EQ(nWrong, 0);
    EXPECT_GT(nRead, 0);
    RecordProperty("arrays_read", std::to_string(nRead));
    field->clear();
    EXPECT_EQ(CanaryArray::nAlive, 0);
    EXPECT_EQ(CanaryCreator::nAlive, 0);
    EXPECT_EQ(cache->nCacheables(), 0U);
    EXPECT_EQ(cache->nCreatures(), 0U);
  }

  CachePtr cache{new Ostrel::Cache};
  FieldPtr field{new Field};
  std::array<FragmentIDPtr, nFragments> fragments;
  std::atomic<long long> nRead{0};
  std::atomic<long long> nAbsent{0};
  std::atomic<long long> nWrong{0};
  std::atomic<int> nReadersDone{0};
  std::atomic<int> nChanging{0};  ///< threads that have not made their rounds yet
};

TEST_F(FieldStressTest, TwoReadersWhileCreatorsAreReleasedAndSlotsReassigned) {
  RaceRunner race;
  addReaders(race);
  addChanging(race, [this](unsigned int) {
    for (const FragmentIDPtr& fragment : fragments)
      if (const CreatorPtr creator = field->getCreator(fragment)) creator->release();
  });
  addChanging(race, [this](unsigned int round) {
    const unsigned int i = round % nFragments;
    if (round / nFragments % 2 == 0)
      field->setCreator(makeCreator(i), fragments[i]);
    else
      field->getCreatorReferenceViaFragmentIndex(i) = makeCreator(i);
  });
  race.run();
  EXPECT_EQ(nAbsent, 0) << "a slot is never seen empty while it is reassigned";
  expectNothingWrong();
}

TEST_F(FieldStressTest, TwoReadersWhileTheCacheIsTrimmedAndSlotsReassigned) {
  std::atomic<unsigned long long> nTrimmed{0};
  RaceRunner race;
  addReaders(race);
  addChanging(race, [this, &nTrimmed](unsigned int) { nTrimmed += cache->trim(4 * sizeof(double)); });
  addChanging(race, [this](unsigned int round) {
    const unsigned int i = round % nFragments;
    field->setCreatorViaFragmentIndex(i, makeCreator(i));
  });
  race.run();
  EXPECT_EQ(nAbsent, 0);
  EXPECT_GT(nTrimmed, 0U);
  RecordProperty("bytes_trimmed", std::to_string(nTrimmed));
  expectNothingWrong();
}

TEST_F(FieldStressTest, TwoReadersWhileTheFieldIsClearedAndFilledAgain) {
  RaceRunner race;
  addReaders(race);
  addChanging(race, [this](unsigned int) {
    for (unsigned int i = 0; i < nFragments; ++i) field->setCreatorViaFragmentIndex(i, makeCreator(i));
    field->clear();
  });
  race.run();
  expectNothingWrong();
}

/// Lets two readers loop over `read` while one writer runs `write(i)` again and again, and reports how many rounds the
/// readers made while the writer waited. The lock prefers nobody and a writer may wait for as long as readers overlap;
/// it must get in before the readers have made `Limit` rounds during one wait, where they give up.
template <class Read, class Write>
void measureWaitOfWriter(unsigned int nWrites, const Read& read, const Write& write) {
  constexpr long long Limit = 50000000;
  std::atomic<long long> nReaderRounds{0};
  std::atomic<long long> startOfWait{0};
  std::atomic<bool> isDone{false};
  std::atomic<bool> hasGivenUp{false};
  long long worst = 0;
  long long sum = 0;
  RaceRunner race;
  race.add(2, [&](int) {
    while (!isDone && !hasGivenUp) {
      read();
      const long long round = nReaderRounds.fetch_add(1, std::memory_order_relaxed);
      if (round - startOfWait.load(std::memory_order_relaxed) > Limit) hasGivenUp = true;
    }
  });
  race.add([&](int) {
    for (unsigned int i = 0; i < nWrites && !hasGivenUp; ++i) {
      // Each write begins in the middle of the readers' loops.
      const long long start = nReaderRounds.load(std::memory_order_relaxed);
      startOfWait = start;
      while (nReaderRounds.load(std::memory_order_relaxed) < start + 10 && !hasGivenUp) std::this_thread::yield();
      const long long before = nReaderRounds.load(std::memory_order_relaxed);
      startOfWait = before;
      write(i);
      const long long waited = nReaderRounds.load(std::memory_order_relaxed) - before;
      sum += waited;
      worst = std::max(worst, waited);
    }
    isDone = true;
  });
  race.run();
  EXPECT_FALSE(hasGivenUp) << "the writer got in only after the readers had given up";
  ::testing::Test::RecordProperty("worst_reader_rounds_of_one_wait", std::to_string(worst));
  ::testing::Test::RecordProperty("mean_reader_rounds_of_one_wait", std::to_string(sum / nWrites));
}

TEST_F(FieldStressTest, AWriterGetsInBetweenTwoReadersInALoop) {
  constexpr unsigned int nWrites = 100;
  measureWaitOfWriter(
      nWrites,
      [this] {
        if (!field->getCreatorByNumericalID(3)) ++nWrong;
      },
      [this](unsigned int i) { field->setCreatorViaFragmentIndex(nFragments + i, CreatorPtr()); });
  EXPECT_EQ(nWrong, 0);
  EXPECT_EQ(field->nFragments(), nFragments + nWrites);
}

TEST(FragmentMutexStressTest, AWriterGetsInBetweenTwoReadersInALoop) {
  constexpr unsigned int nWrites = 100;
  FragmentMutex mutex;
  std::atomic<long long> nWrong{0};
  long long first = 0;
  long long second = 0;
  measureWaitOfWriter(
      nWrites,
      [&] {
        const Tresk::SharedFragmentLock lock(mutex);
        if (first != second) ++nWrong;
      },
      [&](unsigned int) {
        const Tresk::ExclusiveFragmentLock lock(mutex);
        ++first;
        ++second;
      });
  EXPECT_EQ(nWrong, 0);
  EXPECT_EQ(first, nWrites);
}

}  // namespace
