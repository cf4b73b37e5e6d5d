// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <vector>

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
constexpr int nRounds = 200000;

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
      ++nReadersDone;
    });
  }
  bool areReading() const { return nReadersDone < 2; }

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
};

TEST_F(FieldStressTest, TwoReadersWhileCreatorsAreReleasedAndSlotsReassigned) {
  RaceRunner race;
  addReaders(race);
  race.add([this](int) {
    while (areReading())
      for (const FragmentIDPtr& fragment : fragments)
        if (const CreatorPtr creator = field->getCreator(fragment)) creator->release();
  });
  race.add([this](int) {
    for (unsigned int round = 0; areReading(); ++round) {
      const unsigned int i = round % nFragments;
      if (round / nFragments % 2 == 0)
        field->setCreator(makeCreator(i), fragments[i]);
      else
        field->getCreatorReferenceViaFragmentIndex(i) = makeCreator(i);
    }
  });
  race.run();
  EXPECT_EQ(nAbsent, 0) << "a slot is never seen empty while it is reassigned";
  expectNothingWrong();
}

TEST_F(FieldStressTest, TwoReadersWhileTheCacheIsTrimmedAndSlotsReassigned) {
  std::atomic<unsigned long long> nTrimmed{0};
  RaceRunner race;
  addReaders(race);
  race.add([this, &nTrimmed](int) {
    while (areReading()) nTrimmed += cache->trim(4 * sizeof(double));
  });
  race.add([this](int) {
    for (unsigned int round = 0; areReading(); ++round) {
      const unsigned int i = round % nFragments;
      field->setCreatorViaFragmentIndex(i, makeCreator(i));
    }
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
  race.add([this](int) {
    while (areReading()) {
      for (unsigned int i = 0; i < nFragments; ++i) field->setCreatorViaFragmentIndex(i, makeCreator(i));
      field->clear();
    }
  });
  race.run();
  expectNothingWrong();
}

/// What a writer and two readers in a loop did with one lock.
struct WriterWait {
  long long worst = 0;  ///< rounds of both readers while the writer waited once, at most
  long long sum = 0;    ///< and in all
};

TEST_F(FieldStressTest, AWriterGetsInEventuallyBetweenTwoReadersInALoop) {
  // Readers overlap as they please; the lock prefers nobody. Each insertion of the writer comes to its end, or this test
  // does not: the number of rounds that the readers make meanwhile is reported, not judged.
  constexpr unsigned int nWrites = 200;
  std::atomic<long long> nReaderRounds{0};
  std::atomic<bool> isDone{false};
  WriterWait wait;
  RaceRunner race;
  race.add(2, [&](int) {
    for (unsigned int round = 0; !isDone; ++round) {
      if (!field->getCreatorByNumericalID(round % nFragments)) ++nWrong;
      nReaderRounds.fetch_add(1, std::memory_order_relaxed);
    }
  });
  race.add([&](int) {
    for (unsigned int i = 0; i < nWrites; ++i) {
      const long long before = nReaderRounds.load(std::memory_order_relaxed);
      field->setCreatorViaFragmentIndex(nFragments + i, CreatorPtr());
      const long long waited = nReaderRounds.load(std::memory_order_relaxed) - before;
      wait.sum += waited;
      if (waited > wait.worst) wait.worst = waited;
    }
    isDone = true;
  });
  race.run();
  EXPECT_EQ(nWrong, 0);
  EXPECT_EQ(field->nFragments(), nFragments + nWrites);
  RecordProperty("worst_reader_rounds_of_one_wait", std::to_string(wait.worst));
  RecordProperty("mean_reader_rounds_of_one_wait", std::to_string(wait.sum / nWrites));
}

TEST(FragmentMutexStressTest, AWriterGetsInEventuallyBetweenTwoReadersInALoop) {
  constexpr int nWrites = 2000;
  FragmentMutex mutex;
  std::atomic<long long> nReaderRounds{0};
  std::atomic<bool> isDone{false};
  std::atomic<long long> nWrong{0};
  long long first = 0;
  long long second = 0;
  WriterWait wait;
  RaceRunner race;
  race.add(2, [&](int) {
    while (!isDone) {
      const Tresk::SharedFragmentLock lock(mutex);
      if (first != second) ++nWrong;
      nReaderRounds.fetch_add(1, std::memory_order_relaxed);
    }
  });
  race.add([&](int) {
    for (int i = 0; i < nWrites; ++i) {
      const long long before = nReaderRounds.load(std::memory_order_relaxed);
      const Tresk::ExclusiveFragmentLock lock(mutex);
      const long long waited = nReaderRounds.load(std::memory_order_relaxed) - before;
      wait.sum += waited;
      if (waited > wait.worst) wait.worst = waited;
      ++first;
      ++second;
    }
    isDone = true;
  });
  race.run();
  EXPECT_EQ(nWrong, 0);
  EXPECT_EQ(first, nWrites);
  RecordProperty("worst_reader_rounds_of_one_wait", std::to_string(wait.worst));
  RecordProperty("mean_reader_rounds_of_one_wait", std::to_string(wait.sum / nWrites));
}

}  // namespace
