// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Profiler.hpp>

#include <support/ProfilerRecorder.hpp>
#include <support/RaceRunner.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

using Ostrel::Profiler;
using TreskTest::ProfilerRecorder;

TEST(ProfilerTest, ScopeTellsItsArgumentsAtBothEnds) {
  const ProfilerRecorder recorder;
  {
    const Profiler scope("field/CreativeArray", 74, "virtual int release()", "release", 5, "");
    ASSERT_EQ(recorder.events().size(), 1U);
  }
  const std::vector<ProfilerRecorder::Event> events = recorder.events();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_TRUE(events[0].isBegin);
  EXPECT_FALSE(events[1].isBegin);
  for (const ProfilerRecorder::Event& event : events) {
    EXPECT_EQ(event.scope.file, "field/CreativeArray");
    EXPECT_EQ(event.scope.line, 74);
    EXPECT_EQ(event.scope.function, "virtual int release()");
    EXPECT_EQ(event.scope.name, "release");
    EXPECT_EQ(event.scope.level, 5);
    EXPECT_EQ(event.scope.detail, "");
  }
}

TEST(ProfilerTest, ScopesTakeStringsAsWellAsLiterals) {
  const ProfilerRecorder recorder;
  {
    const std::string file = "a";
    const std::string text = "b";
    const Profiler scope(file, 1, text, text, 2, file);
  }
  ASSERT_EQ(recorder.events().size(), 2U);
  EXPECT_EQ(recorder.events()[0].scope.file, "a");
  EXPECT_EQ(recorder.events()[0].scope.function, "b");
  EXPECT_EQ(recorder.events()[0].scope.detail, "a");
}

TEST(ProfilerTest, ScopesNest) {
  const ProfilerRecorder recorder;
  {
    const Profiler outer("f", 1, "", "outer", 5, "");
    { const Profiler inner("f", 2, "", "inner", 6, ""); }
    const Profiler second("f", 3, "", "second", 6, "");
  }
  std::vector<std::string> order;
  for (const ProfilerRecorder::Event& event : recorder.events())
    order.push_back((event.isBegin ? "+" : "-") + event.scope.name);
  EXPECT_EQ(order, (std::vector<std::string>{"+outer", "+inner", "-inner", "+second", "-second", "-outer"}));
}

TEST(ProfilerTest, WithoutListenerNothingIsRecorded) {
  { const Profiler scope("f", 1, "", "before", 5, ""); }
  const ProfilerRecorder recorder;
  EXPECT_TRUE(recorder.events().empty());
}

TEST(ProfilerTest, ScopeOpenedBeforeTheListenerDoesNotEndThere) {
  auto scope = std::make_unique<Profiler>("f", 1, "", "early", 5, "");
  const ProfilerRecorder recorder;
  scope.reset();
  EXPECT_TRUE(recorder.events().empty());
}

TEST(ProfilerTest, ScopeEndsWithTheListenerThatHeardItsBeginning) {
  const ProfilerRecorder outer;
  const ProfilerRecorder inner;
  {
    const Profiler scope("f", 1, "", "scope", 5, "");
    Profiler::Listener* const former = Profiler::setListener(nullptr);
    EXPECT_EQ(former, &inner);
    Profiler::setListener(former);
  }
  EXPECT_EQ(inner.events().size(), 2U);
  EXPECT_TRUE(outer.events().empty());
}

TEST(ProfilerTest, ScopesOfSeveralThreadsAreAllHeard) {
  const ProfilerRecorder recorder;
  TreskTest::RaceRunner race;
  race.add(3, [](int) {
    for (int i = 0; i < 100; ++i) const Profiler scope("f", i, "", "scope", 5, "");
  });
  race.run();
  const std::vector<ProfilerRecorder::Event> events = recorder.events();
  EXPECT_EQ(events.size(), 600U);
  EXPECT_EQ(std::count_if(events.begin(), events.end(), [](const auto& event) { return event.isBegin; }), 300);
}

}  // namespace
