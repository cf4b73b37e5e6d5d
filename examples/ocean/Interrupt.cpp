// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Interrupt.hpp"

#include <atomic>

namespace Example {

namespace {

/// Set by the signal handler, for which a flag must be free of locks. Orders nothing.
std::atomic<bool> isInterrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void setFlag(int) { isInterrupted.store(true, std::memory_order_relaxed); }

}  // namespace

Interrupt::Interrupt() {
  isInterrupted.store(false, std::memory_order_relaxed);
  struct sigaction action = {};
  action.sa_handler = setFlag;
  // Restart: a write that was under way goes on. Reset: the second signal finds the default again.
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, &former_);
}

Interrupt::~Interrupt() {
  sigaction(SIGINT, &former_, nullptr);
  isInterrupted.store(false, std::memory_order_relaxed);
}

bool Interrupt::isRequested() noexcept { return isInterrupted.load(std::memory_order_relaxed); }

void Interrupt::check() {
  if (isRequested()) throw Interrupted();
}

}  // namespace Example
