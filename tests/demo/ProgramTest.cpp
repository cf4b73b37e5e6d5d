// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Program.hpp"

#ifdef TRESK_OCEAN_WITH_NETCDF
#include <ocean/OceanFile.hpp>
#endif

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using TreskTest::ProgramResult;
using TreskTest::runProgram;

std::size_t longestLine(const std::string& text) {
  std::istringstream lines(text);
  std::size_t longest = 0;
  for (std::string line; std::getline(lines, line);) longest = std::max(longest, line.size());
  return longest;
}

TEST(FirstLookTest, ComputesOnDemandForgetsAndComputesAgain) {
  const ProgramResult result = runProgram(FIRST_LOOK_PROGRAM);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output,
            "4 fragments of 300x200 are bound\n"
            "  computing day 3\n"
            "first time: element 4.5\n"
            "gave back 480000 bytes\n"
            "  computing day 3\n"
            "second time: element 4.5\n"
            "gave back 480000 bytes\n");
}

TEST(OceanProgramTest, AllChecksHoldOnTheAnalyticOcean) {
  const ProgramResult result = runProgram(OCEAN_PROGRAM, "--analytic");
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
            HasSubstr("\nAll checks hold.\n"), Not(HasSubstr("FAILED"))));
  EXPECT_LE(longestLine(result.output), 100U);
}

TEST(OceanProgramTest, ExplainsItselfForAnUnknownOption) {
  for (const char* arguments : {"--help", "one two"}) {
    const ProgramResult result = runProgram(OCEAN_PROGRAM, arguments);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.output, HasSubstr("usage: ocean [FILE | --analytic]\n"));
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
  const ProgramResult result = runProgram(OCEAN_PROGRAM);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output, AllOf(HasSubstr("  Source        " + *Example::findOceanAtlas() + "\n"),
                                   HasSubstr("\nAll checks hold.\n"), Not(HasSubstr("FAILED"))));
  EXPECT_LE(longestLine(result.output), 100U);
#else
  GTEST_SKIP() << "the ocean example was built without netCDF";
#endif
}

TEST(OceanProgramTest, SaysInOneLineThatItRunsWithoutTheAtlas) {
#ifdef TRESK_OCEAN_WITH_NETCDF
  if (Example::findOceanAtlas()) GTEST_SKIP() << "ocean_atlas_subset.nc is installed, so the program uses it";
#endif
  const ProgramResult result = runProgram(OCEAN_PROGRAM);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output.substr(0, result.output.find('\n')), HasSubstr("running on the embedded analytic ocean."));
}

}  // namespace
