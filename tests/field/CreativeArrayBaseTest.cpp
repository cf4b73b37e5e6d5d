// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreativeArrayBase.hpp>

#include <tresk/field/TreskType.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>
#include <utility>

namespace {

using Ostrel::Ageable;
using Tresk::CreativeArrayBase;
using Tresk::DynamicSize;
using Tresk::getTreskType;
using Tresk::MemArrayProperties;
using Tresk::MemBase;
using Tresk::SizeInterface;
using Tresk::SizePtr;
using Tresk::TreskTypePtr;
using TreskTest::attributeStamp;
using TreskTest::clockNow;
using TreskTest::CreatorOwner;
using TreskTest::CreatorWeakPtr;
using TreskTest::dataStamp;
using TreskTest::makeArray;
using TreskTest::makeDeadArray;
using TreskTest::makeForgetful;
using TreskTest::makeFunctional;
using TreskTest::makeOwner;
using TreskTest::MemBasePtr;

using CreativeArrayBaseTest = TreskTest::RecordBalanceTest;
using PropertiesPtr = Ostrel::StrongPtr<MemArrayProperties, Ostrel::InterfaceBase>;

SizePtr sizeOn(const CreativeArrayBase& creator) { return Ostrel::findInterface<SizeInterface>(creator); }
PropertiesPtr propertiesOn(const CreativeArrayBase& creator) {
  return Ostrel::findInterface<MemArrayProperties>(creator);
}

/// A record of an element type that can die, unlike those of the library.
class MortalType : public Tresk::TreskTypeBase {
 public:
  explicit MortalType(const Tresk::TreskTypeIndex& index) : TreskTypeBase(index) {}
  const std::type_info& getType() const override { return typeid(MortalType); }
  bool isType(const std::type_info& type) const override { return type == typeid(MortalType); }
  Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> createChunk(std::size_t) const override { return {}; }
  unsigned int indexOf(const unsigned int& i) const override { return i; }
  TreskTypePtr getComponentType() const override { return TreskTypePtr(); }
  std::string chartComponentName(int) const override { return std::string(); }
  const std::type_info& getChartType() const override { return typeid(void); }
  int indexKind(unsigned int) const override { return 0; }
  int indexExtra(unsigned int) const override { return 0; }
};

TEST_F(CreativeArrayBaseTest, HasItsBases) {
  EXPECT_TRUE((std::is_base_of_v<Ostrel::CreatorBase<MemBase>, CreativeArrayBase>));
  EXPECT_TRUE((std::is_base_of_v<Tresk::SaveableAttributes, CreativeArrayBase>));
  EXPECT_TRUE((std::is_base_of_v<Tresk::OwnerBase, CreativeArrayBase>));
  EXPECT_TRUE((std::is_base_of_v<Ostrel::Attributes, Tresk::SaveableAttributes>));
  EXPECT_TRUE((std::is_base_of_v<CreativeArrayBase, TreskTest::ForgetfulArray>));
}

TEST_F(CreativeArrayBaseTest, StampsOfANewCreator) {
  const long long clock = clockNow();
  const auto creator = makeForgetful();
  EXPECT_EQ(clockNow(), clock) << "a construction is no change";
  EXPECT_EQ(dataStamp(*creator), 0);
  EXPECT_EQ(attributeStamp(*creator), 0);
  EXPECT_EQ(creator->savedAge, Ageable::Ooooold);
  EXPECT_EQ(creator->attributeSaveAge.getAge(), clock);
  EXPECT_EQ(creator->attributesSavedAge.getAge(), clock);
  EXPECT_TRUE(creator->binderAges.empty());
  EXPECT_EQ(creator->savingState, 0);
}

TEST_F(CreativeArrayBaseTest, AttributeStampsOfASaverTakeTheClockAtConstruction) {
  makeForgetful()->touch();
  const long long clock = clockNow();
  ASSERT_GT(clock, 0);
  EXPECT_EQ(makeForgetful()->attributeSaveAge.getAge(), clock);
}

TEST_F(CreativeArrayBaseTest, BooksOfSaversAreOpenOnAConstantCreator) {
  const auto creator = makeForgetful();
  const Ostrel::StrongPtr<Tresk::BinderBase, Tresk::BinderBase> binder(new Tresk::BinderBase("file"));
  const CreativeArrayBase& constant = *creator;
  constant.savedAge = Ageable(5);
  constant.attributeSaveAge = Ageable(6);
  constant.binderAges[binder] = Ageable(7);
  constant.savingState = 8;
  EXPECT_EQ(creator->savedAge.getAge(), 5);
  EXPECT_EQ(creator->attributeSaveAge.getAge(), 6);
  EXPECT_EQ(creator->binderAges.at(binder).getAge(), 7);
  EXPECT_EQ(creator->savingState, 8);
}

TEST_F(CreativeArrayBaseTest, NothingIsKnownOfANewCreator) {
  const auto creator = makeForgetful();
  EXPECT_FALSE(creator->getTreskType());
  EXPECT_FALSE(sizeOn(*creator));
  EXPECT_FALSE(propertiesOn(*creator));
  EXPECT_EQ(creator->nOwners(), 0U);
  EXPECT_FALSE(creator->hasData());
}

TEST_F(CreativeArrayBaseTest, TheCacheIsHandedOn) {
  const Tresk::CachePtr cache(new Ostrel::Cache);
  const auto creator = makeForgetful({}, cache);
  EXPECT_TRUE(creator->getCache() == cache);
}

TEST_F(CreativeArrayBaseTest, TheFirstStrongPointerEntersTheBooksOfTheCache) {
  const Tresk::CachePtr cache(new Ostrel::Cache);
  auto* const creator = new TreskTest::ForgetfulArray(cache);
  EXPECT_EQ(creator->getCachingCount(), 0);
  EXPECT_EQ(cache->nCreatures(), 0U);
  const TreskTest::CreatorPtr held(creator);
  EXPECT_EQ(held->getCachingCount(), 1);
  EXPECT_FALSE(held->isKept());
  EXPECT_EQ(cache->nCreatures(), 1U);
}

// ------------------------------------------------------------------------------------------------------------- ages

TEST_F(CreativeArrayBaseTest, TouchTicksTheClockOnceAndTakesItsValue) {
  const auto creator = makeForgetful();
  const long long clock = clockNow();
  Ageable& age = creator->touch();
  EXPECT_EQ(clockNow(), clock + 1);
  EXPECT_EQ(age.getAge(), clock + 1);
  EXPECT_EQ(&age, &creator->getDataAge());
  EXPECT_EQ(attributeStamp(*creator), 0);
}

TEST_F(CreativeArrayBaseTest, TouchRaisesTheDataAgeOfAllOwners) {
  const auto one = makeOwner<CreatorOwner>();
  const auto two = makeOwner<CreatorOwner>();
  const auto creator = makeForgetful();
  creator->addOwner(one);
  creator->addOwner(two);
  creator->touch();
  EXPECT_EQ(one->dataAge, creator->getDataAge());
  EXPECT_EQ(two->dataAge, creator->getDataAge());
  EXPECT_EQ(one->attributeAge, Ageable::Ooooold);
}

TEST_F(CreativeArrayBaseTest, TouchLeavesAnOwnerThatIsNewer) {
  const auto owner = makeOwner<CreatorOwner>();
  const auto creator = makeForgetful();
  creator->addOwner(owner);
  owner->dataAge = Ageable(clockNow() + 1000);
  const Ageable before = owner->dataAge;
  creator->touch();
  EXPECT_EQ(owner->dataAge, before);
}

TEST_F(CreativeArrayBaseTest, AnOwnerIsAsNewAsItsNewestCreator) {
  const auto owner = makeOwner<CreatorOwner>();
  const auto one = makeForgetful();
  const auto two = makeForgetful();
  one->addOwner(owner);
  two->addOwner(owner);
  one->touch();
  EXPECT_EQ(owner->dataAge, one->getDataAge());
  two->touch();
  EXPECT_EQ(owner->dataAge, two->getDataAge());
  one->touch();
  EXPECT_EQ(owner->dataAge, one->getDataAge());
}

TEST_F(CreativeArrayBaseTest, TouchLeavesADeadOwnerInTheSetAndSkipsIt) {
  const auto creator = makeForgetful();
  creator->addOwner(makeOwner<CreatorOwner>());
  creator->touch();
  creator->touchAttributes();
  EXPECT_EQ(creator->nOwners(), 1U);
}

TEST_F(CreativeArrayBaseTest, TouchDoesNotAskTheOwners) {
  const auto owner = makeOwner<CreatorOwner>();
  const auto creator = makeForgetful();
  creator->addOwner(owner);
  creator->touch();
  creator->touchAttributes();
  EXPECT_EQ(owner->nQuestions, 0);
  EXPECT_TRUE(owner->arguments.empty());
}

TEST_F(CreativeArrayBaseTest, TouchDoesNotClaimAnOwnerThatNobodyHoldsYet) {
  auto* const owner = new TreskTest::RecordingOwner<CreatorOwner>;
  const auto creator = makeForgetful();
  creator->addOwner(owner->getSelf());
  creator->touch();
  creator->touchAttributes();
  creator->updateAttributeAge(Ageable(clockNow() + 1));
  const TreskTest::OwnerPtr<CreatorOwner> held(owner);
  EXPECT_EQ(held.strongCount(), 1);
  EXPECT_EQ(held->dataAge, creator->getDataAge());
}

TEST_F(CreativeArrayBaseTest, TouchedAttributesOfAConstantCreatorRaiseTheOwners) {
  const auto owner = makeOwner<CreatorOwner>();
  const auto creator = makeForgetful();
  creator->addOwner(owner);
  const long long clock = clockNow();
  const CreativeArrayBase& constant = *creator;
  Ageable& age = constant.touchAttributes();
  EXPECT_EQ(clockNow(), clock + 1);
  EXPECT_EQ(age.getAge(), clock + 1);
  EXPECT_EQ(&age, &creator->getAttributeAge());
  EXPECT_EQ(owner->attributeAge.getAge(), clock + 1);
  EXPECT_EQ(owner->dataAge, Ageable::Ooooold);
  EXPECT_EQ(dataStamp(*creator), 0);
}

TEST_F(CreativeArrayBaseTest, TouchedAttributesLeaveAnOwnerThatIsNewer) {
  const auto owner = makeOwner<CreatorOwner>();
  const auto creator = makeForgetful();
  creator->addOwner(owner);
  owner->attributeAge = Ageable(clockNow() + 1000);
  const Ageable before = owner->attributeAge;
  creator->touchAttributes();
  EXPECT_EQ(owner->attributeAge, before);
}

TEST_F(CreativeArrayBaseTest, ANewerAttributeAgeRaisesCreatorAndOwners) {
  const auto owner = makeOwner<CreatorOwner>();
  const auto creator = makeForgetful();
  creator->addOwner(owner);
  const long long clock = clockNow();
  const Ageable& age = std::as_const(*creator).updateAttributeAge(Ageable(clock + 50));
  EXPECT_EQ(age.getAge(), clock + 50);
  EXPECT_EQ(&age, &creator->getAttributeAge());
  EXPECT_EQ(attributeStamp(*creator), clock + 50);
  EXPECT_EQ(owner->attributeAge.getAge(), clock + 50);
  EXPECT_EQ(clockNow(), clock) << "no tick";
}

TEST_F(CreativeArrayBaseTest, AnOlderAttributeAgeChangesNothing) {
  const auto owner = makeOwner<CreatorOwner>();
  const auto creator = makeForgetful();
  creator->addOwner(owner);
  creator->touchAttributes();
  const long long stamp = attributeStamp(*creator);
  const Ageable& age = creator->updateAttributeAge(Ageable(stamp - 1));
  EXPECT_EQ(age.getAge(), stamp);
  EXPECT_EQ(attributeStamp(*creator), stamp);
  EXPECT_EQ(owner->attributeAge.getAge(), stamp);
}

TEST_F(CreativeArrayBaseTest, OwnersAreComparedWithTheGivenAgeAlsoWhereTheCreatorIsNewer) {
  const auto creator = makeForgetful();
  creator->touchAttributes();
  const long long stamp = attributeStamp(*creator);
  const auto owner = makeOwner<CreatorOwner>();
  creator->addOwner(owner);
  creator->updateAttributeAge(Ageable(stamp - 1));
  EXPECT_EQ(attributeStamp(*creator), stamp);
  EXPECT_EQ(owner->attributeAge.getAge(), stamp - 1) << "the given age, not the creator's";
}

TEST_F(CreativeArrayBaseTest, AnOlderOwnerRisesOnlyToTheGivenAgeAndANewerOneStays) {
  const auto creator = makeForgetful();
  const auto older = makeOwner<CreatorOwner>();
  const auto newer = makeOwner<CreatorOwner>();
  const long long clock = clockNow();
  newer->attributeAge = Ageable(clock + 100);
  creator->addOwner(older);
  creator->addOwner(newer);
  creator->addOwner(makeOwner<CreatorOwner>());
  creator->updateAttributeAge(Ageable(clock + 50));
  EXPECT_EQ(older->attributeAge.getAge(), clock + 50);
  EXPECT_EQ(newer->attributeAge.getAge(), clock + 100);
}

// --------------------------------------------------------------------------------------------------- type and size

TEST_F(CreativeArrayBaseTest, TheTypeIsHeldWeakly) {
  const auto creator = makeForgetful();
  const TreskTypePtr type = getTreskType<double>();
  const int nStrong = type.strongCount();
  const int nWeak = type.weakCount();
  creator->setTreskType(type);
  EXPECT_EQ(type.strongCount(), nStrong);
  EXPECT_EQ(type.weakCount(), nWeak + 1);
  creator->setTreskType(type);
  EXPECT_EQ(type.weakCount(), nWeak + 1);
  creator->setTreskType(getTreskType<unsigned int>());
  EXPECT_EQ(type.weakCount(), nWeak);
  EXPECT_TRUE(creator->getTreskType() == getTreskType<unsigned int>());
}

TEST_F(CreativeArrayBaseTest, AnInvalidTypeLeavesTheMemoryOfTheFormerOne) {
  const auto creator = makeForgetful();
  const TreskTypePtr type = getTreskType<double>();
  const int nWeak = type.weakCount();
  creator->setTreskType(type);
  creator->setTreskType(TreskTypePtr());
  EXPECT_EQ(type.weakCount(), nWeak) << "the pointer is cleared";
  EXPECT_TRUE(creator->getTreskType() == type) << "found by the index";
}

TEST_F(CreativeArrayBaseTest, ADeadTypeIsNoTypeAndLeavesTheMemoryToo) {
  const auto creator = makeForgetful();
  creator->setTreskType(getTreskType<double>());
  Ostrel::WeakPtr<Tresk::TreskTypeBase, Tresk::TreskTypeBase> observer;
  {
    const TreskTypePtr mortal(new MortalType(*getTreskType<unsigned int>()));
    observer = mortal;
  }
  creator->setTreskType(TreskTypePtr(observer));
  EXPECT_TRUE(creator->getTreskType() == getTreskType<double>());
}

TEST_F(CreativeArrayBaseTest, TheTypeIsTheVeryRecordThatWasSetWhileItLives) {
  const auto creator = makeForgetful();
  const TreskTypePtr mortal(new MortalType(*getTreskType<double>()));
  creator->setTreskType(mortal);
  EXPECT_TRUE(creator->getTreskType() == mortal);
  EXPECT_EQ(mortal.strongCount(), 1);
}

TEST_F(CreativeArrayBaseTest, AfterTheRecordsDeathARecordOfTheSameIndexIsFound) {
  const auto creator = makeForgetful();
  {
    const TreskTypePtr mortal(new MortalType(*getTreskType<double>()));
    creator->setTreskType(mortal);
  }
  EXPECT_TRUE(creator->getTreskType() == getTreskType<double>());
}

TEST_F(CreativeArrayBaseTest, AfterTheRecordsDeathAnUnknownIndexFindsNothing) {
  const auto creator = makeForgetful();
  {
    Tresk::TreskTypeIndex index = *getTreskType<double>();
    index.typeName = "a type that nobody knows";
    creator->setTreskType(TreskTypePtr(new MortalType(index)));
  }
  EXPECT_FALSE(creator->getTreskType());
}

TEST_F(CreativeArrayBaseTest, MetaInfoTellsSizeRankAndType) {
  const auto creator = makeForgetful();
  const DynamicSize size{4, 5, 6};
  creator->addMetaInfo(size, getTreskType<double>());
  ASSERT_TRUE(sizeOn(*creator));
  EXPECT_EQ(sizeOn(*creator)->str(), "4x5x6");
  EXPECT_NE(sizeOn(*creator)->getExtents(), size.getExtents()) << "a copy";
  ASSERT_TRUE(propertiesOn(*creator));
  EXPECT_EQ(propertiesOn(*creator)->getRank(), 3);
  EXPECT_TRUE(propertiesOn(*creator)->getType() == getTreskType<double>());
  EXPECT_TRUE(creator->getTreskType() == getTreskType<double>());
  EXPECT_FALSE(creator->hasData());
}

TEST_F(CreativeArrayBaseTest, MetaInfoWithoutTypeAddsTheSizeAndLeavesTypeAndPropertiesAlone) {
  const auto creator = makeForgetful();
  creator->addMetaInfo(DynamicSize{4, 5}, TreskTypePtr());
  EXPECT_EQ(sizeOn(*creator)->str(), "4x5");
  EXPECT_FALSE(propertiesOn(*creator));
  EXPECT_FALSE(creator->getTreskType());

  creator->addMetaInfo(DynamicSize{1, 2, 3}, getTreskType<unsigned int>());
  const PropertiesPtr properties = propertiesOn(*creator);
  const int nWeak = getTreskType<unsigned int>().weakCount();
  creator->addMetaInfo(DynamicSize{7}, TreskTypePtr());
  EXPECT_EQ(sizeOn(*creator)->str(), "7");
  EXPECT_TRUE(propertiesOn(*creator) == properties);
  EXPECT_EQ(getTreskType<unsigned int>().weakCount(), nWeak) << "the type was not set anew";
}

TEST_F(CreativeArrayBaseTest, RankAndTypeAddNoSize) {
  const auto creator = makeForgetful();
  creator->addMetaInfo(2, getTreskType<double>());
  EXPECT_FALSE(sizeOn(*creator));
  ASSERT_TRUE(propertiesOn(*creator));
  EXPECT_EQ(propertiesOn(*creator)->getRank(), 2);
  EXPECT_TRUE(creator->getTreskType() == getTreskType<double>());
}

TEST_F(CreativeArrayBaseTest, RankWithoutTypeChangesNothing) {
  const auto creator = makeForgetful();
  creator->addMetaInfo(2, TreskTypePtr());
  EXPECT_FALSE(sizeOn(*creator));
  EXPECT_FALSE(propertiesOn(*creator));
  EXPECT_FALSE(creator->getTreskType());

  creator->addMetaInfo(2, getTreskType<double>());
  const PropertiesPtr properties = propertiesOn(*creator);
  creator->addMetaInfo(3, TreskTypePtr());
  EXPECT_TRUE(propertiesOn(*creator) == properties);
}

TEST_F(CreativeArrayBaseTest, LaterMetaInfoReplacesTheSize) {
  const auto creator = makeForgetful();
  creator->addMetaInfo(DynamicSize{4, 5}, getTreskType<double>());
  creator->addMetaInfo(DynamicSize{6}, getTreskType<unsigned int>());
  EXPECT_EQ(Tresk::getSize(*creator)->str(), "6");
  EXPECT_EQ(propertiesOn(*creator)->getRank(), 1);
  EXPECT_TRUE(creator->getTreskType() == getTreskType<unsigned int>());
}

TEST_F(CreativeArrayBaseTest, MetaInfoOfDataComesFromTheArray) {
  const auto creator = makeForgetful();
  const MemBasePtr data = makeArray(3, 2, 0.0);
  creator->addDataMetaInfo(data);
  EXPECT_EQ(sizeOn(*creator)->str(), "3x2");
  EXPECT_EQ(propertiesOn(*creator)->getRank(), 2);
  EXPECT_TRUE(propertiesOn(*creator)->getType() == getTreskType<double>());
  EXPECT_TRUE(creator->getTreskType() == getTreskType<double>());
  EXPECT_FALSE(creator->hasData()) << "the array describes, it is not kept";
  EXPECT_EQ(data.strongCount(), 1);
  EXPECT_EQ(data->getUseCount(), 0);
}

TEST_F(CreativeArrayBaseTest, MetaInfoOfInvalidDataChangesNothing) {
  const auto creator = makeForgetful();
  creator->addDataMetaInfo(MemBasePtr());
  creator->addDataMetaInfo(makeDeadArray());
  EXPECT_FALSE(sizeOn(*creator));
  EXPECT_FALSE(propertiesOn(*creator));
  EXPECT_FALSE(creator->getTreskType());
}

// --------------------------------------------------------------------------------------------- questions about data

TEST_F(CreativeArrayBaseTest, MemoryUsageWithoutDataIsZero) {
  const auto creator = makeFunctional([] { return makeArray(4); });
  EXPECT_EQ(Tresk::getMemoryUsage(*creator), 0U);
  EXPECT_EQ(creator->nProductions, 0);
  EXPECT_EQ(creator->nQuestions, 0) << "data are asked for only if there are any";
}

TEST_F(CreativeArrayBaseTest, MemoryUsageIsThatOfTheHeldArray) {
  const auto creator = makeForgetful(makeArray(4));
  EXPECT_EQ(Tresk::getMemoryUsage(*creator), 4 * sizeof(double));
  EXPECT_EQ(creator->nQuestions, 1);
  EXPECT_EQ(creator->getData()->getUseCount(), 0);
  creator->release();
  EXPECT_EQ(Tresk::getMemoryUsage(*creator), 0U);
}

/// Says that it has data, and has none when asked.
class Boaster : public TreskTest::ForgetfulArray {
 public:
  using AlzheimerCreator::AlzheimerCreator;
  bool hasData() const override { return true; }
};

TEST_F(CreativeArrayBaseTest, MemoryUsageOfDataThatWentBetweenTwoQuestionsIsZero) {
  const TreskTest::CreatorPtr creator(new Boaster(TreskTest::CacheWeakPtr()));
  EXPECT_EQ(Tresk::getMemoryUsage(*creator), 0U);
}

TEST_F(CreativeArrayBaseTest, SizeOfACreatorWithoutDataAndDescriptionIsUnknown) {
  const auto creator = makeFunctional([] { return makeArray(4); });
  EXPECT_EQ(Tresk::getSize(*creator).getRecord(), nullptr);
  EXPECT_EQ(creator->nProductions, 0);
  EXPECT_FALSE(sizeOn(*creator));
}

TEST_F(CreativeArrayBaseTest, SizeIsToldByTheDescriptionWithoutAskingForData) {
  const auto creator = makeForgetful(makeArray(4));
  creator->addMetaInfo(DynamicSize{9, 9}, TreskTypePtr());
  EXPECT_EQ(Tresk::getSize(*creator)->str(), "9x9");
  EXPECT_EQ(creator->nQuestions, 0);
}

TEST_F(CreativeArrayBaseTest, ASummedSizeServesLikeAnyOther) {
  const auto creator = makeForgetful();
  const SizePtr summed(new Tresk::FragmentedSizeInterface(DynamicSize{8}, 3));
  creator->addInterface(summed);
  EXPECT_TRUE(Tresk::getSize(*creator) == summed);
  EXPECT_TRUE(Tresk::makeSize(*creator) == summed);
}

TEST_F(CreativeArrayBaseTest, SizeOfHeldDataIsRememberedOnTheCreator) {
  const auto creator = makeForgetful(makeArray(3, 2, 0.0));
  const SizePtr size = Tresk::getSize(*creator);
  ASSERT_TRUE(size);
  EXPECT_EQ(size->str(), "3x2");
  EXPECT_TRUE(sizeOn(*creator) == size);
  EXPECT_TRUE(Tresk::getSize(*creator) == size);
  EXPECT_EQ(creator->nQuestions, 1) << "the second answer comes from memory";
  EXPECT_EQ(creator->getData()->getUseCount(), 0);
}

TEST_F(CreativeArrayBaseTest, SizeAskedOnceIsStillKnownAfterTheDataHaveGone) {
  const auto creator = makeForgetful(makeArray(3, 2, 0.0));
  Tresk::getSize(*creator);
  ASSERT_EQ(creator->release(), Ostrel::Creature::Released);
  ASSERT_FALSE(creator->hasData());
  EXPECT_EQ(Tresk::getSize(*creator)->str(), "3x2");
}

TEST_F(CreativeArrayBaseTest, TheFirstSizeStandsThoughTheArrayIsReplaced) {
  unsigned long long n = 4;
  const auto creator = makeFunctional([&n] { return makeArray(n); });
  creator->create(false);
  EXPECT_EQ(Tresk::getSize(*creator)->str(), "4");
  n = 7;
  creator->release();
  EXPECT_EQ(creator->create(false)->getSize().str(), "7");
  EXPECT_EQ(Tresk::getSize(*creator)->str(), "4");
  EXPECT_EQ(Tresk::makeSize(*creator)->str(), "4");
}

TEST_F(CreativeArrayBaseTest, MakingTheSizeOfHeldDataMarksThemAsUsed) {
  const auto creator = makeForgetful(makeArray(3, 2, 0.0));
  const SizePtr size = Tresk::makeSize(*creator);
  EXPECT_EQ(size->str(), "3x2");
  EXPECT_TRUE(sizeOn(*creator) == size);
  EXPECT_EQ(creator->nProductions, 0);
  EXPECT_EQ(creator->getData()->getUseCount(), 1);
  EXPECT_EQ(creator->getCachingCount(), 1) << "that of the first strong pointer";
}

TEST_F(CreativeArrayBaseTest, MakingAKnownSizeTouchesNothing) {
  const auto creator = makeForgetful(makeArray(3));
  Tresk::getSize(*creator);
  Tresk::makeSize(*creator);
  EXPECT_EQ(creator->getData()->getUseCount(), 0);
  EXPECT_EQ(creator->nProductions, 0);
}

TEST_F(CreativeArrayBaseTest, MakingTheSizeProducesTiesAndEnablesCaching) {
  const auto creator = makeFunctional([] { return makeArray(5); });
  creator->enableCaching(true);
  const long long nCachings = creator->getCachingCount();
  EXPECT_EQ(Tresk::makeSize(*creator)->str(), "5");
  EXPECT_EQ(creator->nProductions, 1);
  ASSERT_TRUE(creator->getData());
  EXPECT_TRUE(creator->getData()->getCreator() == creator);
  EXPECT_EQ(creator->getCachingCount(), nCachings + 1);
  EXPECT_FALSE(creator->isKept());
  EXPECT_EQ(creator->getData()->getUseCount(), 0);
}

TEST_F(CreativeArrayBaseTest, TheSizeOfAFailedProductionIsUnknown) {
  const auto creator = makeFunctional([] { return MemBasePtr(); });
  const long long nCachings = creator->getCachingCount();
  EXPECT_EQ(Tresk::makeSize(*creator).getRecord(), nullptr);
  EXPECT_FALSE(sizeOn(*creator));
  EXPECT_EQ(creator->getCachingCount(), nCachings);
}

TEST_F(CreativeArrayBaseTest, AnExceptionOfTheProductionPassesThroughTheSize) {
  const auto creator = makeFunctional([]() -> MemBasePtr { throw std::runtime_error("no such file"); });
  EXPECT_THROW(Tresk::makeSize(*creator), std::runtime_error);
  EXPECT_FALSE(sizeOn(*creator));
}

TEST_F(CreativeArrayBaseTest, TwoThreadsLearnEqualSizes) {
  const auto creator = makeForgetful(makeArray(3, 2, 0.0));
  SizePtr sizes[2];
  TreskTest::RaceRunner race;
  race.add(2, [&](int i) { sizes[i] = Tresk::getSize(*static_cast<const CreativeArrayBase*>(creator.get())); });
  race.run();
  EXPECT_EQ(sizes[0]->str(), "3x2");
  EXPECT_EQ(sizes[1]->str(), "3x2");
  EXPECT_TRUE(sizeOn(*creator) == sizes[0] || sizeOn(*creator) == sizes[1]);
}

// ------------------------------------------------------------------------------------------------------------- end

TEST_F(CreativeArrayBaseTest, TheLastLookHoldsTheDataAndGivesThemUpAgain) {
  const MemBasePtr data = makeArray(1);
  const auto creator = makeForgetful(data);
  creator->extremeUnction();
  EXPECT_EQ(creator->nCacheableQuestions, 1);
  EXPECT_EQ(data.strongCount(), 2);
  EXPECT_TRUE(creator->hasData());
}

TEST_F(CreativeArrayBaseTest, TheLastLookOfAnEmptyCreatorFindsNothing) {
  const auto creator = makeFunctional([] { return makeArray(1); });
  creator->extremeUnction();
  EXPECT_EQ(creator->nProductions, 0);
  EXPECT_FALSE(creator->hasData());
}

TEST_F(CreativeArrayBaseTest, DataHeldElsewhereOutliveTheirCreatorWithADeadCreatorPointer) {
  const MemBasePtr data = makeArray(1);
  {
    const auto creator = makeForgetful(data);
    ASSERT_TRUE(data->getCreator().isValid());
  }
  EXPECT_FALSE(data->getCreator().isValid());
  EXPECT_EQ(data.strongCount(), 1);
}

TEST_F(CreativeArrayBaseTest, DataThatNobodyElseHoldsDieWithTheirCreator) {
  Ostrel::WeakPtr<MemBase, Ostrel::Cacheable> observer;
  {
    const auto creator = makeForgetful(makeArray(1));
    observer = creator->getData();
    ASSERT_TRUE(observer.isValid());
  }
  EXPECT_FALSE(observer.isValid());
}

TEST_F(CreativeArrayBaseTest, RetryingIsRefused) {
  const auto creator = makeForgetful(makeArray(1));
  EXPECT_FALSE(creator->retryCreation(*creator));
}

}  // namespace
