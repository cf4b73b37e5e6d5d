// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Cache.hpp>
#include <tresk/foundation/ReferenceRecord.hpp>

#include <gtest/gtest.h>

namespace TreskTest {

/// A test that must leave as many reference records in the process as it found: no object and no pointer stays behind.
/// Use it from one thread, or with all other threads joined at the end.
class RecordBalanceTest : public ::testing::Test {
 protected:
  RecordBalanceTest() {
    // The default cache is made at its first use and stays.
    static_cast<void>(Ostrel::Cache::MemCache());
    nAtStart_ = Ostrel::ReferenceRecord::nLive();
  }

  // In the destructor, where the members of derived fixtures are gone.
  ~RecordBalanceTest() override { EXPECT_EQ(nLiveSinceStart(), nParked_); }

  /// Records made since the beginning of the test and still there.
  long long nLiveSinceStart() const { return Ostrel::ReferenceRecord::nLive() - nAtStart_; }

  /// Tells that the test leaves objects behind on purpose.
  void expectParked(long long nObjects) { nParked_ += nObjects; }

 private:
  long long nAtStart_ = 0;
  long long nParked_ = 0;
};

}  // namespace TreskTest
