// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/LeafMutex.hpp>

#include <thread>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace Ostrel {

void LeafMutex::wait() noexcept {
  for (int nLooks = 1;; ++nLooks) {
    if (!isTaken_.load(std::memory_order_relaxed) && !isTaken_.exchange(true, std::memory_order_acquire)) return;
    // The holder needs some tens of instructions, unless it has lost its processor.
    if (nLooks % 64 == 0) std::this_thread::yield();
#if defined(__x86_64__)
    else
      _mm_pause();
#endif
  }
}

}  // namespace Ostrel
