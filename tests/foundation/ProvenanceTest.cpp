// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Provenance.hpp>

#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using Ostrel::Provenance;
using Ostrel::StringList;
using Ostrel::StrongPtr;

using ProvenanceTest = TreskTest::RecordBalanceTest;
using StringListTest = TreskTest::RecordBalanceTest;

TEST_F(ProvenanceTest, PathComesWithTheGivenSeparator) {
  const StrongPtr<Provenance, Provenance> provenance(new Provenance("atlas/january/temperature"));
  EXPECT_EQ(provenance->getPath('/'), "atlas/january/temperature");
  EXPECT_EQ(provenance->getPath('.'), "atlas.january.temperature");
  EXPECT_EQ(provenance->getPath('/'), "atlas/january/temperature") << "asking changes nothing";
}

TEST_F(ProvenanceTest, PathOfOneNameAndOfNone) {
  EXPECT_EQ((StrongPtr<Provenance, Provenance>(new Provenance("atlas"))->getPath('.')), "atlas");
  EXPECT_EQ((StrongPtr<Provenance, Provenance>(new Provenance(""))->getPath('.')), "");
}

TEST_F(StringListTest, KeepsItsLinesInOrder) {
  const StrongPtr<StringList, StringList> list(new StringList);
  EXPECT_EQ(list->nLines(), 0U);
  list->addLine("one");
  list->addLine("");
  list->addLine("three");
  ASSERT_EQ(list->nLines(), 3U);
  EXPECT_EQ(list->getLine(0), "one");
  EXPECT_EQ(list->getLine(1), "");
  EXPECT_EQ(list->getLine(2), "three");
}

TEST_F(StringListTest, LineBeyondTheEndIsRefusedWithBothNumbers) {
  const StrongPtr<StringList, StringList> list(new StringList);
  list->addLine("one");
  try {
    static_cast<void>(list->getLine(4));
    FAIL() << "no exception";
  } catch (const std::out_of_range& e) {
    const std::string text = e.what();
    EXPECT_NE(text.find('4'), std::string::npos);
    EXPECT_NE(text.find('1'), std::string::npos);
  }
}

}  // namespace
