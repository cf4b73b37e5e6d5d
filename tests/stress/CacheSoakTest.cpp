// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ComputationalField.hpp>

#include <support/CacheDoubles.hpp>
#include <support/RaceRunner.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Ostrel::CacheStatistics;
using Tresk::AsynchronCreator;
using Tresk::Field;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::Flag;
using TreskTest::FragmentIDPtr;
using TreskTest::hasContent;
using TreskTest::hasContentAtRandom;
using TreskTest::KindPtr;
using TreskTest::knownContent;
using TreskTest::KnownContent;
using TreskTest::LimitWatch;
using TreskTest::makeKnownArray;
using TreskTest::MemBasePtr;
using TreskTest::RaceRunner;
using TreskTest::WatchedFunctional;

constexpr int nThreads = 8;
/// How often an asynchronous creator is asked whether its data are there.
constexpr int nPolls = 200;

/// Set while this thread calls `produce` by itself, so that what an asynchronous creator makes here is not stored.
thread_local bool isProducingDirectly = false;

/// Such a call, for its scope.
struct DirectProduction {
  DirectProduction() { isProducingDirectly = true; }
  DirectProduction(const DirectProduction&) = delete;
  DirectProduction& operator=(const DirectProduction&) = delete;
  ~DirectProduction() { isProducingDirectly = false; }
};

/// One creator of the soak, and what its data are.
struct Subject {
  CreatorPtr creator;
  KnownContent content;
};

/// How much is asked of the cache. All arrays are equally large.
struct Load {
  unsigned int nCreators;
  std::size_t nElements;
  unsigned long long limit;
  unsigned long long nAccesses;
};

/// Creators of all kinds in the default cache, and threads that read them at random. A tenth of the creators takes half
/// of the accesses.
class CacheSoakTest : public TreskTest::LimitedCacheTest {
 protected:
  void build(const Load& load) {
    load_ = load;
    nBytesEach_ = load.nElements * sizeof(double);
    cache->setLimit(load.limit);
    const unsigned int n = load.nCreators / 10;
    const FieldPtr left(new Field);
    const FieldPtr right((new Field(Tresk::FieldWeakPtr(left))));
    all_ = FieldPtr(new Field);
    all_->reserve_fragments(load.nCreators);
    for (unsigned int i = 0; i < 2 * n; ++i) add(makeFunctional(nextContent()));
    for (unsigned int i = 0; i < 2 * n; ++i) add(makeAsynchron(nextContent()));
    for (unsigned int i = 0; i < 2 * n; ++i) add(makeReloaded(nextContent()));
    // Sums of a creator of two of these kinds each, in turn.
    for (unsigned int i = 0; i < 2 * n; ++i) add(makeSum(subjects_[i], subjects_[2 * n + (i * 7) % (4 * n)]));
    // The right operands are among those that threads read, and the left ones are read by the computed field alone.
    std::vector<KnownContent> sums;
    for (unsigned int i = 0; i < 2 * n; ++i) {
      const Subject operand = makeWatched(nextContent());
      const Subject& other = subjects_[(i * 3) % (6 * n)];
      const FragmentIDPtr fragment = left->makeFragmentID(std::to_string(i));
      left->setCreator(operand.creator, fragment);
      right->setCreator(other.creator, fragment);
      sums.push_back(operand.content + other.content);
    }
    computed_ = Tresk::addFields(left, right);
    for (unsigned int i = 0; i < 2 * n; ++i) add({computed_->getCreatorByNumericalID(i), sums[i]});
    left_ = left;
    std::shuffle(subjects_.begin(), subjects_.end(), std::mt19937(4711));
    for (const Subject& subject : subjects_) {
      const std::string name = std::to_string(all_->nFragments());
      all_->setCreator(subject.creator, all_->makeFragmentID(name));
    }
  }

  /// Reads `nAccesses` arrays on eight threads, with a walk, a thread that only requests, and one that watches the
  /// limit beside them.
  void run() {
    LimitWatch watch(*cache);
    std::atomic<int> nReading{nThreads};
    RaceRunner race;
    race.add(nThreads, [&](int thread) {
      struct Leave {
        std::atomic<int>& nReading;
        ~Leave() { --nReading; }
      } const leave{nReading};
      std::mt19937 random(static_cast<unsigned int>(thread) + 1);
      for (unsigned long long i = 0; i < load_.nAccesses / nThreads; ++i) {
        readOne(pick(random), i, random);
        nRead_.fetch_add(1, std::memory_order_relaxed);
        if (i % 32 == 0) watch.look();
      }
    });
    race.add([&](int) {
      do walk(watch, nReading);
      while (nReading > 0);
    });
    race.add([&](int) {
      std::mt19937 random(99);
      for (unsigned long long i = 0; nReading > 0; ++i) {
        const Subject& subject = pick(random);
        if (!subject.creator->hasData() && subject.creator->request({})) ++nRequests_;
        if (i % 8 == 0) watch.look();
        keepPace(32 * i, nReading);
      }
    });
    race.add([&](int) {
      while (nReading > 0) {
        watch.look();
        for (int i = 0; i < 16; ++i) std::this_thread::yield();
      }
    });
    race.run();
    waitForThreads();
    watch.look();
    EXPECT_EQ(nWrong_, 0U) << "arrays that were not what they should be";
    EXPECT_EQ(watch.worstExcess(), 0U) << "bytes beyond the limit and those in flight, of " << watch.nLooks()
                                       << " looks";
    RecordProperty("looks", std::to_string(watch.nLooks()));
    RecordProperty("most_held_bytes", std::to_string(watch.mostHeld()));
    RecordProperty("most_in_flight_bytes", std::to_string(watch.mostInFlight()));
    RecordProperty("walked", std::to_string(nWalked_));
    mostHeld_ = watch.mostHeld();
    mostInFlight_ = watch.mostInFlight();
  }

  /// What holds of the books when all threads have come to rest.
  void expectSoundBooks() {
    const CacheStatistics now = counts();
    EXPECT_LE(now.nHeldBytes, now.limit);
    EXPECT_EQ(now.nInFlightBytes, 0U);
    EXPECT_EQ(now.nAsked, now.nEvicted + now.nCannotRelease + now.nStillInUse + now.nThrown);
    EXPECT_EQ(now.nCannotRelease, 0U);
    EXPECT_EQ(now.nThrown, 0U);
    EXPECT_EQ(now.nFailures, 0U);
    EXPECT_LE(now.nBytesGivenBack, now.nEvicted * nBytesEach_);
    EXPECT_EQ(now.nBytesGivenBack % nBytesEach_, 0U);
    EXPECT_GT(now.nEvicted, 0U);
    // Each array that a function has made has entered the cache once, but those that `produce` gave to its caller.
    EXPECT_EQ(now.nProductions + now.nEntries, nMade_ + nComputed() - nUnlisted_);
    EXPECT_GT(now.nHits, 0U);
  }

  /// Writes what a reader of the documentation wants to know.
  void report() const {
    const CacheStatistics now = counts();
    std::cout << "accesses " << nAccesses_ + nOperands_ + 2 * nComputed() << ", threads " << nRunsOnThreads_
              << ", hits " << now.nHits << ", productions " << now.nProductions << ", evictions asked " << now.nAsked
              << ", done " << now.nEvicted << ", in use " << now.nStillInUse << ", most held bytes " << mostHeld_
              << ", most in flight " << mostInFlight_ << '\n';
  }

  /// Forgets everything. What is in the books is at an end then.
  void dropAll() {
    subjects_.clear();
    all_.reset();
    computed_.reset();
    left_.reset();
    joinAll();
    EXPECT_EQ(cache->getStatistics().nHeldBytes, atStart.nHeldBytes);
    EXPECT_EQ(nLiveSinceStart(), 0) << "records of creators, fields or arrays";
  }

 private:
  KnownContent nextContent() { return knownContent(nContents_++); }
  void add(const Subject& subject) { subjects_.push_back(subject); }

  MemBasePtr make(const KnownContent& content) {
    MemBasePtr made = makeKnownArray(content, load_.nElements);
    nMade_.fetch_add(1, std::memory_order_relaxed);
    return made;
  }

  Subject makeFunctional(const KnownContent& content) {
    return {CreatorPtr(new Tresk::FunctionalCreator([this, content] { return make(content); }, false, cache)), content};
  }
  Subject makeWatched(const KnownContent& content) {
    const KindPtr<WatchedFunctional> creator(
        new WatchedFunctional([this, content] { return make(content); }, false, cache));
    creator->addMetaInfo(1, Tresk::getTreskType<double>());
    return {creator, content};
  }
  Subject makeAsynchron(const KnownContent& content) {
    return {LimitedCacheTest::makeAsynchron([this, content](const Flag&) {
              if (isProducingDirectly) nUnlisted_.fetch_add(1, std::memory_order_relaxed);
              return make(content);
            }),
            content};
  }
  /// Data that exist, and can be brought back.
  Subject makeReloaded(const KnownContent& content) {
    const CreatorPtr creator(new Tresk::CreativeArray(make(content), cache));
    creator->addInterface(ReloaderPtr(new Reloader([this, content] { return make(content); })));
    return {creator, content};
  }
  Subject makeSum(const Subject& a, const Subject& b) {
    const TreskTest::SharedComputer computer([this, a, b](const Tresk::CreatorWeakPtr&) {
      nOperands_.fetch_add(2, std::memory_order_relaxed);
      const MemBasePtr left = a.creator->create(false);
      const MemBasePtr right = b.creator->create(false);
      if (!left || !right || left->nElements() != load_.nElements || right->nElements() != load_.nElements) ++nWrong_;
      return make(a.content + b.content);
    });
    using OnDemand = Tresk::OnDemandCreator<TreskTest::SharedComputer, 1, double>;
    return {CreatorPtr(new OnDemand(computer, cache)), a.content + b.content};
  }

  /// A producer that several threads may ask at once.
  class Reloader : public Ostrel::CreatorBase<Tresk::MemBase>::Producer {
   public:
    explicit Reloader(std::function<MemBasePtr()> make) : Producer("reloader"), make_(std::move(make)) {}
    MemBasePtr produce(const Ostrel::WeakPtr<Ostrel::CreatorBase<Tresk::MemBase>, Ostrel::Creature>&) override {
      return make_();
    }
    bool canProduce() override { return true; }
    bool isUnderCreation() const override { return false; }

   private:
    std::function<MemBasePtr()> make_;
  };
  using ReloaderPtr = Ostrel::StrongPtr<Reloader, Ostrel::InterfaceBase>;

  /// Computations of the computed field: each asks its left operand once, and nobody else does.
  unsigned long long nComputed() const {
    unsigned long long n = 0;
    left_->iterate(
        [&](const FragmentIDPtr&, const CreatorPtr& creator) {
          // A cache that asks for data looks first whether they are there, which is a question too.
          const auto& operand = dynamic_cast<const WatchedFunctional&>(*creator);
          n += static_cast<unsigned long long>(operand.nQuestions - operand.nCacheableQuestions);
          return true;
        },
        false, true);
    return n;
  }

  template <class Generator>
  const Subject& pick(Generator& random) const {
    const std::size_t nHot = subjects_.size() / 10;
    const std::size_t n = random() % 2 == 0 ? nHot : subjects_.size();
    return subjects_[random() % n];
  }

  /// Gets the data of a creator, by one of the ways that there are, and checks them: sixteen places each time, and all
  /// of them now and then.
  template <class Generator>
  void readOne(const Subject& subject, unsigned long long i, Generator& random) {
    const MemBasePtr data = get(*subject.creator, random);
    const bool isRight = i % 64 == 0 ? hasContent(data, subject.content, load_.nElements)
                                     : hasContentAtRandom(data, subject.content, load_.nElements, random);
    if (!isRight) ++nWrong_;
  }
  template <class Generator>
  MemBasePtr get(Tresk::CreativeArrayBase& creator, Generator& random) {
    auto* const asynchron = dynamic_cast<AsynchronCreator*>(&creator);
    const unsigned int way = asynchron == nullptr ? 0 : static_cast<unsigned int>(random() % 8);
    if (way == 1) {
      const DirectProduction direct;
      return creator.produce();
    }
    if (way > 1) {
      creator.request({});
      for (int i = 0; i < nPolls && !creator.hasData(); ++i) std::this_thread::yield();
      if (MemBasePtr data = creator.getData()) return data;
    }
    nAccesses_.fetch_add(1, std::memory_order_relaxed);
    return creator.create(false);
  }

  /// Waits until the readers have come to some number of accesses.
  void keepPace(unsigned long long nAccesses, const std::atomic<int>& nReading) const {
    while (nReading > 0 && nRead_.load(std::memory_order_relaxed) < nAccesses) std::this_thread::yield();
  }

  /// Produces each array under the shared lock of a field.
  void walk(LimitWatch& watch, const std::atomic<int>& nReading) {
    std::size_t i = 0;
    all_->iterate(
        [&](const FragmentIDPtr&, const CreatorPtr& creator) {
          nAccesses_.fetch_add(1, std::memory_order_relaxed);
          const MemBasePtr data = creator->create(false);
          if (!hasContent(data, subjects_[i++].content, load_.nElements)) ++nWrong_;
          watch.look();
          keepPace(16 * ++nWalked_, nReading);
          return true;
        },
        false, false);
  }

  /// Waits until no asynchronous creator works any more, and its thread has let its last data go.
  void waitForThreads() {
    for (const Subject& subject : subjects_)
      if (auto* const creator = dynamic_cast<AsynchronCreator*>(subject.creator.get())) {
        while (creator->isUnderCreation()) std::this_thread::yield();
        nRunsOnThreads_ += creator->nCreations();
      }
    while (cache->getStatistics().nInFlightBytes != 0) std::this_thread::yield();
  }

  Load load_{};
  unsigned long long nBytesEach_ = 0;
  unsigned int nContents_ = 0;
  std::vector<Subject> subjects_;
  FieldPtr all_;       ///< of all creators that are read, in their order
  FieldPtr computed_;  ///< sums by a computed field
  FieldPtr left_;      ///< its left operand
  std::atomic<unsigned long long> nWrong_{0};
  std::atomic<unsigned long long> nMade_{0};
  std::atomic<unsigned long long> nUnlisted_{0};
  std::atomic<unsigned long long> nOperands_{0};
  std::atomic<unsigned long long> nAccesses_{0};
  std::atomic<unsigned long long> nRead_{0};
  std::atomic<unsigned long long> nRequests_{0};
  std::atomic<unsigned long long> nWalked_{0};
  long long nRunsOnThreads_ = 0;
  unsigned long long mostHeld_ = 0;
  unsigned long long mostInFlight_ = 0;
};

TEST_F(CacheSoakTest, EightThreadsReadAThousandCreatorsOfAllKindsAndTheLimitHolds) {
  build({.nCreators = 1000, .nElements = 8192, .limit = 16ULL << 20, .nAccesses = 1'000'000 / TreskTest::ShorterBy});
  run();
  expectSoundBooks();
  dropAll();
}

/// As large as a program may be. Takes a while: run by hand, in an optimised build.
TEST_F(CacheSoakTest, DISABLED_EightThreadsReadAGigabyteUnderAQuarterOfIt) {
  const auto begin = std::chrono::steady_clock::now();
  build({.nCreators = 1000, .nElements = 131072, .limit = 250ULL << 20, .nAccesses = 100'000});
  run();
  std::cout << std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count() << " s\n"
            << cache->describe();
  report();
  expectSoundBooks();
  dropAll();
}

}  // namespace
