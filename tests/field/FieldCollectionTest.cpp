// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FieldCollection.hpp>

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

using Ostrel::Ageable;
using Tresk::Field;
using Tresk::FieldCollection;
using TreskTest::clockNow;
using TreskTest::FieldPtr;
using TreskTest::fieldStamp;
using TreskTest::makeForgetful;
using TreskTest::unnamed;

using FieldCollectionTest = TreskTest::RecordBalanceTest;
using Names = std::vector<std::string>;

/// Notes the names that it is called for, and answers as it is told.
class Recorder : public FieldCollection::Iterator {
 public:
  explicit Recorder(std::function<bool(const std::string&, FieldPtr&)> howToAnswer = {})
      : answer_(std::move(howToAnswer)) {}
  bool apply(const std::string& name, FieldPtr& field) override {
    names.push_back(name);
    return !answer_ || answer_(name, field);
  }

  Names names;

 private:
  std::function<bool(const std::string&, FieldPtr&)> answer_;
};

/// The names of all entries, in their order.
Names namesOf(FieldCollection& collection) {
  Recorder recorder;
  const unsigned int nVisited = collection.iterate(recorder);
  EXPECT_EQ(nVisited, recorder.names.size());
  return recorder.names;
}

FieldPtr makeField() { return FieldPtr(new Field); }
/// A field whose own age is that stamp.
FieldPtr makeField(long long stamp) {
  const FieldPtr field = makeField();
  static_cast<Ageable&>(*field) = Ageable(stamp);
  return field;
}
/// A pointer with a record whose field has died.
FieldPtr makeDeadField() {
  Tresk::FieldWeakPtr observer;
  { observer = makeField(); }
  return FieldPtr(observer);
}

TEST_F(FieldCollectionTest, IsAPlainValue) {
  EXPECT_FALSE(std::is_polymorphic_v<FieldCollection>);
  EXPECT_TRUE(std::is_copy_constructible_v<FieldCollection>);
  EXPECT_TRUE(std::is_abstract_v<FieldCollection::Iterator>);
  EXPECT_TRUE(std::has_virtual_destructor_v<FieldCollection::Iterator>);
}

TEST_F(FieldCollectionTest, BeginsEmpty) {
  FieldCollection collection;
  EXPECT_TRUE(namesOf(collection).empty());
}

TEST_F(FieldCollectionTest, AskingForAnUnknownNameGivesNothingAndInsertsNothing) {
  FieldCollection collection;
  collection["density"] = makeField();
  const FieldCollection& constant = collection;
  EXPECT_EQ(constant("pressure").getRecord(), nullptr);
  EXPECT_EQ(namesOf(collection), (Names{"density"}));
}

TEST_F(FieldCollectionTest, ReachingForAnUnknownNameInsertsAnEmptyEntry) {
  FieldCollection collection;
  EXPECT_EQ(collection["pressure"].getRecord(), nullptr);
  EXPECT_EQ(namesOf(collection), (Names{"pressure"}));
  EXPECT_EQ(collection["pressure"].getRecord(), nullptr);
  EXPECT_EQ(namesOf(collection).size(), 1U) << "it is there now";
}

TEST_F(FieldCollectionTest, AnEntryIsReadAndReplacedUnderItsName) {
  FieldCollection collection;
  const FieldPtr one = makeField();
  const FieldPtr two = makeField();
  FieldPtr& slot = collection["density"];
  slot = one;
  EXPECT_TRUE(collection("density") == one);
  EXPECT_EQ(&collection["density"], &slot);
  collection["density"] = two;
  EXPECT_TRUE(collection("density") == two);
  EXPECT_EQ(one.strongCount(), 1);
  EXPECT_FALSE(collection("Density"));
}

TEST_F(FieldCollectionTest, HoldsItsFieldsAndLetsThemGoAtItsEnd) {
  const FieldPtr field = makeField();
  Tresk::FieldWeakPtr observer;
  {
    FieldCollection collection;
    collection["a"] = field;
    collection["b"] = makeField();
    observer = collection("b");
    EXPECT_EQ(field.strongCount(), 2);
    EXPECT_TRUE(observer.isValid());
  }
  EXPECT_EQ(field.strongCount(), 1);
  EXPECT_FALSE(observer.isValid());
}

TEST_F(FieldCollectionTest, WalksInTheBytewiseOrderOfNames) {
  FieldCollection collection;
  for (const char* name : {"b", "a", "\xC3\xA4", "B", "aa", "10", "9"}) collection[name] = makeField();
  EXPECT_EQ(namesOf(collection), (Names{"10", "9", "B", "a", "aa", "b", "\xC3\xA4"}));
}

TEST_F(FieldCollectionTest, VisitsEmptyAndDeadEntriesToo) {
  FieldCollection collection;
  collection["a"];
  collection["b"] = makeDeadField();
  int nEmpty = 0;
  Recorder recorder([&nEmpty](const std::string&, const FieldPtr& field) {
    nEmpty += field ? 0 : 1;
    return true;
  });
  EXPECT_EQ(collection.iterate(recorder), 2U);
  EXPECT_EQ(nEmpty, 2);
}

TEST_F(FieldCollectionTest, AFalseAnswerEndsTheWalkAndIsNotCounted) {
  FieldCollection collection;
  for (const char* name : {"a", "b", "c"}) collection[name];
  Recorder atOnce([](const std::string&, const FieldPtr&) { return false; });
  EXPECT_EQ(collection.iterate(atOnce), 0U);
  EXPECT_EQ(atOnce.names, (Names{"a"}));
  Recorder later([](const std::string& name, const FieldPtr&) { return name != "b"; });
  EXPECT_EQ(collection.iterate(later), 1U);
  EXPECT_EQ(later.names, (Names{"a", "b"}));
}

TEST_F(FieldCollectionTest, TheWalkGivesTheEntriesThemselves) {
  FieldCollection collection;
  collection["a"];
  const FieldPtr field = makeField();
  Recorder recorder([&field](const std::string&, FieldPtr& slot) {
    slot = field;
    return true;
  });
  EXPECT_EQ(collection.iterate(recorder), 1U);
  EXPECT_TRUE(collection("a") == field);
  EXPECT_EQ(field.strongCount(), 2);
}

TEST_F(FieldCollectionTest, AnExceptionOfTheIteratorPasses) {
  FieldCollection collection;
  collection["a"] = makeField();
  Recorder recorder([](const std::string&, const FieldPtr&) -> bool { throw std::runtime_error("enough"); });
  EXPECT_THROW(collection.iterate(recorder), std::runtime_error);
  EXPECT_TRUE(collection("a"));
}

TEST_F(FieldCollectionTest, ACopySharesTheFieldsAndIsACollectionOfItsOwn) {
  FieldCollection collection;
  collection["a"] = makeField();
  FieldCollection copy(collection);
  EXPECT_TRUE(copy("a") == collection("a"));
  copy["b"];
  EXPECT_EQ(namesOf(collection), (Names{"a"}));
  collection["c"];
  copy = collection;
  EXPECT_EQ(namesOf(copy), (Names{"a", "c"}));
}

TEST_F(FieldCollectionTest, WithoutFieldsItIsOlderThanAnything) {
  FieldCollection collection;
  EXPECT_TRUE(collection.FieldsAreOlderThan(Ageable::Ooooold));
  EXPECT_TRUE(collection.FieldsAreOlderThan(Ageable::now()));
  collection["a"];
  collection["b"] = makeDeadField();
  EXPECT_TRUE(collection.FieldsAreOlderThan(Ageable::Ooooold)) << "entries without a field say nothing";
}

TEST_F(FieldCollectionTest, AnEntryWithoutAFieldDoesNotHideTheOthers) {
  FieldCollection collection;
  collection["a"];
  collection["b"] = makeField(10);
  collection["c"] = makeDeadField();
  EXPECT_FALSE(collection.FieldsAreOlderThan(Ageable(9)));
  EXPECT_TRUE(collection.FieldsAreOlderThan(Ageable(11)));
}

TEST_F(FieldCollectionTest, OneNewerFieldMakesItNewer) {
  FieldCollection collection;
  collection["a"] = makeField(10);
  collection["b"] = makeField(30);
  collection["c"] = makeField(20);
  EXPECT_TRUE(collection.FieldsAreOlderThan(Ageable(31)));
  EXPECT_FALSE(collection.FieldsAreOlderThan(Ageable(29)));
  EXPECT_FALSE(collection.FieldsAreOlderThan(Ageable(5)));
}

TEST_F(FieldCollectionTest, AFieldOfTheSameAgeCountsAsOlder) {
  FieldCollection collection;
  collection["a"] = makeField(10);
  EXPECT_TRUE(collection.FieldsAreOlderThan(Ageable(10)));
}

TEST_F(FieldCollectionTest, UpdatingRaisesAnAgeToThatOfTheNewestField) {
  FieldCollection collection;
  collection["a"] = makeField(10);
  collection["b"] = makeField(30);
  collection["c"] = makeField(20);
  collection["d"];
  collection["e"] = makeDeadField();
  Ageable age(5);
  collection.updateAge(age);
  EXPECT_EQ(age.getAge(), 30);
}

TEST_F(FieldCollectionTest, UpdatingNeverLowersAnAge) {
  FieldCollection collection;
  collection["a"] = makeField(10);
  Ageable age(40);
  collection.updateAge(age);
  EXPECT_EQ(age.getAge(), 40);
}

TEST_F(FieldCollectionTest, UpdatingFromNoFieldsLeavesTheAgeAlone) {
  FieldCollection collection;
  Ageable age(7);
  collection.updateAge(age);
  EXPECT_EQ(age.getAge(), 7);
  collection["a"];
  collection["b"] = makeDeadField();
  collection.updateAge(age);
  EXPECT_EQ(age.getAge(), 7);
}

TEST_F(FieldCollectionTest, QuestionsOfAgeChangeNoField) {
  FieldCollection collection;
  collection["a"] = makeField(10);
  const long long clock = clockNow();
  Ageable age(20);
  collection.updateAge(age);
  EXPECT_TRUE(collection.FieldsAreOlderThan(age));
  EXPECT_EQ(fieldStamp(*collection("a")), 10);
  EXPECT_EQ(clockNow(), clock);
}

TEST_F(FieldCollectionTest, OnlyTheAgeOfTheFieldItselfCountsNotThatOfItsData) {
  FieldCollection collection;
  const FieldPtr field = makeField();
  collection["a"] = field;
  const auto creator = makeForgetful();
  const Ageable beforeBinding = Ageable::now();
  static_cast<Ageable&>(*field) = beforeBinding;
  field->setCreator(creator, unnamed());
  EXPECT_FALSE(collection.FieldsAreOlderThan(beforeBinding)) << "the table has changed";
  const Ageable afterBinding(fieldStamp(*field));
  creator->touch();
  EXPECT_GT(TreskTest::dataStamp(*creator), fieldStamp(*field));
  EXPECT_TRUE(collection.FieldsAreOlderThan(afterBinding)) << "the field was not told";
}

}  // namespace
