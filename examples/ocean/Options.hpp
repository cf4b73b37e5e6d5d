// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Example {

/// A command line that makes no sense.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What the command line of the ocean example says.
struct Options {
  bool isHelp = false;
  bool isAnalytic = false;
  std::optional<std::string> file;                         ///< the ocean to read
  std::optional<std::string> pictures = "ocean-pictures";  ///< the folder of the pictures; none to be drawn without
  std::optional<std::string> trace;                        ///< the file of the trace

  /// Throws `UsageError`.
  static Options parse(const std::vector<std::string>& arguments);
  /// Throws `UsageError` if the trace is to be written over the file `data`.
  void checkTrace(const std::string& data) const;
};

void printUsage(std::ostream& out);

}  // namespace Example
