// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace Example {

/// What a program has found to hold, or not.
class Checks {
 public:
  /// A statement.
  void add(bool holds, const std::string& what);
  /// A text or number that is known beforehand. Equal texts hold.
  void add(const std::string& what, const std::string& expected, const std::string& found);

  bool doAllHold() const noexcept;
  /// A table of all checks, and a closing line.
  void print(std::ostream& out) const;

 private:
  struct Line {
    std::string what;
    std::string expected;  ///< empty for a statement
    std::string found;
    bool holds;
  };
  std::vector<Line> lines_;
};

}  // namespace Example
