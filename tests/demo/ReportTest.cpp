// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <gtest/gtest.h>
#include <ocean/Report.hpp>

#include <limits>
#include <sstream>

namespace {

using namespace Example;

TEST(TableTest, NamesBeginAtTheLeftAndNumbersEndAtTheRight) {
  Table table({"month\n", "depth\nm", "mean\ndegC"}, 1);
  table.addRow({"May", "1000", "4.2"});
  table.addRule();
  table.addRow({"December", "5", "-"});
  std::ostringstream out;
  table.print(out);
  EXPECT_EQ(out.str(),
            "  month     depth  mean\n"
            "                m  degC\n"
            "  ---------------------\n"
            "  May        1000   4.2\n"
            "  ---------------------\n"
            "  December      5     -\n");
}

TEST(FormatTest, NumbersReadAsPeopleWriteThem) {
  EXPECT_EQ(fixed(34.1779, 2), "34.18");
  EXPECT_EQ(fixed(std::numeric_limits<double>::quiet_NaN(), 2), "-");
  EXPECT_EQ(grouped(7), "7");
  EXPECT_EQ(grouped(999), "999");
  EXPECT_EQ(grouped(1000), "1,000");
  EXPECT_EQ(grouped(2238984), "2,238,984");
  EXPECT_EQ(bytes(0), "0 B");
  EXPECT_EQ(bytes(1023), "1023 B");
  EXPECT_EQ(bytes(129600), "126.6 KiB");
  EXPECT_EQ(bytes(29548800), "28.18 MiB");
  EXPECT_EQ(duration(2.6e-6), "2.6 us");
  EXPECT_EQ(duration(0.0125), "12.50 ms");
  EXPECT_EQ(duration(75), "75.00 s");
  EXPECT_EQ(hexadecimal(0xcb8ef74), "000000000cb8ef74");
}

TEST(FormatTest, WaitingTimesAreRoundedAsPeopleSayThem) {
  EXPECT_EQ(waitingTime(0), "0.0 s");
  EXPECT_EQ(waitingTime(9.94), "9.9 s");
  EXPECT_EQ(waitingTime(9.96), "10 s");
  EXPECT_EQ(waitingTime(59.4), "59 s");
  EXPECT_EQ(waitingTime(125.2), "2 min 5 s");
  EXPECT_EQ(waitingTime(7384), "2 h 3 min");
}

TEST(ProgressTest, SaysNothingIntoALogDuringTheFirstSecond) {
  std::ostringstream out;
  double now = 100;
  {
    Progress progress("reading", 4, out, false, [&now] { return now; });
    for (now = 100.25; now < 101; now += 0.25) progress.advance();
  }
  EXPECT_EQ(out.str(), "");
}

TEST(ProgressTest, WritesALineNowAndThenIntoALogWithRateAndTimeLeft) {
  std::ostringstream out;
  double now = 100;
  Progress progress("reading", 8, out, false, [&now] { return now; });
  for (now = 101; now < 105; ++now) progress.advance();
  EXPECT_EQ(out.str(),
            "reading: 1 of 8 (12 %), 1.0 s  1.0/s  7.0 s left\n"
            "reading: 3 of 8 (37 %), 3.0 s  1.0/s  5.0 s left\n");
}

TEST(ProgressTest, EndsALogThatItHasBegun) {
  std::ostringstream out;
  double now = 100;
  Progress progress("reading", 2, out, false, [&now] { return now; });
  now = 140;
  progress.advance();
  now = 140.5;
  progress.advance();
  EXPECT_EQ(out.str(),
            "reading: 1 of 2 (50 %), 40.0 s  0.0/s  40 s left\n"
            "reading: 2 of 2 (100 %), 40.5 s\n");
}

TEST(ProgressTest, DrawsABarOnATerminalAndRemovesIt) {
  std::ostringstream out;
  double now = 100;
  const std::string first = "reading [############..........................] 33 %  1 of 3  50/s  0.0 s left";
  {
    Progress progress("reading", 3, out, true, [&now] { return now; });
    now = 100.02;
    progress.advance();
    EXPECT_EQ(out.str(), "\r" + first);
    EXPECT_EQ(first.size(), Progress::Width);
    now = 100.04;
    progress.advance();
    EXPECT_EQ(out.str(), "\r" + first) << "too soon for another one";
    now = 100.15;
    progress.advance();
    EXPECT_EQ(out.str().substr(80, 80),
              "\rreading [#####################################] 100 %  3 of 3  20/s  0.0 s left");
    out.str("");
  }
  EXPECT_EQ(out.str(), "\r" + std::string(Progress::Width, ' ') + "\r");
}

TEST(ProgressTest, KeepsToItsWidthWhateverTheWorkIsCalled) {
  std::ostringstream out;
  double now = 100;
  Progress progress(std::string(70, 'w'), 1000, out, true, [&now] { return now; });
  now = 101;
  progress.advance();
  EXPECT_EQ(out.str(), "\r" + std::string(70, 'w') + " 0 %  1 o");
}

}  // namespace
