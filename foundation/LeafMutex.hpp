// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>
#include <tresk/foundation/Mutex.hpp>

#include <atomic>

namespace Ostrel {

/// A mutex for critical sections of some tens of instructions that call nobody: one atomic exchange to lock and a
/// plain store to unlock. Whoever finds it taken looks again a few times and then lets other threads run. Not fair,
/// not recursive.
class TRESK_CAPABILITY("mutex") LeafMutex {
 public:
  constexpr LeafMutex() = default;
  LeafMutex(const LeafMutex&) = delete;
  LeafMutex& operator=(const LeafMutex&) = delete;

  void lock() noexcept TRESK_ACQUIRE() {
    if (isTaken_.exchange(true, std::memory_order_acquire)) [[unlikely]]
      wait();
  }
  void unlock() noexcept TRESK_RELEASE() { isTaken_.store(false, std::memory_order_release); }

 private:
  TRESK_EXPORT void wait() noexcept;

  std::atomic<bool> isTaken_{false};
};

/// Holds a `LeafMutex` for a scope.
class TRESK_SCOPED_CAPABILITY LeafLock {
 public:
  explicit LeafLock(LeafMutex& mutex) noexcept TRESK_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~LeafLock() TRESK_RELEASE() { mutex_.unlock(); }
  LeafLock(const LeafLock&) = delete;
  LeafLock& operator=(const LeafLock&) = delete;

 private:
  LeafMutex& mutex_;
};

}  // namespace Ostrel
