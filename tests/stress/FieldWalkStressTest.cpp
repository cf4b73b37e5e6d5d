// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentIterator.hpp>
#include <tresk/field/FragmentSelector.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Tresk::Field;
using Tresk::FragmentSelectorPtr;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::RaceRunner;

constexpr unsigned int nFragments = 1000;

/// A creator that knows its fragment, and whether it is alive.
class MarkedCreator : public TreskTest::ForgetfulArray {
 public:
  explicit MarkedCreator(unsigned int number) : AlzheimerCreator(Tresk::CacheWeakPtr()), fragment(number) { ++nAlive; }
  ~MarkedCreator() override {
    song_ = 0xDEADDEADDEADDEADULL;
    --nAlive;
  }
  bool isAlive() const { return song_ == 0x5EED5EED5EED5EEDULL; }

  static inline std::atomic<long long> nAlive{0};
  const unsigned int fragment;

 private:
  volatile std::uint64_t song_ = 0x5EED5EED5EED5EEDULL;
};

CreatorPtr makeMarked(unsigned int number) { return CreatorPtr(new MarkedCreator(number)); }
bool isMarked(const CreatorPtr& creator, unsigned int number) {
  const auto* const marked = dynamic_cast<const MarkedCreator*>(creator.get());
  return marked != nullptr && marked->isAlive() && marked->fragment == number;
}

FieldPtr makeField(unsigned int n) {
  const FieldPtr field(new Field);
  field->reserve_fragments(n);
  for (unsigned int i = 0; i < n; ++i)
    field->setCreator(makeMarked(i), FragmentIDPtr(field->makeFragmentID(std::to_string(i))));
  return field;
}

class FieldWalkStressTest : public TreskTest::RecordBalanceTest {
 protected:
  ~FieldWalkStressTest() override { EXPECT_EQ(MarkedCreator::nAlive, 0) << "creators left behind"; }
};

/// Walks and index walks of every form that may run while others bind.
class CountingIterator : public Tresk::FragmentIterator {
 public:
  bool apply(const FragmentIDPtr& fragment, const CreatorPtr& creator) override {
    ++nCalls;
    if (!fragment || !isMarked(creator, fragment->getNumericalID())) ++nWrong;
    return true;
  }
  unsigned int nCalls = 0;
  unsigned int nWrong = 0;
};
class CountingIndexIterator : public Tresk::FragmentIndexIterator {
 public:
  bool apply(unsigned int number, const CreatorPtr& creator) override {
    ++nCalls;
    if (!isMarked(creator, number)) ++nWrong;
    return true;
  }
  unsigned int nCalls = 0;
  unsigned int nWrong = 0;
};

/// Selects the fragments of even number.
class EvenSelector : public Tresk::FragmentSelector {
 public:
  bool isSelected(const Tresk::CreativeArrayBase&, FragmentIDPtr fragment) override {
    return fragment && fragment->getNumericalID() % 2 == 0;
  }
};

// ------------------------------------------------------------------------------------------------- exceptions

TEST_F(FieldWalkStressTest, AnExceptionInTheMiddleOfAThousandTasksArrivesWhenAllHaveEnded) {
  const FieldPtr field = makeField(nFragments);
  for (int round = 0; round < 4; ++round) {
    std::atomic<unsigned int> nBegun{0};
    std::atomic<unsigned int> nEnded{0};
    std::atomic<unsigned int> nWrong{0};
    std::string arrived;
    try {
      field->iterate(
          [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) -> bool {
            const unsigned int number = fragment->getNumericalID();
            ++nBegun;
            if (!isMarked(creator, number) || field->getCreator(fragment) != creator) ++nWrong;
            // The last ones throw too, and often before the one in the middle.
            if (number == 500 || number >= 990) {
              ++nEnded;
              throw std::runtime_error(std::to_string(number));
            }
            ++nEnded;
            return true;
          },
          true, round % 2 == 0);
    } catch (const std::runtime_error& error) {
      arrived = error.what();
      // Tasks that were put off for want of a thread never begin behind the exception; whatever began has ended.
      EXPECT_EQ(nBegun, nEnded);
      EXPECT_GT(nEnded, 500U);
      EXPECT_LE(nEnded, nFragments);
    }
    EXPECT_EQ(arrived, "500");
    EXPECT_EQ(nWrong, 0U);
  }
  for (unsigned int i = 0; i < nFragments; ++i) {
    const CreatorPtr creator = field->getCreatorByNumericalID(i);
    ASSERT_EQ(creator.strongCount(), 2) << "no task holds it any more";
  }
}

TEST_F(FieldWalkStressTest, AThousandTasksAreAllCountedAndEachSeesItsOwnFragment) {
  const FieldPtr field = makeField(nFragments);
  for (const bool snapshot : {false, true}) {
    std::mutex mutex;
    std::set<unsigned int> seen;
    const unsigned int nTrue = field->iterate(
        [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
          const unsigned int number = fragment->getNumericalID();
          const std::lock_guard lock(mutex);
          seen.insert(number);
          return isMarked(creator, number) && number % 3 != 0;
        },
        true, snapshot);
    EXPECT_EQ(seen.size(), nFragments);
    EXPECT_EQ(nTrue, nFragments - (nFragments + 2) / 3);
  }
}

/// A callable that throws when it is copied for the n-th time.
class FragileCallable {
 public:
  FragileCallable(std::atomic<int>& nCopiesLeft, std::atomic<unsigned int>& nCalls, const FieldPtr& field)
      : nCopiesLeft_(&nCopiesLeft), nCalls_(&nCalls), field_(field.get()) {}
  FragileCallable(const FragileCallable& other)
      : nCopiesLeft_(other.nCopiesLeft_), nCalls_(other.nCalls_), field_(other.field_) {
    if (--*nCopiesLeft_ == 0) throw std::runtime_error("copy");
  }
  bool operator()(const FragmentIDPtr& fragment, const CreatorPtr&) const {
    // Waits for the lock of the launching, if there is one.
    field_->setCreatorViaFragmentIndex(10000 + fragment->getNumericalID(), CreatorPtr());
    ++*nCalls_;
    return true;
  }

 private:
  std::atomic<int>* nCopiesLeft_;
  std::atomic<unsigned int>* nCalls_;
  Field* field_;
};

TEST_F(FieldWalkStressTest, LaunchingThatFailsInTheMiddleWaitsForTheTasksWithoutTheLock) {
  for (int round = 0; round < 10; ++round) {
    const FieldPtr field = makeField(200);
    std::atomic<int> nCopiesLeft{1000000};
    std::atomic<unsigned int> nCalls{0};
    const Field::FragmentFunction f = FragileCallable(nCopiesLeft, nCalls, field);
    nCopiesLeft = 100 + round;
    EXPECT_THROW(field->iterate(f, true, round % 2 == 0), std::runtime_error);
    EXPECT_GT(nCalls, 0U);
    EXPECT_EQ(field->nFragments(), 200U + nCalls) << "all tasks have ended";
    field->clear();
  }
}

// ------------------------------------------------------------------------------------- fragments added by a walk

TEST_F(FieldWalkStressTest, ASnapshotWalkAddsFragmentsWhileOtherThreadsReadAndWalk) {
  constexpr unsigned int nAtStart = 50;
  constexpr int nDoublings = 5;
  const FieldPtr field = makeField(nAtStart);
  // The collection is no part of the race: it has all names before.
  for (unsigned int i = nAtStart; i < nAtStart << nDoublings; ++i) field->makeFragmentID(std::to_string(i));
  std::atomic<bool> isDone{false};
  std::atomic<unsigned int> nWrong{0};
  std::atomic<long long> nWalks{0};
  RaceRunner race;
  race.add([&](int) {
    for (int doubling = 0; doubling < nDoublings; ++doubling) {
      const unsigned int n = nAtStart << doubling;
      const unsigned int nTrue = field->iterate(
          [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
            const unsigned int number = fragment->getNumericalID();
            if (!isMarked(creator, number) || number >= n) ++nWrong;
            field->setCreator(makeMarked(n + number), field->getFragmentID(std::to_string(n + number)));
            return true;
          },
          false, true);
      if (nTrue != n) ++nWrong;
    }
    while (nWalks < 10) std::this_thread::yield();
    isDone = true;
  });
  race.add(2, [&](int thread) {
    const FragmentSelectorPtr selector(new EvenSelector);
    for (unsigned int round = 0; !isDone; ++round) {
      const unsigned long long before = field->nFragments();
      CountingIterator all;
      const unsigned int nAll = field->iterate(all, Tresk::FragmentSelectorWeakPtr());
      if (all.nWrong != 0 || nAll < before) ++nWrong;
      CountingIterator even;
      const unsigned int nEven = field->iterate(even, selector);
      if (even.nWrong != 0 || nEven < before / 2) ++nWrong;
      CountingIndexIterator numbers;
      const unsigned int nNumbers = field->iterate(numbers, Tresk::FragmentSelectorWeakPtr(), true);
      if (numbers.nWrong != 0 || nNumbers < nAll) ++nWrong;
      const unsigned int nShared = field->iterate(
          [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
            if (!isMarked(creator, fragment->getNumericalID()) || field->getCreator(fragment) != creator) ++nWrong;
            return true;
          },
          false, false);
      if (nShared < nNumbers || field->nFragments() < nShared) ++nWrong;
      const unsigned int number = (round * 7 + static_cast<unsigned int>(thread)) % nAtStart;
      if (!isMarked(field->getCreatorByNumericalID(number), number)) ++nWrong;
      ++nWalks;
    }
  });
  race.run();
  EXPECT_EQ(nWrong, 0U);
  EXPECT_EQ(field->nFragments(), nAtStart << nDoublings);
  RecordProperty("walks_beside", std::to_string(nWalks));
}

TEST_F(FieldWalkStressTest, ParallelTasksAddFragmentsAllAtOnce) {
  for (const bool snapshot : {false, true}) {
    const FieldPtr field = makeField(200);
    const unsigned int nTrue = field->iterate(
        [&](const FragmentIDPtr& fragment, const CreatorPtr&) {
          const unsigned int number = fragment->getNumericalID();
          field->setCreatorViaFragmentIndex(1000 + number, makeMarked(1000 + number));
          return isMarked(field->getCreatorByNumericalID(1000 + number), 1000 + number);
        },
        true, snapshot);
    EXPECT_EQ(nTrue, 200U);
    EXPECT_EQ(field->nFragments(), 400U);
  }
}

// -------------------------------------------------------------------------------------------- replaced creators

TEST_F(FieldWalkStressTest, WalksOfEveryFormGoOnWhileAnotherThreadReplacesCreators) {
  constexpr unsigned int n = 24;
  constexpr int nRounds = 40;
  const FieldPtr field = makeField(n);
  std::atomic<int> nWalking{2};
  std::atomic<unsigned int> nWrong{0};
  std::atomic<unsigned long long> nReplaced{0};
  RaceRunner race;
  race.add([&](int) {
    for (unsigned int i = 0; nWalking > 0; ++i) {
      field->setCreatorViaFragmentIndex(i % n, makeMarked(i % n));
      ++nReplaced;
    }
  });
  const Field::FragmentFunction check = [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
    if (!isMarked(creator, fragment->getNumericalID())) ++nWrong;
    std::this_thread::yield();
    return true;
  };
  race.add([&](int) {
    for (int round = 0; round < nRounds; ++round) {
      if (field->iterate(check, false, round % 2 == 0) != n) ++nWrong;
      CountingIterator iterator;
      if (field->iterate(iterator, Tresk::FragmentSelectorWeakPtr()) != n || iterator.nWrong != 0) ++nWrong;
      for (const bool snapshot : {false, true}) {
        CountingIndexIterator numbers;
        if (field->iterate(numbers, Tresk::FragmentSelectorWeakPtr(), snapshot) != n || numbers.nWrong != 0) ++nWrong;
      }
    }
    --nWalking;
  });
  race.add([&](int) {
    for (int round = 0; round < nRounds; ++round)
      if (field->iterate(check, true, round % 2 == 0) != n) ++nWrong;
    --nWalking;
  });
  race.run();
  EXPECT_EQ(nWrong, 0U);
  EXPECT_GT(nReplaced, 0U);
  field->clear();
  EXPECT_EQ(MarkedCreator::nAlive, 0) << "each replaced creator has died";
}

TEST_F(FieldWalkStressTest, WalksWithoutACollectionGoOnWhileAnotherThreadReplacesCreators) {
  constexpr unsigned int n = 16;
  const FieldPtr field((new Field(TreskTest::FragmentIDCollectionPtr())));
  for (unsigned int i = 0; i < n; ++i) field->setCreatorViaFragmentIndex(i, makeMarked(i));
  std::atomic<bool> isDone{false};
  std::atomic<unsigned int> nWrong{0};

  class Unnamed : public Tresk::FragmentIterator {
   public:
    bool apply(const FragmentIDPtr& fragment, const CreatorPtr& creator) override {
      if (fragment || !isMarked(creator, nCalls)) ++nErrors;
      ++nCalls;
      return true;
    }
    unsigned int nCalls = 0;
    unsigned int nErrors = 0;
  };
  RaceRunner race;
  race.add([&](int) {
    for (unsigned int i = 0; !isDone; ++i) field->setCreatorViaFragmentIndex(i % n, makeMarked(i % n));
  });
  race.add([&](int) {
    for (int round = 0; round < 500; ++round) {
      Unnamed iterator;
      field->iterate(iterator, Tresk::FragmentSelectorWeakPtr());
      if (iterator.nCalls != n || iterator.nErrors != 0) ++nWrong;
      unsigned int number = 0;
      const unsigned int nTrue = field->iterate(
          [&](const FragmentIDPtr&, const CreatorPtr& creator) { return isMarked(creator, number++); }, false, false);
      if (nTrue != n) ++nWrong;
    }
    isDone = true;
  });
  race.run();
  EXPECT_EQ(nWrong, 0U);
}

/// A creator that binds a further fragment when it dies, for which it needs the exclusive lock.
class BindingAtDeath : public TreskTest::ForgetfulArray {
 public:
  BindingAtDeath(Field* field, unsigned int number, std::atomic<unsigned int>& nDead)
      : AlzheimerCreator(Tresk::CacheWeakPtr()), field_(field), number_(number), nDead_(&nDead) {}
  ~BindingAtDeath() override {
    field_->setCreatorViaFragmentIndex(number_, CreatorPtr());
    ++*nDead_;
  }

 private:
  Field* field_;
  unsigned int number_;
  std::atomic<unsigned int>* nDead_;
};

TEST_F(FieldWalkStressTest, CreatorsThatBindWhenTheyDieNeverDieUnderTheLockOfAWalk) {
  constexpr unsigned int nBoundAtDeath = 300;
  const FieldPtr field = makeField(4);
  std::atomic<unsigned int> nDead{0};
  std::atomic<bool> isDone{false};
  RaceRunner race;
  race.add([&](int) {
    for (unsigned int i = 0; i < nBoundAtDeath; ++i)
      field->setCreatorViaFragmentIndex(i % 4, CreatorPtr(new BindingAtDeath(field.get(), 100 + i % 8, nDead)));
    for (unsigned int i = 0; i < 4; ++i) field->setCreatorViaFragmentIndex(i, makeMarked(i));
    isDone = true;
  });
  race.add(2, [&](int thread) {
    while (!isDone) {
      field->iterate(
          [](const FragmentIDPtr&, const CreatorPtr&) {
            std::this_thread::yield();
            return true;
          },
          false, false);
      if (thread == 1) field->iterate([](const FragmentIDPtr&, const CreatorPtr&) { return true; }, true, false);
      field->getSize();
      field->xml();
    }
  });
  race.run();
  EXPECT_EQ(nDead, nBoundAtDeath);
  EXPECT_EQ(field->nFragments(), 12U);
}

}  // namespace
