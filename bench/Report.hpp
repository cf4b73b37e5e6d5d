// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <string>
#include <vector>

namespace TreskBench {

/// What was measured for one row: nanoseconds an operation, one entry for each repetition.
struct Result {
  std::string name;
  double target = 0;  ///< greatest ratio of the medians that is accepted; 0 without one
  std::vector<double> value;
  std::vector<double> raw;
  std::vector<double> bare;  ///< empty where the row has no such side
};

/// Prints the table of a run: medians of the sides, and the ratios of library and twin by minima and medians.
void printResults(const std::vector<Result>& results);

/// Keeps a run, with all repetitions, as JSON. Throws `std::runtime_error` if the file cannot be written.
void writeResults(const std::vector<Result>& results, const std::string& file);

/// Prints the ratios of medians of two runs side by side, by rows that both have. Returns 1 if one has grown by more
/// than a tenth, else 0. Throws `std::runtime_error` for a file that cannot be read, and for runs without a common row.
int compareResults(const std::string& formerFile, const std::string& newFile);

}  // namespace TreskBench
