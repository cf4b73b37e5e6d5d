// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/CreativeArrayBase.hpp>
#include <tresk/foundation/Mutex.hpp>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <future>

namespace Tresk {

namespace Detail {

/// The creation mutex of an `AsynchronCreator`, and the word of its thread that it has had the mutex.
///
/// Note [Announcement]
/// `produce` holds the mutex while it waits for the thread, which needs the same mutex to begin. So `produce` first
/// waits, with the mutex open, until the thread has announced that it had it.
struct TRESK_EXPORT CreationMutex {
  /// Says that a thread is about to start; its number, from 1.
  unsigned long long expect() TRESK_REQUIRES(mutex) { return ++expected_; }
  /// Says that the thread just expected could not be started.
  void cancel() TRESK_REQUIRES(mutex);
  /// Says that the thread of that number has had the mutex. An older thread does not speak for the newest one.
  void announce(unsigned long long thread) TRESK_REQUIRES(mutex);
  /// The number of the thread that was started last; 0 before the first one.
  unsigned long long newest() const noexcept { return expected_; }
  /// Waits, with the mutex open, until `isSettled()` or the newest thread has announced itself.
  template <class Predicate>
  void waitForAnnouncement(const Predicate& isSettled) TRESK_REQUIRES(mutex) TRESK_NO_THREAD_SAFETY_ANALYSIS {
    std::unique_lock<std::mutex> lock(mutex.native(), std::adopt_lock);
    changed_.wait(lock, [&]() TRESK_NO_THREAD_SAFETY_ANALYSIS { return announced_ >= expected_ || isSettled(); });
    lock.release();
  }

  Ostrel::Mutex mutex;  ///< guards the numbers; held by the creator also while its function runs

 private:
  std::condition_variable changed_;
  unsigned long long expected_ = 0;   ///< changed under the mutex; read without it on the threads themselves
  unsigned long long announced_ = 0;  ///< the newest thread that has had the mutex
};

}  // namespace Detail

/// A creator that makes its data on a thread of its own.
///
/// `request` starts the work and returns; later the data simply stand in the creator. `produce` joins the running
/// work, or runs the function itself if there is none. The function is told by a flag when its result is no longer
/// wanted.
///
/// | State     | `isUnderCreation` | data                                       | left by                     |
/// |-----------|-------------------|--------------------------------------------|-----------------------------|
/// | idle      | no                | none                                       | `request`                   |
/// | working   | yes               | none, or the former ones                   | the end of the function     |
/// | filled    | no                | held                                       | `produce`, `release`        |
/// | collected | no                | held, or none if the function yielded none | `release`, `request`        |
/// | stuck     | yes               | none, or the former ones                   | never: the function has thrown |
///
/// Errors: an exception of the function on the thread is rethrown by the next `produce`, once. The creator stays
/// marked then, deliberately: `request` answers false and `release` `StillInUse` for good, and `produce` runs the
/// function each time. Former data stay, and `produce` finds them first.
/// Lifetime: the thread holds the creator weakly until it begins, so that a creator may die before; the work is then
/// skipped. While the function runs, the thread holds it. A creator that dies on its own thread hands the thread to be
/// joined to the process, which joins it at a later `request` of any creator, or at exit. At exit the process waits for
/// every function that runs on a thread, without telling it to stop.
/// Threads: all operations but `setup`, which comes first, may be called on any thread. The function runs under the
/// creation mutex: it must not call `produce` of its own creator, which would wait for good, and neither may the
/// destructor of a derived class. `Producer::request` is called under it too.
class TRESK_EXPORT AsynchronCreator : public Ostrel::AlzheimerCreator<MemBase, CreativeArrayBase> {
 public:
  /// Makes the data; the flag says whether the result is still wanted.
  using Function = std::function<MemBasePtr(const std::atomic<bool>& isDiscarded)>;

  /// No thread is started. An empty function makes no data. `cache` may be empty.
  AsynchronCreator(const Function& function, const CachePtr& cache);
  /// Waits for the end of its thread, except on that very thread.
  ~AsynchronCreator() override;

  /// Describes the data before there are any: extents and element type. Nothing happens for an invalid type.
  void setup(const DynamicSize& size, const TreskTypePtr& type);
  /// Runs the function on this thread, without a lock, and stores nothing. Its exceptions pass.
  MemBasePtr create_data() const;
  /// What the thread does: runs the function and stores its result, if the creator is still there; false if not.
  /// `callback` is not called.
  static bool createData(const Ostrel::WeakPtr<AsynchronCreator, Ostrel::Creature>& self, const Callback& callback);

  /// The held data, marked as used, or those of the running work, for which it waits; else what the function makes on
  /// this thread, which is not stored: the creator stays empty, and the function runs again next time.
  MemBasePtr produce() override;
  /// Starts the work on a thread; false if there are data or work is running. Nobody is told of the end: ask `hasData`
  /// or `isUnderCreation`, or call `produce`. `callback` goes to an attached `Producer`, whose answer is returned; the
  /// function runs all the same. Waits for the end of an earlier thread. An exception at the start of the thread,
  /// such as `std::system_error`, passes, and the creator is idle then; one of the producer passes, and the work goes
  /// on.
  bool request(const Callback& callback) override;
  /// Lets the data go: `StillInUse` while the creator is under creation, or somebody else holds them; else `Released`,
  /// also without data. Data that are held wait for the creation mutex; a cache that asks does not wait, and is told
  /// `StillInUse`.
  Ostrel::Creature::ReasonForReleasal release() override;
  /// Sets the flag that the function sees, for this and for all later runs. False.
  bool discardCreation() override;
  /// The element type, of the data or else the declared one; `void` if it is unknown.
  const std::type_info& getType() override;
  /// Whether a request is being worked on, from its acceptance on; for good once the function has thrown there. A
  /// production on a caller's thread does not count. Takes no lock.
  bool isUnderCreation() const override;

  /// How often the thread has come to the function.
  int nCreations() const noexcept { return nCreations_.load(std::memory_order_relaxed); }
  /// Whether the function has thrown where its result was to be stored. While `isUnderCreation` is set too, the creator
  /// is stuck.
  bool hasFailed() const noexcept { return hasFailed_.load(std::memory_order_acquire); }

 private:
  std::atomic<int> nCreations_{0};
  std::atomic<bool> isUnderCreation_{false};  ///< stays set after an exception of the function
  std::atomic<bool> isDiscarded_{false};
  Detail::CreationMutex creation_;  ///< guards the data and the future against each other; taken before `statusMutex_`
  Ostrel::Mutex statusMutex_;       ///< guards the test and set of the under-creation flag
  const Function function_;
  std::future<bool> future_ TRESK_GUARDED_BY(creation_.mutex);
  std::atomic<bool> hasFailed_{false};  ///< set for good by an exception of the function in `createData`
};

}  // namespace Tresk
