// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Harness.hpp"
#include "RawPointers.hpp"

#include <tresk/foundation/Pointers.hpp>

#include <memory>

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

/// A copy of an address.
void copyBare(benchmark::State& state) {
  const auto object = std::make_unique<long long>(1);
  const long long* const owner = object.get();
  for (auto _ : state) {
    benchmark::DoNotOptimize(&owner);
    const long long* const copy = owner;
    benchmark::DoNotOptimize(copy);
  }
}

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
      },
      copyBare);

  addRow(
      "pointer/upgrade", 1.10,
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
      },
      copyBare);

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
      },
      [](benchmark::State& state) {
        for (auto _ : state) {
          const auto object = std::make_unique<long long>(1);
          benchmark::DoNotOptimize(object.get());
        }
      });

  addRow(
      "pointer/valid", 1.05,
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
        // The lowest bit of the word marks a pointer whose object is of another type.
        std::atomic<std::uintptr_t> slot{reinterpret_cast<std::uintptr_t>(owner.record)};
        for (auto _ : state) {
          benchmark::DoNotOptimize(&slot);
          bool isValid = false;
          for (;;) {
            const std::uintptr_t word = slot.load(std::memory_order_acquire);
            const auto* const record = reinterpret_cast<const RawRecord*>(word & ~std::uintptr_t{1});
            if ((word & 1U) != 0 || record == nullptr) break;
            isValid = record->object.load(std::memory_order_acquire) != nullptr &&
                      record->strong.load(std::memory_order_acquire) >= 1;
            if (slot.load(std::memory_order_acquire) == word) break;
          }
          benchmark::DoNotOptimize(isValid);
        }
      },
      [](benchmark::State& state) {
        const auto object = std::make_unique<long long>(1);
        const long long* slot = object.get();
        for (auto _ : state) {
          benchmark::DoNotOptimize(&slot);
          bool isValid = slot != nullptr;
          benchmark::DoNotOptimize(isValid);
        }
      });
});

}  // namespace
}  // namespace TreskBench
