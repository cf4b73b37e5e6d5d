// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Records of element types, arrays made by them, and interfaces.

#include "Harness.hpp"

#include <tresk/field/MemArray.hpp>
#include <tresk/field/MemArrayProperties.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/foundation/Intercube.hpp>

#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace TreskBench {
namespace {

using namespace Tresk;

/// The registry of records as a map of its own, with the same keys.
const std::multimap<TreskTypeIndex, TreskTypeWeakPtr>& rawRegistry() {
  static const std::multimap<TreskTypeIndex, TreskTypeWeakPtr> registry = [] {
    std::multimap<TreskTypeIndex, TreskTypeWeakPtr> made;
    const auto add = [&made](const TreskTypePtr& type) { made.emplace(*type, type); };
#define TRESK_BENCH_ADD(...) add(getTreskType<__VA_ARGS__>());
    TRESK_FOR_EACH_ELEMENT_TYPE(TRESK_BENCH_ADD)
#undef TRESK_BENCH_ADD
    return made;
  }();
  return registry;
}

/// The allocators by element type, as plain functions.
using Allocate = MemBasePtr (*)(const DynamicSize&);
MemBasePtr allocateDoubles(const DynamicSize& size) {
  if (size.Dims() != 2) return MemBasePtr();
  return MemBasePtr(new MemArray<2, double>(MultiIndex<2>(size[0], size[1]), CreatorWeakPtr()));
}
const std::map<TreskTypeIndex, Allocate>& rawAllocators() {
  static const std::map<TreskTypeIndex, Allocate> allocators = [] {
    std::map<TreskTypeIndex, Allocate> made;
    const auto add = [&made](const TreskTypePtr& type) { made.emplace(*type, allocateDoubles); };
#define TRESK_BENCH_ADD(...) add(getTreskType<__VA_ARGS__>());
    TRESK_FOR_EACH_ELEMENT_TYPE(TRESK_BENCH_ADD)
#undef TRESK_BENCH_ADD
    return made;
  }();
  return allocators;
}

/// Interfaces for an object that carries four of them.
struct First : Ostrel::Interface<First> {};
struct Second : Ostrel::Interface<Second> {};
struct Third : Ostrel::Interface<Third> {};
struct Fourth : Ostrel::Interface<Fourth> {};
using InterfacePtr = Ostrel::StrongPtr<Ostrel::InterfaceBase, Ostrel::InterfaceBase>;

struct RawCube {
  struct Entry {
    const std::type_info* type;
    InterfacePtr interface;
  };
  mutable std::mutex mutex;
  std::vector<Entry> entries;

  InterfacePtr find(const std::type_info& type) const {
    const std::lock_guard<std::mutex> lock(mutex);
    for (const Entry& entry : entries)
      if (entry.type == &type) return entry.interface;
    return InterfacePtr();
  }
};

template <class T>
void getRecord(benchmark::State& state) {
  for (auto _ : state) {
    const TreskTypePtr type = getTreskType<T>();
    benchmark::DoNotOptimize(&type);
  }
}

const Rows rows([] {
  addRow(
      "type/getTreskType", 1.10, getRecord<double>,
      [](benchmark::State& state) {
        static const TreskTypePtr held = getTreskType<double>();
        for (auto _ : state) {
          const TreskTypePtr type = held;
          benchmark::DoNotOptimize(&type);
        }
      },
      [](benchmark::State& state) {
        const TreskTypePtr held = getTreskType<double>();
        const TreskTypeBase* const known = held.get();
        for (auto _ : state) {
          benchmark::DoNotOptimize(&known);
          const TreskTypeBase* const type = known;
          benchmark::DoNotOptimize(type);
        }
      });
  addRow(
      "type/find by index", 1.10,
      [](benchmark::State& state) {
        const TreskTypeIndex index = *getTreskType<double>();
        for (auto _ : state) {
          const TreskTypeWeakPtr type = TreskTypeBase::find(index);
          benchmark::DoNotOptimize(&type);
        }
      },
      [](benchmark::State& state) {
        const TreskTypeIndex index = *getTreskType<double>();
        for (auto _ : state) {
          const auto entry = rawRegistry().find(index);
          const TreskTypeWeakPtr type = entry->second ? entry->second : TreskTypeWeakPtr();
          benchmark::DoNotOptimize(&type);
        }
      },
      [](benchmark::State& state) {
        const TreskTypeIndex index = *getTreskType<double>();
        for (auto _ : state) {
          const TreskTypeBase* const type = rawRegistry().find(index)->second.get();
          benchmark::DoNotOptimize(type);
        }
      });
  addRow(
      "type/find by type_info", 0,
      [](benchmark::State& state) {
        for (auto _ : state) {
          const TreskTypeWeakPtr type = TreskTypeBase::find(typeid(double));
          benchmark::DoNotOptimize(&type);
        }
      },
      [](benchmark::State& state) {
        for (auto _ : state) {
          TreskTypeWeakPtr type;
          for (const auto& [index, record] : rawRegistry()) {
            const Ostrel::Pin<TreskTypeBase> alive(record);
            if (!alive || alive->getType() != typeid(double)) continue;
            type = record;
            break;
          }
          benchmark::DoNotOptimize(&type);
        }
      });
  addRow(
      "array/create", 1.10,
      [](benchmark::State& state) {
        const TreskTypePtr type = getTreskType<double>();
        const DynamicSize size{16, 16};
        for (auto _ : state) {
          const MemBasePtr array = MemBase::create(type, size, typeid(void));
          benchmark::DoNotOptimize(&array);
        }
      },
      [](benchmark::State& state) {
        const TreskTypePtr type = getTreskType<double>();
        const DynamicSize size{16, 16};
        for (auto _ : state) {
          const auto entry = rawAllocators().find(*type);
          const MemBasePtr array = entry->second(size);
          benchmark::DoNotOptimize(&array);
        }
      },
      [](benchmark::State& state) {
        for (auto _ : state) {
          std::vector<double> array(256);
          benchmark::DoNotOptimize(array.data());
        }
      });
  addRow(
      "interface/find", 1.10,
      [](benchmark::State& state) {
        const Ostrel::Intercube cube;
        cube.addInterface(InterfacePtr(new First));
        cube.addInterface(InterfacePtr(new Second));
        cube.addInterface(InterfacePtr(new Third));
        cube.addInterface(InterfacePtr(new Fourth));
        for (auto _ : state) {
          const auto found = Ostrel::findInterface<Third>(cube);
          benchmark::DoNotOptimize(&found);
        }
      },
      [](benchmark::State& state) {
        RawCube cube;
        cube.entries.push_back({&typeid(First), InterfacePtr(new First)});
        cube.entries.push_back({&typeid(Second), InterfacePtr(new Second)});
        cube.entries.push_back({&typeid(Third), InterfacePtr(new Third)});
        cube.entries.push_back({&typeid(Fourth), InterfacePtr(new Fourth)});
        for (auto _ : state) {
          // The copy under the lock, and the same as a pointer to the class that was asked for.
          const Ostrel::StrongPtr<Third, Ostrel::InterfaceBase> found(cube.find(typeid(Third)));
          benchmark::DoNotOptimize(&found);
        }
      },
      [](benchmark::State& state) {
        const First first;
        const Second second;
        const Third third;
        const Fourth fourth;
        const std::vector<std::pair<const std::type_info*, const Ostrel::InterfaceBase*>> entries = {
            {&typeid(First), &first}, {&typeid(Second), &second}, {&typeid(Third), &third}, {&typeid(Fourth), &fourth}};
        for (auto _ : state) {
          benchmark::DoNotOptimize(entries.data());
          const Ostrel::InterfaceBase* found = nullptr;
          for (const auto& [type, interface] : entries) {
            if (type != &typeid(Third)) continue;
            found = interface;
            break;
          }
          benchmark::DoNotOptimize(found);
        }
      });
});

}  // namespace
}  // namespace TreskBench
