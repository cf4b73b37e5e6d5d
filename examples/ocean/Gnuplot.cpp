// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Gnuplot.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace Example {

namespace {

/// An open file, closed at the end.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { close(); }

  int get() const noexcept { return number_; }
  void close() noexcept {
    if (number_ >= 0) ::close(number_);
    number_ = -1;
  }

 private:
  int number_;
};

struct FileActions {
  FileActions() { posix_spawn_file_actions_init(&actions); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  ~FileActions() { posix_spawn_file_actions_destroy(&actions); }
  posix_spawn_file_actions_t actions;
};

[[noreturn]] void fail(const std::string& what, int error) {
  throw std::runtime_error(what + ": " + std::strerror(error));
}

/// Writes until the reader has everything or has gone. Without a signal in the latter case.
void sendAll(int socket, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t n = send(socket, text.data() + done, text.size() - done, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;  // the exit code of the reader will tell
    done += static_cast<std::size_t>(n);
  }
}

/// What stands in a file, on one line.
std::string readAll(std::FILE* file) {
  std::rewind(file);
  std::string text;
  for (int c = 0; (c = std::fgetc(file)) != EOF;) text += c == '\n' ? ' ' : static_cast<char>(c);
  return text;
}

}  // namespace

Gnuplot& Gnuplot::operator<<(const std::string& line) {
  input_ += line + "\n";
  return *this;
}

void Gnuplot::add(std::span<const double> numbers) {
  input_.append(reinterpret_cast<const char*>(numbers.data()), numbers.size_bytes());
}

void Gnuplot::add(std::span<const std::uint8_t> numbers) {
  input_.append(reinterpret_cast<const char*>(numbers.data()), numbers.size());
}

bool Gnuplot::draw(const std::filesystem::path& file) const {
  const std::filesystem::path unfinished = file.string() + ".part";
  const Descriptor picture(open(unfinished.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (picture.get() < 0) fail(file.string(), errno);
  // Whatever happens, nothing unfinished stays.
  const std::unique_ptr<const std::filesystem::path, void (*)(const std::filesystem::path*)> cleaner(
      &unfinished, [](const std::filesystem::path* path) { ::unlink(path->c_str()); });
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> words(std::tmpfile(), std::fclose);
  if (!words) fail("a temporary file", errno);
  int ends[2] = {-1, -1};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) fail("a pair of sockets", errno);
  Descriptor ours(ends[0]);
  Descriptor theirs(ends[1]);

  FileActions files;
  posix_spawn_file_actions_adddup2(&files.actions, theirs.get(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&files.actions, picture.get(), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&files.actions, fileno(words.get()), STDERR_FILENO);
  char name[] = "gnuplot";
  char fromInput[] = "-";
  char* const arguments[] = {name, fromInput, nullptr};
  pid_t child = -1;
  const int error = posix_spawnp(&child, name, &files.actions, nullptr, arguments, environ);
  if (error == ENOENT || error == EACCES) return false;
  if (error != 0) fail(name, error);
  theirs.close();
  sendAll(ours.get(), input_);
  ours.close();
  int status = 0;
  while (waitpid(child, &status, 0) < 0)
    if (errno != EINTR) fail(name, errno);
  // Where starting and failing to start cannot be told apart at once, the end of the child tells.
  constexpr int NotStarted = 127;
  if (WIFEXITED(status) && WEXITSTATUS(status) == NotStarted) return false;
  const std::string said = readAll(words.get());
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error(file.string() + ": gnuplot has failed: " + said);
  if (lseek(picture.get(), 0, SEEK_CUR) <= 0)
    throw std::runtime_error(file.string() + ": gnuplot has drawn nothing: " + said);
  std::filesystem::rename(unfinished, file);
  return true;
}

std::string Gnuplot::quoted(const std::string& text) {
  std::string out = "'";
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
      out += ' ';
    else if (c == '\'')
      out += "''";
    else
      out += c;
  }
  return out + "'";
}

}  // namespace Example
