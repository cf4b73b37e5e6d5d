// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/ReferenceRecord.hpp>

#include <gtest/gtest.h>

#include "FailingAllocation.hpp"

#include <cstddef>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

/// \file
/// Runs an operation again and again, each time with another allocation that fails.

namespace TreskTest {

/// Leaves this thread few reference records: for any further one the library has to allocate a block of them. Gives
/// back what it took at its end. Does nothing in a library that allocates each record by itself.
class FewRecords {
 public:
  explicit FewRecords(std::size_t nLeft) {
    taken_.reserve(MostTaken);
    const FailingAllocation noBlocks(0, FailingAllocation::Kind::FromThereOn, LargeBlock);
    try {
      while (taken_.size() < MostTaken) taken_.push_back(Ostrel::ReferenceRecord::allocate(nullptr));
    } catch (const std::bad_alloc&) {
      FailingAllocation::end();
    }
    for (; nLeft > 0 && !taken_.empty(); --nLeft) giveBackOne();
  }
  FewRecords(const FewRecords&) = delete;
  FewRecords& operator=(const FewRecords&) = delete;
  ~FewRecords() {
    while (!taken_.empty()) giveBackOne();
  }

 private:
  static constexpr std::size_t MostTaken = 1 << 15;

  void giveBackOne() {
    taken_.back()->lowerWeak();
    taken_.pop_back();
  }

  std::vector<Ostrel::ReferenceRecord*> taken_;
};

/// Fails each allocation of an operation in turn: once, and with all that follow it; and in the same way each reference
/// record that it needs. Demands each time that `std::bad_alloc` comes out and things are as before, or that the
/// operation has done its work all the same; that it does its work when it is tried again; and that nothing is left
/// allocated.
class EachAllocation {
 public:
  EachAllocation() {
    std::vector<Ostrel::ReferenceRecord*> room(4096);  // enough records for operations that are not short of them
    for (Ostrel::ReferenceRecord*& record : room) record = Ostrel::ReferenceRecord::allocate(nullptr);
    for (Ostrel::ReferenceRecord* const record : room) record->lowerWeak();
  }

  /// \param make makes what the operation works on; \param run the operation, `run(state)`
  /// \param isAsBefore, isDone questions `isAsBefore(state)`: whether it has failed without a trace, and whether it has
  /// done its work
  template <class Make, class Run, class IsAsBefore, class IsDone>
  void changes(const std::string& name, const Make& make, const Run& run, const IsAsBefore& isAsBefore,
               const IsDone& isDone) {
    using Kind = FailingAllocation::Kind;
    const testing::ScopedTrace trace(__FILE__, __LINE__, name);
    for (int i = 0; i < 2; ++i) {  // what is made at a first use, and stays
      auto state = make();
      ASSERT_TRUE(isAsBefore(state)) << "the test itself";
      run(state);
      ASSERT_TRUE(isDone(state)) << "with all the memory there is";
    }
    int nStruck = 0;
    for (const Kind kind : {Kind::Once, Kind::FromThereOn}) {
      const char* const kindName = kind == Kind::Once ? " alone" : " and all after it";
      for (long long n = 0; !testing::Test::HasFatalFailure(); ++n) {
        const testing::ScopedTrace where(__FILE__, __LINE__, "allocation " + std::to_string(n) + kindName);
        if (!failOnce(Round{n, kind, 0, {}}, make, run, isAsBefore, isDone)) break;
        ++nStruck;
      }
      for (std::size_t nRecords = 0; !testing::Test::HasFatalFailure(); ++nRecords) {
        const testing::ScopedTrace where(__FILE__, __LINE__, "record " + std::to_string(nRecords) + kindName);
        if (!failOnce(Round{0, kind, LargeBlock, nRecords}, make, run, isAsBefore, isDone)) break;
        ++nStruck;
      }
    }
    EXPECT_GT(nStruck, 0) << "there was something to fail";
  }

  /// The same for an operation that makes something and changes nothing else. \param isRight `isRight(result)`
  template <class Run, class IsRight>
  void makes(const std::string& name, const Run& run, const IsRight& isRight) {
    using Result = std::optional<std::decay_t<std::invoke_result_t<Run>>>;
    changes(
        name, [] { return Result(); }, [&run](Result& result) { result.emplace(run()); },
        [](const Result& result) { return !result.has_value(); },
        [&isRight](const Result& result) { return result.has_value() && isRight(*result); });
  }

  /// An operation that asks for no memory. \param run `run()` tells whether all is well
  template <class Run>
  void needsNone(const std::string& name, const Run& run) {
    runWithout(name, run, false);
  }

  /// An operation that may ask for memory and does its work without it.
  template <class Run>
  void copes(const std::string& name, const Run& run) {
    runWithout(name, run, true);
  }

 private:
  struct Round {
    long long n;
    FailingAllocation::Kind kind;
    std::size_t nBytesAtLeast;
    std::optional<std::size_t> nRecords;  ///< that are left, in a round that is short of them
  };

  template <class Run>
  static void runWithout(const std::string& name, const Run& run, bool mayAsk) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, name);
    EXPECT_TRUE(run()) << "with all the memory there is";  // also makes what a thread has from its first use on
    for (const bool isShortOfRecords : {false, true}) {
      std::optional<FewRecords> few;
      if (isShortOfRecords) few.emplace(std::size_t{0});
      bool isRight = false;
      const FailingAllocation failing(0, FailingAllocation::Kind::FromThereOn);
      try {
        isRight = run();
      } catch (const std::bad_alloc&) {
        FailingAllocation::end();
      }
      FailingAllocation::end();
      EXPECT_TRUE(mayAsk || !failing.hasStruck());
      EXPECT_TRUE(isRight);
    }
  }

  /// Whether something was left to fail.
  template <class Make, class Run, class IsAsBefore, class IsDone>
  static bool failOnce(const Round& round, const Make& make, const Run& run, const IsAsBefore& isAsBefore,
                       const IsDone& isDone) {
    const long long nAliveBefore = nBlocksAlive();
    const long long nRecordsBefore = Ostrel::ReferenceRecord::nLive();
    long long nBlocksForRecords = 0;
    bool hasStruck = false;
    bool isThrown = false;
    bool isAsBeforeThen = true;
    bool isDoneThen = false;
    {
      auto state = make();
      {
        std::optional<FewRecords> few;
        if (round.nRecords) few.emplace(*round.nRecords);
        const long long nLargeBefore = nLargeBlocksMade();
        const FailingAllocation failing(round.n, round.kind, round.nBytesAtLeast);
        try {
          run(state);
        } catch (const std::bad_alloc&) {
          FailingAllocation::end();
          isThrown = true;
        }
        FailingAllocation::end();
        hasStruck = failing.hasStruck();
        if (round.nRecords) nBlocksForRecords = nLargeBlocksMade() - nLargeBefore;
      }
      if (isThrown) {
        isAsBeforeThen = isAsBefore(state);
        run(state);
      }
      isDoneThen = isDone(state);
    }
    // Told at the end, as the texts are blocks themselves.
    const long long nBlocksLeft = nBlocksAlive() - nAliveBefore - nBlocksForRecords;
    EXPECT_EQ(nBlocksLeft, 0) << "blocks left behind";
    EXPECT_EQ(Ostrel::ReferenceRecord::nLive(), nRecordsBefore) << "records left behind";
    EXPECT_TRUE(isAsBeforeThen) << "after the failure";
    EXPECT_TRUE(isDoneThen) << (isThrown ? "at the second try" : "without an exception");
    return hasStruck;
  }
};

}  // namespace TreskTest
