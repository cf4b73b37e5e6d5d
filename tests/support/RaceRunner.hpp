// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <barrier>
#include <exception>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace TreskTest {

/// Runs several functions at once, each on a thread of its own, from a common start. An exception of one of them is
/// thrown again after all have ended.
class RaceRunner {
 public:
  /// Adds a runner; it gets its number.
  void add(std::function<void(int)> body) { bodies_.push_back(std::move(body)); }
  /// Adds `n` runners with the same body.
  void add(int n, const std::function<void(int)>& body) {
    for (int i = 0; i < n; ++i) bodies_.push_back(body);
  }

  void run() {
    std::barrier start(static_cast<std::ptrdiff_t>(bodies_.size()));
    std::vector<std::exception_ptr> failures(bodies_.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < bodies_.size(); ++i) {
      threads.emplace_back([this, i, &start, &failures] {
        start.arrive_and_wait();
        try {
          bodies_[i](static_cast<int>(i));
        } catch (...) {
          failures[i] = std::current_exception();
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (const std::exception_ptr& failure : failures)
      if (failure) std::rethrow_exception(failure);
  }

 private:
  std::vector<std::function<void(int)>> bodies_;
};

}  // namespace TreskTest
