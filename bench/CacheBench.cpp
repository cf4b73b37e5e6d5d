// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Harness.hpp"

#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/foundation/Chunks.hpp>

#include <omp.h>

#include <memory>
#include <utility>
#include <vector>

namespace TreskBench {
namespace {

using CachePtr = Ostrel::StrongPtr<Ostrel::Cache, Ostrel::CacheBase>;
using Tresk::CreatorPtr;
using Tresk::FunctionalCreator;
using Tresk::MemArray;
using Tresk::MemBase;
using Tresk::MemBasePtr;
using Tresk::MultiIndex;

constexpr unsigned long long NoLimit = Ostrel::Cache::NoLimit;

/// An array of `n` doubles, written once: the cheapest production that there is.
MemBasePtr fill(unsigned long long n) {
  const Ostrel::StrongPtr<MemArray<1, double>, Ostrel::Cacheable> array(
      new MemArray<1, double>(MultiIndex<1>(n), Tresk::CreatorWeakPtr()));
  double* const values = static_cast<double*>(array->getChunk()->data());
  for (unsigned long long i = 0; i < n; ++i) values[i] = static_cast<double>(i);
  return array;
}

/// Creators of one cache, with data.
struct Filled {
  explicit Filled(std::size_t nCreators, unsigned long long nElements = 8) : cache(new Ostrel::Cache) {
    for (std::size_t i = 0; i < nCreators; ++i) {
      creators.emplace_back(new FunctionalCreator([nElements] { return fill(nElements); }, false, cache));
      slots.push_back(creators.back()->create(false));
    }
  }
  CachePtr cache;
  std::vector<CreatorPtr> creators;
  std::vector<MemBasePtr> slots;
};

void hit(benchmark::State& state, std::size_t nCreators) {
  const Filled filled(nCreators);
  std::size_t i = 0;
  for (auto _ : state) {
    const MemBasePtr data = filled.creators[i]->create(false);
    benchmark::DoNotOptimize(&data);
    if (++i == nCreators) i = 0;
  }
}

void copyOwning(benchmark::State& state, std::size_t nCreators) {
  const Filled filled(nCreators);
  std::size_t i = 0;
  for (auto _ : state) {
    const MemBasePtr data(filled.slots[i]);
    benchmark::DoNotOptimize(&data);
    if (++i == nCreators) i = 0;
  }
}

/// The addresses of the data in turn, without counts and notes of their use.
void copyAddress(benchmark::State& state, std::size_t nCreators) {
  const Filled filled(nCreators);
  std::vector<MemBase*> slots;
  for (const MemBasePtr& slot : filled.slots) slots.push_back(slot.get());
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(slots.data());
    MemBase* const data = slots[i];
    benchmark::DoNotOptimize(data);
    if (++i == nCreators) i = 0;
  }
}

constexpr int HitsPerThread = 100000;

/// `f(creators, slots)` of a set of its own on each of two threads.
template <class F>
void onTwoThreads(benchmark::State& state, std::size_t nCreators, const F& f) {
  // One cache, so that what the threads share is what they would share in a program.
  const Filled filled(2 * nCreators);
  for (auto _ : state) {
#pragma omp parallel num_threads(2)
    {
      const std::size_t begin = omp_get_thread_num() == 0 ? 0 : nCreators;
      std::size_t i = begin;
      for (int n = 0; n < HitsPerThread; ++n) {
        f(filled.creators[i], filled.slots[i]);
        if (++i == begin + nCreators) i = begin;
      }
    }
  }
}

void hitOnTwo(benchmark::State& state, std::size_t nCreators) {
  onTwoThreads(state, nCreators, [](const CreatorPtr& creator, const MemBasePtr&) {
    const MemBasePtr data = creator->create(false);
    benchmark::DoNotOptimize(&data);
  });
}

void copyOnTwo(benchmark::State& state, std::size_t nCreators) {
  onTwoThreads(state, nCreators, [](const CreatorPtr&, const MemBasePtr& slot) {
    const MemBasePtr data(slot);
    benchmark::DoNotOptimize(&data);
  });
}

/// Data without elements.
struct Data : Ostrel::Cacheable {
  explicit Data(const Ostrel::WeakPtr<Ostrel::Creature, Ostrel::Creature>& creator) : Cacheable(creator) {}
  unsigned long long memsize() const override { return 100; }
};
using DataPtr = Ostrel::StrongPtr<Data, Ostrel::Cacheable>;
using DataCreatorBase = Ostrel::CreatorBase<Data>;

/// The least that a producing creator does.
struct DataCreator : Ostrel::AlzheimerCreator<Data, DataCreatorBase> {
  explicit DataCreator(const CachePtr& cache) : AlzheimerCreator(cache) {}
  DataPtr produce() override {
    DataPtr made(new Data(getSelf()));
    data = made;
    return made;
  }
};
using DataCreatorPtr = Ostrel::StrongPtr<DataCreator, Ostrel::Creature>;

constexpr std::size_t nInTurn = 64;

/// One miss after the other, each of which has the cache let go of the data of the one before the last.
void miss(benchmark::State& state, unsigned long long limit) {
  const CachePtr cache(new Ostrel::Cache);
  cache->setLimit(limit);
  std::vector<DataCreatorPtr> creators;
  for (std::size_t i = 0; i < nInTurn; ++i) creators.emplace_back(new DataCreator(cache));
  std::size_t i = 0;
  for (auto _ : state) {
    const DataPtr data = creators[i]->create(false);
    benchmark::DoNotOptimize(&data);
    if (limit == NoLimit) creators[i == 0 ? nInTurn - 1 : i - 1]->release();
    if (++i == nInTurn) i = 0;
  }
}

/// The same production, slots and forgetting without a cache, and `nCopies` owning copies.
void missRaw(benchmark::State& state, int nCopies) {
  std::vector<DataCreatorPtr> creators;
  for (std::size_t i = 0; i < nInTurn; ++i) creators.emplace_back(new DataCreator(CachePtr()));
  std::size_t i = 0;
  for (auto _ : state) {
    DataPtr data = creators[i]->getData();
    if (!data) data = creators[i]->produce();
    const Ostrel::WeakPtr<Ostrel::Creature, Ostrel::Creature> self = creators[i]->getSelf();  // for the data
    benchmark::DoNotOptimize(&self);
    benchmark::DoNotOptimize(&data);
    creators[i == 0 ? nInTurn - 1 : i - 1]->release();
    for (int n = 0; n < nCopies; ++n) {
      const DataPtr copy(data);
      benchmark::DoNotOptimize(&copy);
    }
    if (++i == nInTurn) i = 0;
  }
}

constexpr unsigned long long nMegabyte = 131072;

void missMegabyte(benchmark::State& state) {
  const CachePtr cache(new Ostrel::Cache);
  std::vector<CreatorPtr> creators;
  for (std::size_t i = 0; i < 8; ++i)
    creators.emplace_back(new FunctionalCreator([] { return fill(nMegabyte); }, false, cache));
  cache->setLimit(2 * 8 * nMegabyte);
  std::size_t i = 0;
  for (auto _ : state) {
    const MemBasePtr data = creators[i]->create(false);
    benchmark::DoNotOptimize(&data);
    if (++i == creators.size()) i = 0;
  }
}

void fillMegabyte(benchmark::State& state) {
  // As many arrays are alive as under the limit.
  std::vector<MemBasePtr> arrays(2);
  std::size_t i = 0;
  for (auto _ : state) {
    MemBasePtr made = fill(nMegabyte);
    benchmark::DoNotOptimize(&made);
    arrays[i] = made;
    i = 1 - i;
  }
}

/// The same numbers in plain memory, as much of which is alive.
void fillBareMegabyte(benchmark::State& state) {
  std::unique_ptr<double[]> arrays[2];
  std::size_t i = 0;
  for (auto _ : state) {
    std::unique_ptr<double[]> made(new double[nMegabyte]);
    for (unsigned long long e = 0; e < nMegabyte; ++e) made[e] = static_cast<double>(e);
    benchmark::DoNotOptimize(made.get());
    benchmark::ClobberMemory();
    arrays[i] = std::move(made);
    i = 1 - i;
  }
}

const Rows rows([] {
  addRow(
      "cache/hit of one", 1.25, [](benchmark::State& state) { hit(state, 1); },
      [](benchmark::State& state) { copyOwning(state, 1); }, [](benchmark::State& state) { copyAddress(state, 1); });
  addRow(
      "cache/hit of 64", 1.25, [](benchmark::State& state) { hit(state, 64); },
      [](benchmark::State& state) { copyOwning(state, 64); }, [](benchmark::State& state) { copyAddress(state, 64); });
  addRow(
      "cache/hit of 1000", 1.25, [](benchmark::State& state) { hit(state, 1000); },
      [](benchmark::State& state) { copyOwning(state, 1000); },
      [](benchmark::State& state) { copyAddress(state, 1000); });
  addRow(
      "cache/hit of one on 2", 0, [](benchmark::State& state) { hitOnTwo(state, 1); },
      [](benchmark::State& state) { copyOnTwo(state, 1); });
  addRow(
      "cache/hit of 64 on 2", 0, [](benchmark::State& state) { hitOnTwo(state, 64); },
      [](benchmark::State& state) { copyOnTwo(state, 64); });
  addRow(
      "cache/miss to raw + 2 copies", 1.00, [](benchmark::State& state) { miss(state, NoLimit); },
      [](benchmark::State& state) { missRaw(state, 2); });
  addRow(
      "cache/miss with eviction to same", 0, [](benchmark::State& state) { miss(state, 150); },
      [](benchmark::State& state) { missRaw(state, 2); });
  addRow("cache/miss of 1 MB", 1.02, missMegabyte, fillMegabyte, fillBareMegabyte);
});

}  // namespace
}  // namespace TreskBench
