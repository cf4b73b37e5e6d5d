// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Harness.hpp"

#include "Report.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sched.h>
#include <stdexcept>
#include <vector>

namespace TreskBench {

namespace {

struct Row {
  Result result;
  std::string valueName;
  std::string rawName;
  std::string bareName;
};

std::vector<Row>& theRows() {
  static std::vector<Row> rows;
  return rows;
}

/// Collects the single repetitions, whose order is random, and keeps quiet otherwise.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      const std::string name = run.run_name.function_name;
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", name.c_str(), run.error_message.c_str());
        hasFailed = true;
        continue;
      }
      for (Row& row : theRows()) {
        if (name == row.valueName) row.result.value.push_back(run.GetAdjustedRealTime());
        if (name == row.rawName) row.result.raw.push_back(run.GetAdjustedRealTime());
        if (name == row.bareName) row.result.bare.push_back(run.GetAdjustedRealTime());
      }
    }
  }
  bool hasFailed = false;
};

/// Keeps the program on the processor where it runs, so that repetitions are alike.
void bindToCore() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<std::size_t>(std::max(0, sched_getcpu())), &one);
  sched_setaffinity(0, sizeof(one), &one);
}

}  // namespace

void addRow(const std::string& name, double target, const Side& value, const Side& raw, const Side& bare) {
  Row row;
  row.result.name = name;
  row.result.target = target;
  row.valueName = name + "/value";
  row.rawName = name + "/raw";
  benchmark::RegisterBenchmark(row.valueName.c_str(), value);
  benchmark::RegisterBenchmark(row.rawName.c_str(), raw);
  if (bare) {
    row.bareName = name + "/bare";
    benchmark::RegisterBenchmark(row.bareName.c_str(), bare);
  }
  theRows().push_back(row);
}

namespace {

int runRows(std::vector<char*> given, const std::string& jsonFile) {
  // What a program argument repeats replaces these.
  static char interleave[] = "--benchmark_enable_random_interleaving=true";
  static char repetitions[] = "--benchmark_repetitions=11";
  static char minTime[] = "--benchmark_min_time=0.05";
  given.insert(given.begin() + 1, {interleave, repetitions, minTime});
  int count = static_cast<int>(given.size());
  benchmark::Initialize(&count, given.data());
  if (benchmark::ReportUnrecognizedArguments(count, given.data())) return 2;
  bindToCore();
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  std::vector<Result> results;
  for (const Row& row : theRows())
    if (!row.result.value.empty() && !row.result.raw.empty()) results.push_back(row.result);
  if (results.empty()) throw std::runtime_error("no row was measured with both of its sides");
  printResults(results);
  if (!jsonFile.empty()) writeResults(results, jsonFile);
  return collector.hasFailed ? 1 : 0;
}

int runAll(int argc, char** argv) {
  std::string jsonFile;
  std::vector<char*> rest(argv, argv + 1);
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--json") == 0 && i + 1 < argc)
      jsonFile = argv[++i];
    else if (std::strcmp(argv[i], "--compare") == 0 && i + 2 < argc)
      return compareResults(argv[i + 1], argv[i + 2]);
    else if (std::strcmp(argv[i], "--scale") == 0) {
      const unsigned long long nGreatest = i + 1 < argc ? std::strtoull(argv[i + 1], nullptr, 10) : 10000000;
      if (nGreatest < 1000) throw std::runtime_error("scale: N is a number of fragments, 1000 or more");
      bindToCore();
      printScale(nGreatest);
      return 0;
    } else
      rest.push_back(argv[i]);
  }
  return runRows(rest, jsonFile);
}

}  // namespace
}  // namespace TreskBench

int main(int argc, char** argv) {
  try {
    return TreskBench::runAll(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
}
