// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Harness.hpp"
#include "RawPointers.hpp"

#include <tresk/foundation/Pointers.hpp>

namespace TreskBench {
namespace {

struct Base : Ostrel::ReferenceBase<Base> {
  Base() : Ostrel::ReferenceBase<Base>(this) {}
};
struct Object : Base {
  explicit Object(long long payload) : value(payload) {}
  long long value;
};
using Owner = Ostrel::StrongPtr<Object, Base>;
using Observer = Ostrel::WeakPtr<Object, Base>;

const Rows rows([] {
  addRow(
      "pointer/copy", 1.10,
      [](benchmark::State& state) {
        const Owner owner(new Object(1));
        for (auto _ : state) {
          const Owner copy(owner);
          benchmark::DoNotOptimize(&copy);
        }
      },
      [](benchmark::State& state) {
        const RawOwner owner(new RawObject(1));
        for (auto _ : state) {
          const RawOwner copy(owner);
          benchmark::DoNotOptimize(&copy);
        }
      });

  addRow(
      "pointer/upgrade", 0,
      [](benchmark::State& state) {
        const Owner owner(new Object(1));
        const Observer observer(owner);
        for (auto _ : state) {
          const Owner copy(observer);
          benchmark::DoNotOptimize(&copy);
        }
      },
      [](benchmark::State& state) {
        const RawOwner owner(new RawObject(1));
        const RawOwner observer(owner);
        for (auto _ : state) {
          if (observer.record->deferred.load(std::memory_order_acquire) == 0) state.SkipWithError("unclaimed");
          const RawOwner copy(observer);
          benchmark::DoNotOptimize(&copy);
        }
      });

  addRow(
      "pointer/construct+destroy", 1.00,
      [](benchmark::State& state) {
        for (auto _ : state) {
          const Owner owner(new Object(1));
          benchmark::DoNotOptimize(&owner);
        }
      },
      [](benchmark::State& state) {
        for (auto _ : state) {
          const RawOwner owner(new RawObject(1));
          benchmark::DoNotOptimize(&owner);
        }
      });

  addRow(
      "pointer/valid", 0,
      [](benchmark::State& state) {
        const Owner owner(new Object(1));
        for (auto _ : state) {
          benchmark::DoNotOptimize(&owner);
          bool isValid = owner.isValid();
          benchmark::DoNotOptimize(isValid);
        }
      },
      [](benchmark::State& state) {
        const RawOwner owner(new RawObject(1));
        std::atomic<RawRecord*> slot{owner.record};
        for (auto _ : state) {
          benchmark::DoNotOptimize(&slot);
          const RawRecord* const record = slot.load(std::memory_order_acquire);
          bool isValid = record != nullptr && record->object.load(std::memory_order_acquire) != nullptr &&
                         record->strong.load(std::memory_order_acquire) >= 1;
          isValid = slot.load(std::memory_order_acquire) == record && isValid;
          benchmark::DoNotOptimize(isValid);
        }
      });
});

}  // namespace
}  // namespace TreskBench
