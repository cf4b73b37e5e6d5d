// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// What a trace shows of creators and of their cache.

#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/foundation/TraceWriter.hpp>

#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>
#include <support/TraceFile.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace Tresk;
using Ostrel::Cache;
using Ostrel::Profiler;
using Ostrel::TraceWriter;
using testing::ElementsAre;
using TreskTest::TraceFile;
using TreskTest::TraceSlice;

constexpr unsigned long long nElements = 1000;

class TraceWriterFieldTest : public TreskTest::RecordBalanceTest {
 protected:
  /// A creator of `nElements` doubles that calls `work` first.
  CreatorPtr make(const std::function<void()>& work = {}) const {
    return CreatorPtr(new FunctionalCreator(
        [work] {
          if (work) work();
          return MemBasePtr(new MemArray<1, double>({nElements}, CreatorWeakPtr()));
        },
        false, cache));
  }

  TreskTest::TestFolder folder;
  const std::string path = folder / "trace.json";
  CachePtr cache = CachePtr(new Cache);
};

TEST_F(TraceWriterFieldTest, ProductionsEvictionsAndTheBytesHeldAreInTheFile) {
  TraceWriter writer(path);
  writer.attach();
  cache->setListener(writer.makeCacheListener());
  const CreatorPtr a = make();
  const CreatorPtr b = make();
  const unsigned long long nBytes = a->create(false)->memsize();
  cache->setLimit(nBytes);
  b->create(false);
  a->create(false);
  cache->setListener({});
  EXPECT_TRUE(writer.close());

  const TraceFile trace(path);
  const std::vector<TraceSlice> productions = trace.slices("production");
  ASSERT_EQ(productions.size(), 3U);
  std::vector<long long> creators;
  for (const TraceSlice& slice : productions) {
    EXPECT_EQ(slice.event["cat"], "cache");
    EXPECT_EQ(slice.event["args"]["creator"], "Tresk::FunctionalCreator");
    EXPECT_EQ(slice.event["args"]["bytes"], nBytes);
    creators.push_back(slice.event["args"]["creator number"]);
  }
  EXPECT_THAT(creators, ElementsAre(a->getSerialNumber(), b->getSerialNumber(), a->getSerialNumber()));
  const auto evictions = trace.events("i", "Evicted");
  ASSERT_EQ(evictions.size(), 2U);
  EXPECT_EQ(evictions[0]["args"]["creator number"], a->getSerialNumber());
  EXPECT_EQ(evictions[1]["args"]["creator number"], b->getSerialNumber());
  EXPECT_LE(productions[1].end, evictions[0]["ts"].get<double>() * 1000 + 1) << "times are those of the events";
  EXPECT_GE(productions[2].begin, evictions[0]["ts"].get<double>() * 1000 - 1);
  std::vector<unsigned long long> held;
  for (const auto& event : trace.events("C", "bytes held")) held.push_back(event["args"]["value"]);
  EXPECT_THAT(held, ElementsAre(nBytes, 2 * nBytes, nBytes, 2 * nBytes, nBytes));
}

TEST_F(TraceWriterFieldTest, ProductionsStandInsideEachOtherAndAroundTheirScopes) {
  TraceWriter writer(path);
  writer.attach();
  cache->setListener(writer.makeCacheListener());
  const CreatorPtr first = make();
  const CreatorPtr second = make([] { const Profiler scope("f", 1, "", "inside the second", 5, ""); });
  const CreatorPtr sum = make([&] {
    const Profiler scope("f", 2, "", "inside the sum", 5, "");
    first->create(false);
    second->create(false);
  });
  {
    const Profiler scope("f", 3, "", "around", 5, "");
    sum->create(false);
  }
  cache->setListener({});
  EXPECT_TRUE(writer.close());
  // Events are told when the outermost operation has ended: their times are not those of the telling.
  const TraceFile trace(path);
  std::vector<std::string> names;
  const std::vector<TraceSlice> slices = trace.slices(1);
  for (const TraceSlice& slice : slices) names.push_back(slice.name);
  ASSERT_THAT(names,
              ElementsAre("around", "production", "inside the sum", "production", "production", "inside the second"));
  EXPECT_EQ(slices[1].event["args"]["creator number"], sum->getSerialNumber());
  EXPECT_EQ(slices[3].event["args"]["creator number"], first->getSerialNumber());
  EXPECT_LE(slices[3].end, slices[4].begin) << "one after the other";
  EXPECT_LE(slices[5].end, slices[4].end);
}

TEST_F(TraceWriterFieldTest, AProductionWhoseDataEnterBeforeItsEndBeginsWhereItBegan) {
  constexpr int nRounds = 2000;
  TraceWriter writer(path);
  writer.attach();
  cache->setListener(writer.makeCacheListener());
  for (int round = 0; round < nRounds; ++round) {
    CreatorWeakPtr self;
    const CreatorPtr creator = make();
    const CreatorPtr early(new FunctionalCreator(
        [&self, &creator] {
          creator->create(false);
          MemBasePtr made(new MemArray<1, double>({nElements}, CreatorWeakPtr()));
          made->setCreator(self);  // as a creator does that needs no more of the production
          return made;
        },
        false, cache));
    self = early;
    early->create(false);
  }
  cache->setListener({});
  EXPECT_TRUE(writer.close());
  // The file itself is checked to nest: none of the inner ones begins before the one around it.
  EXPECT_EQ(TraceFile(path).slices("production").size(), 2U * nRounds);
}

TEST_F(TraceWriterFieldTest, FailuresAndRefusalsAreInstants) {
  TraceWriter writer(path);
  cache->setListener(writer.makeCacheListener());
  const CreatorPtr failing = make([] { throw std::runtime_error("no data"); });
  EXPECT_THROW(failing->create(false), std::runtime_error);
  const CreatorPtr kept(new CreativeArray(MemBasePtr(new MemArray<1, double>({nElements}, CreatorWeakPtr())), cache));
  kept->enableCaching(false);
  EXPECT_EQ(cache->trim(1), 0U);
  cache->setLimit(10);
  cache->setListener({});
  EXPECT_TRUE(writer.close());
  const TraceFile trace(path);
  EXPECT_EQ(trace.events("i", "Failed").size(), 1U);
  EXPECT_GE(trace.events("i", "CannotRelease").size(), 1U);
  EXPECT_EQ(trace.events("i", "LimitExceeded").size(), 1U);
  for (const auto& event : trace.events("i", "CannotRelease")) {
    EXPECT_EQ(event["args"]["creator"], "Tresk::CreativeArray");
    EXPECT_EQ(event["args"]["bytes"], kept->getData()->memsize());
  }
}

TEST_F(TraceWriterFieldTest, ThreadsShowTheirOwnProductions) {
  constexpr int nThreads = 3;
  constexpr int nRounds = 20;
  TraceWriter writer(path);
  writer.attach();
  cache->setListener(writer.makeCacheListener());
  std::vector<CreatorPtr> creators;
  for (int i = 0; i < nThreads * nRounds; ++i) creators.push_back(make());
  creators.front()->create(false);
  cache->setLimit(2 * creators.front()->create(false)->memsize());
  TreskTest::RaceRunner race;
  race.add(nThreads, [&](int thread) {
    for (int i = 0; i < nRounds; ++i) creators[static_cast<std::size_t>(i * nThreads + thread)]->create(false);
  });
  race.run();
  cache->setListener({});
  EXPECT_TRUE(writer.close());
  const TraceFile trace(path);
  const Ostrel::CacheStatistics counts = cache->getStatistics();
  EXPECT_EQ(trace.slices("production").size(), counts.nProductions);
  EXPECT_EQ(trace.events("i", "Evicted").size(), counts.nEvicted);
  EXPECT_GT(counts.nEvicted, 0U);
  for (int thread = 2; thread <= nThreads + 1; ++thread) {
    int nProductions = 0;
    for (const TraceSlice& slice : trace.slices(thread)) nProductions += slice.name == "production" ? 1 : 0;
    EXPECT_GE(nProductions, nRounds - 1) << "thread " << thread;
  }
}

}  // namespace
