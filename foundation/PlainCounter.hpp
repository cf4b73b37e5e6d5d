// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <atomic>
#include <type_traits>

namespace Ostrel {

/// The bytes that two processors exchange as one. Data that different threads write stand this far apart.
inline constexpr int CacheLineSize = 64;

/// A statistic that all threads write without an atomic read-modify-write.
///
/// An addition is a relaxed load followed by a relaxed store: the machine code of a plain variable, with defined
/// behaviour. On one thread the value is exact. Two threads that add at the same moment may lose one of the
/// additions: nothing may rest on the value being exact then.
/// Each counter has a cache line of its own.
template <class Integer>
class alignas(CacheLineSize) PlainCounter {
 public:
  /// \param start the first value
  constexpr explicit PlainCounter(Integer start = 0) noexcept : value_(start) {}
  PlainCounter(const PlainCounter&) = delete;
  PlainCounter& operator=(const PlainCounter&) = delete;

  /// The present value.
  Integer get() const noexcept { return value_.load(std::memory_order_relaxed); }
  /// The present value.
  operator Integer() const noexcept { return get(); }

  /// Adds `amount` and returns the sum, which wraps around beyond the greatest number.
  TRESK_HOT Integer add(Integer amount) noexcept {
    using Unsigned = std::make_unsigned_t<Integer>;
    const Integer sum = static_cast<Integer>(static_cast<Unsigned>(get()) + static_cast<Unsigned>(amount));
    value_.store(sum, std::memory_order_relaxed);
    return sum;
  }

 private:
  std::atomic<Integer> value_;
};

}  // namespace Ostrel
