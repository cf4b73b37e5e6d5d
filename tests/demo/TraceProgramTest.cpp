// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <support/TraceFile.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Program.hpp"

#include <cstddef>
#include <string>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using TreskTest::ProgramResult;
using TreskTest::runProgram;
using TreskTest::TraceFile;

std::size_t nWritten(const std::string& output, const std::string& what) {
  const std::size_t end = output.find(" " + what);
  const std::size_t begin = output.find_last_not_of("0123456789", end - 1);
  return end == std::string::npos ? 0 : std::stoul(output.substr(begin == std::string::npos ? 0 : begin + 1));
}

TEST(TraceProgramTest, ItsFileIsATraceOfWhatItTells) {
  const TreskTest::TestFolder folder;
  const std::string path = folder / "trace.json";
  const ProgramResult result = runProgram(TRACE_PROGRAM, "'" + path + "'");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  const TraceFile trace(path);
  EXPECT_THAT(trace.threadNames(), ElementsAre(Pair(1, "main"), Pair(2, "thread 2")));
  EXPECT_EQ(trace.slices("one day").size(), 12U);
  EXPECT_EQ(trace.events("C", "last day read").size(), 12U);
  EXPECT_GE(trace.slices("production").size(), 6U);
  EXPECT_EQ(trace.slices("production").size(), nWritten(result.output, "productions")) << result.output;
  EXPECT_GE(trace.events("i", "Evicted").size(), 4U);
  EXPECT_EQ(trace.events("i", "Evicted").size(), nWritten(result.output, "evictions")) << result.output;
  for (const auto& event : trace.events("C", "bytes held")) EXPECT_LE(event["args"]["value"], 6 * 400 * 400 * 8);
}

TEST(TraceProgramTest, NamesTheFileThatItCannotWrite) {
  const ProgramResult result = runProgram(TRACE_PROGRAM, "/no/such/folder/trace.json");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("'/no/such/folder/trace.json': No such file or directory"));
}

}  // namespace
