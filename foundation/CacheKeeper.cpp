// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/CacheKeeper.hpp>

#include <tresk/foundation/NeverDestroyed.hpp>

#include <algorithm>
#include <chrono>
#include <utility>

namespace Ostrel::Detail {

namespace {

constexpr std::chrono::milliseconds ShortestRetry{10};
constexpr std::chrono::milliseconds LongestRetry{1000};

/// Threads that could not be waited for where they were stopped, as they stopped themselves.
class Leftovers {
 public:
  void join() {
    for (;;) {
      std::thread thread;
      {
        const MutexLock lock(mutex_);
        if (threads_.empty()) return;
        thread = std::move(threads_.back());
        threads_.pop_back();
        --nExpected_;
      }
      thread.join();
    }
  }
  /// Makes room for one more thread, which may find no memory when it ends.
  void reserve() {
    const MutexLock lock(mutex_);
    ++nExpected_;
    if (nExpected_ > threads_.capacity()) threads_.reserve(2 * nExpected_);
  }
  /// A thread for which there was room has been waited for.
  void giveRoomBack() {
    const MutexLock lock(mutex_);
    --nExpected_;
  }
  void add(std::thread thread) noexcept {
    const MutexLock lock(mutex_);
    threads_.push_back(std::move(thread));
  }

 private:
  Mutex mutex_;
  std::vector<std::thread> threads_ TRESK_GUARDED_BY(mutex_);
  std::size_t nExpected_ TRESK_GUARDED_BY(mutex_) = 0;  ///< threads that have not been waited for
};

/// Joins them at exit. Those that come later, from caches in static storage, are left alone.
struct LeftoversAtExit {
  Leftovers& all;
  ~LeftoversAtExit() { all.join(); }
};

Leftovers& leftovers() {
  static NeverDestroyed<Leftovers> all;
  static const LeftoversAtExit atExit{*all};
  return *all;
}

}  // namespace

CacheKeeper::~CacheKeeper() { stop(); }

void CacheKeeper::start(CacheBooks& books) {
  const MutexLock life(lifeMutex_);
  {
    const MutexLock lock(mutex_);
    if (isStopping_) return;
  }
  leftovers().reserve();
  {
    const LeafLock lock(cacheMutex);
    charge_.books = &books;
    charge_.link.enterBefore(books.charges);
  }
  try {
    thread_ = std::thread([self = shared_from_this()] { self->run(); });
  } catch (...) {
    leftovers().giveRoomBack();
    throw;
  }
}

void CacheKeeper::wake() {
  const MutexLock lock(mutex_);
  isWoken_ = true;
  changed_.notify_all();
}

void CacheKeeper::stop() {
  {
    const MutexLock lock(mutex_);
    isStopping_ = true;
    changed_.notify_all();
  }
  std::thread ended;
  {
    const MutexLock life(lifeMutex_);
    ended.swap(thread_);
    const LeafLock lock(cacheMutex);
    charge_.link.unlink();
    charge_.books = nullptr;
  }
  if (!ended.joinable()) return;
  if (ended.get_id() == std::this_thread::get_id()) {
    leftovers().add(std::move(ended));
    return;
  }
  ended.join();
  leftovers().giveRoomBack();
}

void CacheKeeper::run() TRESK_NO_THREAD_SAFETY_ANALYSIS {
  std::chrono::milliseconds retry = LongestRetry;
  bool holds = true;
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(mutex_.native());
      const auto isDue = [this]() TRESK_NO_THREAD_SAFETY_ANALYSIS { return isWoken_ || isStopping_; };
      if (holds)
        changed_.wait(lock, isDue);
      else
        changed_.wait_for(lock, retry, isDue);
      if (isStopping_) return;
      retry = isWoken_ ? ShortestRetry : std::min(2 * retry, LongestRetry);
      isWoken_ = false;
    }
    holds = runPass(charge_, {.wakesKeeper = false}).holds;
  }
}

}  // namespace Ostrel::Detail
