// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "TinyOcean.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ocean/FragmentLog.hpp>
#include <ocean/OceanYear.hpp>

namespace {

using namespace Example;
using Entry = FragmentLog::Entry;
using Ostrel::Cache;
using testing::ElementsAre;

/// One letter for each span.
std::string letters(const std::vector<FragmentLog::State>& states) {
  std::string text;
  for (const FragmentLog::State state : states) text += "-chf"[static_cast<std::size_t>(state)];
  return text;
}

TEST(PaintRowsTest, AnArrayIsComputedThenHeldThenForgotten) {
  const std::vector<Entry> entries{{0, 1, true, 2.5, 1.0, 8, 8}, {0, 1, false, 6.5, 0, 8, 0}, {1, 1, true, 7, 0, 8, 8}};
  EXPECT_EQ(letters(paintRows(entries, 0, 2, 0, 10, 10)),
            "----------"
            "-cchhhffff");
}

TEST(PaintRowsTest, ShortProductionsAreDrawnAsLongAsItIsAskedFor) {
  const std::vector<Entry> entries{{0, 0, true, 2.5, 0.1, 8, 8}, {0, 0, true, 9.5, 0.1, 8, 8}};
  EXPECT_EQ(letters(paintRows(entries, 0, 1, 0, 10, 10, 3)), "--ccchhhhc");
}

TEST(PaintRowsTest, WhatHappenedBeforeHoldsFromTheBeginning) {
  const std::vector<Entry> entries{{0, 0, true, 1, 0.5, 8, 8}, {0, 1, true, 1, 0.5, 8, 8}, {0, 1, false, 2, 0, 8, 8}};
  EXPECT_EQ(letters(paintRows(entries, 0, 2, 3, 6, 3)),
            "hhh"
            "fff");
}

TEST(AddUpBytesTest, GroupsGrowAndShrink) {
  const std::vector<Entry> entries{{0, 0, true, 1, 0, 10, 10}, {1, 0, true, 2, 0, 5, 15}, {0, 0, false, 3, 0, 10, 5}};
  const std::vector<HeldBytes> held = addUpBytes(entries, 2);
  ASSERT_EQ(held.size(), 3U);
  EXPECT_THAT(held[1].groups, ElementsAre(10, 5));
  EXPECT_THAT(held[2].groups, ElementsAre(0, 5));
  EXPECT_EQ(held[2].inCache, 5U);
  EXPECT_EQ(held[2].seconds, 3);
}

TEST(FragmentLogTest, RecordsWhatTheCacheMakesAndLetsGo) {
  const OceanField ocean(std::make_shared<TreskTest::TinyOcean>());
  const OceanYear year(ocean);
  Cache& cache = *Cache::MemCache();
  FragmentLog log;
  EXPECT_EQ(log.addGroup("months", {year.getMonths()[0], year.getMonths()[1]}), 0U);
  EXPECT_EQ(log.addGroup("mean", {year.getMean()}), 1U);
  EXPECT_EQ(log.nRows(0), 6U);
  EXPECT_EQ(log.nRows(1), 3U);
  EXPECT_EQ(log.getName(1), "mean");
  cache.setListener(log.makeListener());
  year.makeMean(1, false);
  cache.trim(Cache::NoLimit);
  cache.setListener(Ostrel::CacheListener());

  const std::vector<Entry> entries = log.getEntries();
  ASSERT_EQ(entries.size(), 6U) << "two months and the mean, made and let go; the sum is in no group";
  double former = 0;
  for (const Entry& entry : entries) {
    EXPECT_GE(entry.seconds, former);
    former = entry.seconds;
    EXPECT_EQ(entry.nBytes, 64U);
    if (entry.isMade) {
      EXPECT_GT(entry.duration, 0);
      EXPECT_GE(entry.seconds, entry.duration) << "it was begun after the log was made";
    }
  }
  // Depth 1: rows 2 and 3 of two months, row 1 of the mean.
  const auto isMade = [&](std::size_t group, std::size_t row, bool made) {
    return std::count_if(entries.begin(), entries.end(), [=](const Entry& entry) {
      return entry.group == group && entry.row == row && entry.isMade == made;
    });
  };
  for (const bool made : {true, false}) {
    EXPECT_EQ(isMade(0, 2, made), 1);
    EXPECT_EQ(isMade(0, 3, made), 1);
    EXPECT_EQ(isMade(1, 1, made), 1);
  }
  EXPECT_EQ(entries.back().nHeld, 0U);
}

TEST(FragmentLogTest, AListenerMayOutliveItsLog) {
  const OceanField ocean(std::make_shared<TreskTest::TinyOcean>());
  {
    FragmentLog log;
    log.addGroup("all", {ocean.getFieldPtr()});
    Cache::MemCache()->setListener(log.makeListener());
  }
  EXPECT_TRUE(ocean.getSlab(ocean.getField().getFragmentID("May 0 m")));
  Cache::MemCache()->setListener(Ostrel::CacheListener());
  Cache::MemCache()->trim(Cache::NoLimit);
}

}  // namespace
