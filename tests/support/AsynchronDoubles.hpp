// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/AsynchronHooks.hpp>
#include <tresk/field/ThreadReaper.hpp>
#include <tresk/field/TreskType.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

/// \file
/// What tests of work on other threads need: places to hold the threads at, and a fixture for `AsynchronCreator`.

namespace TreskTest {

/// What the function of an `AsynchronCreator` sees.
using Flag = std::atomic<bool>;
using ArrayObserver = Ostrel::WeakPtr<Tresk::MemBase, Ostrel::Cacheable>;

/// Counts up, and makes threads wait until there is something to take.
class Tokens {
 public:
  void add(int n = 1) {
    const std::lock_guard lock(mutex_);
    n_ += n;
    changed_.notify_all();
  }
  void take() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return n_ > 0; });
    --n_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int n_ = 0;
};

/// Where threads wait for the test to let them pass.
class Gate {
 public:
  /// On the thread that is held.
  void pass() {
    visitors_.add();
    permits_.take();
  }
  /// In the test: returns when one more thread stands at the gate.
  void waitForVisitor() { visitors_.take(); }
  /// Lets one thread pass, also one that is still to come.
  void open() { permits_.add(); }

 private:
  Tokens visitors_;
  Tokens permits_;
};

/// A creator whose data the test can replace, as a derived class can.
class OpenCreator : public Tresk::AsynchronCreator {
 public:
  using Tresk::AsynchronCreator::AsynchronCreator;
  void hold(const MemBasePtr& other) { data = other; }
};
using Subject = WatchedCreator<OpenCreator>;
using SubjectPtr = KindPtr<Subject>;
using SubjectWeakPtr = Ostrel::WeakPtr<Tresk::AsynchronCreator, Ostrel::Creature>;

/// An array that tells of its end.
class MortalArray : public Tresk::MemArray<1, double> {
 public:
  explicit MortalArray(std::function<void()> onDeath)
      : Tresk::MemBase(*Tresk::getTreskType<double>(), CreatorWeakPtr()),
        Tresk::MemArray<1, double>(Tresk::MultiIndex<1>(2), CreatorWeakPtr()),
        onDeath_(std::move(onDeath)) {}
  ~MortalArray() override { onDeath_(); }

 private:
  std::function<void()> onDeath_;
};

/// A shared object that tells of its end: captured by a function, of the end of the function.
inline std::shared_ptr<int> makeToken(std::function<void()> onDeath) {
  return std::shared_ptr<int>(new int(0), [onDeath = std::move(onDeath)](const int* token) {
    delete token;
    onDeath();
  });
}

/// What a function throws.
class Failure : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// Joins every thread that waits for it, also one that this thread must not join.
inline void joinAllThreads() {
  std::thread([] {
    while (Tresk::Detail::nThreadsToJoin() > 0) {
      Tresk::Detail::joinFinishedThreads();
      std::this_thread::yield();
    }
  }).join();
}

/// A test of a creator whose function is held at `gate`.
class AsynchronCreatorFixture : public RecordBalanceTest {
 protected:
  ~AsynchronCreatorFixture() override {
    joinAll();
    Tresk::Detail::asynchronHooks() = {};
  }

  /// Waits until all creators of `make` are gone, wherever they die, and joins their threads.
  void joinAll() {
    for (; nFunctions_ > 0; --nFunctions_) deadFunctions_.take();
    joinAllThreads();
  }

  SubjectPtr make(const Tresk::AsynchronCreator::Function& function) { return make(function, cache); }
  SubjectPtr make(const Tresk::AsynchronCreator::Function& function, const Tresk::CachePtr& itsCache) {
    ++nFunctions_;
    // The function object dies after its creator has handed on the future that it must not wait for.
    const auto token = makeToken([this] { deadFunctions_.add(); });
    return SubjectPtr(
        new Subject([function, token](const Flag& isDiscarded) { return function(isDiscarded); }, itsCache));
  }

  /// A creator whose function counts its runs and waits at the gate in the first `nGated` of them.
  SubjectPtr makeGated(int nGated = 1) {
    return make([this, nGated](const Flag&) {
      if (++nRuns <= nGated) gate.pass();
      return makeArray(static_cast<unsigned long long>(nRuns.load()));
    });
  }
  /// A creator whose function fails in its first run, behind the gate.
  SubjectPtr makeFailing() {
    return make([this](const Flag&) {
      if (++nRuns == 1) {
        gate.pass();
        throw Failure("no such file");
      }
      return makeArray(1);
    });
  }

  /// Requests, and returns when the function has been entered.
  void start(Subject& creator) {
    EXPECT_TRUE(creator.request({}));
    gate.waitForVisitor();
  }
  /// Lets the function go on, and returns when the work has ended well.
  void finish(const Subject& creator) {
    gate.open();
    waitForEnd(creator);
  }
  static void waitForEnd(const Subject& creator) {
    while (creator.isUnderCreation()) std::this_thread::yield();
  }

  /// Makes the next thread begin only after `nWaiting` calls of `produce` have found that it did not.
  void letProduceComeFirst(int nWaiting = 1) {
    Tresk::Detail::asynchronHooks().beforeLock = [this, nWaiting] {
      for (int i = 0; i < nWaiting; ++i) waiting.take();
    };
    Tresk::Detail::asynchronHooks().beforeWait = [this] { waiting.add(); };
  }

  Gate gate;
  Tokens waiting;
  std::atomic<int> nRuns{0};
  Tresk::CachePtr cache{new Ostrel::Cache};

 private:
  Tokens deadFunctions_;
  int nFunctions_ = 0;
};

}  // namespace TreskTest
