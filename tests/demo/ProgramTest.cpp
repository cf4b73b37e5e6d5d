// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Program.hpp"

#ifdef TRESK_OCEAN_WITH_NETCDF
#include <ocean/OceanFile.hpp>
#endif

#include <ocean/Gnuplot.hpp>
#include <ocean/Pictures.hpp>
#include <support/TraceFile.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using TreskTest::ProgramResult;
using TreskTest::runProgram;
using TreskTest::signalProgram;

constexpr const char* PictureNames[] = {"ocean-anomaly.png", "ocean-section.png", "ocean-fragments.png"};

/// A folder of the running test that does not exist yet.
std::filesystem::path freshFolder() {
  const std::filesystem::path folder =
      testing::TempDir() + "tresk ocean " + testing::UnitTest::GetInstance()->current_test_info()->name();
  std::filesystem::remove_all(folder);
  return folder;
}

bool hasGnuplot() {
  Example::Gnuplot plot;
  plot << "print 1"
       << "set terminal dumb"
       << "plot x";
  return plot.draw(testing::TempDir() + "tresk_ocean_probe.txt");
}

std::size_t longestLine(const std::string& text) {
  std::istringstream lines(text);
  std::size_t longest = 0;
  for (std::string line; std::getline(lines, line);) longest = std::max(longest, line.size());
  return longest;
}

TEST(FirstLookTest, ReadsOnDemandForgetsAndReadsAgain) {
  const ProgramResult result = runProgram(FIRST_LOOK_PROGRAM);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output,
            "  reading Tuesday\n"
            "first time: 300x200 numbers\n"
            "gave back 480000 bytes\n"
            "  reading Tuesday\n"
            "second time: 300x200 numbers\n"
            "gave back 480000 bytes\n");
}

TEST(OceanProgramTest, AllChecksHoldOnTheAnalyticOcean) {
  const ProgramResult result = runProgram(OCEAN_PROGRAM, "--analytic --no-pictures");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(
      result.output,
      AllOf(HasSubstr("Source        embedded analytic ocean, computed on demand\n"),
            HasSubstr("Points        180 x 90 x 19 = 307,800, from {20.5,-89.5,0} to "),
            HasSubstr("held for all of them; written out they take 7.04 MiB"), HasSubstr("One level     32 B held"),
            HasSubstr("Fragments     228, bound in "), HasSubstr("getSize       41040x20520:"),
            HasSubstr("Full size     28.18 MiB"), HasSubstr("Memory held   0 B of data"),
            ContainsRegex("name +August 100 m +139 "), HasSubstr("  The cache gave back 28.18 MiB; memory held: 0 B\n"),
            HasSubstr("228 of 228 checksums as before"), HasSubstr("never more than 2.35 MiB held"),
            ContainsRegex("20 % +5.64 MiB .* 456 +228 +411 +5.69 MiB"), HasSubstr("  ocean       228  45: 5.6 MiB"),
            HasSubstr("5.64 MiB, depth by depth, both uses lie close together"),
            ContainsRegex("no limit +[0-9.]+ m?s +228 +456 +0 +84.54 MiB\n"),
            ContainsRegex("20 %, depth by depth +[0-9.]+ m?s +228 +456 +639 +5.93 MiB\n"),
            ContainsRegex("20 %, month by month +[0-9.]+ m?s +437 +456 +848 +5.93 MiB\n"),
            ContainsRegex("months, as read +228 +228 +212 +437 +424\n"),
            ContainsRegex("means of the year +19 +19 +17 +19 +0\n"),
            ContainsRegex("slabs read under the limit, depth by depth +228 +228 +ok\n"),
            ContainsRegex("\nAll [0-9]+ checks hold.\n"), Not(HasSubstr("Pictures")), Not(HasSubstr("FAILED"))));
  EXPECT_LE(longestLine(result.output), 100U);
}

TEST(OceanProgramTest, WritesThreePicturesAndTheirPaths) {
  if (!hasGnuplot()) GTEST_SKIP() << "gnuplot is not installed (Debian package gnuplot-nox)";
  const std::filesystem::path folder = freshFolder() / "it's $HOME";  // no name is a hazard
  const ProgramResult result =
      runProgram(OCEAN_PROGRAM, "--analytic --pictures \"" + folder.parent_path().string() + "/it's \\$HOME\"");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  std::size_t nFiles = 0;
  for ([[maybe_unused]] const auto& file : std::filesystem::directory_iterator(folder)) ++nFiles;
  EXPECT_EQ(nFiles, std::size(PictureNames));
  for (const char* name : PictureNames) {
    EXPECT_THAT(result.output, HasSubstr("  " + (folder / name).string() + "\n"));
    EXPECT_EQ(Example::readPictureSize(folder / name), std::pair(Example::PictureWidth, Example::PictureHeight))
        << name;
    EXPECT_GT(std::filesystem::file_size(folder / name), 10000U) << name << " is more than a frame";
  }
}

TEST(OceanProgramTest, SaysInOneLineThatThereIsNoGnuplot) {
  const std::filesystem::path folder = freshFolder();
  const ProgramResult result = runProgram(
      "/usr/bin/env", "PATH=/nonexistent '" OCEAN_PROGRAM "' --analytic --pictures '" + folder.string() + "'");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(
      result.output,
      HasSubstr("\n12. Pictures\n\n  gnuplot is not installed (Debian package gnuplot-nox): no pictures.\n\n13."));
  EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST(OceanProgramTest, EndsInOrderWhenItIsInterrupted) {
  const ProgramResult result =
      signalProgram({OCEAN_PROGRAM, "--analytic", "--no-pictures"}, "3. Read three fragments", SIGINT);
  EXPECT_EQ(result.exitCode, 130) << result.output;
  EXPECT_THAT(result.output,
              AllOf(testing::EndsWith("\nocean: interrupted; all work has ended\n"), Not(HasSubstr("checks hold"))));
}

TEST(OceanProgramTest, WritesATraceOfWhatItsCacheDoes) {
  const TreskTest::TestFolder folder;
  const std::string path = folder / "trace.json";
  const ProgramResult result = runProgram(OCEAN_PROGRAM, "--analytic --no-pictures --trace '" + path + "'");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output, testing::EndsWith("\nThe trace is in " + path + "\n"));
  const TreskTest::TraceFile trace(path);
  // Chapter 11 alone: 228 slabs and 456 arrays without a limit, as many depth by depth, 437 and 456 month by month.
  EXPECT_GE(trace.slices("production").size(), 2 * 684U + 893U);
  EXPECT_GE(trace.events("i", "Evicted").size(), 639U + 848U);
}

TEST(OceanProgramTest, NamesTheTraceThatItCannotWrite) {
  const ProgramResult result = runProgram(OCEAN_PROGRAM, "--analytic --trace /no/such/folder/trace.json");
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_THAT(result.output, HasSubstr("'/no/such/folder/trace.json': No such file or directory"));
}

TEST(OceanProgramTest, NamesTheFolderOfPicturesThatItCannotWriteBeforeItBegins) {
  const TreskTest::TestFolder folder;
  const std::string file = folder / "file";
  std::ofstream(file) << "no folder";
  const ProgramResult result = runProgram(OCEAN_PROGRAM, "--analytic --pictures '" + file + "/pictures'");
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.output, "ocean: cannot write pictures in '" + file + "/pictures': Not a directory\n");
}

TEST(OceanProgramTest, FailsIfItsReportCannotBeWritten) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "there is no /dev/full here";
  const TreskTest::TestFolder folder;
  const std::string errors = folder / "errors";
  const ProgramResult result = runProgram(OCEAN_PROGRAM, "--analytic --no-pictures >/dev/full 2>'" + errors +
                                                             "'; status=$?; cat '" + errors + "'; exit $status");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, testing::EndsWith("ocean: the report could not be written\n"));
}

TEST(OceanProgramTest, ExplainsItselfOnRequest) {
  const ProgramResult result = runProgram(OCEAN_PROGRAM, "--help 2>/dev/null");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_THAT(result.output, testing::StartsWith("usage: ocean [FILE | --analytic] "));
  for (const char* option : {"--pictures DIR", "--no-pictures", "--trace FILE", "--help"})
    EXPECT_THAT(result.output, HasSubstr(option));
  EXPECT_LE(longestLine(result.output), 100U);
}

TEST(OceanProgramTest, ExplainsItselfForAnUnknownOption) {
  for (const char* arguments : {"--colour", "one two"}) {
    const ProgramResult result = runProgram(OCEAN_PROGRAM, arguments);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.output, AllOf(testing::StartsWith("ocean: there is "), HasSubstr("usage: ocean [FILE | ")));
  }
}

TEST(OceanProgramTest, NamesTheFileThatItCannotRead) {
  const ProgramResult result = runProgram(OCEAN_PROGRAM, "/no/such/ocean.nc");
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_THAT(result.output, HasSubstr("ocean: /no/such/ocean.nc: "));
}

TEST(OceanProgramTest, RunsOnTheAtlasIfItIsInstalled) {
#ifdef TRESK_OCEAN_WITH_NETCDF
  if (!Example::findOceanAtlas())
    GTEST_SKIP() << "ocean_atlas_subset.nc is not installed (Debian package ferret-datasets)";
  const ProgramResult result = runProgram(OCEAN_PROGRAM, "--no-pictures");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output, AllOf(HasSubstr("  Source        " + *Example::findOceanAtlas() + "\n"),
                                   HasSubstr("5.64 MiB, depth by depth, both uses lie close together"),
                                   ContainsRegex("no limit +[0-9.]+ m?s +228 +456 +0 +84.54 MiB\n"),
                                   ContainsRegex("20 %, depth by depth +[0-9.]+ m?s +228 +456 +639 +5.93 MiB\n"),
                                   ContainsRegex("20 %, month by month +[0-9.]+ m?s +437 +456 +848 +5.93 MiB\n"),
                                   ContainsRegex("months, as read +228 +228 +212 +437 +424\n"),
                                   ContainsRegex("means of the year +19 +19 +17 +19 +0\n"),
                                   ContainsRegex("slabs read under the limit, depth by depth +228 +228 +ok\n"),
                                   ContainsRegex("\nAll [0-9]+ checks hold.\n"), Not(HasSubstr("Pictures")),
                                   Not(HasSubstr("FAILED"))));
  EXPECT_LE(longestLine(result.output), 100U);
#else
  GTEST_SKIP() << "the ocean example was built without netCDF";
#endif
}

TEST(OceanProgramTest, SaysInOneLineThatItRunsWithoutTheAtlas) {
#ifdef TRESK_OCEAN_WITH_NETCDF
  if (Example::findOceanAtlas()) GTEST_SKIP() << "ocean_atlas_subset.nc is installed, so the program uses it";
#endif
  const ProgramResult result = runProgram(OCEAN_PROGRAM, "--no-pictures");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output.substr(0, result.output.find('\n')), HasSubstr("running on the embedded analytic ocean."));
}

}  // namespace
