// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Profiler.hpp>

#include <mutex>
#include <vector>

namespace TreskTest {

/// Listens to the scopes of the profile for the time of a scope of its own.
class ProfilerRecorder : public Ostrel::Profiler::Listener {
 public:
  struct Event {
    bool isBegin;
    Ostrel::Profiler::Scope scope;
  };

  ProfilerRecorder() { former_ = Ostrel::Profiler::setListener(this); }
  ~ProfilerRecorder() override { Ostrel::Profiler::setListener(former_); }
  ProfilerRecorder(const ProfilerRecorder&) = delete;
  ProfilerRecorder& operator=(const ProfilerRecorder&) = delete;

  /// Beginnings and ends in the order of their arrival.
  std::vector<Event> events() const {
    const std::lock_guard lock(mutex_);
    return events_;
  }

  void begin(const Ostrel::Profiler::Scope& scope) override {
    const std::lock_guard lock(mutex_);
    events_.push_back({true, scope});
  }
  void end(const Ostrel::Profiler::Scope& scope) override {
    const std::lock_guard lock(mutex_);
    events_.push_back({false, scope});
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Event> events_;
  Ostrel::Profiler::Listener* former_ = nullptr;
};

}  // namespace TreskTest
