// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ThreadReaper.hpp>

#include <tresk/foundation/Mutex.hpp>

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

namespace Tresk::Detail {

namespace {

struct Entry {
  std::thread::id thread;
  std::future<bool> future;
};

class Reaper {
 public:
  /// Lives until the end of the process, as threads may come to it at any time; `ExitJoiner` empties it at exit.
  static Reaper& instance() {
    static Reaper* const reaper = new Reaper;
    return *reaper;
  }

  void add(std::future<bool> future) {
    const Ostrel::MutexLock lock(mutex_);
    entries_.push_back({std::this_thread::get_id(), std::move(future)});
  }

  /// Makes room for the threads that run, so that none of them fails to enter at its end.
  void reserve(std::size_t nThreads) {
    const Ostrel::MutexLock lock(mutex_);
    if (entries_.size() + nThreads > entries_.capacity()) entries_.reserve(2 * (entries_.size() + nThreads));
  }

  std::size_t size() {
    const Ostrel::MutexLock lock(mutex_);
    return entries_.size();
  }

  /// Takes out the entries of other threads that satisfy `isDue`, whose threads the caller joins by letting them go.
  template <class Predicate>
  std::vector<Entry> take(const Predicate& isDue) {
    std::vector<Entry> due;
    const Ostrel::MutexLock lock(mutex_);
    for (std::size_t i = 0; i < entries_.size();) {
      if (entries_[i].thread == std::this_thread::get_id() || !isDue(entries_[i])) {
        ++i;
        continue;
      }
      due.push_back(std::move(entries_[i]));
      if (i + 1 < entries_.size()) entries_[i] = std::move(entries_.back());
      entries_.pop_back();
    }
    return due;
  }

 private:
  Ostrel::Mutex mutex_;
  std::vector<Entry> entries_ TRESK_GUARDED_BY(mutex_);
};

/// Threads that have been started and have not come to their end.
std::atomic<int> nRunning{0};
/// Whether this thread is one of them.
thread_local bool isRunningThread = false;

/// Waits for the others and joins the rest at exit. Made by the first thread that is started, so that static objects of
/// the program that are older outlive all threads.
struct ExitJoiner {
  ~ExitJoiner() {
    const int own = isRunningThread ? 1 : 0;  // exit may be called on a thread
    for (int n = nRunning.load(); n > own; n = nRunning.load()) nRunning.wait(n);
    Reaper::instance().take([](const Entry&) { return true; });
  }
};

}  // namespace

RunningThread::RunningThread() {
  static const ExitJoiner joiner;
  // Counted first: several may be made at the same time, and the last one makes room for all.
  const int n = nRunning.fetch_add(1) + 1;
  try {
    Reaper::instance().reserve(static_cast<std::size_t>(n));
  } catch (...) {
    nRunning.fetch_sub(1);
    nRunning.notify_all();
    throw;
  }
}

RunningThread::RunningThread(RunningThread&& other) noexcept : counts_(std::exchange(other.counts_, false)) {}

RunningThread::~RunningThread() {
  if (!counts_) return;
  if (hasBegun_) isRunningThread = false;
  nRunning.fetch_sub(1);
  nRunning.notify_all();
}

void RunningThread::begin() noexcept {
  hasBegun_ = true;
  isRunningThread = true;
}

void reapLater(std::future<bool> future) { Reaper::instance().add(std::move(future)); }

void joinFinishedThreads() {
  Reaper::instance().take(
      [](const Entry& entry) { return entry.future.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
}

std::size_t nThreadsToJoin() { return Reaper::instance().size(); }

}  // namespace Tresk::Detail
