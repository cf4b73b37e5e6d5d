// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Creature.hpp>
#include <tresk/foundation/TraceWriter.hpp>

#include <support/ProfilerRecorder.hpp>
#include <support/RaceRunner.hpp>
#include <support/TraceFile.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Ostrel::CacheEvent;
using Ostrel::CacheEventKind;
using Ostrel::Profiler;
using Ostrel::TraceWriter;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using TreskTest::ProfilerRecorder;
using TreskTest::TraceFile;
using TreskTest::TraceSlice;

class TraceWriterTest : public testing::Test {
 protected:
  TreskTest::TestFolder folder;
  const std::string path = folder / "trace.json";

  static std::vector<std::string> namesOf(const std::vector<TraceSlice>& slices) {
    std::vector<std::string> names;
    for (const TraceSlice& slice : slices) names.push_back(slice.name);
    return names;
  }
  /// What a text reads after it went through the file as the name of a counter.
  std::string writtenAndRead(const std::string& text) const {
    TraceWriter writer(path);
    writer.counter(text, 1);
    EXPECT_TRUE(writer.close());
    const auto events = TraceFile(path).events("C");
    return events.size() == 1 ? events[0]["name"].get<std::string>() : "no counter";
  }
};

TEST_F(TraceWriterTest, EmptyTraceIsATrace) {
  { const TraceWriter writer(path); }
  const TraceFile trace(path);
  EXPECT_TRUE(trace.events().empty());
  EXPECT_THAT(trace.threadNames(), ElementsAre(Pair(1, "main")));
}

TEST_F(TraceWriterTest, ScopesNestAndTellWhatTheyAre) {
  TraceWriter writer(path);
  writer.attach();
  {
    const Profiler outer("field/Some", 7, "int Some::outer()", "outer", 5, "of all");
    { const Profiler inner("field/Some", 8, "int Some::inner()", "inner", 6, ""); }
    const Profiler second("field/Some", 9, "", "second", 6, "");
  }
  EXPECT_TRUE(writer.close());
  const TraceFile trace(path);
  const std::vector<TraceSlice> slices = trace.slices(1);
  ASSERT_THAT(namesOf(slices), ElementsAre("outer", "inner", "second"));
  EXPECT_LE(slices[1].end, slices[2].begin);
  EXPECT_LE(slices[2].end, slices[0].end);
  EXPECT_EQ(slices[0].event["args"],
            nlohmann::json(
                {{"source", "field/Some:7"}, {"function", "int Some::outer()"}, {"level", 5}, {"detail", "of all"}}));
  EXPECT_EQ(slices[0].event["cat"], "scope");
  EXPECT_FALSE(slices[1].event["args"].contains("detail"));
}

TEST_F(TraceWriterTest, TimesAreMicrosecondsFromTheConstructionOn) {
  const auto before = std::chrono::steady_clock::now();
  TraceWriter writer(path);
  const auto made = std::chrono::steady_clock::now();
  writer.attach();
  { const Profiler scope("f", 1, "", "scope", 5, ""); }
  const auto after = std::chrono::steady_clock::now();
  writer.close();
  const double latest = std::chrono::duration<double, std::micro>(after - before).count();
  const TraceFile trace(path);
  ASSERT_EQ(trace.events("B").size(), 1U);
  EXPECT_LE(trace.events("B")[0]["ts"], trace.events("E")[0]["ts"]);
  EXPECT_LE(trace.events("E")[0]["ts"], latest);
  // An event of the cache tells its own time.
  TraceWriter other(path);
  CacheEvent event;
  event.kind = CacheEventKind::Entered;
  event.time = made + std::chrono::seconds(5);
  other.makeCacheListener()(event);
  other.close();
  const TraceFile second(path);
  ASSERT_EQ(second.events("i").size(), 1U);
  EXPECT_LE(second.events("i")[0]["ts"], 5e6);
  const std::chrono::duration<double, std::micro> sinceMade = std::chrono::steady_clock::now() - made;
  EXPECT_GT(second.events("i")[0]["ts"], 5e6 - sinceMade.count());
}

TEST_F(TraceWriterTest, TextsComeBackAsTheyWere) {
  for (const std::string text : {"plain", "a \"quoted\" \\ name", "line\nbreak\ttab\r\b\f", "\x01\x1f\x7f", "",
                                 "Gr\xc3\xb6\xc3\x9f"
                                 "e \xe2\x82\xac \xf0\x9f\x8c\x8a \xed\x9f\xbf \xee\x80\x80 \xf4\x8f\xbf\xbf"})
    EXPECT_EQ(writtenAndRead(text), text);
  EXPECT_EQ(writtenAndRead(std::string("a\0b", 3)), std::string("a\0b", 3));
  const std::string large(200000, '"');
  EXPECT_EQ(writtenAndRead(large), large) << "longer than the buffer";
}

TEST_F(TraceWriterTest, BytesThatAreNoTextAreReplaced) {
  const std::string r = "\xef\xbf\xbd";
  for (const auto& [bytes, text] : std::vector<std::pair<std::string, std::string>>{{"\xff", r},
                                                                                    {"a\x80"
                                                                                     "b",
                                                                                     "a" + r + "b"},
                                                                                    {"\xc0\xaf", r + r},
                                                                                    {"\xc3", r},
                                                                                    {"\xc3(", r + "("},
                                                                                    {"\xe0\x9f\xbf", r + r + r},
                                                                                    {"\xe2\x82", r + r},
                                                                                    {"\xe2\x28\xa1", r + "(" + r},
                                                                                    {"\xed\xa0\x80", r + r + r},
                                                                                    {"\xf0\x8f\xbf\xbf", r + r + r + r},
                                                                                    {"\xf4\x90\x80\x80", r + r + r + r},
                                                                                    {"\xf5\x80\x80\x80", r + r + r + r},
                                                                                    {"\xf0\x9f\x8c", r + r + r}})
    EXPECT_EQ(writtenAndRead(bytes), text);
}

TEST_F(TraceWriterTest, ThreadsHaveSmallNumbersAndNames) {
  TraceWriter writer(path);
  writer.attach();
  { const Profiler scope("f", 1, "", "first", 5, ""); }
  std::thread([] { const Profiler scope("f", 2, "", "second", 5, ""); }).join();
  writer.close();
  const TraceFile trace(path);
  EXPECT_THAT(trace.threadNames(), ElementsAre(Pair(1, "main"), Pair(2, "thread 2")));
  EXPECT_THAT(namesOf(trace.slices(1)), ElementsAre("first"));
  EXPECT_THAT(namesOf(trace.slices(2)), ElementsAre("second"));
}

TEST_F(TraceWriterTest, ScopesOfSeveralThreadsNestInEach) {
  constexpr int nRounds = 100;
  TraceWriter writer(path);
  writer.attach();
  const Ostrel::CacheListener listener = writer.makeCacheListener();
  TreskTest::RaceRunner race;
  race.add(3, [&](int) {
    for (int i = 0; i < nRounds; ++i) {
      const Profiler outer("f", i, "", "outer", 5, "");
      const Profiler inner("f", i, "", "inner", 6, "");
      writer.counter("round", i);
      CacheEvent event;
      event.kind = CacheEventKind::Entered;
      listener(event);
    }
  });
  race.run();
  EXPECT_TRUE(writer.close());
  const TraceFile trace(path);
  EXPECT_EQ(trace.threadNames().size(), 4U);
  EXPECT_EQ(trace.slices("outer").size(), 3U * nRounds);
  EXPECT_EQ(trace.slices("inner").size(), 3U * nRounds);
  EXPECT_EQ(trace.events("C", "round").size(), 3U * nRounds);
  EXPECT_EQ(trace.events("i", "Entered").size(), 3U * nRounds);
}

TEST_F(TraceWriterTest, AttachedAgainItKeepsItsPlaceAmongTheListeners) {
  Profiler::Listener* const former = Profiler::setListener(nullptr);
  {
    TraceWriter first(path);
    first.attach();
    TraceWriter second(folder / "second.json");
    second.attach();
    first.attach();
    { const Profiler scope("f", 1, "", "heard by the second", 5, ""); }
    EXPECT_TRUE(second.close());
    { const Profiler scope("f", 2, "", "heard by the first", 5, ""); }
  }
  EXPECT_EQ(Profiler::setListener(former), nullptr) << "none that has died";
  EXPECT_THAT(namesOf(TraceFile(folder / "second.json").slices(1)), ElementsAre("heard by the second"));
  EXPECT_THAT(namesOf(TraceFile(path).slices(1)), ElementsAre("heard by the first"));
}

TEST_F(TraceWriterTest, AProcessThatIsForkedOffWritesNothing) {
  TraceWriter writer(path);
  writer.attach();
  { const Profiler scope("f", 1, "", "before", 5, ""); }
  const pid_t child = fork();
  if (child == 0) {
    { const Profiler scope("f", 2, "", "in the child", 5, ""); }
    writer.close();
    _exit(0);
  }
  ASSERT_GT(child, 0);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  { const Profiler scope("f", 3, "", "after", 5, ""); }
  EXPECT_TRUE(writer.close());
  EXPECT_THAT(namesOf(TraceFile(path).slices(1)), ElementsAre("before", "after"));
}

TEST_F(TraceWriterTest, ScopesThatAreOpenWhenItIsClosedEndInTheFile) {
  TraceWriter writer(path);
  writer.attach();
  {
    const Profiler outer("f", 1, "", "outer", 5, "");
    const Profiler inner("f", 2, "", "inner", 5, "");
    EXPECT_TRUE(writer.close());
    const TraceFile trace(path);
    EXPECT_THAT(namesOf(trace.slices(1)), ElementsAre("outer", "inner"));
  }
  const std::uintmax_t nBytes = std::filesystem::file_size(path);
  writer.counter("late", 1);
  writer.makeCacheListener()(CacheEvent{});
  EXPECT_TRUE(writer.close());
  EXPECT_EQ(std::filesystem::file_size(path), nBytes) << "nothing comes after the end";
}

TEST_F(TraceWriterTest, ItIsClosedWhileOthersRecord) {
  constexpr int nRounds = 100;
  for (int nBefore = 0; nBefore < 2 * nRounds; nBefore += 50) {
    const std::string ownPath = folder / (std::to_string(nBefore) + ".json");
    TraceWriter writer(ownPath);
    writer.attach();
    std::atomic<int> nDone{0};
    TreskTest::RaceRunner race;
    race.add(2, [&](int) {
      for (int i = 0; i < nRounds; ++i) {
        const Profiler outer("f", 1, "", "outer", 5, "");
        const Profiler inner("f", 2, "", "inner", 6, "");
        writer.counter("n", 1);
        ++nDone;
      }
    });
    race.add([&](int) {
      while (nDone < nBefore) std::this_thread::yield();
      EXPECT_TRUE(writer.close());
    });
    race.run();
    const TraceFile trace(ownPath);
    EXPECT_EQ(trace.events("B").size(), trace.events("E").size());
    EXPECT_GE(trace.events("B").size(), static_cast<std::size_t>(2 * nBefore));
  }
}

TEST_F(TraceWriterTest, EndWithoutBeginningIsLeftOut) {
  TraceWriter writer(path);
  const Profiler::Scope scope{"f", 1, "", "scope", 5, ""};
  writer.end(scope);
  std::thread([&] { writer.end(scope); }).join();
  writer.begin(scope);
  std::thread([&] { writer.end(scope); }).join();
  EXPECT_TRUE(writer.close());
  EXPECT_THAT(namesOf(TraceFile(path).slices(1)), ElementsAre("scope"));
}

TEST_F(TraceWriterTest, TheFormerListenerIsInstalledAgain) {
  const ProfilerRecorder former;
  {
    TraceWriter writer(path);
    writer.attach();
    writer.attach();
    { const Profiler scope("f", 1, "", "heard by the writer", 5, ""); }
    EXPECT_THAT(former.events(), IsEmpty());
  }
  { const Profiler scope("f", 1, "", "heard by the former", 5, ""); }
  EXPECT_EQ(former.events().size(), 2U);
  EXPECT_EQ(TraceFile(path).slices(1).size(), 1U);
}

TEST_F(TraceWriterTest, AListenerThatWasInstalledSinceStays) {
  {
    TraceWriter writer(path);
    writer.attach();
    const ProfilerRecorder later;
    writer.close();
    { const Profiler scope("f", 1, "", "scope", 5, ""); }
    EXPECT_EQ(later.events().size(), 2U);
  }
  EXPECT_EQ(Profiler::setListener(nullptr), nullptr) << "though the later one has put the closed writer back";
}

TEST_F(TraceWriterTest, AClosedWriterIsNotAttached) {
  TraceWriter writer(path);
  writer.close();
  writer.attach();
  EXPECT_EQ(Profiler::setListener(nullptr), nullptr);
}

TEST_F(TraceWriterTest, ReplacingAListenerTellsWhetherItWasInstalled) {
  ProfilerRecorder recorder;
  EXPECT_FALSE(Profiler::replaceListener(nullptr, nullptr));
  EXPECT_TRUE(Profiler::replaceListener(&recorder, nullptr));
  EXPECT_TRUE(Profiler::replaceListener(nullptr, &recorder));
  EXPECT_EQ(Profiler::setListener(&recorder), &recorder);
}

TEST_F(TraceWriterTest, CountersAreNumbers) {
  TraceWriter writer(path);
  for (const double value : {0.0, -1.5, 1e300, 12345678901234.0, std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN()})
    writer.counter("value", value);
  EXPECT_TRUE(writer.close());
  std::vector<double> values;
  for (const auto& event : TraceFile(path).events("C", "value")) values.push_back(event["args"]["value"]);
  EXPECT_THAT(values, ElementsAre(0.0, -1.5, 1e300, 12345678901234.0));
}

TEST_F(TraceWriterTest, EventsOfACacheAreSlicesInstantsAndACounter) {
  TraceWriter writer(path);
  const Ostrel::CacheListener listener = writer.makeCacheListener("held by A");
  CacheEvent event;
  event.nBytes = 100;
  event.nHeldBytes = 300;
  event.time = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  event.kind = CacheEventKind::Produced;
  event.seconds = 1.5;
  listener(event);
  event.kind = CacheEventKind::Thrown;
  event.text = "the \"disk\"";
  listener(event);
  event.kind = CacheEventKind::Used;
  listener(event);
  EXPECT_TRUE(writer.close());
  const TraceFile trace(path);
  const std::vector<TraceSlice> slices = trace.slices(1);
  ASSERT_THAT(namesOf(slices), ElementsAre("production"));
  EXPECT_EQ(slices[0].end - slices[0].begin, 1500000000LL);
  EXPECT_EQ(slices[0].event["args"], nlohmann::json({{"bytes", 100}}));
  const auto instants = trace.events("i");
  ASSERT_EQ(instants.size(), 1U) << "uses are left out";
  EXPECT_EQ(instants[0]["name"], "Thrown");
  EXPECT_EQ(instants[0]["args"]["text"], "the \"disk\"");
  const auto counters = trace.events("C", "held by A");
  ASSERT_EQ(counters.size(), 2U);
  EXPECT_EQ(counters[0]["args"]["value"], 300);
}

TEST_F(TraceWriterTest, AProductionThatBeganEarlierBeginsWithTheTrace) {
  TraceWriter writer(path);
  CacheEvent event;
  event.kind = CacheEventKind::Produced;
  event.seconds = 3600;
  writer.makeCacheListener()(event);
  writer.close();
  const std::vector<TraceSlice> slices = TraceFile(path).slices(1);
  ASSERT_EQ(slices.size(), 1U);
  EXPECT_EQ(slices[0].begin, 0);
}

TEST_F(TraceWriterTest, FunctionsForCachesOutliveTheWriter) {
  std::optional<TraceWriter> writer(std::in_place, path);
  const Ostrel::CacheListener listener = writer->makeCacheListener();
  writer.reset();
  CacheEvent event;
  event.kind = CacheEventKind::Produced;
  listener(event);
  EXPECT_THAT(TraceFile(path).events(), IsEmpty());
}

TEST_F(TraceWriterTest, APathThatCannotBeWrittenIsNamedWithTheReason) {
  const std::string nowhere = folder / "no/such/folder/trace.json";
  try {
    const TraceWriter writer(nowhere);
    FAIL() << "no exception";
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr("'" + nowhere + "'"), HasSubstr("No such file or directory")));
  }
  EXPECT_THROW(TraceWriter(folder / ""), std::runtime_error) << "a folder";
}

TEST_F(TraceWriterTest, AFileThatCannotBeWrittenToItsEndIsReported) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "there is no /dev/full here";
  {
    TraceWriter writer("/dev/full");
    EXPECT_TRUE(writer.isComplete());
    EXPECT_FALSE(writer.close()) << "nothing was written before";
    EXPECT_FALSE(writer.isComplete());
    EXPECT_FALSE(writer.close());
  }
  TraceWriter writer("/dev/full");
  writer.counter(std::string(100000, 'x'), 1);
  EXPECT_FALSE(writer.isComplete()) << "the buffer was written";
  writer.attach();
  for (int i = 0; i < 10000; ++i) const Profiler scope("f", i, "", "scope", 5, "");
  EXPECT_FALSE(writer.close());
}

TEST_F(TraceWriterTest, ANewTraceReplacesTheOldFile) {
  std::ofstream(path) << std::string(5000, 'x');
  { const TraceWriter writer(path); }
  EXPECT_TRUE(TraceFile(path).events().empty());
}

}  // namespace
