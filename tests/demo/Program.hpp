// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

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

/// Runs a program, sends it a signal when it has written `mark`, and lets it go on to its end.
///
/// The program cannot get far before the signal: what it writes goes through a pipe of one page, which is read byte by
/// byte up to the mark.
inline ProgramResult signalProgram(const std::vector<std::string>& words, const std::string& mark, int signal) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  fcntl(ends[1], F_SETPIPE_SZ, 4096);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  pid_t child = -1;
  const int error = posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  if (error != 0) throw std::runtime_error("cannot start " + words[0]);
  ProgramResult result;
  bool isSent = false;
  for (char c = 0;;) {
    const ssize_t n = read(ends[0], &c, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    result.output += c;
    if (isSent || !result.output.ends_with(mark)) continue;
    kill(child, signal);
    isSent = true;
  }
  close(ends[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  return result;
}

}  // namespace TreskTest
