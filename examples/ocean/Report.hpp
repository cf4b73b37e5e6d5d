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

/// Says how far a long work has come, how fast it goes and how long it will take at this rate.
///
/// On a terminal it draws one bar over and over and removes it at the end. Elsewhere it writes a plain line now and then,
/// none during the first second, and a last one at the end of a work that has written any.
class Progress {
 public:
  using Clock = std::function<double()>;  ///< seconds since any fixed moment

  static constexpr std::size_t Width = 79;  ///< columns of the bar and its numbers

  /// The time of the system.
  static double seconds();

  /// \param work what is done, in a few words; \param total number of pieces
  Progress(std::string work, std::size_t total, std::ostream& out, bool isTerminal, Clock clock = seconds);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// One piece is done.
  void advance();

 private:
  void draw(double spent);
  void writeLine(double spent);

  const std::string work_;
  const std::size_t total_;
  std::ostream& out_;
  const bool isTerminal_;
  const Clock clock_;
  const double begin_;
  double next_;  ///< when to write the next time
  std::size_t done_ = 0;
  bool hasWritten_ = false;
};

/// A number with `digits` decimals; "-" for NaN.
std::string fixed(double value, int digits);
/// A whole number in groups of three digits.
std::string grouped(unsigned long long number);
/// A number of bytes in binary units, for instance "28.18 MiB".
std::string bytes(unsigned long long number);
/// A time in seconds, for instance "1.25 ms".
std::string duration(double seconds);
/// A time as people wait for it, for instance "0.4 s" or "2 min 5 s".
std::string waitingTime(double seconds);
/// 16 hexadecimal digits.
std::string hexadecimal(unsigned long long number);

/// Bytes of memory that the process occupies at the moment; 0 if the system does not tell.
unsigned long long residentMemory();

}  // namespace Example
