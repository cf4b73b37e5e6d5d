// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/TreskType.hpp>
#include <tresk/field/TypeList.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace {
/// An element type that only these tests know.
struct ShortLived {
  double value;
};
}  // namespace

template <>
struct Tresk::ElementTraits<ShortLived> : Tresk::TupleTraits<double, 1> {};

namespace {

using Ostrel::StringList;
using Ostrel::StrongPtr;
using Tresk::containsType;
using Tresk::getTreskType;
using Tresk::TreskTypePtr;
using Tresk::TreskTypeWeakPtr;
using Tresk::TypeList;

/// A weak pointer to a record that has died.
TreskTypeWeakPtr expired() {
  const TreskTypePtr record(new Tresk::TreskType<ShortLived>);
  const TreskTypeWeakPtr weak(record);
  return weak;
}

std::string spoken(const TypeList& list) {
  testing::internal::CaptureStdout();
  list.speak();
  return testing::internal::GetCapturedStdout();
}

std::vector<std::string> linesOf(const TypeList& list) {
  const StrongPtr<StringList, StringList> text = list.asText();
  std::vector<std::string> lines;
  for (unsigned long long i = 0; i < text->nLines(); ++i) lines.push_back(text->getLine(i));
  return lines;
}

TEST(TypeListTest, AnEmptyListContainsEveryType) {
  const TypeList list;
  EXPECT_EQ(list.nTypes(), 0U);
  EXPECT_TRUE(list.contains(typeid(double)));
  EXPECT_TRUE(list.contains(typeid(void)));
  EXPECT_TRUE(list.contains(typeid(std::string)));
  EXPECT_TRUE(containsType(list, typeid(double)));
  EXPECT_TRUE(containsType(list, typeid(std::string)));
}

TEST(TypeListTest, AListContainsTheTypesOfItsEntriesAndNoOther) {
  TypeList list(getTreskType<double>());
  EXPECT_EQ(list.nTypes(), 1U);
  EXPECT_TRUE(list.contains(typeid(double)));
  EXPECT_FALSE(list.contains(typeid(unsigned int)));
  list.insert(getTreskType<unsigned int>());
  EXPECT_EQ(list.nTypes(), 2U);
  EXPECT_TRUE(list.contains(typeid(double)));
  EXPECT_TRUE(list.contains(typeid(unsigned int)));
  EXPECT_FALSE(list.contains(typeid(float)));
  EXPECT_TRUE(containsType(list, typeid(unsigned int)));
  EXPECT_FALSE(containsType(list, typeid(float)));
}

TEST(TypeListTest, IsASetOfRecords) {
  TypeList list(getTreskType<double>());
  list.insert(getTreskType<double>());
  EXPECT_EQ(list.nTypes(), 1U);
}

TEST(TypeListTest, AListOfExpiredEntriesContainsNoType) {
  const TypeList list(expired());
  EXPECT_EQ(list.nTypes(), 1U);
  EXPECT_FALSE(list.contains(typeid(ShortLived)));
  EXPECT_FALSE(list.contains(typeid(double)));
  EXPECT_FALSE(list.contains(typeid(void)));
  EXPECT_FALSE(containsType(list, typeid(ShortLived)));
}

TEST(TypeListTest, ExpiredEntriesAreSkipped) {
  TypeList list(expired());
  list.insert(getTreskType<double>());
  EXPECT_EQ(list.nTypes(), 2U);
  EXPECT_TRUE(list.contains(typeid(double)));
  EXPECT_FALSE(list.contains(typeid(ShortLived)));
  EXPECT_EQ(spoken(list), "{double} ");
  EXPECT_EQ(linesOf(list), std::vector<std::string>{"double"});
}

TEST(TypeListTest, AnEmptyListPrintsNothing) {
  EXPECT_EQ(spoken(TypeList()), "");
  EXPECT_TRUE(linesOf(TypeList()).empty());
}

TEST(TypeListTest, PrintsEachTypeInBraces) {
  TypeList list(getTreskType<Quorvel::FixedArray<double, 3>>());
  EXPECT_EQ(spoken(list), "{Quorvel::FixedArray<double, 3>} ");
  list.insert(getTreskType<unsigned int>());
  // The order of the entries is that of the records in memory.
  const std::string text = spoken(list);
  EXPECT_TRUE(text == "{Quorvel::FixedArray<double, 3>} {unsigned int} " ||
              text == "{unsigned int} {Quorvel::FixedArray<double, 3>} ")
      << text;
}

TEST(TypeListTest, TextHasOneLineForEachType) {
  TypeList list(getTreskType<double>());
  list.insert(getTreskType<unsigned int>());
  list.insert(getTreskType<Quorvel::PhysicalSpace::point>());
  std::vector<std::string> lines = linesOf(list);
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ(lines, (std::vector<std::string>{"Quorvel::PhysicalSpace::point", "double", "unsigned int"}));
}

TEST(TypeListTest, HoldsItsRecordsWeaklyAndReleasesThem) {
  TreskTypePtr record(new Tresk::TreskType<ShortLived>);
  const int nPointers = record.weakCount();
  {
    const TypeList list(record);
    EXPECT_EQ(record.weakCount(), nPointers + 1);
    EXPECT_EQ(record.strongCount(), 1);
    const TypeList copy(list);
    EXPECT_EQ(record.weakCount(), nPointers + 2);
    EXPECT_TRUE(copy.contains(typeid(ShortLived)));
  }
  EXPECT_EQ(record.weakCount(), nPointers);
}

TEST(TypeListTest, IsAValue) {
  EXPECT_FALSE(std::is_polymorphic_v<TypeList>);
  EXPECT_TRUE(std::is_default_constructible_v<TypeList>);
  EXPECT_TRUE(std::is_copy_constructible_v<TypeList>);
  TypeList list;
  list = TypeList(getTreskType<double>());
  EXPECT_FALSE(list.contains(typeid(float)));
}

}  // namespace
