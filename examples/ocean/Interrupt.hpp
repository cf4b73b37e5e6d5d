// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <csignal>
#include <exception>

namespace Example {

/// Thrown where work ends because the user has asked for that.
class Interrupted : public std::exception {
 public:
  const char* what() const noexcept override { return "interrupted"; }
};

/// While an object lives, the first SIGINT of the process (Ctrl-C) sets a flag and nothing else. A second one ends the
/// process, as it does without such an object.
///
/// Threads: the flag may be asked for anywhere. One object at a time.
class Interrupt {
 public:
  Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;
  ~Interrupt();

  /// Whether there was a SIGINT since the object was made; false without one.
  static bool isRequested() noexcept;
  /// Throws `Interrupted` if there was. Called wherever work may end.
  static void check();

 private:
  struct sigaction former_ = {};
};

}  // namespace Example
