// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <atomic>
#include <compare>
#include <limits>
#include <string>

namespace Ostrel {

/// A time stamp of the global clock, which ticks on change and has no relation to wall time.
///
/// A stamp that was never touched is 0, the clock's value when the library was loaded.
/// Threads: a stamp is one relaxed atomic. Of two concurrent writers the last one wins; ages are compared and not
/// counted, so a lost update only delays whoever waits for it.
class TRESK_EXPORT Ageable {
 public:
  /// A stamp that was never touched: 0.
  constexpr Ageable() noexcept = default;
  /// A stamp of that many ticks.
  constexpr explicit Ageable(long long stamp) noexcept : stamp_(stamp) {}
  /// The stamp that `other` has at the moment. The clock does not tick.
  Ageable(const Ageable& other) noexcept : stamp_(other.getAge()) {}
  /// Takes over the stamp of `other`, be it older or newer.
  Ageable& operator=(const Ageable& other) noexcept {
    stamp_.store(other.getAge(), std::memory_order_relaxed);
    return *this;
  }
  constexpr ~Ageable() = default;

  /// Older than any stamp that the clock gives.
  static const Ageable Ooooold;
  /// The global clock.
  static std::atomic<long long> GlobalTime;

  /// The present stamp of the global clock.
  static Ageable now() noexcept { return Ageable(GlobalTime.load(std::memory_order_relaxed)); }

  /// Lets the clock tick and takes its value. The tick and the reading are two steps: two threads may read the same
  /// new value.
  Ageable& touch() noexcept {
    GlobalTime.fetch_add(1);
    stamp_.store(GlobalTime.load(), std::memory_order_relaxed);
    return *this;
  }

  /// Takes over a stamp that is newer than this one. Returns whether it was.
  bool raiseTo(const Ageable& age) noexcept {
    if (!(*this < age)) return false;
    *this = age;
    return true;
  }

  /// The stamp in ticks.
  long long getAge() const noexcept { return stamp_.load(std::memory_order_relaxed); }

  /// The stamp in decimal, or "never" for `Ooooold`.
  std::string str() const;

  /// Stamps are compared by their ticks, each read once.
  friend bool operator==(const Ageable& a, const Ageable& b) noexcept { return a.getAge() == b.getAge(); }
  /// The older stamp is the smaller one.
  friend std::strong_ordering operator<=>(const Ageable& a, const Ageable& b) noexcept {
    return a.getAge() <=> b.getAge();
  }

 private:
  std::atomic<long long> stamp_{0};
};

}  // namespace Ostrel
