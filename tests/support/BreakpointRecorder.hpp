// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Diagnostics.hpp>

#include <mutex>
#include <string>
#include <vector>

namespace TreskTest {

/// Collects the messages of `Ostrel::breakpoint` for the time of a scope. Recorders nest like scopes.
class BreakpointRecorder {
 public:
  BreakpointRecorder() {
    const std::lock_guard lock(mutex_);
    outer_ = current_;
    current_ = this;
    former_ = Ostrel::setBreakpointHandler(&BreakpointRecorder::receive);
  }
  ~BreakpointRecorder() {
    const std::lock_guard lock(mutex_);
    Ostrel::setBreakpointHandler(former_);
    current_ = outer_;
  }
  BreakpointRecorder(const BreakpointRecorder&) = delete;
  BreakpointRecorder& operator=(const BreakpointRecorder&) = delete;

  std::vector<std::string> messages() const {
    const std::lock_guard lock(mutex_);
    return messages_;
  }

 private:
  static void receive(const char* message) {
    const std::lock_guard lock(mutex_);
    if (current_ != nullptr) current_->messages_.emplace_back(message);
  }

  static inline std::mutex mutex_;
  static inline BreakpointRecorder* current_ = nullptr;

  BreakpointRecorder* outer_ = nullptr;
  Ostrel::BreakpointHandler former_ = nullptr;
  std::vector<std::string> messages_;
};

}  // namespace TreskTest
