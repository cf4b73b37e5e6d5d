// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#if defined(__SANITIZE_THREAD__)
#define TRESK_SERIAL_LOOPS
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define TRESK_SERIAL_LOOPS
#endif
#endif
#if defined(_OPENMP) && !defined(TRESK_SERIAL_LOOPS)
#define TRESK_PARALLEL_LOOPS
#include <omp.h>
#endif

/// \file
/// Loops over a range of numbers, split over the threads of OpenMP. Where the compiler has no OpenMP, and under the
/// thread sanitizer, which cannot follow its runtime, one thread does all of it.

namespace Tresk::Detail {

/// A half-open range of numbers.
struct Range {
  unsigned long long begin;
  unsigned long long end;
};

/// The part of thread `number` of `nThreads`: equal parts, the first ones one longer if they do not divide the range.
constexpr Range shareOf(Range range, unsigned long long nThreads, unsigned long long number) noexcept {
  const unsigned long long n = range.end - range.begin;
  const unsigned long long least = n / nThreads;
  const unsigned long long nLonger = n % nThreads;
  const unsigned long long begin = range.begin + number * least + (number < nLonger ? number : nLonger);
  return {begin, begin + least + (number < nLonger ? 1 : 0)};
}

/// Calls `f(begin, end)` for parts that together are `range`, each on a thread of its own. `f` must not throw.
template <class F>
void forEachShare(Range range, const F& f) {
  if (range.begin >= range.end) return;
#if defined(TRESK_PARALLEL_LOOPS)
#pragma omp parallel
  {
    const Range share = shareOf(range, static_cast<unsigned long long>(omp_get_num_threads()),
                                static_cast<unsigned long long>(omp_get_thread_num()));
    if (share.begin < share.end) f(share.begin, share.end);
  }
#else
  f(range.begin, range.end);
#endif
}

}  // namespace Tresk::Detail
