// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>
#include <tresk/field/TreskType.hpp>

#include <support/FieldDoubles.hpp>
#include <support/NameArray.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

using Ostrel::Ageable;
using Tresk::DynamicSize;
using Tresk::Field;
using Tresk::getTreskType;
using Tresk::MemArrayProperties;
using TreskTest::clockNow;
using TreskTest::CreatorPtr;
using TreskTest::dataStamp;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::makeArray;
using TreskTest::makeForgetful;
using TreskTest::MemBasePtr;
using TreskTest::unnamed;

using FieldUsageTest = TreskTest::RecordBalanceTest;
using Properties = Ostrel::StrongPtr<MemArrayProperties, Ostrel::InterfaceBase>;

FieldPtr makeField() { return FieldPtr(new Field); }

/// Tells a field that its elements are doubles.
void declareDoubles(const FieldPtr& field) {
  field->addInterface(Properties(new MemArrayProperties(1, getTreskType<double>())));
}
/// A creator without data that tells its size.
CreatorPtr makeSized(const DynamicSize& size) {
  const auto creator = makeForgetful();
  creator->addMetaInfo(size, getTreskType<double>());
  return creator;
}

/// What a field says of its memory, added to what was there.
struct Usage {
  unsigned long long inMemory = 0;
  unsigned long long fullSize = 0;
  int result = 99;

  void ask(const FieldPtr& field) { result = field->getMemoryUsage(inMemory, fullSize); }
};

void expectUsage(const FieldPtr& field, int result, unsigned long long inMemory, unsigned long long fullSize) {
  Usage usage;
  usage.ask(field);
  EXPECT_EQ(usage.result, result);
  EXPECT_EQ(usage.inMemory, inMemory);
  EXPECT_EQ(usage.fullSize, fullSize);
}

// ------------------------------------------------------------------------------------------------------------ ages

TEST_F(FieldUsageTest, TheMostRecentAgesOfAnEmptyFieldAreThePresentTime) {
  const FieldPtr field = makeField();
  Ageable().touch();
  EXPECT_EQ(field->getMostRecentCreatorAge().getAge(), clockNow());
  EXPECT_EQ(field->getMostRecentAttributeAge().getAge(), clockNow());
  const long long before = clockNow();
  Ageable().touch();
  EXPECT_EQ(field->getMostRecentCreatorAge().getAge(), before + 1);
  EXPECT_EQ(clockNow(), before + 1) << "the question itself touches nothing";
}

TEST_F(FieldUsageTest, TheMostRecentAgesAreThePresentTimeHoweverOldTheCreatorsAre) {
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(0, makeForgetful(makeArray(1)));
  field->setCreatorViaFragmentIndex(1, CreatorPtr());
  field->setCreatorViaFragmentIndex(2, makeForgetful());
  for (int i = 0; i < 3; ++i) Ageable().touch();
  EXPECT_EQ(field->getMostRecentCreatorAge().getAge(), clockNow());
  EXPECT_EQ(field->getMostRecentAttributeAge().getAge(), clockNow());
}

TEST_F(FieldUsageTest, AnAgeBeyondThePresentTimeShows) {
  const FieldPtr field = makeField();
  const auto creator = makeForgetful();
  field->setCreatorViaFragmentIndex(3, creator);
  field->setCreatorViaFragmentIndex(4, makeForgetful());
  const long long future = clockNow() + 1000;
  creator->updateAttributeAge(Ageable(future));
  EXPECT_EQ(field->getMostRecentAttributeAge().getAge(), future);
  EXPECT_EQ(field->getMostRecentCreatorAge().getAge(), clockNow()) << "the age of the data";
  const auto later = makeForgetful();
  static_cast<Ageable&>(*later) = Ageable(future + 1);
  ASSERT_EQ(dataStamp(*later), future + 1);
  field->setCreatorViaFragmentIndex(1, later);
  EXPECT_EQ(field->getMostRecentCreatorAge().getAge(), future + 1);
  EXPECT_EQ(field->getMostRecentAttributeAge().getAge(), future);
}

TEST_F(FieldUsageTest, AFieldWithoutCreatorsHasNothingNewer) {
  const FieldPtr field = makeField();
  EXPECT_FALSE(field->hasFragmentsNewerThan(Ageable::Ooooold));
  field->setCreatorViaFragmentIndex(0, CreatorPtr());
  EXPECT_FALSE(field->hasFragmentsNewerThan(Ageable::Ooooold)) << "the age of the field itself does not count";
  EXPECT_GT(TreskTest::fieldStamp(*field), 0);
}

TEST_F(FieldUsageTest, AnyLivingCreatorIsNewerThanTheOldestAge) {
  const FieldPtr field = makeField();
  const auto creator = makeForgetful();
  EXPECT_EQ(dataStamp(*creator), 0) << "never touched";
  field->setCreatorViaFragmentIndex(5, creator);
  EXPECT_TRUE(field->hasFragmentsNewerThan(Ageable::Ooooold));
  EXPECT_FALSE(field->hasFragmentsNewerThan(Ageable::now()));
}

TEST_F(FieldUsageTest, NewerDataOfAnyCreatorCount) {
  const FieldPtr field = makeField();
  const auto first = makeForgetful();
  const auto second = makeForgetful();
  field->setCreatorViaFragmentIndex(0, first);
  field->setCreatorViaFragmentIndex(1, CreatorPtr());
  field->setCreatorViaFragmentIndex(2, second);
  const Ageable result = Ageable::now();
  EXPECT_FALSE(field->hasFragmentsNewerThan(result));
  second->touch();
  EXPECT_TRUE(field->hasFragmentsNewerThan(result));
  EXPECT_FALSE(field->hasFragmentsNewerThan(second->getDataAge())) << "equally old is not newer";
}

TEST_F(FieldUsageTest, NewerAttributesCountToo) {
  const FieldPtr field = makeField();
  const auto creator = makeForgetful();
  field->setCreatorViaFragmentIndex(0, creator);
  const Ageable result = Ageable::now();
  creator->touchAttributes();
  EXPECT_TRUE(field->hasFragmentsNewerThan(result));
  EXPECT_FALSE(field->hasFragmentsNewerThan(creator->getAttributeAge()));
}

TEST_F(FieldUsageTest, ANewBindingAloneIsNoNewerFragment) {
  const FieldPtr field = makeField();
  const auto creator = makeForgetful();
  const Ageable result = Ageable::now();
  field->setCreatorViaFragmentIndex(0, creator);
  EXPECT_TRUE(field->getAge() > result);
  EXPECT_EQ(field->hasFragmentsNewerThan(result),
            creator->getDataAge() > result || creator->getAttributeAge() > result);
}

// ---------------------------------------------------------------------------------------------------------- memory

TEST_F(FieldUsageTest, WithoutAnElementTypeTheUsageIsUnknownAndTheNumbersStay) {
  const FieldPtr field = makeField();
  Usage usage;
  usage.inMemory = 11;
  usage.fullSize = 22;
  for (int i = 0; i < 2; ++i) {
    usage.ask(field);
    EXPECT_EQ(usage.result, -1);
    EXPECT_EQ(usage.inMemory, 11U);
    EXPECT_EQ(usage.fullSize, 22U);
    const auto creator = makeForgetful();  // knows its size, and no type
    creator->addMetaInfo(DynamicSize{3}, Tresk::TreskTypePtr());
    field->setCreator(creator, unnamed());
  }
}

TEST_F(FieldUsageTest, AnElementTypeWhoseRecordIsGoneIsUnknown) {
  const FieldPtr field = makeField();
  field->addInterface(Properties(new MemArrayProperties(1, Tresk::TreskTypeWeakPtr())));
  field->setCreator(makeForgetful(makeArray(3)), unnamed());
  expectUsage(field, -1, 0, 0);
}

TEST_F(FieldUsageTest, AFieldWithoutEntriesHoldsNothing) {
  const FieldPtr field = makeField();
  declareDoubles(field);
  expectUsage(field, 0, 0, 0);
  field->setCreatorViaFragmentIndex(0, CreatorPtr());
  expectUsage(field, 0, 0, 0);
}

TEST_F(FieldUsageTest, CreatorsOfKnownSizeWithoutDataAddToTheFullSizeOnly) {
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(0, makeSized({10, 10}));
  field->setCreatorViaFragmentIndex(1, CreatorPtr());
  field->setCreatorViaFragmentIndex(2, makeSized({2, 3, 4}));
  field->setCreatorViaFragmentIndex(3, makeForgetful());
  expectUsage(field, 0, 0, (100 + 24) * 8);
}

TEST_F(FieldUsageTest, CreatorsWithDataAddToBoth) {
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(0, makeForgetful(makeArray(5)));
  field->setCreatorViaFragmentIndex(1, makeSized({7}));
  field->setCreatorViaFragmentIndex(2, makeForgetful(makeArray(2, 3, 0.0)));
  expectUsage(field, 1, (5 + 6) * 8, (5 + 7 + 6) * 8);
}

TEST_F(FieldUsageTest, TheNumbersAreAddedToWhatIsThere) {
  const FieldPtr one = makeField();
  one->setCreatorViaFragmentIndex(0, makeForgetful(makeArray(5)));
  const FieldPtr other = makeField();
  other->setCreatorViaFragmentIndex(0, makeSized({7}));
  Usage usage;
  usage.inMemory = 1000;
  usage.fullSize = 2000;
  usage.ask(one);
  EXPECT_EQ(usage.result, 1);
  usage.ask(other);
  EXPECT_EQ(usage.result, 0) << "of this field alone";
  EXPECT_EQ(usage.inMemory, 1040U);
  EXPECT_EQ(usage.fullSize, 2096U);
}

TEST_F(FieldUsageTest, TheElementSizeIsThatOfTheFieldsType) {
  const FieldPtr field = makeField();
  const auto creator = makeForgetful();
  creator->addMetaInfo(DynamicSize{10}, getTreskType<Quorvel::FixedArray<double, 3>>());
  field->setCreatorViaFragmentIndex(0, creator);
  field->setCreatorViaFragmentIndex(1, makeForgetful(makeArray(4)));
  expectUsage(field, 1, 4 * 8, (10 + 4) * 24);
}

TEST_F(FieldUsageTest, ASizeOfNoDimensionsCountsOneElementOnlyWithAnArrayOfExtents) {
  const FieldPtr field = makeField();
  declareDoubles(field);
  const auto creator = makeForgetful();
  creator->addMetaInfo(DynamicSize(), Tresk::TreskTypePtr());
  field->setCreatorViaFragmentIndex(0, creator);
  expectUsage(field, 0, 0, 0);
  const FieldPtr other = makeField();
  declareDoubles(other);
  const auto scalar = makeForgetful();
  scalar->addInterface(Ostrel::StrongPtr<Ostrel::InterfaceBase, Ostrel::InterfaceBase>(
      new Tresk::SizeInterface(0, Tresk::SizeInterface(DynamicSize{1}), Tresk::SizeInterface(DynamicSize{1}))));
  other->setCreatorViaFragmentIndex(0, scalar);
  expectUsage(other, 0, 0, 8);
}

TEST_F(FieldUsageTest, NothingIsProducedToLearnTheUsage) {
  const FieldPtr field = makeField();
  declareDoubles(field);
  const auto creator = TreskTest::makeFunctional([] { return makeArray(3); });
  field->setCreatorViaFragmentIndex(0, creator);
  expectUsage(field, 0, 0, 0);
  EXPECT_EQ(creator->nProductions, 0);
  creator->produce();
  expectUsage(field, 1, 24, 24);
  creator->release();
  expectUsage(field, 0, 0, 24);
}

TEST_F(FieldUsageTest, CreatorsMayReadTheFieldWhileItAsks) {
  const FieldPtr field = makeField();
  declareDoubles(field);
  const auto creator = makeForgetful(makeArray(2));
  unsigned long long nSeen = 0;
  creator->onQuestion = [&nSeen, field = &*field] { nSeen += field->nFragments(); };
  field->setCreatorViaFragmentIndex(0, creator);
  expectUsage(field, 1, 16, 16);
  EXPECT_GT(nSeen, 0U);
  creator->onQuestion = nullptr;
}

TEST_F(FieldUsageTest, QuestionsMayBeAskedWhileOtherThreadsBind) {
  const FieldPtr field = makeField();
  declareDoubles(field);
  std::thread writer([&field] {
    for (unsigned int i = 0; i < 300; ++i) field->setCreatorViaFragmentIndex(i, makeSized({1}));
  });
  Usage usage;
  for (int i = 0; i < 300; ++i) {
    usage = Usage();
    usage.ask(field);
    EXPECT_EQ(usage.fullSize % 8, 0U);
    field->hasFragmentsNewerThan(Ageable::now());
    field->getMostRecentCreatorAge();
    field->getMostRecentAttributeAge();
  }
  writer.join();
  expectUsage(field, 0, 0, 300 * 8);
}

// ----------------------------------------------------------------------------------------------------------- Speak

std::string spoken(const Field& field, int indent, int limit) {
  testing::internal::CaptureStdout();
  field.Speak(indent, limit);
  return testing::internal::GetCapturedStdout();
}

TEST_F(FieldUsageTest, SpeakWritesTheNumberOfEntriesBehindTheIndentation) {
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(0, makeForgetful());
  field->setCreatorViaFragmentIndex(8, CreatorPtr());
  EXPECT_EQ(spoken(*field, 2, 3), "  2 Fragments\n");
  EXPECT_EQ(spoken(*field, 2, 2), "  2 Fragments\n");
  EXPECT_EQ(spoken(*field, 2, 0), "  2 Fragments\n");
  EXPECT_EQ(spoken(*field, 2, -1), "  2 Fragments\n");
  EXPECT_EQ(spoken(*field, 0, 0), "2 Fragments\n");
  EXPECT_EQ(spoken(*field, 0, 1), "2 Fragments\n");
  EXPECT_EQ(spoken(*field, -3, 1), "2 Fragments\n");
  EXPECT_EQ(spoken(*field, -3, -5), "2 Fragments\n");
}

TEST_F(FieldUsageTest, SpeakIsSilentBeyondTheLimit) {
  const FieldPtr field = makeField();
  EXPECT_EQ(spoken(*field, 2, 1), "");
  EXPECT_EQ(spoken(*field, 100, 99), "");
  EXPECT_EQ(spoken(*field, 3, 0), "   0 Fragments\n");
}

TEST_F(FieldUsageTest, SpeakCountsEntriesAndNotSlots) {
  const FieldPtr field = makeField();
  field->makeFragmentID("a");
  EXPECT_EQ(spoken(*field, 1, 5), " 0 Fragments\n");
  field->setCreator(makeForgetful(), field->getFragmentID("a"));
  EXPECT_EQ(spoken(*field, 1, 5), " 1 Fragments\n");
}

// ------------------------------------------------------------------------------------------------ the sample of use

/// Tests the three fragments that the sample leaves, the first of which has number `first`.
void expectSample(Field& field, unsigned int first) {
  const char* const names[] = {"First Fragment", "Second Fragment", "On-Demand Fragment"};
  for (unsigned int i = 0; i < 3; ++i) {
    ASSERT_TRUE(field.getFragmentID(names[i])) << names[i];
    EXPECT_EQ(field.getFragmentID(names[i])->getNumericalID(), first + i);
  }
  const CreatorPtr kept = field.getCreatorByName("First Fragment");
  const CreatorPtr again = field.getCreatorByName("Second Fragment");
  const CreatorPtr function = field.getCreatorByName("On-Demand Fragment");
  ASSERT_TRUE(kept && again && function);
  EXPECT_FALSE(kept == again);
  EXPECT_NE(dynamic_cast<const Tresk::CreativeArray*>(kept.get()), nullptr);
  EXPECT_NE(dynamic_cast<const Tresk::CreativeArray*>(again.get()), nullptr);
  EXPECT_NE(dynamic_cast<const Tresk::FunctionalCreator*>(function.get()), nullptr);

  const MemBasePtr data = field.getData(field.getFragmentID("First Fragment"));
  ASSERT_TRUE(data);
  EXPECT_TRUE(data == field.getData(field.getFragmentID("Second Fragment"))) << "the same data twice";
  EXPECT_TRUE(data->getCreator() == again);
  EXPECT_TRUE(data->isOnCacheList());
  EXPECT_EQ(data->getDescription(), "Field::setPersistentData()");
  EXPECT_EQ(data->getSize().str(), "3x3x3");
  const Ostrel::StrongPtr<Tresk::MemArray<3, double>, Ostrel::Cacheable> array(data);
  ASSERT_TRUE(array);
  for (unsigned long long e = 0; e < 27; ++e) EXPECT_EQ(array->getElement(e), e == 1 + 3 * 2 ? 42.0 : 0.0);
  EXPECT_EQ((*array)(1, 2, 0), 42.0);

  EXPECT_FALSE(function->hasData());
  EXPECT_FALSE(field.getData(field.getFragmentID("On-Demand Fragment")));
}

TEST_F(FieldUsageTest, TheSampleLeavesThreeFragments) {
  const FieldPtr field = makeField();
  EXPECT_TRUE(fieldSyntaxCheck(*field));
  EXPECT_EQ(field->nFragments(), 3U);
  expectSample(*field, 0);
}

TEST_F(FieldUsageTest, TheSampleWorksOnAFieldWithoutACollection) {
  const FieldPtr field((new Field(FragmentIDCollectionPtr())));
  EXPECT_TRUE(fieldSyntaxCheck(*field));
  EXPECT_EQ(field->nFragments(), 3U);
  EXPECT_EQ(field->getFragmentIDs().size(), 3U);
  expectSample(*field, 0);
}

TEST_F(FieldUsageTest, TheSampleWorksBesideOtherFragmentsAndAgain) {
  const FieldPtr field = makeField();
  for (int i = 0; i < 4; ++i) field->setCreator(makeForgetful(), field->makeFragmentID(std::to_string(i)));
  EXPECT_TRUE(fieldSyntaxCheck(*field));
  EXPECT_TRUE(fieldSyntaxCheck(*field));
  EXPECT_EQ(field->nFragments(), 7U);
  expectSample(*field, 4);
}

TEST_F(FieldUsageTest, TheSampleWorksOnAFixedCollection) {
  const FragmentIDCollectionPtr collection(
      new Tresk::FragmentIDCollection(TreskTest::makeNames(DynamicSize{2, 1}, {"a", "b"})));
  const FieldPtr field(new Field(collection));
  EXPECT_TRUE(fieldSyntaxCheck(*field));
  EXPECT_EQ(collection->nFragmentIDs(), 5U);
  expectSample(*field, 2);
}

}  // namespace
