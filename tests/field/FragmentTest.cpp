// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Fragment.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using Tresk::Fragment;
using TreskTest::CreatorPtr;
using TreskTest::makeForgetful;

using FragmentTest = TreskTest::RecordBalanceTest;
using Names = std::vector<std::string>;

/// Notes the names that it is called for, and answers as it is told.
class Recorder : public Fragment::Iterator {
 public:
  explicit Recorder(std::function<bool(const std::string&, CreatorPtr&)> howToAnswer = {})
      : answer_(std::move(howToAnswer)) {}
  bool apply(const std::string& name, CreatorPtr& creator) override {
    names.push_back(name);
    return !answer_ || answer_(name, creator);
  }

  Names names;

 private:
  std::function<bool(const std::string&, CreatorPtr&)> answer_;
};

/// The names of all entries, in their order.
Names namesOf(const Fragment& fragment) {
  Recorder recorder;
  const unsigned int nVisited = fragment.iterate(recorder);
  EXPECT_EQ(nVisited, recorder.names.size());
  return recorder.names;
}

TEST_F(FragmentTest, IsAPlainValue) {
  EXPECT_FALSE(std::is_polymorphic_v<Fragment>);
  EXPECT_TRUE(std::is_copy_constructible_v<Fragment>);
  EXPECT_TRUE(std::is_abstract_v<Fragment::Iterator>);
  EXPECT_TRUE(std::has_virtual_destructor_v<Fragment::Iterator>);
}

TEST_F(FragmentTest, BeginsEmpty) {
  const Fragment fragment;
  EXPECT_TRUE(namesOf(fragment).empty());
}

TEST_F(FragmentTest, AskingForAnUnknownNameGivesNothingAndInsertsNothing) {
  Fragment fragment;
  fragment["density"] = makeForgetful();
  const CreatorPtr absent = fragment("pressure");
  EXPECT_EQ(absent.getRecord(), nullptr);
  EXPECT_EQ(namesOf(fragment), (Names{"density"}));
}

TEST_F(FragmentTest, ReachingForAnUnknownNameInsertsAnEmptyEntry) {
  Fragment fragment;
  EXPECT_EQ(fragment["pressure"].getRecord(), nullptr);
  EXPECT_EQ(namesOf(fragment), (Names{"pressure"}));
  EXPECT_EQ(fragment["pressure"].getRecord(), nullptr);
  EXPECT_EQ(namesOf(fragment).size(), 1U) << "it is there now";
  EXPECT_FALSE(fragment("pressure"));
}

TEST_F(FragmentTest, AnEntryIsReadAndReplacedUnderItsName) {
  Fragment fragment;
  const CreatorPtr one = makeForgetful();
  const CreatorPtr two = makeForgetful();
  CreatorPtr& slot = fragment["density"];
  slot = one;
  EXPECT_TRUE(fragment("density") == one);
  EXPECT_EQ(&fragment["density"], &slot) << "the reference is to the entry itself";
  fragment["density"] = two;
  EXPECT_TRUE(fragment("density") == two);
  EXPECT_EQ(one.strongCount(), 1);
  EXPECT_FALSE(fragment("Density")) << "case counts";
  EXPECT_FALSE(fragment("density ")) << "so do blanks";
}

TEST_F(FragmentTest, AReferenceHoldsWhileOtherNamesAreInserted) {
  Fragment fragment;
  CreatorPtr& slot = fragment["m"];
  for (int i = 0; i < 100; ++i) fragment[std::to_string(i)];
  slot = makeForgetful();
  EXPECT_TRUE(fragment("m") == slot);
}

TEST_F(FragmentTest, AskingGivesACopyThatTheFragmentDoesNotSee) {
  Fragment fragment;
  fragment["density"] = makeForgetful();
  CreatorPtr copy = fragment("density");
  EXPECT_EQ(copy.strongCount(), 2);
  copy.reset();
  EXPECT_TRUE(fragment("density"));
}

TEST_F(FragmentTest, AnyTextIsAName) {
  Fragment fragment;
  fragment[""] = makeForgetful();
  fragment[std::string("a\0b", 3)] = makeForgetful();
  EXPECT_TRUE(fragment(""));
  EXPECT_TRUE(fragment(std::string("a\0b", 3)));
  EXPECT_FALSE(fragment("a"));
  EXPECT_EQ(namesOf(fragment), (Names{"", std::string("a\0b", 3)}));
}

TEST_F(FragmentTest, HoldsItsCreatorsAndLetsThemGoAtItsEnd) {
  const CreatorPtr creator = makeForgetful();
  Ostrel::WeakPtr<Tresk::CreativeArrayBase, Ostrel::Creature> observer;
  {
    Fragment fragment;
    fragment["a"] = creator;
    fragment["b"] = makeForgetful();
    observer = fragment("b");
    EXPECT_EQ(creator.strongCount(), 2);
    EXPECT_TRUE(observer.isValid());
  }
  EXPECT_EQ(creator.strongCount(), 1);
  EXPECT_FALSE(observer.isValid());
}

TEST_F(FragmentTest, WalksInTheBytewiseOrderOfNames) {
  Fragment fragment;
  for (const char* name : {"b", "a", "\xC3\xA4", "B", "aa", "10", "9", "_"}) fragment[name] = makeForgetful();
  EXPECT_EQ(namesOf(fragment), (Names{"10", "9", "B", "_", "a", "aa", "b", "\xC3\xA4"}));
}

TEST_F(FragmentTest, VisitsEmptyAndDeadEntriesToo) {
  Fragment fragment;
  fragment["a"];
  {
    Ostrel::WeakPtr<Tresk::CreativeArrayBase, Ostrel::Creature> observer;
    { observer = CreatorPtr(makeForgetful()); }
    fragment["b"] = CreatorPtr(observer);
  }
  int nEmpty = 0;
  Recorder recorder([&nEmpty](const std::string&, const CreatorPtr& creator) {
    nEmpty += creator ? 0 : 1;
    return true;
  });
  EXPECT_EQ(fragment.iterate(recorder), 2U);
  EXPECT_EQ(nEmpty, 2);
}

TEST_F(FragmentTest, AFalseAnswerEndsTheWalkAndIsNotCounted) {
  Fragment fragment;
  for (const char* name : {"a", "b", "c"}) fragment[name];
  Recorder atOnce([](const std::string&, const CreatorPtr&) { return false; });
  EXPECT_EQ(fragment.iterate(atOnce), 0U);
  EXPECT_EQ(atOnce.names, (Names{"a"}));
  Recorder later([](const std::string& name, const CreatorPtr&) { return name != "b"; });
  EXPECT_EQ(fragment.iterate(later), 1U);
  EXPECT_EQ(later.names, (Names{"a", "b"}));
  Recorder atLast([](const std::string& name, const CreatorPtr&) { return name != "c"; });
  EXPECT_EQ(fragment.iterate(atLast), 2U);
}

TEST_F(FragmentTest, AWalkOverNothingCallsNobody) {
  Recorder recorder;
  EXPECT_EQ(Fragment().iterate(recorder), 0U);
  EXPECT_TRUE(recorder.names.empty());
}

TEST_F(FragmentTest, TheWalkGivesTheEntriesThemselvesAlsoOfAConstantFragment) {
  Fragment fragment;
  fragment["a"];
  const CreatorPtr creator = makeForgetful();
  Recorder recorder([&creator](const std::string&, CreatorPtr& slot) {
    slot = creator;
    return true;
  });
  const Fragment& constant = fragment;
  EXPECT_EQ(constant.iterate(recorder), 1U);
  EXPECT_TRUE(fragment("a") == creator);
  EXPECT_EQ(creator.strongCount(), 2) << "the walk holds nothing of its own";
}

TEST_F(FragmentTest, AnExceptionOfTheIteratorPasses) {
  Fragment fragment;
  fragment["a"] = makeForgetful();
  Recorder recorder([](const std::string&, const CreatorPtr&) -> bool { throw std::runtime_error("enough"); });
  EXPECT_THROW(fragment.iterate(recorder), std::runtime_error);
  EXPECT_EQ(fragment("a").strongCount(), 2) << "the entry and this copy";
}

TEST_F(FragmentTest, ACopySharesTheCreatorsAndIsAFragmentOfItsOwn) {
  Fragment fragment;
  fragment["a"] = makeForgetful();
  Fragment copy(fragment);
  EXPECT_TRUE(copy("a") == fragment("a"));
  copy["b"];
  EXPECT_EQ(namesOf(fragment), (Names{"a"}));
  fragment["c"];
  copy = fragment;
  EXPECT_EQ(namesOf(copy), (Names{"a", "c"}));
}

}  // namespace
