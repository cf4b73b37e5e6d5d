// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <demo/Program.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

using testing::HasSubstr;
using TreskTest::ProgramResult;
using TreskTest::runProgram;

/// Runs a program, which has to succeed and to write exactly `output`.
void expectOutput(const std::string& path, const std::string& arguments, const std::string& output) {
  const ProgramResult result = runProgram(path, arguments);
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output, output);
}

/// A new folder, gone at the end of the test.
class Folder {
 public:
  Folder() {
    std::string name = (std::filesystem::temp_directory_path() / "tresk-examples-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make " + name);
    path = name;
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  ~Folder() { std::filesystem::remove_all(path); }

  std::filesystem::path path;
};

/// What stands in the file of a river.
std::array<double, 4> readGauges(const std::filesystem::path& file) {
  std::array<double, 4> gauges{};
  std::ifstream in(file, std::ios::binary);
  in.read(reinterpret_cast<char*>(gauges.data()), sizeof gauges);
  EXPECT_TRUE(in && in.peek() == std::ifstream::traits_type::eof()) << file;
  return gauges;
}

TEST(ExamplesTest, AnOnDemandFieldHoldsTwoBlocksAndComputesTheOthersAgain) {
  expectOutput(ON_DEMAND_FIELD, "",
               "8 blocks of together 8000 points, 0 of 64000 bytes held, 0 computed\n"
               "first walk: integral 0.166667, 8 computed, 6 let go, 16000 bytes held\n"
               "second walk: integral 0.166667, 16 computed, 14 let go, 16000 bytes held\n"
               "block 7 was still there: 16 computed\n");
}

TEST(ExamplesTest, TheSaverKeepsWhatWasChangedFromRunToRun) {
  const Folder folder;
  expectOutput(OWN_SAVER, "'" + folder.path.string() + "'",
               "Elbe is new\n"
               "Oder is new\n"
               "Elbe had 0 mm and gets 1.5\n"
               "Oder had 0 mm and gets 2\n"
               "  saving Elbe\n"
               "  saving Oder\n"
               "gave back 64 bytes\n"
               "  reading Oder\n"
               "Oder had 2 mm and gets 10\n"
               "  reading Elbe\n"
               "  saving Oder\n"
               "gave back 64 bytes\n"
               "  reading Elbe\n"
               "Elbe had 1.5 mm and gets 0.5\n"
               "the field ends\n"
               "  saving Elbe\n");
  EXPECT_EQ(readGauges(folder.path / "Elbe"), (std::array<double, 4>{2, 2, 2, 2}));
  EXPECT_EQ(readGauges(folder.path / "Oder"), (std::array<double, 4>{12, 12, 12, 12}));
  expectOutput(OWN_SAVER, "'" + folder.path.string() + "'",
               "Elbe has a file\n"
               "Oder has a file\n"
               "  reading Elbe\n"
               "Elbe had 2 mm and gets 1.5\n"
               "  reading Oder\n"
               "Oder had 12 mm and gets 2\n"
               "  saving Elbe\n"
               "  saving Oder\n"
               "gave back 64 bytes\n"
               "  reading Oder\n"
               "Oder had 14 mm and gets 10\n"
               "  reading Elbe\n"
               "  saving Oder\n"
               "gave back 64 bytes\n"
               "  reading Elbe\n"
               "Elbe had 3.5 mm and gets 0.5\n"
               "the field ends\n"
               "  saving Elbe\n");
  EXPECT_EQ(readGauges(folder.path / "Elbe"), (std::array<double, 4>{4, 4, 4, 4}));
  EXPECT_EQ(readGauges(folder.path / "Oder"), (std::array<double, 4>{24, 24, 24, 24}));
}

TEST(ExamplesTest, TheSaverTellsWhatItCannotRead) {
  const Folder folder;
  EXPECT_EQ(runProgram(OWN_SAVER, "'" + (folder.path / "none").string() + "'").exitCode, 2);
  std::ofstream(folder.path / "Elbe") << "too short";
  const ProgramResult result = runProgram(OWN_SAVER, "'" + folder.path.string() + "' 2>&1");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("own_saver: cannot read " + (folder.path / "Elbe").string()));
  EXPECT_EQ(std::filesystem::file_size(folder.path / "Elbe"), 9);
}

TEST(ExamplesTest, TheCreatorOfMeansMakesThemAgain) {
  expectOutput(OWN_PRODUCER, "",
               "2 series of means are bound, each of 8 values\n"
               "  computing means\n"
               "  computing a jump\n"
               "means: 0 0 0 1 2 3 3 3\n"
               "again: 0 0 0 1 2 3 3 3\n"
               "gave back 128 bytes\n"
               "  computing means\n"
               "  computing a jump\n"
               "once more: 0 0 0 1 2 3 3 3\n");
}

TEST(ExamplesTest, TheElementTypeOfThePluginServesAProgramThatDoesNotKnowIt) {
  expectOutput(OWN_ELEMENT_TYPE, "'" OWN_ELEMENT_TYPE_PLUGIN "'",
               "{Plate::Stress} is voiddouble[3] (rank 0, grade 0) Size=24 [3 x 8]\n"
               "4x3 elements in 288 bytes, the last one is 3000 200 shear 0.5\n"
               "its first component is 3000, in the same memory\n"
               "a new array of 100 elements takes 2400 bytes\n");
}

TEST(ExamplesTest, APluginThatIsNotThereIsNamed) {
  const ProgramResult result = runProgram(OWN_ELEMENT_TYPE, "/no/such/plugin.so");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output, HasSubstr("/no/such/plugin.so: cannot open shared object file"));
}

TEST(ExamplesTest, ExamplesWithAnArgumentExplainThemselvesWithoutIt) {
  ProgramResult result = runProgram(OWN_SAVER);
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.output, "usage: own_saver <folder that is there>\n");
  result = runProgram(OWN_ELEMENT_TYPE);
  EXPECT_EQ(result.exitCode, 2);
  EXPECT_EQ(result.output, "usage: own_element_type <plug-in>\n");
}

TEST(ExamplesTest, EachArrayIsInterpolatedInItsOwnWay) {
  expectOutput(OWN_INTERPOLATOR, "",
               "first time\n"
               "temperature at (1.25, 0.5): 6.25\n"
               "land use at (1.25, 0.5): 11\n"
               "unknown at (1.25, 0.5): nobody knows how\n"
               "made again\n"
               "temperature at (1.25, 0.5): 6.25\n"
               "land use at (1.25, 0.5): 11\n"
               "unknown at (1.25, 0.5): nobody knows how\n"
               "temperature at (2, 1): 12\n");
}

TEST(ExamplesTest, PartsAreGatheredInTheOrderOfTheWhole) {
  expectOutput(GATHER_FRAGMENTS, "",
               "3 parts of together 10 points\n"
               "  making part 0\n"
               "  making part 1\n"
               "  making part 2\n"
               "the whole: 0 1.5 3 4.5 6 7.5 9 10.5 12 13.5\n"
               "of the parts 16 bytes are held\n");
}

TEST(TutorialTest, ABoundFieldKnowsSizesAndHoldsNothing) {
  expectOutput(TUTORIAL_1_BIND, "",
               "10 fragments of rank 1 with elements of type double\n"
               "hour 3 will have 1000 elements, all hours together 10000\n"
               "0 of 80000 bytes are held\n");
}

TEST(TutorialTest, DataAreComputedOnceAndAbsenceIsAnAnswer) {
  expectOutput(TUTORIAL_2_READ, "",
               "  computing hour 3 after 80 degrees\n"
               "an array of 1000, its element 500 is 25\n"
               "from 20 to 29.99 degrees\n"
               "  computing hour 0 after 80 degrees\n"
               "hour 0: 99.92 degrees at the end\n"
               "  computing hour 1 after 80 degrees\n"
               "hour 1: 59.96 degrees at the end\n"
               "  computing hour 2 after 80 degrees\n"
               "hour 2: 39.98 degrees at the end\n"
               "hour 3: 29.99 degrees at the end\n"
               "hour 99 is not there\n");
}

TEST(TutorialTest, TheLimitHoldsAndWhatIsInUseStays) {
  expectOutput(TUTORIAL_3_FORGET, "",
               "  computing hour 0 after 80 degrees\n"
               "hour 0 was read, 8000 bytes are held\n"
               "  computing hour 1 after 80 degrees\n"
               "hour 1 was read, 16000 bytes are held\n"
               "  computing hour 2 after 80 degrees\n"
               "hour 2 was read, 16000 bytes are held\n"
               "hour 2 was read, 16000 bytes are held\n"
               "  computing hour 0 after 80 degrees\n"
               "hour 0 was read, 16000 bytes are held\n"
               "gave back 8000 bytes, hour 2 is in use\n"
               "gave back 8000 bytes\n"
               "4 productions, 2 hits, 4 let go, 1 in use when asked\n");
}

TEST(TutorialTest, ADifferenceIsComputedWithItsOperandsEachTimeItIsMade) {
  expectOutput(TUTORIAL_4_COMPUTE, "",
               "10 differences, none computed\n"
               "  computing hour 1 after 80 degrees\n"
               "  computing hour 1 after 30 degrees\n"
               "difference at point 500: 12.5\n"
               "gave back 24000 bytes, those of the operands too\n"
               "  computing hour 1 after 80 degrees\n"
               "  computing hour 1 after 30 degrees\n"
               "difference at point 500: 12.5\n");
}

TEST(TutorialTest, WhatIsUnderWayIsNotRequestedTwiceAndArrives) {
  expectOutput(TUTORIAL_5_ASYNCHRONOUS, "",
               "hour 1 is on its way\n"
               "hour 2 is on its way\n"
               "hour 2 was asked for before\n"
               "hour 1 is being made, and not there yet\n"
               "hour 1: 40\n"
               "hour 2: 30\n"
               "hour 1 is idle, and there\n");
}

}  // namespace
