// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <stdexcept>
#include <string>

namespace TreskTest {

/// How a program ended and what it wrote.
struct ProgramResult {
  int exitCode = -1;   ///< -1 if a signal ended it
  std::string output;  ///< standard output and standard error, as they came
};

/// Runs a program to its end. `arguments` are words for the shell.
inline ProgramResult runProgram(const std::string& path, const std::string& arguments = "") {
  FILE* const pipe = popen(("'" + path + "' " + arguments + " 2>&1").c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot start " + path);
  ProgramResult result;
  char buffer[4096];
  for (std::size_t n = 0; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.output.append(buffer, n);
  const int status = pclose(pipe);
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  return result;
}

}  // namespace TreskTest
