// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

/// \file
/// Allocation that fails when a test says so. `FailingAllocation.cpp` replaces the allocation functions of the program.

namespace TreskTest {

/// Lets the n-th allocation of this thread fail, counted from 0, once or from there on. At the end of its life all is
/// well again. Only one of them at a time on a thread.
class FailingAllocation {
 public:
  enum class Kind { Once, FromThereOn };

  FailingAllocation(long long n, Kind kind) noexcept;
  FailingAllocation(const FailingAllocation&) = delete;
  FailingAllocation& operator=(const FailingAllocation&) = delete;
  ~FailingAllocation();

  /// Whether an allocation has failed.
  bool hasStruck() const noexcept;
  /// Lets all allocations succeed from now on.
  static void end() noexcept;
};

}  // namespace TreskTest
