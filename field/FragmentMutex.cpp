// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentMutex.hpp>

namespace Tresk {

bool FragmentMutex::try_lock() noexcept {
  std::uint32_t free = 0;
  return state_.compare_exchange_strong(free, Writer, std::memory_order_acquire, std::memory_order_relaxed);
}

void FragmentMutex::lock() TRESK_NO_THREAD_SAFETY_ANALYSIS {
  for (;;) {
    std::uint32_t state = 0;
    if (state_.compare_exchange_weak(state, Writer, std::memory_order_acquire, std::memory_order_relaxed)) return;
    if (state != 0) state_.wait(state, std::memory_order_relaxed);
  }
}

void FragmentMutex::unlock() noexcept {
  // An exchange and not a store: the look at the waiters that follows must not overtake it.
  state_.exchange(0);
  state_.notify_all();
}

void FragmentMutex::waitAndLockShared() noexcept TRESK_NO_THREAD_SAFETY_ANALYSIS {
  do state_.wait(Writer, std::memory_order_relaxed);
  while (!try_lock_shared());
}

void FragmentMutex::wakeWriters() noexcept { state_.notify_all(); }

}  // namespace Tresk
