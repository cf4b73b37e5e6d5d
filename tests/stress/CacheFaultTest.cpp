// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <support/CacheDoubles.hpp>
#include <support/RaceRunner.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Ostrel::CacheStatistics;
using Ostrel::Creature;
using Tresk::AsynchronCreator;
using Tresk::CreativeArrayBase;
using Tresk::Field;
using TreskTest::CreatorPtr;
using TreskTest::FieldOwner;
using TreskTest::FieldPtr;
using TreskTest::Flag;
using TreskTest::hasContent;
using TreskTest::hasContentAtRandom;
using TreskTest::KindPtr;
using TreskTest::knownContent;
using TreskTest::KnownContent;
using TreskTest::LimitWatch;
using TreskTest::makeKnownArray;
using TreskTest::MemBasePtr;
using TreskTest::RaceRunner;
using TreskTest::ShorterBy;

constexpr int nThreads = 8;
constexpr std::size_t nElements = 512;
constexpr unsigned long long nBytesEach = nElements * sizeof(double);
/// Creators of each kind.
constexpr unsigned int nOfKind = 40;

/// An exception that can be told from all others.
class NumberedFailure : public std::runtime_error {
 public:
  explicit NumberedFailure(long long number)
      : std::runtime_error("failure number " + std::to_string(number)), number_(number) {}
  long long number() const { return number_; }

 private:
  long long number_;
};

/// What the functions of a test do on one thread: fail now and then, in a way that depends on the thread alone.
struct Luck {
  explicit Luck(unsigned int seed) : random(seed) {}

  std::mt19937 random;
  std::vector<long long> thrown;        ///< numbers of the failures of this thread that callers have to see
  std::vector<long long> caught;        ///< those that have come to this thread as a caller
  unsigned long long nOutOfMemory = 0;  ///< `std::bad_alloc` less what was caught of it
  unsigned long long nFailed = 0;       ///< calls of `create` that threw or gave nothing
};

/// That of a thread of the test; null on the threads of asynchronous creators.
thread_local Luck* luck = nullptr;

/// Gives a thread its luck for a while.
class Gambling {
 public:
  explicit Gambling(Luck& mine) { luck = &mine; }
  Gambling(const Gambling&) = delete;
  Gambling& operator=(const Gambling&) = delete;
  ~Gambling() { luck = nullptr; }
};

/// Creators whose functions fail with a probability of one in ten each: by an exception, and by yielding nothing.
class CacheFaultTest : public TreskTest::LimitedCacheTest {
 protected:
  struct Subject {
    CreatorPtr creator;
    KnownContent content;
    /// Held by who calls `create`, where creators leave it to the program that one thread at a time produces.
    std::shared_ptr<std::mutex> production = nullptr;
  };

  CacheFaultTest() {
    for (unsigned int i = 0; i < nThreads + 1; ++i) lucks_.push_back(std::make_unique<Luck>(i + 1));
    saver_ = Ostrel::StrongPtr<Saver, FieldOwner>(new Saver(*this));
    field_->addOwner(saver_);
  }

  /// An array, unless the function fails this time.
  MemBasePtr make(const KnownContent& content) {
    if (Luck* const mine = isUnlucky_ ? luck : nullptr) {
      switch (mine->random() % 30) {
        case 0:
        case 1:
        case 2:
          mine->thrown.push_back(++nNumbers_);
          throw NumberedFailure(mine->thrown.back());
        case 3:
          ++mine->nOutOfMemory;
          throw std::bad_alloc();
        case 4:
        case 5:
        case 6:
          return MemBasePtr();
        default:
          break;
      }
    }
    ++nMade_;
    return makeKnownArray(content, nElements);
  }

  /// `create`, and what it comes to.
  MemBasePtr createCounted(const Subject& subject) {
    std::unique_lock<std::mutex> lock;
    if (subject.production) lock = std::unique_lock(*subject.production);
    try {
      MemBasePtr data = subject.creator->create(false);
      if (!data && luck != nullptr) ++luck->nFailed;
      return data;
    } catch (...) {
      if (luck != nullptr) ++luck->nFailed;
      throw;
    }
  }

  void addFunctional() {
    const KnownContent content = nextContent();
    add({CreatorPtr(new Tresk::FunctionalCreator([this, content] { return make(content); }, false, cache)), content});
  }
  /// Data that are dirty for good, as their saver does not say that it saved them.
  void addDirty() {
    const KnownContent content = nextContent();
    const CreatorPtr creator(new Tresk::CreativeArray(make(content), cache));
    class Reloader : public Ostrel::CreatorBase<Tresk::MemBase>::Producer {
     public:
      explicit Reloader(std::function<MemBasePtr()> make) : Producer("reloader"), make_(std::move(make)) {}
      MemBasePtr produce(const Ostrel::WeakPtr<Ostrel::CreatorBase<Tresk::MemBase>, Creature>&) override {
        return make_();
      }
      bool canProduce() override { return true; }
      bool isUnderCreation() const override { return false; }

     private:
      std::function<MemBasePtr()> make_;
    };
    creator->addInterface(
        Ostrel::StrongPtr<Reloader, Ostrel::InterfaceBase>(new Reloader([this, content] { return make(content); })));
    add({creator, content, std::make_shared<std::mutex>()});
  }
  void addSum(const Subject& a, const Subject& b) {
    const TreskTest::SharedComputer computer([this, a, b](const Tresk::CreatorWeakPtr&) {
      const MemBasePtr left = createCounted(a);
      if (!left) return MemBasePtr();
      const MemBasePtr right = createCounted(b);
      return right ? make(a.content + b.content) : MemBasePtr();
    });
    using OnDemand = Tresk::OnDemandCreator<TreskTest::SharedComputer, 1, double>;
    add({CreatorPtr(new OnDemand(computer, cache)), a.content + b.content});
  }
  /// Functional creators, dirty arrays in a field whose owner fails to save one time in ten, and sums of both.
  void addSynchronous() {
    cache->setLimit(nOfKind * nBytesEach);
    for (unsigned int i = 0; i < nOfKind; ++i) addFunctional();
    for (unsigned int i = 0; i < nOfKind; ++i) addDirty();
    for (unsigned int i = 0; i < nOfKind; ++i) addSum(subjects[i], subjects[nOfKind + i]);
  }
  void add(const Subject& subject) {
    const std::string name = std::to_string(subjects.size());
    field_->setCreator(subject.creator, field_->makeFragmentID(name));
    subjects.push_back(subject);
  }
  KnownContent nextContent() { return knownContent(nContents_++); }

  /// Reads one array, and notes what comes instead.
  void read(const Subject& subject) {
    try {
      const MemBasePtr data = createCounted(subject);
      if (data && !hasContentAtRandom(data, subject.content, nElements, luck->random)) ++nWrong;
      ++nReads;
    } catch (const NumberedFailure& failure) {
      luck->caught.push_back(failure.number());
    } catch (const std::bad_alloc&) {
      --luck->nOutOfMemory;
    }
  }

  /// Runs `body` on eight threads with luck of their own, and `beside` on a ninth, until those are at an end.
  void runUnlucky(const std::function<void()>& body, const std::function<void()>& beside) {
    std::atomic<int> nRunning{nThreads};
    isUnlucky_ = true;
    RaceRunner race;
    race.add(nThreads, [&](int thread) {
      struct Leave {
        std::atomic<int>& nRunning;
        ~Leave() { --nRunning; }
      } const leave{nRunning};
      const Gambling gambling(*lucks_[static_cast<std::size_t>(thread)]);
      body();
    });
    race.add([&](int thread) {
      const Gambling gambling(*lucks_[static_cast<std::size_t>(thread)]);
      while (nRunning > 0) beside();
    });
    race.run();
    isUnlucky_ = false;
  }

  /// Each thread has caught what its own functions threw, and nothing else, in that order.
  void expectEachCallerHasCaughtItsOwn() const {
    for (const auto& one : lucks_) {
      EXPECT_EQ(one->thrown, one->caught);
      EXPECT_EQ(one->nOutOfMemory, 0U);
    }
  }
  unsigned long long nFailed() const {
    unsigned long long n = 0;
    for (const auto& one : lucks_) n += one->nFailed;
    return n;
  }
  unsigned long long nThrown() const {
    unsigned long long n = 0;
    for (const auto& one : lucks_) n += one->thrown.size();
    return n;
  }

  /// With all luck, each creator yields what it should.
  void expectNoCreatorIsLost() {
    for (const Subject& subject : subjects)
      EXPECT_TRUE(hasContent(subject.creator->create(false), subject.content, nElements));
    EXPECT_EQ(cache->nCreatures(), nCreaturesBefore_ + subjects.size());
  }
  void expectSoundBooks() const {
    const CacheStatistics now = counts();
    EXPECT_LE(now.nHeldBytes, now.limit);
    EXPECT_EQ(now.nInFlightBytes, 0U);
    EXPECT_EQ(now.nAsked, now.nEvicted + now.nCannotRelease + now.nStillInUse + now.nThrown);
    EXPECT_EQ(now.nCannotRelease, 0U);
    EXPECT_GT(now.nEvicted, 0U);
    EXPECT_EQ(now.nProductions + now.nEntries, nMade_) << "each array has entered once";
  }
  void dropAll() {
    subjects.clear();
    field_.reset();
    saver_.reset();
    joinAll();
    EXPECT_EQ(cache->getStatistics().nHeldBytes, atStart.nHeldBytes);
    EXPECT_EQ(nLiveSinceStart(), 0);
  }

  /// An owner of the field that saves nothing, and fails one time in ten.
  class Saver : public FieldOwner {
   public:
    explicit Saver(CacheFaultTest& test) : test_(test) {}
    bool processOwnership(Ostrel::Intercube&, const Ostrel::Intercube&) const override {
      ++test_.nSaves;
      // Each tenth call of all threads: what savers do must not change what producers do.
      if (test_.isUnlucky_ && luck != nullptr && ++nCalls_ % 10 == 0) {
        ++test_.nSavesFailed;
        ++test_.nSavesFailedHere();
        throw std::logic_error("the saver is out of order, and says so at some length");
      }
      return true;
    }
    void forEachOwner(void*) override {}

   private:
    CacheFaultTest& test_;
    mutable std::atomic<long long> nCalls_{0};
  };

  /// Saves that failed on this thread.
  static unsigned long long& nSavesFailedHere() {
    static thread_local unsigned long long n = 0;
    return n;
  }

  std::vector<Subject> subjects;
  std::atomic<unsigned long long> nWrong{0};
  std::atomic<unsigned long long> nReads{0};
  std::atomic<unsigned long long> nSaves{0};
  std::atomic<unsigned long long> nSavesFailed{0};

 private:
  FieldPtr field_{new Field};
  Ostrel::StrongPtr<Saver, FieldOwner> saver_;
  std::vector<std::unique_ptr<Luck>> lucks_;
  std::atomic<bool> isUnlucky_{false};
  std::atomic<long long> nNumbers_{0};
  std::atomic<unsigned long long> nMade_{0};
  unsigned int nContents_ = 0;
  const unsigned long long nCreaturesBefore_ = cache->nCreatures();
};

TEST_F(CacheFaultTest, ExceptionsOfProducersReachTheCallersWhoAskedAndNobodyElse) {
  addSynchronous();
  LimitWatch watch(*cache);
  runUnlucky(
      [&] {
        for (unsigned long long i = 0; i < 40000 / ShorterBy; ++i) read(subjects[luck->random() % subjects.size()]);
      },
      [&] {
        watch.look();
        std::this_thread::yield();
      });
  EXPECT_EQ(nWrong, 0U);
  EXPECT_EQ(watch.worstExcess(), 0U);
  expectEachCallerHasCaughtItsOwn();
  EXPECT_GT(nThrown(), 100U);
  EXPECT_EQ(counts().nFailures, nFailed());
  EXPECT_EQ(counts().nThrown, nSavesFailed) << "savers that the cache itself has called";
  EXPECT_GT(nSavesFailed, 0U);
  EXPECT_GT(nSaves, nSavesFailed);
  EXPECT_GT(nReads, 0U);
  expectNoCreatorIsLost();
  expectSoundBooks();
  dropAll();
}

TEST_F(CacheFaultTest, ExceptionsOfSaversReachWhoeverTrimsAndAreCountedWhereNobodyAsked) {
  addSynchronous();
  unsigned long long nCaught = 0;
  unsigned long long nTrims = 0;
  unsigned long long nTrimsWithFailures = 0;
  runUnlucky(
      [&] {
        for (unsigned long long i = 0; i < 20000 / ShorterBy; ++i) read(subjects[luck->random() % subjects.size()]);
      },
      [&] {
        const unsigned long long nFailedBefore = nSavesFailedHere();
        ++nTrims;
        try {
          if (nTrims % 2 == 0)
            cache->trim(4 * nBytesEach);
          else
            cache->enforceLimit();
        } catch (const std::logic_error&) {
          ++nCaught;
        }
        // Whatever the trim had to look at again afterwards belongs to it, too.
        if (nSavesFailedHere() != nFailedBefore) ++nTrimsWithFailures;
      });
  EXPECT_EQ(nWrong, 0U);
  expectEachCallerHasCaughtItsOwn();
  EXPECT_GT(nCaught, 0U);
  EXPECT_EQ(nCaught, nTrimsWithFailures);
  EXPECT_EQ(counts().nThrown, nSavesFailed);
  EXPECT_EQ(counts().nFailures, nFailed());
  expectNoCreatorIsLost();
  expectSoundBooks();
  dropAll();
}

// ------------------------------------------------------------------------------------------ asynchronous creators

/// Asynchronous creators whose functions fail on their threads too.
class AsynchronFaultTest : public CacheFaultTest {
 protected:
  using AsynchronPtr = KindPtr<AsynchronCreator>;

  /// An asynchronous creator, and what has happened to it.
  struct Record {
    AsynchronPtr creator;
    KnownContent content;
    std::atomic<long long> thrownOnThread{0};  ///< the number of the failure that came to its end on the thread
    std::atomic<int> nThrownOnThread{0};
    std::atomic<int> nRethrown{0};  ///< how often a caller has caught it
    std::mt19937 random;            ///< of the function on the thread: there is only one at a time
  };

  ~AsynchronFaultTest() override { records.clear(); }

  void addAsynchron() {
    Record& record = *records.emplace_back(std::make_unique<Record>());
    record.content = nextContent();
    record.random.seed(static_cast<unsigned int>(records.size()));
    record.creator = makeAsynchron([this, &record](const Flag&) {
      if (luck != nullptr || !isThreadUnlucky) return make(record.content);
      switch (record.random() % 10) {
        case 0:
          record.thrownOnThread = -1 - ++nNumbersOfThreads_;
          ++record.nThrownOnThread;
          ++nFailedOnThreads;
          throw NumberedFailure(record.thrownOnThread);
        case 1:
          ++nFailedOnThreads;
          return MemBasePtr();
        default:
          return make(record.content);
      }
    });
    add({record.creator, record.content});
  }

  void readAsynchron(Record& record) {
    try {
      if (luck->random() % 2 == 0 && record.creator->request({})) ++nRequests;
      const MemBasePtr data = createCounted({record.creator, record.content});
      if (data && !hasContentAtRandom(data, record.content, nElements, luck->random)) ++nWrong;
    } catch (const NumberedFailure& failure) {
      note(record, failure);
    } catch (const std::bad_alloc&) {
      --luck->nOutOfMemory;
    }
  }
  /// A failure of a thread has a number below zero, and belongs to its creator.
  void note(Record& record, const NumberedFailure& failure) {
    if (failure.number() > 0)
      luck->caught.push_back(failure.number());
    else if (failure.number() == record.thrownOnThread)
      ++record.nRethrown;
    else
      ++nWrong;
  }

  static void waitForEnd(const Record& record) {
    while (record.creator->isUnderCreation() && record.nThrownOnThread == 0) std::this_thread::yield();
  }

  std::vector<std::unique_ptr<Record>> records;
  std::atomic<bool> isThreadUnlucky{true};
  std::atomic<unsigned long long> nRequests{0};
  std::atomic<unsigned long long> nFailedOnThreads{0};

 private:
  std::atomic<long long> nNumbersOfThreads_{0};
};

TEST_F(AsynchronFaultTest, FailedCreatorsStayStuckAndTheirExceptionIsRethrownOnce) {
  constexpr unsigned int n = 200;
  cache->setLimit(n / 4 * nBytesEach);
  for (unsigned int i = 0; i < n; ++i) addAsynchron();
  LimitWatch watch(*cache);
  runUnlucky(
      [&] {
        for (unsigned long long i = 0; i < 8000 / ShorterBy; ++i) readAsynchron(*records[luck->random() % n]);
      },
      [&] {
        watch.look();
        std::this_thread::yield();
      });
  isThreadUnlucky = false;
  for (const auto& record : records) waitForEnd(*record);
  EXPECT_EQ(nWrong, 0U);
  EXPECT_EQ(watch.worstExcess(), 0U);
  expectEachCallerHasCaughtItsOwn();

  int nStuck = 0;
  int nFailures = 0;
  unsigned long long nFailedAtLast = 0;
  for (const auto& record : records) {
    AsynchronCreator& creator = *record->creator;
    nFailures += record->nThrownOnThread;
    if (record->nThrownOnThread == 0) {
      EXPECT_FALSE(creator.isUnderCreation());
      continue;
    }
    ++nStuck;
    EXPECT_EQ(record->nThrownOnThread, 1) << "no thread comes to a stuck creator";
    EXPECT_TRUE(creator.isUnderCreation());
    EXPECT_EQ(creator.release(), Creature::StillInUse);
    EXPECT_FALSE(creator.request({}));
    EXPECT_FALSE(creator.hasData());
    // Whom nobody has asked since has kept his exception for now.
    if (record->nRethrown == 0) {
      ++nFailedAtLast;
      EXPECT_THROW(creator.create(false), NumberedFailure);
      ++record->nRethrown;
    }
    EXPECT_EQ(record->nRethrown, 1);
    EXPECT_TRUE(hasContent(creator.create(false), record->content, nElements)) << "runs the function each time";
    EXPECT_FALSE(creator.hasData());
    EXPECT_TRUE(creator.isUnderCreation());
  }
  EXPECT_EQ(nStuck, nFailures);
  EXPECT_GT(nStuck, 0);
  EXPECT_GT(nRequests, 0U);
  EXPECT_EQ(counts().nFailures, nFailed() + nFailedOnThreads + nFailedAtLast);
  EXPECT_EQ(counts().nThrown, 0U);
  expectNoCreatorIsLost();
  while (cache->getStatistics().nInFlightBytes != 0) std::this_thread::yield();
  expectSoundBooks();
  records.clear();
  dropAll();
}

TEST_F(AsynchronFaultTest, SumsOverStuckCreatorsGoOn) {
  constexpr unsigned int n = 40;
  cache->setLimit(n / 2 * nBytesEach);
  for (unsigned int i = 0; i < n; ++i) addAsynchron();
  for (unsigned int i = 0; i < n; ++i) addSum(subjects[i], subjects[(i + 1) % n]);
  runUnlucky(
      [&] {
        for (unsigned long long i = 0; i < 8000 / ShorterBy; ++i) {
          const std::size_t which = luck->random() % subjects.size();
          if (which < n) {
            readAsynchron(*records[which]);
            continue;
          }
          try {
            const MemBasePtr data = createCounted(subjects[which]);
            if (data && !hasContentAtRandom(data, subjects[which].content, nElements, luck->random)) ++nWrong;
          } catch (const NumberedFailure& failure) {
            Record& left = *records[which - n];
            note(failure.number() == left.thrownOnThread ? left : *records[(which - n + 1) % n], failure);
          } catch (const std::bad_alloc&) {
            --luck->nOutOfMemory;
          }
        }
      },
      [] { std::this_thread::yield(); });
  isThreadUnlucky = false;
  for (const auto& record : records) waitForEnd(*record);
  EXPECT_EQ(nWrong, 0U);
  expectEachCallerHasCaughtItsOwn();
  int nStuck = 0;
  for (const auto& record : records) {
    EXPECT_LE(record->nRethrown, record->nThrownOnThread);
    EXPECT_EQ(record->creator->isUnderCreation(), record->nThrownOnThread == 1);
    if (record->nThrownOnThread == 0) continue;
    ++nStuck;
    if (record->nRethrown == 0) {
      EXPECT_THROW(record->creator->produce(), NumberedFailure);
    }
  }
  EXPECT_GT(nStuck, 0);
  EXPECT_EQ(counts().nFailures, nFailed() + nFailedOnThreads);
  expectNoCreatorIsLost();
  while (cache->getStatistics().nInFlightBytes != 0) std::this_thread::yield();
  expectSoundBooks();
  records.clear();
  dropAll();
}

}  // namespace
