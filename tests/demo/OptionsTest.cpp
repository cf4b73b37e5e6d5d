// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ocean/Checks.hpp>
#include <ocean/Options.hpp>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace Example;
using testing::HasSubstr;

TEST(OptionsTest, WithoutArgumentsPicturesGoBelowTheCurrentFolder) {
  const Options options = Options::parse({});
  EXPECT_FALSE(options.isHelp);
  EXPECT_FALSE(options.isAnalytic);
  EXPECT_EQ(options.file, std::nullopt);
  EXPECT_EQ(options.pictures, "ocean-pictures");
  EXPECT_EQ(options.trace, std::nullopt);
}

TEST(OptionsTest, OptionsStandInAnyOrder) {
  const Options options = Options::parse({"--pictures", "a folder", "file.nc", "--trace", "t.json"});
  EXPECT_EQ(options.file, "file.nc");
  EXPECT_EQ(options.pictures, "a folder");
  EXPECT_EQ(options.trace, "t.json");
  EXPECT_TRUE(Options::parse({"--analytic", "--help"}).isHelp);
  EXPECT_EQ(Options::parse({"--no-pictures", "--analytic"}).pictures, std::nullopt);
}

TEST(OptionsTest, NonsenseIsNamed) {
  const auto messageOf = [](const std::vector<std::string>& arguments) -> std::string {
    try {
      Options::parse(arguments);
    } catch (const UsageError& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(messageOf({"--colour"}), "there is no option --colour");
  EXPECT_EQ(messageOf({"a", "b"}), "there is one FILE at most");
  EXPECT_EQ(messageOf({"a", "--analytic"}), "either FILE or --analytic");
  EXPECT_EQ(messageOf({""}), "FILE needs a name");
  EXPECT_EQ(messageOf({"--pictures"}), "--pictures needs a name");
  EXPECT_EQ(messageOf({"--trace", ""}), "--trace needs a name");
  EXPECT_EQ(messageOf({"--pictures", "--trace"}), "--pictures needs a name");
}

TEST(OptionsTest, ATraceDoesNotReplaceTheData) {
  const std::string path = testing::TempDir() + "tresk_options_data.nc";
  std::ofstream(path) << "data";
  EXPECT_THROW(Options::parse({path, "--trace", path}), UsageError);
  EXPECT_THROW(Options::parse({path, "--trace", testing::TempDir() + "./tresk_options_data.nc"}), UsageError);
  EXPECT_EQ(Options::parse({path, "--trace", path + ".json"}).trace, path + ".json");
  const Options withoutFile = Options::parse({"--trace", path});
  EXPECT_THROW(withoutFile.checkTrace(path), UsageError);
  EXPECT_NO_THROW(withoutFile.checkTrace(path + ".json"));
  EXPECT_NO_THROW(Options().checkTrace(path));
  std::remove(path.c_str());
}

TEST(ChecksTest, HoldIfAllOfThemDo) {
  Checks checks;
  EXPECT_TRUE(checks.doAllHold());
  checks.add(true, "the sea is wet");
  checks.add("temperature at the top", "17", "17");
  EXPECT_TRUE(checks.doAllHold());
  std::ostringstream out;
  checks.print(out);
  EXPECT_EQ(out.str(),
            "  check                   expected  found  result\n"
            "  -----------------------------------------------\n"
            "  the sea is wet                               ok\n"
            "  temperature at the top        17     17      ok\n"
            "\nAll 2 checks hold.\n");
}

TEST(ChecksTest, OneThatFailsIsShownWithWhatWasFound) {
  Checks checks;
  checks.add("temperature at the top", "17", "18");
  checks.add(false, "the sea is dry");
  checks.add(true, "the sea is wet");
  EXPECT_FALSE(checks.doAllHold());
  std::ostringstream out;
  checks.print(out);
  EXPECT_THAT(out.str(), HasSubstr("  temperature at the top        17     18  FAILED\n"));
  EXPECT_THAT(out.str(), HasSubstr("\n2 of 3 checks do not hold.\n"));
}

}  // namespace
