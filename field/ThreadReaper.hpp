// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <cstddef>
#include <future>

/// \file
/// Joins threads that could not be joined where their future ended, because that was on the thread itself. At exit the
/// process waits for all threads that still work, and joins those.

namespace Tresk::Detail {

/// Counts a thread from its start to its end, so that the process waits for it at exit.
class TRESK_EXPORT RunningThread {
 public:
  RunningThread();
  RunningThread(RunningThread&& other) noexcept;
  RunningThread& operator=(RunningThread&&) = delete;
  ~RunningThread();

  /// Says that the calling thread is the one that is counted.
  void begin() noexcept;

 private:
  bool counts_ = true;
  bool hasBegun_ = false;  ///< on the thread itself; one that was never started may end on any thread
};

/// Takes over the future of the calling thread. The thread is joined by a later `joinFinishedThreads` on another
/// thread, or at exit.
TRESK_EXPORT void reapLater(std::future<bool> future);

/// Joins what has finished; never the calling thread, and never one that still works. Not to be called under a lock.
TRESK_EXPORT void joinFinishedThreads();

/// The number of threads that wait to be joined.
TRESK_EXPORT std::size_t nThreadsToJoin();

}  // namespace Tresk::Detail
