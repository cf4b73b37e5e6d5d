// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <cstddef>

/// \file
/// Allocation that fails when a test says so. `FailingAllocation.cpp` replaces the allocation functions of the program.

namespace TreskTest {

/// Lets the n-th allocation of this thread fail, counted from 0, once or from there on. At the end of its life all is
/// well again. Only one of them at a time on a thread.
class FailingAllocation {
 public:
  enum class Kind { Once, FromThereOn };

  /// \param nBytesAtLeast smaller allocations neither count nor fail
  FailingAllocation(long long n, Kind kind, std::size_t nBytesAtLeast = 0) noexcept;
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;
  ~FailingAllocation();

  /// Whether an allocation has failed.
  bool hasStruck() const noexcept;
  /// Lets all allocations succeed from now on.
  static void end() noexcept;
};

/// The same for the allocations of all other threads that are made while it lives, in the order in which they come.
class FailingElsewhere {
 public:
  explicit FailingElsewhere(long long n) noexcept;
  FailingElsewhere(const FailingElsewhere&) = delete;
  FailingElsewhere& operator=(const FailingElsewhere&) = delete;
  ~FailingElsewhere();

  bool hasStruck() const noexcept;
};

/// Blocks of the process that were allocated and not yet freed.
long long nBlocksAlive() noexcept;
/// Blocks of at least that many bytes which this thread has allocated so far count as large.
inline constexpr std::size_t LargeBlock = 16 * 1024;
long long nLargeBlocksMade() noexcept;

}  // namespace TreskTest
