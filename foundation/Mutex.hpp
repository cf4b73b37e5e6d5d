// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <mutex>

/// \file
/// A mutex that clang's thread safety analysis can follow. The standard library's own mutex carries no annotations,
/// so every lock of this library is one of these.

/// \cond
// What clang has to know of locks; the site tells it in words.
#if defined(__clang__)
#define TRESK_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define TRESK_THREAD_ANNOTATION(x)
#endif

#define TRESK_CAPABILITY(name) TRESK_THREAD_ANNOTATION(capability(name))
#define TRESK_SCOPED_CAPABILITY TRESK_THREAD_ANNOTATION(scoped_lockable)
#define TRESK_GUARDED_BY(m) TRESK_THREAD_ANNOTATION(guarded_by(m))
#define TRESK_PT_GUARDED_BY(m) TRESK_THREAD_ANNOTATION(pt_guarded_by(m))
#define TRESK_REQUIRES(...) TRESK_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define TRESK_REQUIRES_SHARED(...) TRESK_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define TRESK_ACQUIRE(...) TRESK_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TRESK_ACQUIRE_SHARED(...) TRESK_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define TRESK_RELEASE(...) TRESK_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRESK_RELEASE_SHARED(...) TRESK_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define TRESK_RELEASE_GENERIC(...) TRESK_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
#define TRESK_TRY_ACQUIRE(...) TRESK_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define TRESK_TRY_ACQUIRE_SHARED(...) TRESK_THREAD_ANNOTATION(try_acquire_shared_capability(__VA_ARGS__))
#define TRESK_EXCLUDES(...) TRESK_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define TRESK_NO_THREAD_SAFETY_ANALYSIS TRESK_THREAD_ANNOTATION(no_thread_safety_analysis)
/// \endcond

namespace Ostrel {

/// A plain mutex with annotations. Not recursive.
class TRESK_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  /// Waits until the mutex is free and takes it.
  void lock() TRESK_ACQUIRE() { native_.lock(); }
  /// Gives the mutex back, on the thread that took it.
  void unlock() TRESK_RELEASE() { native_.unlock(); }
  /// Takes the mutex if it is free; false if it is not.
  bool try_lock() TRESK_TRY_ACQUIRE(true) { return native_.try_lock(); }

  /// The wrapped mutex, for a condition variable.
  std::mutex& native() { return native_; }

 private:
  std::mutex native_;
};

/// Holds a `Mutex` for a scope.
class TRESK_SCOPED_CAPABILITY MutexLock {
 public:
  /// Takes `mutex`, which outlives the scope.
  explicit MutexLock(Mutex& mutex) TRESK_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() TRESK_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace Ostrel
