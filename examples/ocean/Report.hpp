// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace Example {

/// Text in columns. The first ones, for names, begin at the left; the others, for numbers, end at the right.
class Table {
 public:
  /// \param heads one for each column; a line break in a head begins its second line, for instance the unit
  /// \param nNames how many columns begin at the left
  explicit Table(const std::vector<std::string>& heads, std::size_t nNames = 0);

  void addRow(const std::vector<std::string>& cells);
  /// A line across the table.
  void addRule();
  void print(std::ostream& out) const;

 private:
  std::vector<std::vector<std::string>> rows_;  ///< an empty row is a rule
  std::vector<std::size_t> widths_;
  const std::size_t nNames_;
};

/// Says how far a long work has come; says nothing during the first second.
///
/// On a terminal it writes one line over and over and removes it at the end; elsewhere it writes a line now and then.
class Progress {
 public:
  using Clock = std::function<double()>;  ///< seconds since any fixed moment

  /// The time of the system.
  static double seconds();

  Progress(std::string work, std::size_t total, std::ostream& out, bool isTerminal, Clock clock = seconds);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// One piece is done.
  void advance();

 private:
  const std::string work_;
  const std::size_t total_;
  std::ostream& out_;
  const bool isTerminal_;
  const Clock clock_;
  const double begin_;
  double next_;  ///< when to write the next time
  std::size_t done_ = 0;
  std::size_t width_ = 0;  ///< of the line that stands on the terminal
};

/// A number with `digits` decimals; "-" for NaN.
std::string fixed(double value, int digits);
/// A whole number in groups of three digits.
std::string grouped(unsigned long long number);
/// A number of bytes in binary units, for instance "28.18 MiB".
std::string bytes(unsigned long long number);
/// A time in seconds, for instance "1.25 ms".
std::string duration(double seconds);
/// 16 hexadecimal digits.
std::string hexadecimal(unsigned long long number);

/// Bytes of memory that the process occupies at the moment; 0 if the system does not tell.
unsigned long long residentMemory();

}  // namespace Example
