// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "TinyOcean.hpp"

#include <gtest/gtest.h>
#include <ocean/DepthMeans.hpp>
#include <ocean/Interrupt.hpp>
#include <support/AsynchronDoubles.hpp>

#include <atomic>
#include <csignal>
#include <functional>
#include <optional>
#include <thread>

namespace {

using namespace Example;

TEST(InterruptTest, TheFirstSignalSetsAFlagAndNothingElse) {
  {
    const Interrupt interrupt;
    EXPECT_FALSE(Interrupt::isRequested());
    EXPECT_NO_THROW(Interrupt::check());
    std::raise(SIGINT);
    EXPECT_TRUE(Interrupt::isRequested());
    EXPECT_THROW(Interrupt::check(), Interrupted);
  }
  EXPECT_FALSE(Interrupt::isRequested()) << "its time is over";
}

void raiseTwice() {
  const Interrupt interrupt;
  std::raise(SIGINT);
  std::raise(SIGINT);
}

TEST(InterruptDeathTest, TheSecondSignalEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(raiseTwice(), testing::KilledBySignal(SIGINT), "");
}

/// Calls a function in the middle of reading a slab.
class WatchedOcean : public TreskTest::TinyOcean {
 public:
  std::function<void(std::size_t depth)> onRead;
  mutable std::atomic<int> nRead{0};

 protected:
  void fill(std::size_t month, std::size_t depth, std::span<double> cells) const override {
    if (onRead) onRead(depth);
    TinyOcean::fill(month, depth, cells);
    ++nRead;
  }
};

TEST(DepthMeansTest, AreTheMeansByAreaOfAllDepths) {
  const auto source = std::make_shared<WatchedOcean>();
  const DepthMeans production(source, 1);
  EXPECT_EQ(source->nRead, 0) << "before anybody asks";
  ASSERT_TRUE(production.getCreator().request(nullptr));
  const MeansPtr means = production.join();
  EXPECT_EQ(means->nElements(), 3U);
  EXPECT_NEAR((*means)(2), 1200 + (6 + 36 * 0.5) / 5.5, 1e-9);
  EXPECT_EQ(production.nDone(), 3U);
}

TEST(DepthMeansTest, AnInterruptDiscardsTheProductionAtTheNextDepth) {
  const Interrupt interrupt;
  const auto source = std::make_shared<WatchedOcean>();
  TreskTest::Tokens permits;
  // The user interrupts while the thread reads the second of three slabs, and it goes on after it was discarded.
  source->onRead = [&](std::size_t depth) {
    if (depth != 1) return;
    std::raise(SIGINT);
    permits.take();
  };
  std::optional<DepthMeans> production(std::in_place, source, 0);
  ASSERT_TRUE(production->getCreator().request(nullptr));
  EXPECT_THROW(production->join(), Interrupted);
  permits.add();
  production.reset();  // waits for the thread
  EXPECT_EQ(source->nRead, 2);
  EXPECT_EQ(source.use_count(), 1) << "nothing is left that could read";
}

TEST(DepthMeansTest, TheirEndWaitsForAThreadThatIsAtWork) {
  const auto source = std::make_shared<WatchedOcean>();
  TreskTest::Gate gate;
  source->onRead = [&](std::size_t depth) {
    if (depth == 0) gate.pass();
  };
  std::optional<DepthMeans> production(std::in_place, source, 0);
  ASSERT_TRUE(production->getCreator().request(nullptr));
  gate.waitForVisitor();
  std::thread opener([&gate] { gate.open(); });
  production.reset();
  opener.join();
  EXPECT_GE(source->nRead, 1);
  EXPECT_EQ(source.use_count(), 1) << "its thread has ended";
}

TEST(DepthMeansTest, AnErrorOfTheSourceComesOutOfJoin) {
  const auto source = std::make_shared<WatchedOcean>();
  source->isBroken = true;
  const DepthMeans production(source, 0);
  ASSERT_TRUE(production.getCreator().request(nullptr));
  EXPECT_THROW(production.join(), std::runtime_error);
}

}  // namespace
