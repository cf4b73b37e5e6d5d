// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Threads that nobody joins still walk a field, make data and let them go while the program ends.

#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <atomic>
#include <cstdio>
#include <string>
#include <thread>

namespace {

using Tresk::CreatorPtr;
using Tresk::FieldPtr;
using Tresk::MemBasePtr;

constexpr int nThreads = 3;

MemBasePtr makeArray() {
  return MemBasePtr(new Tresk::MemArray<1, double>(Tresk::MultiIndex<1>(100), Tresk::CreatorWeakPtr()));
}

/// Never destroyed: the threads use it until the process is gone.
struct Shared {
  FieldPtr field = FieldPtr(new Tresk::Field);
  Ostrel::StrongPtr<Ostrel::Cache, Ostrel::CacheBase> cache{new Ostrel::Cache};
  std::atomic<int> nRounds{0};
};

}  // namespace

int main() {
  auto& shared = *new Shared;
  static const void* const reachable = &shared;
  shared.cache->setLimit(2000);
  shared.cache->startThread();
  for (int i = 0; i < 20; ++i)
    shared.field->setCreator(CreatorPtr(new Tresk::FunctionalCreator(makeArray, false, shared.cache)),
                             shared.field->makeFragmentID(std::to_string(i)));
  for (int t = 0; t < nThreads; ++t)
    std::thread([&shared] {
      for (;;) {
        for (unsigned int i = 0; i < shared.field->nFragments(); ++i)
          if (!shared.field->getCreatorByNumericalID(i)->create(false)) std::abort();
        // Records and allocators end in the meantime: they are there, or they are not.
        const Tresk::TreskTypePtr type = Tresk::getTreskType<double>();
        if (type && type->getType() != typeid(double)) std::abort();
        Tresk::MemBase::create(type, Tresk::DynamicSize{3}, typeid(void));
        shared.field->getElementTreskType();
        if (shared.field->xml().empty()) std::abort();
        ++shared.nRounds;
      }
    }).detach();

  const CreatorPtr dropped(new Tresk::AsynchronCreator(
      [&shared](const std::atomic<bool>&) {
        const int begin = shared.nRounds;
        while (shared.nRounds < begin + 100) std::this_thread::yield();
        return makeArray();
      },
      shared.cache));
  if (!dropped->request({})) return 1;
  while (shared.nRounds < 100) std::this_thread::yield();
  std::puts("main is over");
  return reachable == nullptr ? 1 : 0;
}
