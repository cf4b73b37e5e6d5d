// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/ThreadReaper.hpp>
#include <tresk/foundation/Cache.hpp>

#include <support/AsynchronDoubles.hpp>
#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <random>

/// \file
/// What tests of caches under load need: arrays whose content is known from a number, and a fixture that gives the
/// default cache a limit and sees that everything has gone at the end.

namespace TreskTest {

#if defined(__SANITIZE_THREAD__)
#define TRESK_TEST_IS_SLOW 32
#elif defined(__SANITIZE_ADDRESS__)
#define TRESK_TEST_IS_SLOW 4
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TRESK_TEST_IS_SLOW 32
#elif __has_feature(address_sanitizer)
#define TRESK_TEST_IS_SLOW 4
#endif
#endif
#if !defined(TRESK_TEST_IS_SLOW)
#define TRESK_TEST_IS_SLOW 1
#endif
/// By how much tests under load are smaller, where the code is watched by a sanitizer.
constexpr unsigned long long ShorterBy = TRESK_TEST_IS_SLOW;

/// What the array of a number holds: each element tells the number and its place. The sum of such contents is one of
/// numbers that are exact.
struct KnownContent {
  double number = 0;
  double perElement = 1;  ///< how many arrays have been added up

  double at(std::size_t element) const { return number + perElement * static_cast<double>(element); }
  friend KnownContent operator+(const KnownContent& a, const KnownContent& b) {
    return {a.number + b.number, a.perElement + b.perElement};
  }
};

/// The content of the `i`-th array of a family: no two of them, and no sums of two, agree by accident of a few places.
inline KnownContent knownContent(unsigned int i) { return {1e6 * (i + 1), 1}; }

inline MemBasePtr makeKnownArray(const KnownContent& content, std::size_t nElements) {
  auto* const array = new Tresk::MemArray<1, double>(Tresk::MultiIndex<1>(nElements), CreatorWeakPtr());
  const MemBasePtr held(array);
  double* const elements = array->getTypedChunk()->vector().data();
  for (std::size_t e = 0; e < nElements; ++e) elements[e] = content.at(e);
  return held;
}

/// The elements of an array of rank 1; null for any other array.
inline const std::vector<double>* elementsOf(const MemBasePtr& data) {
  const auto* const array = dynamic_cast<const Tresk::MemArray<1, double>*>(data.get());
  return array == nullptr ? nullptr : &array->getTypedChunk()->vector();
}

/// Whether all elements of an array are as they should be.
inline bool hasContent(const MemBasePtr& data, const KnownContent& content, std::size_t nElements) {
  const std::vector<double>* const elements = elementsOf(data);
  if (elements == nullptr || elements->size() != nElements) return false;
  for (std::size_t e = 0; e < nElements; ++e)
    if ((*elements)[e] != content.at(e)) return false;
  return true;
}
/// The same for the first element, the last one, and fourteen others.
template <class Generator>
bool hasContentAtRandom(const MemBasePtr& data, const KnownContent& content, std::size_t nElements, Generator& random) {
  const std::vector<double>* const elements = elementsOf(data);
  if (elements == nullptr || elements->size() != nElements) return false;
  if (elements->front() != content.at(0) || elements->back() != content.at(nElements - 1)) return false;
  std::uniform_int_distribution<std::size_t> place(0, nElements - 1);
  for (int i = 0; i < 14; ++i) {
    const std::size_t e = place(random);
    if ((*elements)[e] != content.at(e)) return false;
  }
  return true;
}

/// What happened between two looks at a cache: the counts of the second less those of the first.
inline Ostrel::CacheStatistics since(const Ostrel::CacheStatistics& before, Ostrel::CacheStatistics now) {
  using Ostrel::CacheStatistics;
  for (unsigned long long CacheStatistics::*count :
       {&CacheStatistics::nHits, &CacheStatistics::nProductions, &CacheStatistics::nFailures,
        &CacheStatistics::nEntries, &CacheStatistics::nAsked, &CacheStatistics::nEvicted,
        &CacheStatistics::nCannotRelease, &CacheStatistics::nStillInUse, &CacheStatistics::nThrown,
        &CacheStatistics::nBytesGivenBack})
    now.*count -= before.*count;
  return now;
}

/// Watches that a cache keeps its promise at whatever moment it is looked at.
class LimitWatch {
 public:
  explicit LimitWatch(const Ostrel::Cache& cache) : cache_(cache) {}

  /// Looks once, on any thread.
  void look() {
    const Ostrel::CacheStatistics now = cache_.getStatistics();
    nLooks_.fetch_add(1, std::memory_order_relaxed);
    raise(mostHeld_, now.nHeldBytes);
    raise(mostInFlight_, now.nInFlightBytes);
    if (now.nHeldBytes <= now.limit || now.nHeldBytes - now.limit <= now.nInFlightBytes) return;
    raise(worstExcess_, now.nHeldBytes - now.limit - now.nInFlightBytes);
  }

  long long nLooks() const { return nLooks_.load(); }
  unsigned long long mostHeld() const { return mostHeld_.load(); }
  unsigned long long mostInFlight() const { return mostInFlight_.load(); }
  /// Bytes beyond the limit and those in flight, at the worst moment.
  unsigned long long worstExcess() const { return worstExcess_.load(); }

 private:
  static void raise(std::atomic<unsigned long long>& most, unsigned long long value) {
    unsigned long long known = most.load(std::memory_order_relaxed);
    while (known < value && !most.compare_exchange_weak(known, value, std::memory_order_relaxed)) {
    }
  }

  const Ostrel::Cache& cache_;
  std::atomic<long long> nLooks_{0};
  std::atomic<unsigned long long> mostHeld_{0};
  std::atomic<unsigned long long> mostInFlight_{0};
  std::atomic<unsigned long long> worstExcess_{0};
};

/// A test of the default cache, which all computed fields use, with a limit. At the end of the test, when its members
/// have gone, the cache is as it was before: nothing held, nothing in flight, no creator in the books.
class LimitedCacheTest : public RecordBalanceTest {
 protected:
  LimitedCacheTest() : cache(Ostrel::Cache::MemCache()) {
    atStart = cache->getStatistics();
    nCreaturesAtStart_ = cache->nCreatures();
  }
  ~LimitedCacheTest() override {
    joinAll();
    const Ostrel::CacheStatistics now = cache->getStatistics();
    EXPECT_EQ(now.nHeldBytes, atStart.nHeldBytes);
    EXPECT_EQ(now.nInFlightBytes, 0U);
    EXPECT_EQ(cache->nCreatures(), nCreaturesAtStart_);
    cache->setLimit(Ostrel::Cache::NoLimit);
  }

  /// What happened since the beginning of the test.
  Ostrel::CacheStatistics counts() const { return since(atStart, cache->getStatistics()); }

  /// An asynchronous creator whose end `joinAll` waits for, on whatever thread it dies.
  template <class Kind = Tresk::AsynchronCreator>
  KindPtr<Kind> makeAsynchron(const Tresk::AsynchronCreator::Function& function) {
    ++nFunctions_;
    const auto token = makeToken([this] { deadFunctions_.add(); });
    return KindPtr<Kind>(new Kind([function, token](const Flag& isDiscarded) { return function(isDiscarded); }, cache));
  }
  /// Waits until all asynchronous creators are gone, and joins their threads.
  void joinAll() {
    for (; nFunctions_ > 0; --nFunctions_) deadFunctions_.take();
    joinAllThreads();
  }

  const Tresk::CachePtr& cache;
  Ostrel::CacheStatistics atStart;

 private:
  Tokens deadFunctions_;
  int nFunctions_ = 0;
  unsigned long long nCreaturesAtStart_ = 0;
};

}  // namespace TreskTest
