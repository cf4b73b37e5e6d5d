// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace Example {

/// A picture for the program gnuplot: its script with the data in between.
///
/// The script goes to the standard input of the program and the picture comes from its standard output; no shell is
/// involved, and no name of a file is part of the script.
class Gnuplot {
 public:
  /// A line of the script.
  Gnuplot& operator<<(const std::string& line);
  /// Data in binary form, behind the line that plots '-' in the format '%float64'.
  void add(std::span<const double> numbers);
  /// The same for '%uint8'.
  void add(std::span<const std::uint8_t> numbers);

  /// Runs the program and writes what it draws. False if there is no such program: no file is made then. Throws
  /// `std::runtime_error` with the program's own words if it fails, or if the file cannot be written.
  bool draw(const std::filesystem::path& file) const;

  /// A text as a constant of the script, in which nothing has a meaning of its own.
  static std::string quoted(const std::string& text);

 private:
  std::string input_;
};

}  // namespace Example
