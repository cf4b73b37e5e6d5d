// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentIterator.hpp>
#include <tresk/field/FragmentSelector.hpp>

#include <support/FieldDoubles.hpp>
#include <support/ProfilerRecorder.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using Tresk::Field;
using Tresk::FragmentIndexIterator;
using Tresk::FragmentIterator;
using Tresk::FragmentSelector;
using Tresk::FragmentSelectorWeakPtr;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::makeArray;
using TreskTest::makeForgetful;
using TreskTest::unnamed;

using FieldWalkTest = TreskTest::RecordBalanceTest;
using Names = std::vector<std::string>;
using Numbers = std::vector<unsigned int>;

static_assert(std::is_base_of_v<FragmentIterator, Tresk::Iterator<Tresk::FragmentID>>);
static_assert(std::is_abstract_v<Tresk::Iterator<Tresk::FragmentID>>);
static_assert(std::is_base_of_v<Ostrel::ReferenceBase<FragmentSelector>, FragmentSelector>);
static_assert(std::is_base_of_v<Ostrel::Ageable, FragmentSelector>);

const FragmentSelectorWeakPtr everything;

std::string nameOf(const FragmentIDPtr& fragment) { return fragment ? fragment->getName() : "-"; }

/// A field with fragments named by their numbers, each with a creator, bound from the last to the first.
FieldPtr makeField(unsigned int nFragments) {
  const FieldPtr field(new Field);
  for (unsigned int i = 0; i < nFragments; ++i) field->makeFragmentID(std::to_string(i));
  for (unsigned int i = nFragments; i-- > 0;) field->setCreatorViaFragmentIndex(i, makeForgetful());
  return field;
}
/// A field without a collection, with a creator under each of the numbers.
FieldPtr makeUnnamedField(const Numbers& numbers) {
  const FieldPtr field((new Field(FragmentIDCollectionPtr())));
  for (const unsigned int number : numbers) field->setCreatorViaFragmentIndex(number, makeForgetful());
  return field;
}

/// The four ways to walk with a function.
struct Mode {
  bool parallel;
  bool snapshot;
};
constexpr Mode allModes[] = {{false, false}, {false, true}, {true, false}, {true, true}};
constexpr Mode sequentialModes[] = {{false, false}, {false, true}};
constexpr Mode parallelModes[] = {{true, false}, {true, true}};

std::string describe(const Mode& mode) {
  return std::string(mode.parallel ? "parallel" : "sequential") + (mode.snapshot ? ", snapshot" : ", live");
}

/// Writes down the fragments and creators that it is called for, and answers as it is told.
class RecordingIterator : public FragmentIterator {
 public:
  bool apply(const FragmentIDPtr& fragment, const CreatorPtr& creator) override {
    names.push_back(nameOf(fragment));
    hasCreator.push_back(creator.isValid());
    if (onApply) onApply(fragment, creator);
    return names.size() != falseAt;
  }
  Names names;
  std::vector<bool> hasCreator;
  std::size_t falseAt = 0;  ///< number of the call that answers false, from 1
  std::function<void(const FragmentIDPtr&, const CreatorPtr&)> onApply;
};

class RecordingIndexIterator : public FragmentIndexIterator {
 public:
  bool apply(unsigned int number, const CreatorPtr& creator) override {
    numbers.push_back(number);
    creators.push_back(creator);
    if (onApply) onApply(number);
    return numbers.size() != falseAt;
  }
  Numbers numbers;
  std::vector<CreatorPtr> creators;
  std::size_t falseAt = 0;
  std::function<void(unsigned int)> onApply;
};

/// Selects the fragments of some names and writes down what it is asked.
class NameSelector : public FragmentSelector {
 public:
  explicit NameSelector(const std::set<std::string>& selectedNames) : names(selectedNames) {}
  bool isSelected(const Tresk::CreativeArrayBase& creator, FragmentIDPtr fragment) override {
    asked.push_back(nameOf(fragment));
    creators.push_back(&creator);
    return names.count(nameOf(fragment)) != 0;
  }
  std::set<std::string> names;
  Names asked;
  std::vector<const Tresk::CreativeArrayBase*> creators;
};
using NameSelectorPtr = Ostrel::StrongPtr<NameSelector, FragmentSelector>;

NameSelectorPtr selectNames(const std::set<std::string>& names) { return NameSelectorPtr(new NameSelector(names)); }

/// Binds a further fragment on another thread, and tells whether that was done while `isHeld` was watched.
class WaitingWriter {
 public:
  explicit WaitingWriter(const FieldPtr& field)
      : thread_([this, field] {
          start_.count_down();
          field->setCreatorViaFragmentIndex(1000, makeForgetful());
          isDone_ = true;
        }) {
    start_.wait();
  }
  ~WaitingWriter() { thread_.join(); }

  bool getsInWhileWatched() const {
    for (int i = 0; i < 1000; ++i) {
      if (isDone_) return true;
      std::this_thread::yield();
    }
    return false;
  }

 private:
  std::latch start_{1};
  std::atomic<bool> isDone_{false};
  std::thread thread_;
};

// ------------------------------------------------------------------------------ a function, with a collection

TEST_F(FieldWalkTest, AnEmptyFunctionIsCalledForNoneInAllModes) {
  const FieldPtr fields[] = {makeField(3), makeField(0), makeUnnamedField({}), makeUnnamedField({4}),
                             makeUnnamedField({4, 5})};
  for (const FieldPtr& field : fields) {
    for (const Mode& mode : allModes) {
      const TreskTest::ProfilerRecorder profile;
      EXPECT_EQ(field->iterate(Field::FragmentFunction(), mode.parallel, mode.snapshot), 0U) << describe(mode);
      EXPECT_TRUE(profile.events().empty()) << "not even a copy of the table is made";
    }
  }
}

TEST_F(FieldWalkTest, SequentialWalksVisitInTheOrderOfNumbersOnTheCallingThread) {
  const FieldPtr field = makeField(5);
  const std::thread::id caller = std::this_thread::get_id();
  for (const Mode& mode : sequentialModes) {
    Names names;
    const unsigned int nTrue = field->iterate(
        [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
          names.push_back(nameOf(fragment));
          EXPECT_TRUE(field->getCreator(fragment) == creator);
          EXPECT_TRUE(fragment == field->getFragmentID(fragment->getName()));
          EXPECT_EQ(std::this_thread::get_id(), caller);
          return true;
        },
        mode.parallel, mode.snapshot);
    EXPECT_EQ(nTrue, 5U) << describe(mode);
    EXPECT_EQ(names, Names({"0", "1", "2", "3", "4"})) << describe(mode);
  }
}

TEST_F(FieldWalkTest, FalseOnTheThirdOfFiveEndsASequentialWalkAfterThreeCallsWithTwo) {
  const FieldPtr field = makeField(5);
  for (const Mode& mode : sequentialModes) {
    int nCalls = 0;
    const auto f = [&nCalls](const FragmentIDPtr&, const CreatorPtr&) { return ++nCalls != 3; };
    EXPECT_EQ(field->iterate(f, mode.parallel, mode.snapshot), 2U) << describe(mode);
    EXPECT_EQ(nCalls, 3) << describe(mode);
  }
}

TEST_F(FieldWalkTest, FalseOnTheThirdOfFiveStopsNothingInParallel) {
  const FieldPtr field = makeField(5);
  for (const Mode& mode : parallelModes) {
    std::atomic<int> nCalls{0};
    const auto f = [&nCalls](const FragmentIDPtr& fragment, const CreatorPtr&) {
      ++nCalls;
      return fragment->getName() != "2";
    };
    EXPECT_EQ(field->iterate(f, mode.parallel, mode.snapshot), 4U) << describe(mode);
    EXPECT_EQ(nCalls, 5) << describe(mode);
  }
}

TEST_F(FieldWalkTest, FalseOnTheFirstGivesZero) {
  const FieldPtr field = makeField(3);
  for (const Mode& mode : allModes)
    EXPECT_EQ(
        field->iterate([](const FragmentIDPtr&, const CreatorPtr&) { return false; }, mode.parallel, mode.snapshot),
        0U);
}

TEST_F(FieldWalkTest, ANullCreatorIsSkippedSequentiallyAndShownInParallelWithItsFragment) {
  const FieldPtr field = makeField(3);
  field->setCreatorViaFragmentIndex(1, CreatorPtr());
  for (const Mode& mode : allModes) {
    std::mutex mutex;
    std::set<std::string> with;
    std::set<std::string> without;
    const unsigned int nTrue = field->iterate(
        [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
          const std::lock_guard lock(mutex);
          (creator ? with : without).insert(nameOf(fragment));
          return true;
        },
        mode.parallel, mode.snapshot);
    EXPECT_EQ(nTrue, mode.parallel ? 3U : 2U) << describe(mode);
    EXPECT_EQ(with, std::set<std::string>({"0", "2"})) << describe(mode);
    EXPECT_EQ(without, mode.parallel ? std::set<std::string>({"1"}) : std::set<std::string>()) << describe(mode);
  }
}

TEST_F(FieldWalkTest, EntriesWithoutANamedFragmentAreVisitedWithANullFragment) {
  const FieldPtr field(new Field);
  field->setCreator(makeForgetful(), unnamed());
  field->setCreatorViaFragmentIndex(7, makeForgetful());
  field->setCreator(makeForgetful(), field->makeFragmentID("a"));
  for (const Mode& mode : allModes) {
    std::mutex mutex;
    std::multiset<std::string> names;
    const unsigned int nTrue = field->iterate(
        [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
          const std::lock_guard lock(mutex);
          EXPECT_TRUE(creator);
          names.insert(nameOf(fragment));
          return true;
        },
        mode.parallel, mode.snapshot);
    EXPECT_EQ(nTrue, 3U);
    EXPECT_EQ(names, std::multiset<std::string>({"-", "-", "a"})) << describe(mode);
  }
}

TEST_F(FieldWalkTest, AnEmptyFieldWithACollectionGivesZero) {
  const FieldPtr field = makeField(0);
  field->makeFragmentID("never bound");
  const auto f = [](const FragmentIDPtr&, const CreatorPtr&) {
    ADD_FAILURE();
    return true;
  };
  for (const Mode& mode : allModes) EXPECT_EQ(field->iterate(f, mode.parallel, mode.snapshot), 0U);
  RecordingIterator iterator;
  EXPECT_EQ(field->iterate(iterator, everything), 0U);
  RecordingIndexIterator indexIterator;
  EXPECT_EQ(field->iterate(indexIterator, everything, false), 0U);
  EXPECT_EQ(field->iterate(indexIterator, everything, true), 0U);
}

TEST_F(FieldWalkTest, AWalkChangesNoAgeAndHoldsNothingAfterwards) {
  const FieldPtr field = makeField(4);
  const long long clock = TreskTest::clockNow();
  const long long nLive = nLiveSinceStart();
  for (const Mode& mode : allModes)
    EXPECT_EQ(
        field->iterate([](const FragmentIDPtr&, const CreatorPtr&) { return true; }, mode.parallel, mode.snapshot), 4U);
  EXPECT_EQ(TreskTest::clockNow(), clock);
  EXPECT_EQ(nLiveSinceStart(), nLive);
  const CreatorPtr creator = field->getCreatorByNumericalID(2);
  EXPECT_EQ(creator.strongCount(), 2);
  EXPECT_EQ(field->getFragmentID("2").strongCount(), 2) << "the slot and the copy asked for here";
}

// ------------------------------------------------------------------------------------------- locks of the callables

TEST_F(FieldWalkTest, ACallbackReadsTheFieldUnderTheSharedLockThatKeepsWritersOut) {
  const FieldPtr field = makeField(2);
  field->setPersistentData(makeArray(3, 1.5), field->getFragmentID("1"), Ostrel::Cache::MemCache(), "");
  std::unique_ptr<WaitingWriter> writer;
  int nCalls = 0;
  const unsigned int nTrue = field->iterate(
      [&](const FragmentIDPtr&, const CreatorPtr&) {
        ++nCalls;
        if (!writer) writer = std::make_unique<WaitingWriter>(field);
        EXPECT_FALSE(writer->getsInWhileWatched());
        // All of these take the shared lock once more, while the writer waits for it.
        EXPECT_EQ(field->nFragments(), 2U);
        EXPECT_TRUE(field->getCreatorByNumericalID(1));
        EXPECT_EQ(field->getSize()->str(), "3");
        EXPECT_EQ(field->Dims(), 1);
        EXPECT_TRUE(field->getData(field->getFragmentID("1")));
        unsigned int nInner =
            field->iterate([](const FragmentIDPtr&, const CreatorPtr&) { return true; }, false, false);
        EXPECT_EQ(nInner, 2U) << "a walk inside a walk";
        nInner = field->iterate([](const FragmentIDPtr&, const CreatorPtr&) { return true; }, true, false);
        EXPECT_EQ(nInner, 2U) << "a parallel walk inside a walk";
        return true;
      },
      false, false);
  EXPECT_EQ(nTrue, 2U);
  EXPECT_EQ(nCalls, 2);
  writer.reset();
  EXPECT_EQ(field->nFragments(), 3U);
}

TEST_F(FieldWalkTest, ASnapshotWalkLetsCallbacksAddFragmentsAndDoesNotVisitThem) {
  const FieldPtr field = makeField(3);
  Names names;
  const auto f = [&](const FragmentIDPtr& fragment, const CreatorPtr&) {
    names.push_back(nameOf(fragment));
    field->setCreator(makeForgetful(), field->makeFragmentID(nameOf(fragment) + "'"));
    return true;
  };
  EXPECT_EQ(field->iterate(f, false, true), 3U);
  EXPECT_EQ(names, Names({"0", "1", "2"}));
  EXPECT_EQ(field->nFragments(), 6U);
  names.clear();
  EXPECT_EQ(field->iterate(f, false, true), 6U);
  EXPECT_EQ(names, Names({"0", "1", "2", "0'", "1'", "2'"}));
}

TEST_F(FieldWalkTest, ASnapshotWalkGoesOnWithItsCreatorsWhenTheFieldIsCleared) {
  const FieldPtr field = makeField(3);
  int nAlive = 0;
  const auto f = [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
    field->clear();
    EXPECT_TRUE(fragment);
    if (creator && creator->release() == Ostrel::Creature::Released) ++nAlive;
    return true;
  };
  EXPECT_EQ(field->iterate(f, false, true), 3U);
  EXPECT_EQ(nAlive, 3);
  EXPECT_EQ(field->nFragments(), 0U);
}

TEST_F(FieldWalkTest, ALiveWalkSeesACreatorReplacedAheadOfItAndASnapshotDoesNot) {
  for (const Mode& mode : sequentialModes) {
    const FieldPtr field = makeField(2);
    const CreatorPtr former = field->getCreatorByNumericalID(1);
    const CreatorPtr next = makeForgetful();
    std::vector<CreatorPtr> seen;
    field->iterate(
        [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
          if (nameOf(fragment) == "0") field->setCreatorViaFragmentIndex(1, next);
          seen.push_back(creator);
          return true;
        },
        mode.parallel, mode.snapshot);
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_TRUE(seen[1] == (mode.snapshot ? former : next)) << describe(mode);
  }
}

TEST_F(FieldWalkTest, TheCreatorOfACallStaysAliveWhenTheCallbackReplacesItAndDiesAfterTheLock) {
  const FieldPtr field = makeField(0);
  int nDead = 0;
  for (unsigned int i = 0; i < 3; ++i) {
    const auto creator = makeForgetful();
    creator->onDeath = [&nDead, field = &*field, i] {
      ++nDead;
      field->setCreatorViaFragmentIndex(100 + i, CreatorPtr());  // waits for good under the lock of the walk
    };
    field->setCreatorViaFragmentIndex(i, creator);
  }
  unsigned int number = 0;
  const unsigned int nTrue = field->iterate(
      [&](const FragmentIDPtr&, const CreatorPtr& creator) {
        field->setCreatorViaFragmentIndex(number++, makeForgetful());
        EXPECT_EQ(nDead, 0) << "held by the walk";
        EXPECT_EQ(creator->release(), Ostrel::Creature::Released);
        return true;
      },
      false, false);
  EXPECT_EQ(nTrue, 3U);
  EXPECT_EQ(nDead, 3);
  EXPECT_EQ(field->nFragments(), 6U);
}

TEST_F(FieldWalkTest, AnExceptionOfASequentialCallbackPassesAndGivesTheLockBack) {
  for (const Mode& mode : sequentialModes) {
    const FieldPtr field = makeField(3);
    int nCalls = 0;
    EXPECT_THROW(field->iterate(
                     [&nCalls](const FragmentIDPtr&, const CreatorPtr&) -> bool {
                       if (++nCalls == 2) throw std::runtime_error("second");
                       return true;
                     },
                     mode.parallel, mode.snapshot),
                 std::runtime_error);
    EXPECT_EQ(nCalls, 2);
    field->setCreatorViaFragmentIndex(3, makeForgetful());
    EXPECT_EQ(field->nFragments(), 4U);
  }
}

// ---------------------------------------------------------------------------------------------------- parallel walks

TEST_F(FieldWalkTest, AParallelWalkRunsAllFragmentsAtOnceOnThreadsOfTheirOwn) {
  const FieldPtr field = makeField(12);
  for (const Mode& mode : parallelModes) {
    std::latch allHere(12);
    std::mutex mutex;
    std::set<std::thread::id> threads;
    const unsigned int nTrue = field->iterate(
        [&](const FragmentIDPtr&, const CreatorPtr&) {
          allHere.arrive_and_wait();  // for good, if some task waited for another to end
          const std::lock_guard lock(mutex);
          threads.insert(std::this_thread::get_id());
          return true;
        },
        mode.parallel, mode.snapshot);
    EXPECT_EQ(nTrue, 12U);
    EXPECT_EQ(threads.size(), 12U);
    EXPECT_EQ(threads.count(std::this_thread::get_id()), 0U);
  }
}

TEST_F(FieldWalkTest, ParallelCallbacksMayAddFragmentsAndReadTheField) {
  for (const Mode& mode : parallelModes) {
    const FieldPtr field = makeField(6);
    const unsigned int nTrue = field->iterate(
        [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
          EXPECT_TRUE(field->getCreator(fragment) == creator);
          field->setCreatorViaFragmentIndex(100 + fragment->getNumericalID(), makeForgetful());
          return true;
        },
        mode.parallel, mode.snapshot);
    EXPECT_EQ(nTrue, 6U) << "added fragments are not visited";
    EXPECT_EQ(field->nFragments(), 12U) << describe(mode);
  }
}

TEST_F(FieldWalkTest, OfExceptionsInParallelTheFirstInTheOrderOfFragmentsArrivesWhenAllTasksHaveEnded) {
  const FieldPtr field = makeField(6);
  for (const Mode& mode : parallelModes) {
    std::latch laterHasThrown(1);
    std::latch firstThrows(1);
    std::atomic<int> nEnded{0};
    const auto f = [&](const FragmentIDPtr& fragment, const CreatorPtr&) -> bool {
      const std::string name = nameOf(fragment);
      if (name == "4") {
        laterHasThrown.count_down();
        throw std::runtime_error("4");
      }
      if (name == "1") {
        laterHasThrown.wait();
        firstThrows.count_down();
        throw std::runtime_error("1");
      }
      if (name == "0" || name == "5") {
        firstThrows.wait();
        for (int i = 0; i < 1000; ++i) std::this_thread::yield();
      }
      ++nEnded;
      return true;
    };
    std::string arrived;
    try {
      field->iterate(f, mode.parallel, mode.snapshot);
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(nEnded, 4) << "all tasks have ended when it arrives";
      arrived = error.what();
    }
    EXPECT_EQ(arrived, "1") << describe(mode);
    field->setCreatorViaFragmentIndex(field->nFragments() == 6 ? 5 : 6, makeForgetful());
    EXPECT_EQ(CreatorPtr(field->getCreatorByNumericalID(2)).strongCount(), 2) << "the tasks hold nothing any more";
  }
}

/// A callable whose copies are counted, and which does something when it is copied.
class CopyWatched {
 public:
  struct Watch {
    std::atomic<bool> isArmed{false};
    std::atomic<int> nCopies{0};
    std::atomic<int> nAlive{0};
    std::function<void(int)> onCopy;
    std::function<bool(const FragmentIDPtr&, const CreatorPtr&)> f;
  };
  explicit CopyWatched(Watch& watch) : watch_(&watch) { ++watch_->nAlive; }
  CopyWatched(const CopyWatched& other) : watch_(other.watch_) {
    if (watch_->isArmed && watch_->onCopy) watch_->onCopy(++watch_->nCopies);
    ++watch_->nAlive;
  }
  ~CopyWatched() { --watch_->nAlive; }

  bool operator()(const FragmentIDPtr& fragment, const CreatorPtr& creator) const {
    return watch_->f(fragment, creator);
  }

 private:
  Watch* watch_;
};

TEST_F(FieldWalkTest, AnExceptionWhileLaunchingGivesTheLockBackBeforeItWaitsForTheTasks) {
  for (const Mode& mode : parallelModes) {
    const FieldPtr field = makeField(5);
    std::atomic<int> nEnded{0};
    CopyWatched::Watch watch;
    watch.onCopy = [](int n) {
      if (n == 4) throw std::runtime_error("copy");
    };
    watch.f = [&](const FragmentIDPtr& fragment, const CreatorPtr&) {
      // Under a lock that is held for the launching this waits until it is given back.
      field->setCreatorViaFragmentIndex(100 + fragment->getNumericalID(), makeForgetful());
      ++nEnded;
      return true;
    };
    const Field::FragmentFunction f = CopyWatched(watch);
    watch.isArmed = true;
    EXPECT_THROW(field->iterate(f, mode.parallel, mode.snapshot), std::runtime_error) << describe(mode);
    EXPECT_EQ(field->nFragments(), 5U + static_cast<unsigned int>(nEnded)) << "the tasks launched have ended";
    EXPECT_GT(nEnded, 0);
    EXPECT_LT(nEnded, 5);
    EXPECT_EQ(watch.nAlive, 1) << "the function here, and no copy";
    EXPECT_EQ(CreatorPtr(field->getCreatorByNumericalID(0)).strongCount(), 2);
  }
}

TEST_F(FieldWalkTest, EachParallelTaskOwnsACopyOfTheFunctionUntilItHasEnded) {
  const FieldPtr field = makeField(4);
  for (const Mode& mode : parallelModes) {
    CopyWatched::Watch watch;
    std::latch allHere(4);
    std::atomic<int> nAliveAtOnce{0};
    watch.f = [&](const FragmentIDPtr&, const CreatorPtr&) {
      allHere.arrive_and_wait();
      nAliveAtOnce = std::max<int>(nAliveAtOnce, watch.nAlive);
      return true;
    };
    const Field::FragmentFunction f = CopyWatched(watch);
    EXPECT_EQ(field->iterate(f, mode.parallel, mode.snapshot), 4U);
    EXPECT_GE(nAliveAtOnce, 2) << "a copy beside the one of the caller";
    EXPECT_EQ(watch.nAlive, 1);
  }
}

TEST_F(FieldWalkTest, ACreatorReplacedWhileAParallelWalkIsLaunchedIsStillVisitedAndDiesAfterTheLock) {
  const FieldPtr field = makeField(4);
  std::atomic<int> nDead{0};
  {
    const auto creator = makeForgetful(makeArray(7));
    creator->onDeath = [&nDead, field = &*field] {
      field->setCreatorViaFragmentIndex(100, CreatorPtr());
      ++nDead;
    };
    field->setCreatorViaFragmentIndex(0, creator);
  }
  CopyWatched::Watch watch;
  watch.onCopy = [&field](int n) {
    if (n == 1) field->setCreatorViaFragmentIndex(0, makeForgetful());  // while the task of this entry is made
  };
  watch.f = [](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
    return creator->hasData() == (fragment->getName() == "0");
  };
  const Field::FragmentFunction f = CopyWatched(watch);
  watch.isArmed = true;
  EXPECT_EQ(field->iterate(f, true, false), 4U) << "the creators of the moment of launching";
  EXPECT_EQ(nDead, 1);
  EXPECT_EQ(field->nFragments(), 5U);
}

// --------------------------------------------------------------------------- a function, without a collection

TEST_F(FieldWalkTest, OneEntryWithoutACollectionIsVisitedWithANullFragmentInAllModes) {
  const FieldPtr field = makeUnnamedField({9});
  for (const Mode& mode : allModes) {
    for (const bool answer : {true, false}) {
      int nCalls = 0;
      const std::thread::id caller = std::this_thread::get_id();
      const unsigned int nTrue = field->iterate(
          [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
            ++nCalls;
            EXPECT_EQ(fragment.getRecord(), nullptr);
            EXPECT_TRUE(creator == field->getCreatorByNumericalID(9));
            EXPECT_EQ(std::this_thread::get_id(), caller) << "the flags are ignored";
            return answer;
          },
          mode.parallel, mode.snapshot);
      EXPECT_EQ(nTrue, answer ? 1U : 0U);
      EXPECT_EQ(nCalls, 1);
    }
  }
}

TEST_F(FieldWalkTest, OneEntryWithoutACollectionIsVisitedEvenWithoutACreator) {
  const FieldPtr field = makeUnnamedField({});
  field->setCreatorViaFragmentIndex(0, CreatorPtr());
  for (const Mode& mode : allModes) {
    int nCalls = 0;
    const unsigned int nTrue = field->iterate(
        [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
          ++nCalls;
          EXPECT_FALSE(fragment);
          EXPECT_FALSE(creator);
          return true;
        },
        mode.parallel, mode.snapshot);
    EXPECT_EQ(nTrue, 1U);
    EXPECT_EQ(nCalls, 1);
  }
}

TEST_F(FieldWalkTest, SeveralEntriesWithoutACollectionAreVisitedInOrderWithoutALockInAllModes) {
  for (const Mode& mode : allModes) {
    const FieldPtr field = makeUnnamedField({7, 3, 5});
    field->setCreatorViaFragmentIndex(4, CreatorPtr());
    std::vector<CreatorPtr> seen;
    const std::thread::id caller = std::this_thread::get_id();
    const unsigned int nTrue = field->iterate(
        [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
          EXPECT_FALSE(fragment);
          EXPECT_EQ(std::this_thread::get_id(), caller);
          seen.push_back(creator);
          field->setCreatorViaFragmentIndex(static_cast<unsigned int>(100 + seen.size()), makeForgetful());
          return true;
        },
        mode.parallel, mode.snapshot);
    EXPECT_EQ(nTrue, 3U) << describe(mode);
    ASSERT_EQ(seen.size(), 3U) << "neither the entry without a creator nor those added";
    EXPECT_TRUE(seen[0] == field->getCreatorByNumericalID(3));
    EXPECT_TRUE(seen[1] == field->getCreatorByNumericalID(5));
    EXPECT_TRUE(seen[2] == field->getCreatorByNumericalID(7));
    EXPECT_EQ(field->nFragments(), 7U);
  }
}

TEST_F(FieldWalkTest, FalseEndsTheWalkOverSeveralEntriesWithoutACollectionInAllModes) {
  const FieldPtr field = makeUnnamedField({0, 1, 2, 3});
  for (const Mode& mode : allModes) {
    int nCalls = 0;
    const auto f = [&nCalls](const FragmentIDPtr&, const CreatorPtr&) { return ++nCalls != 3; };
    EXPECT_EQ(field->iterate(f, mode.parallel, mode.snapshot), 2U);
    EXPECT_EQ(nCalls, 3);
  }
}

TEST_F(FieldWalkTest, AnEmptyFieldWithoutACollectionGivesZeroWithEveryForm) {
  const FieldPtr field = makeUnnamedField({});
  const NameSelectorPtr selector = selectNames({"-"});
  for (const Mode& mode : allModes) {
    EXPECT_EQ(
        field->iterate([](const FragmentIDPtr&, const CreatorPtr&) { return true; }, mode.parallel, mode.snapshot), 0U);
  }
  RecordingIterator iterator;
  EXPECT_EQ(field->iterate(iterator, selector), 0U);
  RecordingIndexIterator indexIterator;
  for (const bool snapshot : {false, true}) EXPECT_EQ(field->iterate(indexIterator, selector, snapshot), 0U);
  EXPECT_TRUE(iterator.names.empty());
  EXPECT_TRUE(indexIterator.numbers.empty());
  EXPECT_TRUE(selector->asked.empty());
}

TEST_F(FieldWalkTest, TheFourFormsAnswerDifferentlyForTwoEntriesWithoutACollection) {
  const FieldPtr field = makeUnnamedField({0, 1});
  const NameSelectorPtr selector = selectNames({});
  EXPECT_EQ(field->iterate([](const FragmentIDPtr&, const CreatorPtr&) { return true; }, true, false), 2U);
  RecordingIterator iterator;
  EXPECT_EQ(field->iterate(iterator, selector), 0U) << "counts nothing";
  EXPECT_EQ(iterator.names, Names({"-", "-"})) << "and asks no selector";
  RecordingIndexIterator indexIterator;
  EXPECT_EQ(field->iterate(indexIterator, selector, true), 0U) << "asks the selector, which rejects";
  EXPECT_TRUE(indexIterator.numbers.empty());
  EXPECT_EQ(field->iterate(indexIterator, everything, true), 2U);
}

// ------------------------------------------------------------------------------------------------ iterator objects

TEST_F(FieldWalkTest, AnIteratorVisitsInOrderWithoutNullCreatorsAndCountsTrueAnswers) {
  const FieldPtr field = makeField(5);
  field->setCreatorViaFragmentIndex(1, CreatorPtr());
  RecordingIterator iterator;
  EXPECT_EQ(field->iterate(iterator, everything), 4U);
  EXPECT_EQ(iterator.names, Names({"0", "2", "3", "4"}));
  RecordingIterator stopping;
  stopping.falseAt = 3;
  EXPECT_EQ(field->iterate(stopping, everything), 2U);
  EXPECT_EQ(stopping.names, Names({"0", "2", "3"}));
}

TEST_F(FieldWalkTest, AnIteratorMayAddFragmentsWhichItDoesNotVisit) {
  const FieldPtr field = makeField(3);
  RecordingIterator iterator;
  iterator.onApply = [&field](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
    EXPECT_TRUE(creator);
    field->setCreator(makeForgetful(), field->makeFragmentID(nameOf(fragment) + "'"));
  };
  EXPECT_EQ(field->iterate(iterator, everything), 3U);
  EXPECT_EQ(iterator.names, Names({"0", "1", "2"}));
  EXPECT_EQ(field->nFragments(), 6U);
}

TEST_F(FieldWalkTest, TheFragmentWalkHasTheNameOfTheElementWalks) {
  class Counting : public Tresk::Iterator<Tresk::FragmentID> {
   public:
    bool apply(const FragmentIDPtr&, const CreatorPtr&) override { return ++n < 3; }
    int n = 0;
  };
  const FieldPtr field = makeField(5);
  Counting counting;
  EXPECT_EQ(field->iterate(counting, everything), 2U);
  EXPECT_EQ(counting.n, 3);
}

TEST_F(FieldWalkTest, ARejectedFragmentIsSkippedWithoutCountingOrStopping) {
  const FieldPtr field = makeField(5);
  field->setCreatorViaFragmentIndex(3, CreatorPtr());
  const NameSelectorPtr selector = selectNames({"1", "3", "4"});
  RecordingIterator iterator;
  EXPECT_EQ(field->iterate(iterator, selector), 2U);
  EXPECT_EQ(iterator.names, Names({"1", "4"}));
  EXPECT_EQ(selector->asked, Names({"0", "1", "2", "4"})) << "never asked for a null creator";
  for (std::size_t i = 0; i < 4; ++i) {
    const CreatorPtr creator = field->getCreatorByName(selector->asked[i]);
    EXPECT_EQ(selector->creators[i], creator.get());
  }
}

TEST_F(FieldWalkTest, ASelectorThatRejectsAllGivesZeroAndNoCall) {
  const FieldPtr field = makeField(3);
  const NameSelectorPtr selector = selectNames({});
  RecordingIterator iterator;
  EXPECT_EQ(field->iterate(iterator, selector), 0U);
  EXPECT_TRUE(iterator.names.empty());
  RecordingIndexIterator indexIterator;
  for (const bool snapshot : {false, true}) EXPECT_EQ(field->iterate(indexIterator, selector, snapshot), 0U);
  EXPECT_TRUE(indexIterator.numbers.empty());
  EXPECT_EQ(selector->asked.size(), 9U);
}

TEST_F(FieldWalkTest, AReleasedSelectorSelectsEverything) {
  const FieldPtr field = makeField(3);
  FragmentSelectorWeakPtr released;
  {
    const NameSelectorPtr selector = selectNames({});
    released = selector;
  }
  RecordingIterator iterator;
  EXPECT_EQ(field->iterate(iterator, released), 3U);
  RecordingIndexIterator indexIterator;
  for (const bool snapshot : {false, true}) EXPECT_EQ(field->iterate(indexIterator, released, snapshot), 3U);
}

TEST_F(FieldWalkTest, ASelectorReleasedInTheMiddleOfAWalkSelectsTheRest) {
  const FieldPtr field = makeField(4);
  NameSelectorPtr selector = selectNames({"0"});
  const FragmentSelectorWeakPtr observed(selector);
  RecordingIterator iterator;
  iterator.onApply = [&selector](const FragmentIDPtr&, const CreatorPtr&) { selector.reset(); };
  EXPECT_EQ(field->iterate(iterator, observed), 4U);
}

TEST_F(FieldWalkTest, ASelectorThatNobodyHoldsYetIsAliveAndStays) {
  const FieldPtr field = makeField(3);
  NameSelector selector({"2"});
  RecordingIterator iterator;
  EXPECT_EQ(field->iterate(iterator, FragmentSelectorWeakPtr(&selector)), 1U);
  EXPECT_EQ(iterator.names, Names({"2"}));
  EXPECT_EQ(selector.asked.size(), 3U);
}

TEST_F(FieldWalkTest, ASelectorIsAskedWithANullFragmentForTheUnnamedOne) {
  const FieldPtr field(new Field);
  field->setCreator(makeForgetful(), unnamed());
  field->setCreator(makeForgetful(), field->makeFragmentID("a"));
  const NameSelectorPtr selector = selectNames({"-"});
  RecordingIterator iterator;
  EXPECT_EQ(field->iterate(iterator, selector), 1U);
  EXPECT_EQ(iterator.names, Names({"-"}));
  EXPECT_EQ(selector->asked, Names({"-", "a"}));
}

TEST_F(FieldWalkTest, ASelectionTellsWhenItChanged) {
  const NameSelectorPtr selector = selectNames({});
  EXPECT_EQ(selector->getAge(), 0);
  const Ostrel::Ageable result = Ostrel::Ageable::now();
  selector->touch();
  EXPECT_TRUE(*selector > result);
}

TEST_F(FieldWalkTest, AnIteratorOnOneEntryWithoutACollectionAsksNoSelectorAndHoldsNoLock) {
  const NameSelectorPtr selector = selectNames({});
  for (const bool answer : {true, false}) {
    const FieldPtr field = makeUnnamedField({5});
    RecordingIterator iterator;
    iterator.falseAt = answer ? 0 : 1;
    iterator.onApply = [&field](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
      EXPECT_EQ(fragment.getRecord(), nullptr);
      EXPECT_TRUE(creator);
      field->setCreatorViaFragmentIndex(6, makeForgetful());
    };
    EXPECT_EQ(field->iterate(iterator, selector), answer ? 1U : 0U);
    EXPECT_EQ(iterator.names.size(), 1U);
    EXPECT_EQ(field->nFragments(), 2U);
  }
  EXPECT_TRUE(selector->asked.empty());
}

TEST_F(FieldWalkTest, AnIteratorOnOneEntryWithoutACollectionIsCalledEvenWithoutACreator) {
  const FieldPtr field = makeUnnamedField({});
  field->setCreatorViaFragmentIndex(5, CreatorPtr());
  RecordingIterator iterator;
  EXPECT_EQ(field->iterate(iterator, everything), 1U);
  EXPECT_EQ(iterator.hasCreator, std::vector<bool>({false}));
}

TEST_F(FieldWalkTest, AnIteratorOnTwoEntriesWithoutACollectionGivesZeroAlthoughItRanTwice) {
  const FieldPtr field = makeUnnamedField({1, 2});
  const NameSelectorPtr selector = selectNames({});
  RecordingIterator iterator;
  EXPECT_EQ(field->iterate(iterator, selector), 0U);
  EXPECT_EQ(iterator.names, Names({"-", "-"}));
  EXPECT_TRUE(selector->asked.empty());
}

TEST_F(FieldWalkTest, AnIteratorWithoutACollectionSkipsNullCreatorsAndEndsAtFalse) {
  const FieldPtr field = makeUnnamedField({1, 3, 4});
  field->setCreatorViaFragmentIndex(2, CreatorPtr());
  RecordingIterator iterator;
  iterator.falseAt = 2;
  EXPECT_EQ(field->iterate(iterator, everything), 0U);
  EXPECT_EQ(iterator.hasCreator, std::vector<bool>({true, true}));
}

TEST_F(FieldWalkTest, AnIteratorOnTwoEntriesWithoutACollectionReadsUnderTheSharedLock) {
  const FieldPtr field = makeUnnamedField({1, 2});
  std::unique_ptr<WaitingWriter> writer;
  RecordingIterator iterator;
  iterator.onApply = [&](const FragmentIDPtr&, const CreatorPtr& creator) {
    if (!writer) writer = std::make_unique<WaitingWriter>(field);
    EXPECT_FALSE(writer->getsInWhileWatched());
    EXPECT_EQ(field->nFragments(), 2U);
    EXPECT_TRUE(creator == field->getCreatorByNumericalID(static_cast<unsigned int>(iterator.names.size())));
  };
  EXPECT_EQ(field->iterate(iterator, everything), 0U);
  EXPECT_EQ(iterator.names.size(), 2U);
  writer.reset();
  EXPECT_EQ(field->nFragments(), 3U);
}

TEST_F(FieldWalkTest, ACreatorReplacedUnderTheWalkWithoutACollectionDiesAfterTheLock) {
  const FieldPtr field = makeUnnamedField({});
  int nDead = 0;
  for (unsigned int i = 0; i < 2; ++i) {
    const auto creator = makeForgetful();
    creator->onDeath = [&nDead, field = &*field, i] {
      ++nDead;
      field->setCreatorViaFragmentIndex(100 + i, CreatorPtr());
    };
    field->setCreatorViaFragmentIndex(i, creator);
  }
  RecordingIterator iterator;
  iterator.onApply = [&](const FragmentIDPtr&, const CreatorPtr& creator) {
    field->setCreatorViaFragmentIndex(static_cast<unsigned int>(iterator.names.size() - 1), makeForgetful());
    EXPECT_EQ(nDead, 0);
    EXPECT_FALSE(creator->hasData());
  };
  EXPECT_EQ(field->iterate(iterator, everything), 0U);
  EXPECT_EQ(nDead, 2);
  EXPECT_EQ(field->nFragments(), 4U);
}

// ------------------------------------------------------------------------------------------------- index iterators

TEST_F(FieldWalkTest, AnIndexIteratorGetsTheNumbersInOrderWithTheirCreators) {
  const FieldPtr field = makeField(4);
  field->setCreatorViaFragmentIndex(2, CreatorPtr());
  field->setCreatorViaFragmentIndex(0xFFFFFFFFU, makeForgetful());
  for (const bool snapshot : {false, true}) {
    RecordingIndexIterator iterator;
    EXPECT_EQ(field->iterate(iterator, everything, snapshot), 4U);
    EXPECT_EQ(iterator.numbers, Numbers({0, 1, 3, 0xFFFFFFFFU}));
    for (std::size_t i = 0; i < 4; ++i)
      EXPECT_TRUE(iterator.creators[i] == field->getCreatorByNumericalID(iterator.numbers[i]));
    RecordingIndexIterator stopping;
    stopping.falseAt = 3;
    EXPECT_EQ(field->iterate(stopping, everything, snapshot), 2U);
    EXPECT_EQ(stopping.numbers, Numbers({0, 1, 3}));
  }
}

TEST_F(FieldWalkTest, AnIndexIteratorAsksTheSelectorWithTheFragment) {
  const FieldPtr field = makeField(4);
  field->setCreatorViaFragmentIndex(0, CreatorPtr());
  for (const bool snapshot : {false, true}) {
    const NameSelectorPtr selector = selectNames({"0", "1", "3"});
    RecordingIndexIterator iterator;
    EXPECT_EQ(field->iterate(iterator, selector, snapshot), 2U);
    EXPECT_EQ(iterator.numbers, Numbers({1, 3}));
    EXPECT_EQ(selector->asked, Names({"1", "2", "3"}));
  }
}

TEST_F(FieldWalkTest, AnIndexIteratorWorksWithoutACollectionWithANullFragment) {
  const FieldPtr field = makeUnnamedField({8, 6});
  field->setCreatorViaFragmentIndex(7, CreatorPtr());
  for (const bool snapshot : {false, true}) {
    const NameSelectorPtr selector = selectNames({"-"});
    RecordingIndexIterator iterator;
    EXPECT_EQ(field->iterate(iterator, selector, snapshot), 2U);
    EXPECT_EQ(iterator.numbers, Numbers({6, 8}));
    EXPECT_EQ(selector->asked, Names({"-", "-"}));
  }
}

TEST_F(FieldWalkTest, AnIndexIteratorSkipsTheSingleNullCreatorOfAFieldWithoutACollection) {
  const FieldPtr field = makeUnnamedField({});
  field->setCreatorViaFragmentIndex(7, CreatorPtr());
  for (const bool snapshot : {false, true}) {
    RecordingIndexIterator iterator;
    EXPECT_EQ(field->iterate(iterator, everything, snapshot), 0U);
    EXPECT_TRUE(iterator.numbers.empty());
  }
}

TEST_F(FieldWalkTest, AnIndexIteratorHoldsNoLockAndVisitsTheEntriesOfTheStart) {
  for (const bool snapshot : {false, true}) {
    const FieldPtr field = makeField(3);
    field->reserve_fragments(6);
    RecordingIndexIterator iterator;
    iterator.onApply = [&](unsigned int number) { field->setCreatorViaFragmentIndex(100 + number, makeForgetful()); };
    EXPECT_EQ(field->iterate(iterator, everything, snapshot), 3U);
    EXPECT_EQ(iterator.numbers, Numbers({0, 1, 2}));
    EXPECT_EQ(field->nFragments(), 6U);
  }
}

TEST_F(FieldWalkTest, AnIndexIteratorOnTheLiveTableSeesReplacedCreatorsAndOnASnapshotTheFormerOnes) {
  for (const bool snapshot : {false, true}) {
    const FieldPtr field = makeField(2);
    const CreatorPtr former = field->getCreatorByNumericalID(1);
    const CreatorPtr next = makeForgetful();
    RecordingIndexIterator iterator;
    iterator.onApply = [&](unsigned int number) {
      if (number == 0) field->setCreatorViaFragmentIndex(1, next);
    };
    EXPECT_EQ(field->iterate(iterator, everything, snapshot), 2U);
    ASSERT_EQ(iterator.creators.size(), 2U);
    EXPECT_TRUE(iterator.creators[1] == (snapshot ? former : next));
  }
}

TEST_F(FieldWalkTest, AnIndexIteratorThatClearsTheFieldEndsALiveWalkAndNotASnapshot) {
  for (const bool snapshot : {false, true}) {
    const FieldPtr field = makeField(3);
    RecordingIndexIterator iterator;
    iterator.onApply = [&](unsigned int) { field->clear(); };
    EXPECT_EQ(field->iterate(iterator, everything, snapshot), snapshot ? 3U : 1U);
    EXPECT_TRUE(iterator.creators.front()) << "held by the call";
  }
}

// ---------------------------------------------------------------------------------------------- scopes of the profile

/// How often the scope of the copy of the table was opened and closed during `walk`; -1 if there were others.
template <class F>
int countCopies(const F& walk) {
  const TreskTest::ProfilerRecorder profile;
  walk();
  const auto events = profile.events();
  bool expectsBegin = true;
  for (const auto& event : events) {
    if (event.isBegin != expectsBegin || event.scope.name != "Field::getFragmentsCopy()") return -1;
    expectsBegin = !expectsBegin;
  }
  return expectsBegin ? static_cast<int>(events.size() / 2) : -1;
}

TEST_F(FieldWalkTest, ACopyOfTheTableIsAScopeOfTheProfileThatEndsBeforeTheFirstCall) {
  const FieldPtr field = makeField(2);
  const TreskTest::ProfilerRecorder profile;
  std::vector<std::size_t> nEvents;
  field->iterate(
      [&](const FragmentIDPtr&, const CreatorPtr&) {
        nEvents.push_back(profile.events().size());
        return true;
      },
      false, true);
  EXPECT_EQ(nEvents, std::vector<std::size_t>({2, 2}));
  const auto events = profile.events();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_TRUE(events[0].isBegin);
  EXPECT_FALSE(events[1].isBegin);
  for (const auto& event : events) {
    EXPECT_EQ(event.scope.file, "field/Field");
    EXPECT_EQ(event.scope.line, 72);
    EXPECT_EQ(event.scope.function,
              "const Tresk::fragment_copy_t Tresk::getFragmentsCopy(const Field::fragments_t&, "
              "Field::fragment_mutex_t&)");
    EXPECT_EQ(event.scope.name, "Field::getFragmentsCopy()");
    EXPECT_EQ(event.scope.level, 9);
    EXPECT_EQ(event.scope.detail, "");
  }
}

TEST_F(FieldWalkTest, OnlyWalksOverACopyOpenAScope) {
  const FieldPtr named = makeField(2);
  const FieldPtr one = makeUnnamedField({1});
  const FieldPtr two = makeUnnamedField({1, 2});
  const FieldPtr none = makeUnnamedField({});
  const auto f = [](const FragmentIDPtr&, const CreatorPtr&) { return true; };
  for (const Mode& mode : allModes) {
    EXPECT_EQ(countCopies([&] { named->iterate(f, mode.parallel, mode.snapshot); }), mode.snapshot ? 1 : 0);
    EXPECT_EQ(countCopies([&] { one->iterate(f, mode.parallel, mode.snapshot); }), 0);
    EXPECT_EQ(countCopies([&] { two->iterate(f, mode.parallel, mode.snapshot); }), 1);
    EXPECT_EQ(countCopies([&] { none->iterate(f, mode.parallel, mode.snapshot); }), 1);
  }
  RecordingIterator iterator;
  EXPECT_EQ(countCopies([&] { named->iterate(iterator, everything); }), 1);
  EXPECT_EQ(countCopies([&] { one->iterate(iterator, everything); }), 0);
  EXPECT_EQ(countCopies([&] { two->iterate(iterator, everything); }), 0);
  RecordingIndexIterator indexIterator;
  for (const bool snapshot : {false, true}) {
    EXPECT_EQ(countCopies([&] { named->iterate(indexIterator, everything, snapshot); }), snapshot ? 1 : 0);
    EXPECT_EQ(countCopies([&] { two->iterate(indexIterator, everything, snapshot); }), snapshot ? 1 : 0);
  }
}

}  // namespace
