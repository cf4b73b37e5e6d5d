// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <dlfcn.h>

namespace TreskTest {

/// Sets how many threads the parallel loops of the library run on, for the calling thread and the time of a scope.
///
/// The tests are not compiled for OpenMP: its runtime is looked up in the process, where a library that was built
/// without it leaves none.
class OpenMpThreads {
 public:
  OpenMpThreads() : nFormer_(isThere() ? maxThreads()() : 0) {}
  explicit OpenMpThreads(int nThreads) : OpenMpThreads() { set(nThreads); }
  ~OpenMpThreads() { set(nFormer_); }
  OpenMpThreads(const OpenMpThreads&) = delete;
  OpenMpThreads& operator=(const OpenMpThreads&) = delete;

  /// Whether the library has threads to set.
  static bool isThere() { return setter() != nullptr && maxThreads() != nullptr; }
  void set(int nThreads) {
    if (isThere()) setter()(nThreads);
  }

 private:
  using Setter = void (*)(int);
  using Getter = int (*)();
  static Setter setter() { return reinterpret_cast<Setter>(dlsym(RTLD_DEFAULT, "omp_set_num_threads")); }
  static Getter maxThreads() { return reinterpret_cast<Getter>(dlsym(RTLD_DEFAULT, "omp_get_max_threads")); }

  int nFormer_;
};

}  // namespace TreskTest
