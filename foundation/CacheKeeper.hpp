// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/CacheBooks.hpp>
#include <tresk/foundation/Mutex.hpp>

#include <condition_variable>
#include <memory>
#include <thread>

namespace Ostrel::Detail {

/// A thread that brings a cache back to its limit when others could not: they were inside a walk, or what they might
/// have let go was in use. While the limit is passed it tries again from time to time, at most each second.
///
/// Lifetime: shared by the cache and those who wake it. The cache stops it when it dies.
class CacheKeeper : public std::enable_shared_from_this<CacheKeeper> {
 public:
  CacheKeeper() = default;
  CacheKeeper(const CacheKeeper&) = delete;
  CacheKeeper& operator=(const CacheKeeper&) = delete;
  ~CacheKeeper();

  /// Starts the thread for a cache. Throws `std::system_error` if there is none to be had.
  void start(CacheBooks& books);
  /// There is something to be done.
  void wake();
  /// Ends the thread, and waits for it; on that thread itself it is left to the end of the process to wait.
  void stop();

 private:
  void run();

  Mutex lifeMutex_;  ///< guards the thread against a stop while it is started
  Mutex mutex_;
  std::condition_variable changed_;
  bool isWoken_ TRESK_GUARDED_BY(mutex_) = true;
  bool isStopping_ TRESK_GUARDED_BY(mutex_) = false;
  CacheCharge charge_;
  std::thread thread_ TRESK_GUARDED_BY(lifeMutex_);
};

}  // namespace Ostrel::Detail
