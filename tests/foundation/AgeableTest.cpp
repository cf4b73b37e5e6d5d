// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Ageable.hpp>
#include <tresk/foundation/Attributes.hpp>

#include <support/RaceRunner.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

namespace {

using Ostrel::Ageable;

TEST(AgeableTest, UntouchedStampIsTheStartOfTheClock) {
  const Ageable age;
  EXPECT_EQ(age.getAge(), 0);
  EXPECT_LE(age, Ageable::now());
}

TEST(AgeableTest, OldestStampIsOlderThanAnyOther) {
  EXPECT_LT(Ageable::Ooooold, Ageable());
  EXPECT_LT(Ageable::Ooooold, Ageable(std::numeric_limits<long long>::min() + 1));
  EXPECT_LT(Ageable::Ooooold, Ageable::now());
  Ageable touched;
  touched.touch();
  EXPECT_LT(Ageable::Ooooold, touched);
  EXPECT_LE(Ageable::Ooooold, Ageable::Ooooold);
  EXPECT_FALSE(Ageable::Ooooold < Ageable::Ooooold);
}

TEST(AgeableTest, TouchLetsTheClockTickAndTakesItsValue) {
  const long long before = Ageable::GlobalTime.load();
  Ageable age;
  EXPECT_EQ(&age.touch(), &age);
  EXPECT_EQ(age.getAge(), before + 1);
  EXPECT_EQ(Ageable::GlobalTime.load(), before + 1);
  EXPECT_EQ(Ageable::now().getAge(), before + 1);
}

TEST(AgeableTest, ConstructionAndCopyDoNotTick) {
  const long long before = Ageable::GlobalTime.load();
  Ageable age(5);
  const Ageable copy(age);
  age = Ageable(7);
  EXPECT_EQ(Ageable::GlobalTime.load(), before);
  EXPECT_EQ(copy.getAge(), 5);
  EXPECT_EQ(age.getAge(), 7);
}

TEST(AgeableTest, LaterTouchIsYounger) {
  Ageable first;
  Ageable second;
  first.touch();
  second.touch();
  EXPECT_LT(first, second);
  EXPECT_LE(first, second);
  EXPECT_FALSE(second < first);
  EXPECT_FALSE(second <= first);
  EXPECT_LE(first, first);
  EXPECT_FALSE(first < first);
  EXPECT_EQ(first, Ageable(first));
}

TEST(AgeableTest, RaisingTakesYoungerStampsOnly) {
  Ageable age(10);
  EXPECT_FALSE(age.raiseTo(Ageable(9)));
  EXPECT_FALSE(age.raiseTo(Ageable(10)));
  EXPECT_EQ(age.getAge(), 10);
  EXPECT_TRUE(age.raiseTo(Ageable(11)));
  EXPECT_EQ(age.getAge(), 11);
}

TEST(AgeableTest, TextTellsStampsApart) {
  EXPECT_EQ(Ageable(42).str(), "42");
  EXPECT_EQ(Ageable().str(), "0");
  EXPECT_FALSE(Ageable::Ooooold.str().empty());
  EXPECT_NE(Ageable::Ooooold.str(), Ageable().str());
}

TEST(AgeableTest, ClockNeverLosesATickOfSeveralThreads) {
  constexpr int nThreads = 3;
  constexpr int nTouches = 2000;
  const long long before = Ageable::GlobalTime.load();
  std::vector<int> isSorted(nThreads, 0);
  TreskTest::RaceRunner race;
  race.add(nThreads, [&](int thread) {
    std::vector<long long> stamps;
    Ageable age;
    for (int i = 0; i < nTouches; ++i) stamps.push_back(age.touch().getAge());
    isSorted[static_cast<std::size_t>(thread)] = std::is_sorted(stamps.begin(), stamps.end()) ? 1 : 0;
  });
  race.run();
  EXPECT_EQ(Ageable::GlobalTime.load() - before, nThreads * nTouches);
  EXPECT_EQ(isSorted, std::vector<int>(nThreads, 1));
}

TEST(AgeableTest, SharedStampMayBeTouchedAndReadByAllThreads) {
  Ageable shared;
  std::vector<int> wentBack(3, 0);
  TreskTest::RaceRunner race;
  race.add([&](int) {
    for (int i = 0; i < 2000; ++i) shared.touch();
  });
  race.add(2, [&](int thread) {
    long long last = 0;
    for (int i = 0; i < 2000; ++i) {
      const long long seen = shared.getAge();
      if (seen < last) wentBack[static_cast<std::size_t>(thread)] = 1;
      last = seen;
    }
  });
  race.run();
  EXPECT_EQ(wentBack, std::vector<int>(3, 0)) << "with one writer the stamp only grows";
}

TEST(AttributesTest, AgeBeginsAtTheDefaultStampAndChangesOnAConstantObject) {
  const Ostrel::Attributes attributes;
  EXPECT_EQ(attributes.getAttributeAge(), Ageable());
  attributes.getAttributeAge().touch();
  EXPECT_LT(Ageable(), attributes.getAttributeAge());
}

}  // namespace
