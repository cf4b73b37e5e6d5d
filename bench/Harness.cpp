// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Harness.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sched.h>
#include <vector>

namespace TreskBench {

namespace {

struct Row {
  std::string name;
  double target;
  std::vector<double> value;  ///< nanoseconds per operation, one entry a repetition
  std::vector<double> raw;
};

std::vector<Row>& theRows() {
  static std::vector<Row> rows;
  return rows;
}

constexpr char valueSuffix[] = "/value";
constexpr char rawSuffix[] = "/raw";

double minimum(const std::vector<double>& times) { return *std::min_element(times.begin(), times.end()); }

double median(std::vector<double> times) {
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

/// Collects the single repetitions, whose order is random, and keeps quiet otherwise.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const std::string name = run.run_name.function_name;
      for (Row& row : theRows()) {
        if (name == row.name + valueSuffix) row.value.push_back(run.GetAdjustedRealTime());
        if (name == row.name + rawSuffix) row.raw.push_back(run.GetAdjustedRealTime());
      }
    }
  }
};

/// Keeps the program on the processor where it runs, so that repetitions are alike.
void bindToCore() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<std::size_t>(std::max(0, sched_getcpu())), &one);
  sched_setaffinity(0, sizeof(one), &one);
}

}  // namespace

void addRow(const std::string& name, double target, const Side& value, const Side& raw) {
  theRows().push_back({name, target, {}, {}});
  benchmark::RegisterBenchmark((name + valueSuffix).c_str(), value);
  benchmark::RegisterBenchmark((name + rawSuffix).c_str(), raw);
}

namespace {

int runAll(int argc, char** argv) {
  std::string jsonFile;
  std::vector<char*> arguments;
  // What a program argument repeats replaces these.
  static char interleave[] = "--benchmark_enable_random_interleaving=true";
  static char repetitions[] = "--benchmark_repetitions=11";
  static char minTime[] = "--benchmark_min_time=0.05";
  arguments.push_back(argv[0]);
  arguments.insert(arguments.end(), {interleave, repetitions, minTime});
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--json") == 0 && i + 1 < argc)
      jsonFile = argv[++i];
    else
      arguments.push_back(argv[i]);
  }
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  bindToCore();
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);

  std::printf("%-28s %12s %12s %9s %9s %8s\n", "row", "value ns", "raw ns", "ratio min", "median", "target");
  std::string json = "[\n";
  for (const Row& row : theRows()) {
    if (row.value.empty() || row.raw.empty()) continue;
    const double valueTime = median(row.value);
    const double rawTime = median(row.raw);
    const double ratioMin = minimum(row.value) / minimum(row.raw);
    const double ratioMedian = valueTime / rawTime;
    char target[16] = "-";
    if (row.target > 0)
      std::snprintf(target, sizeof(target), "%.2f%s", row.target, ratioMedian > row.target ? " !" : "");
    std::printf("%-28s %12.2f %12.2f %9.3f %9.3f %8s\n", row.name.c_str(), valueTime, rawTime, ratioMin, ratioMedian,
                target);
    char line[512];
    std::snprintf(line, sizeof(line),
                  "  {\"name\": \"%s\", \"value_ns\": %.4f, \"raw_ns\": %.4f, \"ratio_min\": %.4f, "
                  "\"ratio_median\": %.4f, \"target\": %s}",
                  row.name.c_str(), valueTime, rawTime, ratioMin, ratioMedian,
                  row.target > 0 ? std::to_string(row.target).c_str() : "null");
    if (json.size() > 2) json += ",\n";
    json += line;
  }
  json += "\n]\n";
  if (!jsonFile.empty()) {
    std::ofstream out(jsonFile);
    out << json;
    if (!out) {
      std::fprintf(stderr, "cannot write %s\n", jsonFile.c_str());
      return 1;
    }
  }
  return 0;
}

}  // namespace
}  // namespace TreskBench

int main(int argc, char** argv) { return TreskBench::runAll(argc, argv); }
