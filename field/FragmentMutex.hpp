// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>
#include <tresk/foundation/Mutex.hpp>

#include <atomic>
#include <cstdint>

namespace Tresk {

/// A reader-writer lock that lets a reader in whenever no writer is inside.
///
/// A thread that holds it shared may therefore take it shared again, also while a writer waits: callbacks under the
/// shared lock of a field may read that field. The price is that a writer waits for as long as readers overlap.
/// There is no upgrade: a thread that holds it shared and asks for it exclusively waits for good.
/// Works with `std::shared_lock` and `std::unique_lock`.
/// Cost: without contention one atomic write to enter and one to leave.
class TRESK_EXPORT TRESK_CAPABILITY("shared_mutex") FragmentMutex {
 public:
  FragmentMutex() = default;
  FragmentMutex(const FragmentMutex&) = delete;
  FragmentMutex& operator=(const FragmentMutex&) = delete;

  /// Waits until nobody is inside, and takes it exclusively.
  void lock() TRESK_ACQUIRE();
  /// Takes it exclusively, if nobody is inside.
  bool try_lock() noexcept TRESK_TRY_ACQUIRE(true);
  /// Gives it up and wakes all who wait.
  void unlock() noexcept TRESK_RELEASE();

  /// Waits while a writer is inside, and takes it shared.
  TRESK_HOT void lock_shared() TRESK_ACQUIRE_SHARED() TRESK_NO_THREAD_SAFETY_ANALYSIS {
    if (!try_lock_shared()) [[unlikely]]
      waitAndLockShared();
  }
  /// Takes it shared, unless a writer is inside.
  TRESK_HOT bool try_lock_shared() noexcept TRESK_TRY_ACQUIRE_SHARED(true) {
    std::uint32_t state = state_.load(std::memory_order_relaxed);
    while ((state & Writer) == 0)
      if (state_.compare_exchange_weak(state, state + 1, std::memory_order_acquire, std::memory_order_relaxed))
        return true;
    return false;
  }
  /// Gives one share up; the last reader wakes the writers that wait.
  TRESK_HOT void unlock_shared() noexcept TRESK_RELEASE_SHARED() {
    // Only the last reader can let a writer in. A writer may sleep on any number of readers; it wakes here and looks
    // again.
    if (state_.fetch_sub(1) == 1) wakeWriters();
  }

 private:
  void waitAndLockShared() noexcept;
  void wakeWriters() noexcept;

  /// Number of readers inside, or `Writer` while a writer is inside. Readers go from n to n + 1 and back, a writer from
  /// 0 to `Writer` and back.
  std::atomic<std::uint32_t> state_{0};
  static constexpr std::uint32_t Writer = 0x80000000U;
};

/// Holds a `FragmentMutex` shared for a scope.
class TRESK_SCOPED_CAPABILITY SharedFragmentLock {
 public:
  /// Waits while a writer is inside. `mutex` outlives the lock.
  explicit SharedFragmentLock(FragmentMutex& mutex) TRESK_ACQUIRE_SHARED(mutex) : mutex_(mutex) {
    mutex_.lock_shared();
  }
  ~SharedFragmentLock() TRESK_RELEASE_GENERIC() { mutex_.unlock_shared(); }
  SharedFragmentLock(const SharedFragmentLock&) = delete;
  SharedFragmentLock& operator=(const SharedFragmentLock&) = delete;

 private:
  FragmentMutex& mutex_;
};

/// Holds a `FragmentMutex` exclusively for a scope.
class TRESK_SCOPED_CAPABILITY ExclusiveFragmentLock {
 public:
  /// Waits until nobody is inside. `mutex` outlives the lock.
  explicit ExclusiveFragmentLock(FragmentMutex& mutex) TRESK_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~ExclusiveFragmentLock() TRESK_RELEASE() { mutex_.unlock(); }
  ExclusiveFragmentLock(const ExclusiveFragmentLock&) = delete;
  ExclusiveFragmentLock& operator=(const ExclusiveFragmentLock&) = delete;

 private:
  FragmentMutex& mutex_;
};

}  // namespace Tresk
