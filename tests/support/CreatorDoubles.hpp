// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Chunks.hpp>

#include <atomic>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace TreskTest {

/// Data of a stated number of bytes that count what happens to them.
class CountingData : public Ostrel::Cacheable {
 public:
  explicit CountingData(int initial = 0, unsigned long long nBytes = 100,
                        const Ostrel::WeakPtr<Ostrel::Creature, Ostrel::Creature>& creator = {})
      : Cacheable(creator), value(initial), nBytes_(nBytes) {
    ++nAlive;
  }
  ~CountingData() override {
    if (isOnCacheList()) ++nListedAtDeath;
    --nAlive;
  }

  unsigned long long memsize() const override { return nBytes_; }
  void DeferredConstructor() override {
    ++nDeferred;
    if (onDeferred) onDeferred(*this);
  }

  /// Objects in the process.
  static inline std::atomic<int> nAlive{0};
  /// Objects that still stood on a cache list when their destructor ran.
  static inline std::atomic<int> nListedAtDeath{0};

  int value;
  int nDeferred = 0;
  std::function<void(CountingData&)> onDeferred;

 private:
  unsigned long long nBytes_;
};

/// Data of another class, which no pointer to `CountingData` can show.
class ForeignData : public Ostrel::Cacheable {
 public:
  ForeignData() : Cacheable(Ostrel::WeakPtr<Ostrel::Creature, Ostrel::Creature>()) {}
  unsigned long long memsize() const override { return 1; }
};

using DataPtr = Ostrel::StrongPtr<CountingData, Ostrel::Cacheable>;
using WeakCreature = Ostrel::WeakPtr<Ostrel::Creature, Ostrel::Creature>;
using WeakCache = Ostrel::WeakPtr<Ostrel::Cache, Ostrel::CacheBase>;
using CachePtr = Ostrel::StrongPtr<Ostrel::Cache, Ostrel::CacheBase>;
using DataCreatorBase = Ostrel::CreatorBase<CountingData>;
using DataProducer = DataCreatorBase::Producer;

/// A creature that answers `release` as it is told and counts the questions.
class CountingCreature : public Ostrel::Creature {
 public:
  explicit CountingCreature(const WeakCache& cache = {}) : Creature(cache) {}

  ReasonForReleasal release() override {
    ++nReleases;
    if (onRelease) onRelease();
    return answer;
  }
  Ostrel::StrongPtr<Ostrel::Cacheable, Ostrel::Cacheable> getCacheable() override { return {}; }

  ReasonForReleasal answer = Released;
  int nReleases = 0;
  std::function<void()> onRelease;
};

/// A producer that makes data by a function and counts the calls.
class CountingProducer : public DataProducer {
 public:
  using Make = std::function<DataPtr(const Ostrel::WeakPtr<DataCreatorBase, Ostrel::Creature>&)>;

  explicit CountingProducer(Make make, const std::string& producerName = "counting")
      : DataProducer(producerName), make_(std::move(make)) {}

  DataPtr produce(const Ostrel::WeakPtr<DataCreatorBase, Ostrel::Creature>& creator) override {
    ++nProductions;
    return make_(creator);
  }
  bool canProduce() override { return canProduceNow; }
  bool isUnderCreation() const override { return isCreating; }

  int nProductions = 0;
  bool canProduceNow = true;
  bool isCreating = false;

 private:
  Make make_;
};

/// Attaches a producer that makes data by `make`, and gives it back for its counts.
inline Ostrel::StrongPtr<CountingProducer, Ostrel::InterfaceBase> attachProducer(const Ostrel::Intercube& creator,
                                                                                 CountingProducer::Make make) {
  const Ostrel::StrongPtr<CountingProducer, Ostrel::InterfaceBase> producer(new CountingProducer(std::move(make)));
  creator.addInterface(producer);
  return producer;
}

/// A creator of one of the two kinds that counts the calls of its operations.
template <template <class, class> class Kind>
class CountingCreator : public Kind<CountingData, DataCreatorBase> {
 public:
  using Base = Kind<CountingData, DataCreatorBase>;
  using Base::Base;

  DataPtr produce() override {
    ++nProductions;
    return Base::produce();
  }
  DataPtr getData() override {
    ++nQuestions;
    return Base::getData();
  }
  Ostrel::Creature::ReasonForReleasal release() override {
    ++nReleases;
    if (onRelease) onRelease();
    return Base::release();
  }

  /// What the creator holds.
  DataPtr& held() { return this->data; }

  // Counted on any thread: the cache asks from wherever it is told to.
  std::atomic<int> nProductions{0};
  std::atomic<int> nQuestions{0};
  std::atomic<int> nReleases{0};
  std::function<void()> onRelease;
};

using KeepingCreator = CountingCreator<Ostrel::Creator>;
using ForgetfulCreator = CountingCreator<Ostrel::AlzheimerCreator>;

template <class C>
using CreatorPtr = Ostrel::StrongPtr<C, Ostrel::Creature>;

}  // namespace TreskTest
