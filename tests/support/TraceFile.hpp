// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

/// \file
/// Reads a trace back and holds it to the rules of its format.

namespace TreskTest {

/// A new folder for the files of one test. Goes with its contents.
class TestFolder {
 public:
  TestFolder() {
    std::string path = testing::TempDir() + "tresk-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("cannot make the folder " + path);
    path_ = path;
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

/// A stretch of time on a thread of a trace, nanoseconds.
struct TraceSlice {
  std::string name;
  long long begin = 0;
  long long end = 0;
  nlohmann::json event;  ///< that began it
};

/// A trace that was read from a file. What breaks the rules of the format is a failure of the test.
class TraceFile {
 public:
  using Json = nlohmann::json;

  explicit TraceFile(const std::string& path) {
    std::ifstream stream(path);
    const Json document = Json::parse(stream, nullptr, false);
    if (document.is_discarded() || !document.is_object() || !document["traceEvents"].is_array()) {
      ADD_FAILURE() << path << " is no JSON object with events";
      return;
    }
    for (const Json& event : document["traceEvents"]) add(event);
    for (const auto& [thread, open] : open_)
      EXPECT_TRUE(open.empty()) << "scopes of thread " << thread << " do not end";
    EXPECT_EQ(nProcessNames_, 1);
    for (const int thread : threads_) EXPECT_TRUE(names_.count(thread)) << "thread " << thread << " has no name";
    for (auto& [thread, slices] : slices_) expectNested(thread, slices);
  }

  /// All events but metadata, as they stand in the file.
  const std::vector<Json>& events() const { return events_; }
  /// Those with this phase and, unless it is empty, this name.
  std::vector<Json> events(const std::string& phase, const std::string& name = "") const {
    std::vector<Json> found;
    for (const Json& event : events_)
      if (event["ph"] == phase && (name.empty() || event.value("name", "") == name)) found.push_back(event);
    return found;
  }
  /// Names of the threads by their number.
  const std::map<int, std::string>& threadNames() const { return names_; }
  /// Scopes and productions of a thread, outer ones first.
  std::vector<TraceSlice> slices(int thread) const {
    const auto found = slices_.find(thread);
    return found == slices_.end() ? std::vector<TraceSlice>() : found->second;
  }
  std::vector<TraceSlice> slices(const std::string& name) const {
    std::vector<TraceSlice> all;
    for (const auto& [thread, slices] : slices_)
      for (const TraceSlice& slice : slices)
        if (slice.name == name) all.push_back(slice);
    return all;
  }

 private:
  static long long nanoseconds(const Json& microseconds) {
    return static_cast<long long>(microseconds.get<double>() * 1000 + 0.5);
  }

  void add(const Json& event) {
    const auto demand = [&event](bool isGiven, const char* what) {
      EXPECT_TRUE(isGiven) << what << " of " << event;
      return isGiven;
    };
    if (!demand(event.is_object() && event.contains("ph") && event["ph"].is_string(), "a phase")) return;
    if (!demand(event.contains("pid") && event["pid"].is_number_integer(), "a process")) return;
    if (!demand(event.contains("tid") && event["tid"].is_number_integer(), "a thread")) return;
    if (!demand(event.contains("ts") && event["ts"].is_number() && event["ts"] >= 0.0, "a time")) return;
    const std::string phase = event["ph"];
    const int thread = event["tid"];
    const long long time = nanoseconds(event["ts"]);
    if (phase != "E" && !demand(event.contains("name") && event["name"].is_string(), "a name")) return;
    if (phase == "M") {
      if (!demand(event.contains("args") && event["args"].contains("name"), "a name to give")) return;
      if (event["name"] == "process_name") ++nProcessNames_;
      if (event["name"] == "thread_name") {
        EXPECT_FALSE(names_.count(thread)) << "thread " << thread << " is named twice";
        names_[thread] = event["args"]["name"];
      }
      return;
    }
    events_.push_back(event);
    threads_.insert(thread);
    std::vector<TraceSlice>& open = open_[thread];
    if (phase == "B") {
      open.push_back({event["name"], time, 0, event});
    } else if (phase == "E") {
      if (!demand(!open.empty(), "a beginning to this end")) return;
      open.back().end = time;
      EXPECT_GE(time, open.back().begin) << event;
      slices_[thread].push_back(std::move(open.back()));
      open.pop_back();
    } else if (phase == "X") {
      if (!demand(event.contains("dur") && event["dur"].is_number() && event["dur"] >= 0.0, "a duration")) return;
      slices_[thread].push_back({event["name"], time, time + nanoseconds(event["dur"]), event});
    } else if (phase == "i") {
      demand(event.contains("s") && (event["s"] == "t" || event["s"] == "p" || event["s"] == "g"), "a scope");
    } else if (phase == "C") {
      if (!demand(event.contains("args") && !event["args"].empty(), "a value")) return;
      for (const auto& [name, value] : event["args"].items()) EXPECT_TRUE(value.is_number()) << name << " of " << event;
    } else {
      ADD_FAILURE() << "the phase is unknown of " << event;
    }
  }

  static void expectNested(int thread, std::vector<TraceSlice>& slices) {
    std::stable_sort(slices.begin(), slices.end(), [](const TraceSlice& a, const TraceSlice& b) {
      return a.begin != b.begin ? a.begin < b.begin : a.end > b.end;
    });
    std::vector<const TraceSlice*> around;
    for (const TraceSlice& slice : slices) {
      while (!around.empty() && around.back()->end <= slice.begin) around.pop_back();
      if (!around.empty()) {
        EXPECT_LE(slice.end, around.back()->end)
            << slice.event << " begins within " << around.back()->event << " on thread " << thread << " and ends later";
      }
      around.push_back(&slice);
    }
  }

  std::vector<Json> events_;
  std::map<int, std::string> names_;
  std::set<int> threads_;
  std::map<int, std::vector<TraceSlice>> open_;
  std::map<int, std::vector<TraceSlice>> slices_;
  int nProcessNames_ = 0;
};

}  // namespace TreskTest
