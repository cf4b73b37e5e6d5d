// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/TraceWriter.hpp>

#include <support/CreatorDoubles.hpp>
#include <support/TraceFile.hpp>

#include <gtest/gtest.h>

#include "EachAllocation.hpp"

#include <memory>
#include <string>
#include <thread>

namespace {

using Ostrel::Profiler;
using Ostrel::TraceWriter;
using TreskTest::EachAllocation;
using TreskTest::FailingAllocation;
using TreskTest::TraceFile;

class TraceAllocationTest : public testing::Test {
 protected:
  TreskTest::TestFolder folder;
  const std::string path = folder / "trace.json";
};

TEST_F(TraceAllocationTest, WriterIsMadeOrThrows) {
  EachAllocation each;
  each.makes(
      "writer", [this] { return std::make_unique<TraceWriter>(path); },
      [](const std::unique_ptr<TraceWriter>& writer) { return writer->close(); });
  EXPECT_TRUE(TraceFile(path).events().empty());
}

TEST_F(TraceAllocationTest, RecordingOnAKnownThreadNeedsNoMemory) {
  EachAllocation each;
  TraceWriter writer(path);
  const Profiler::Scope scope{"field/Some", 1, "void Some::function()", "scope", 5, "detail"};
  const std::string name = "a counter whose name does not fit into a string object";
  each.needsNone("scope", [&] {
    writer.begin(scope);
    writer.counter(name, 3);
    writer.end(scope);
    return writer.isComplete();
  });
  each.needsNone("end", [&] { return writer.close() && writer.close(); });
  EXPECT_EQ(TraceFile(path).slices(1).size(), 3U);
}

TEST_F(TraceAllocationTest, FunctionsForCachesAreMadeOrNot) {
  EachAllocation each;
  TraceWriter writer(path);
  each.makes(
      "listener", [&] { return writer.makeCacheListener("a counter whose name does not fit into a string object"); },
      [](const Ostrel::CacheListener& listener) { return static_cast<bool>(listener); });
  EXPECT_TRUE(writer.close());
}

TEST_F(TraceAllocationTest, AThreadThatFindsNoMemoryIsLeftOut) {
  TraceWriter writer(path);
  const Profiler::Scope lost{"f", 1, "", "lost", 5, ""};
  const Profiler::Scope kept{"f", 2, "", "kept", 5, ""};
  std::thread([&] {
    {
      const FailingAllocation failing(0, FailingAllocation::Kind::FromThereOn);
      writer.begin(lost);
    }
    EXPECT_FALSE(writer.isComplete());
    writer.begin(kept);
    writer.end(kept);
    writer.end(lost);
  }).join();
  EXPECT_FALSE(writer.close());
  const TraceFile trace(path);
  EXPECT_TRUE(trace.slices("lost").empty());
  EXPECT_EQ(trace.slices("kept").size(), 1U);
}

TEST_F(TraceAllocationTest, EventsOfACacheThatFindNoMemoryAreLeftOut) {
  EachAllocation each;
  TraceWriter writer(path);
  const Ostrel::CacheListener listener = writer.makeCacheListener();
  const TreskTest::CachePtr cache(new Ostrel::Cache);
  const TreskTest::CreatorPtr<TreskTest::ForgetfulCreator> creator(new TreskTest::ForgetfulCreator(cache));
  Ostrel::CacheEvent event;
  event.kind = Ostrel::CacheEventKind::Evicted;
  event.creator = creator;
  int nTold = 0;
  each.copes("event", [&] {
    listener(event);
    ++nTold;
    return true;
  });
  EXPECT_TRUE(nTold == 3) << "the listener throws nothing";
  EXPECT_FALSE(writer.close());
  EXPECT_GE(TraceFile(path).events("i", "Evicted").size(), 1U);
}

}  // namespace
