// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Report.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <stdexcept>

namespace TreskBench {

namespace {

double minimum(const std::vector<double>& times) { return *std::min_element(times.begin(), times.end()); }

double median(std::vector<double> times) {
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

#if defined(__clang__)
constexpr char Compiler[] = "clang++ " __clang_version__;
#else
constexpr char Compiler[] = "g++ " __VERSION__;
#endif

/// The ratios of medians of a run by the names of its rows.
std::map<std::string, double> readRatios(const std::string& file) {
  std::ifstream in(file);
  if (!in) throw std::runtime_error("compare: cannot read '" + file + "'");
  std::map<std::string, double> ratios;
  try {
    const nlohmann::json run = nlohmann::json::parse(in);
    for (const nlohmann::json& row : run.at("rows")) ratios[row.at("name")] = row.at("ratio_median");
  } catch (const nlohmann::json::exception& e) {
    throw std::runtime_error("compare: '" + file + "' is no run of this program: " + e.what());
  }
  return ratios;
}

}  // namespace

void printResults(const std::vector<Result>& results) {
  std::printf("%-36s %13s %13s %13s %9s %9s %8s\n", "row", "value ns", "raw ns", "bare ns", "ratio min", "median",
              "target");
  for (const Result& row : results) {
    const double ratio = median(row.value) / median(row.raw);
    char target[24] = "-";
    if (row.target > 0) std::snprintf(target, sizeof(target), "%.2f%s", row.target, ratio > row.target ? " !" : "");
    char bare[24] = "-";
    if (!row.bare.empty()) std::snprintf(bare, sizeof(bare), "%.2f", median(row.bare));
    std::printf("%-36s %13.2f %13.2f %13s %9.3f %9.3f %8s\n", row.name.c_str(), median(row.value), median(row.raw),
                bare, minimum(row.value) / minimum(row.raw), ratio, target);
  }
}

void writeResults(const std::vector<Result>& results, const std::string& file) {
  nlohmann::ordered_json rows = nlohmann::ordered_json::array();
  for (const Result& result : results) {
    nlohmann::ordered_json row;
    row["name"] = result.name;
    if (result.target > 0) row["target"] = result.target;
    row["ratio_min"] = minimum(result.value) / minimum(result.raw);
    row["ratio_median"] = median(result.value) / median(result.raw);
    row["value_ns"] = result.value;
    row["raw_ns"] = result.raw;
    if (!result.bare.empty()) row["bare_ns"] = result.bare;
    rows.push_back(row);
  }
  nlohmann::ordered_json run;
  run["compiler"] = Compiler;
  run["rows"] = rows;
  std::ofstream out(file);
  out << run.dump(1) << "\n";
  if (!out.flush()) throw std::runtime_error("json: cannot write '" + file + "'");
}

int compareResults(const std::string& formerFile, const std::string& newFile) {
  constexpr double Tolerance = 0.10;
  const std::map<std::string, double> formerRatios = readRatios(formerFile);
  const std::map<std::string, double> newRatios = readRatios(newFile);
  int nSlower = 0;
  int nCompared = 0;
  std::printf("%-36s %9s %9s %9s\n", "row (ratio of medians)", "former", "new", "change");
  for (const auto& [name, ratio] : newRatios) {
    const auto former = formerRatios.find(name);
    if (former == formerRatios.end()) {
      std::printf("%-36s %9s %9.3f\n", name.c_str(), "-", ratio);
      continue;
    }
    ++nCompared;
    const double change = ratio / former->second - 1;
    const char* verdict = "";
    if (change > Tolerance) verdict = "  slower";
    if (change < -Tolerance) verdict = "  faster";
    nSlower += change > Tolerance ? 1 : 0;
    std::printf("%-36s %9.3f %9.3f %+8.1f%%%s\n", name.c_str(), former->second, ratio, 100 * change, verdict);
  }
  for (const auto& [name, ratio] : formerRatios)
    if (newRatios.count(name) == 0) std::printf("%-36s %9.3f %9s\n", name.c_str(), ratio, "-");
  if (nCompared == 0) throw std::runtime_error("compare: the runs have no row in common");
  return nSlower == 0 ? 0 : 1;
}

}  // namespace TreskBench
