// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/BinderBase.hpp>

#include <support/FieldDoubles.hpp>
#include <support/ProfilerRecorder.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>

namespace {

using Ostrel::Ageable;
using Ostrel::Intercube;
using Tresk::BinderBase;
using Tresk::BinderPtr;
using Tresk::BinderSlot;
using Tresk::SaveItem;
using TreskTest::CreatorOwner;
using TreskTest::CreatorPtr;
using TreskTest::FieldOwner;
using TreskTest::FieldPtr;
using TreskTest::makeArray;
using TreskTest::makeDeadArray;
using TreskTest::makeForgetful;
using TreskTest::makeOwner;
using TreskTest::MemBasePtr;
using TreskTest::unnamed;

using SavingTest = TreskTest::RecordBalanceTest;
using DataItem = SaveItem<MemBasePtr>;
using CreatorItem = SaveItem<CreatorPtr>;
using DataItemPtr = Ostrel::StrongPtr<DataItem, Ostrel::InterfaceBase>;
using CreatorItemPtr = Ostrel::StrongPtr<CreatorItem, Ostrel::InterfaceBase>;

DataItemPtr dataItemOf(const Intercube& question) { return DataItemPtr(question.findInterface(typeid(MemBasePtr))); }
CreatorItemPtr creatorItemOf(const Intercube& question) {
  return CreatorItemPtr(question.findInterface(typeid(CreatorPtr)));
}

/// Stores `binder` in the slot that a question carries.
bool fillSlot(Intercube& question, const BinderPtr& binder) {
  const auto slot = Ostrel::findInterface<BinderSlot>(question);
  if (!slot) return false;
  static_cast<BinderPtr&>(*slot) = binder;
  return true;
}

TEST_F(SavingTest, AnItemIsFoundUnderTheTypeOfItsValue) {
  const MemBasePtr data = makeArray(1);
  const DataItemPtr item(new DataItem(data));
  EXPECT_EQ(item->getInterfaceType(), typeid(MemBasePtr));
  EXPECT_TRUE(item->getItem() == data);
  const CreatorPtr creator = makeForgetful();
  const CreatorItemPtr creatorItem(new CreatorItem(creator));
  EXPECT_EQ(creatorItem->getInterfaceType(), typeid(CreatorPtr));
  EXPECT_TRUE(creatorItem->getItem() == creator);
  EXPECT_TRUE((std::is_base_of_v<Ostrel::Interface<MemBasePtr>, DataItem>));
}

TEST_F(SavingTest, SavingWithoutOwnersCompletesAndDoesNothingVisible) {
  const auto creator = makeForgetful(makeArray(1));
  const long long clock = TreskTest::clockNow();
  creator->save(creator->getData());
  EXPECT_TRUE(creator->hasData());
  EXPECT_EQ(creator.strongCount(), 1);
  EXPECT_EQ(creator->getData().strongCount(), 2) << "the creator's and this one";
  EXPECT_EQ(TreskTest::clockNow(), clock);
}

TEST_F(SavingTest, TheRequestCarriesDataAndCreatorAndIsItsOwnContext) {
  const MemBasePtr data = makeArray(1);
  const auto creator = makeForgetful(data);
  MemBasePtr savedData;
  CreatorPtr savedBy;
  bool isOneCube = false;
  const auto saver = makeOwner<CreatorOwner>([&](Intercube& question, const Intercube& context) {
    isOneCube = &question == &context;
    savedData = dataItemOf(question)->getItem();
    savedBy = creatorItemOf(question)->getItem();
    return true;
  });
  creator->addOwner(saver);
  creator->save(data);
  EXPECT_EQ(saver->nQuestions, 1);
  EXPECT_TRUE(isOneCube);
  EXPECT_TRUE(savedData == data);
  EXPECT_TRUE(savedBy == creator);
}

TEST_F(SavingTest, TheItemsDoNotSurviveTheRequest) {
  const MemBasePtr data = makeArray(1);
  const auto creator = makeForgetful(data);
  int nDataInside = 0;
  int nCreatorInside = 0;
  const auto saver = makeOwner<CreatorOwner>([&](Intercube&, const Intercube&) {
    nDataInside = data.strongCount();
    nCreatorInside = creator.strongCount();
    return true;
  });
  creator->addOwner(saver);
  creator->save(data);
  EXPECT_EQ(nDataInside, 3) << "here, in the creator and in the item";
  EXPECT_GE(nCreatorInside, 2) << "here and in the item";
  EXPECT_EQ(data.strongCount(), 2);
  EXPECT_EQ(creator.strongCount(), 1);
}

TEST_F(SavingTest, ASaverMayKeepAnItemBeyondTheCall) {
  const auto creator = makeForgetful(makeArray(1));
  DataItemPtr kept;
  const auto saver = makeOwner<CreatorOwner>([&kept](Intercube& question, const Intercube&) {
    kept = dataItemOf(question);
    return true;
  });
  creator->addOwner(saver);
  creator->save(creator->getData());
  ASSERT_TRUE(kept);
  EXPECT_TRUE(kept->getItem() == creator->getData());
  EXPECT_EQ(creator->release(), Ostrel::Creature::StillInUse) << "the saver holds the data too";
  kept.reset();
  EXPECT_EQ(creator->release(), Ostrel::Creature::Released);
}

TEST_F(SavingTest, InvalidDataAreOfferedAllTheSame) {
  const auto creator = makeForgetful();
  int nWithItem = 0;
  int nValid = 0;
  int nOfThisCreator = 0;
  const auto saver = makeOwner<CreatorOwner>([&](Intercube& question, const Intercube&) {
    const DataItemPtr item = dataItemOf(question);
    if (item) ++nWithItem;
    if (item && item->getItem()) ++nValid;
    if (creatorItemOf(question)->getItem() == creator) ++nOfThisCreator;
    return true;
  });
  creator->addOwner(saver);
  creator->save(MemBasePtr());
  creator->save(makeDeadArray());
  EXPECT_EQ(saver->nQuestions, 2);
  EXPECT_EQ(nWithItem, 2);
  EXPECT_EQ(nValid, 0);
  EXPECT_EQ(nOfThisCreator, 2);
}

TEST_F(SavingTest, SavingChangesNoAge) {
  const auto saver = makeOwner<CreatorOwner>();
  const auto creator = makeForgetful(makeArray(1));
  creator->addOwner(saver);
  const Ageable dataAge = creator->getDataAge();
  const Ageable attributeSaveAge = creator->attributeSaveAge;
  const long long attributeStamp = TreskTest::attributeStamp(*creator);
  creator->save(creator->getData());
  EXPECT_EQ(creator->getDataAge(), dataAge);
  EXPECT_EQ(creator->savedAge, Ageable::Ooooold);
  EXPECT_EQ(creator->attributeSaveAge, attributeSaveAge);
  EXPECT_EQ(TreskTest::attributeStamp(*creator), attributeStamp);
  EXPECT_TRUE(creator->binderAges.empty());
  EXPECT_EQ(saver->dataAge, Ageable::Ooooold);
}

TEST_F(SavingTest, TheAnswerOfTheWalkIsIgnored) {
  const auto refusing = makeOwner<CreatorOwner>();
  const auto refusingToo = makeOwner<CreatorOwner>();
  refusing->answer = refusingToo->answer = false;
  const auto creator = makeForgetful(makeArray(1));
  creator->addOwner(refusing);
  creator->addOwner(refusingToo);
  creator->save(creator->getData());
  EXPECT_EQ(refusing->nQuestions + refusingToo->nQuestions, 1);
  EXPECT_TRUE(creator->hasData());
}

TEST_F(SavingTest, TheScopeOfTheProfileHasItsLiteralTexts) {
  const auto creator = makeForgetful(makeArray(1));
  const MemBasePtr data = creator->getData();
  TreskTest::ProfilerRecorder recorder;
  creator->save(data);
  const auto events = recorder.events();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_TRUE(events[0].isBegin);
  EXPECT_FALSE(events[1].isBegin);
  const Ostrel::Profiler::Scope& scope = events[0].scope;
  EXPECT_EQ(scope.file, "field/CreativeArrayBase");
  EXPECT_EQ(scope.line, 214);
  EXPECT_EQ(scope.function, "void Tresk::CreativeArrayBase::save(Ostrel::RefPtr<Tresk::MemBase>&) const");
  EXPECT_EQ(scope.name, "CreativeArrayBase::save()");
  EXPECT_EQ(scope.level, 6);
  EXPECT_EQ(scope.detail, "");
}

TEST_F(SavingTest, AnExceptionOfASaverPassesWithScopeEndedAndItemsReleased) {
  const MemBasePtr data = makeArray(1);
  const auto creator = makeForgetful(data);
  const auto saver = makeOwner<CreatorOwner>(
      [](Intercube&, const Intercube&) -> bool { throw std::runtime_error("the disk is full"); });
  creator->addOwner(saver);
  TreskTest::ProfilerRecorder recorder;
  try {
    creator->save(data);
    ADD_FAILURE() << "the exception got lost";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "the disk is full");
  }
  EXPECT_EQ(recorder.events().size(), 2U);
  EXPECT_EQ(data.strongCount(), 2);
  EXPECT_EQ(creator.strongCount(), 1);
}

TEST_F(SavingTest, AnOwnerMayBeAskedOnAnyThread) {
  const auto creator = makeForgetful(makeArray(1));
  std::thread::id askedOn;
  const auto saver = makeOwner<CreatorOwner>([&askedOn](Intercube&, const Intercube&) {
    askedOn = std::this_thread::get_id();
    return true;
  });
  creator->addOwner(saver);
  std::thread::id releasing;
  std::thread thread([&] {
    releasing = std::this_thread::get_id();
    creator->save(creator->getData());
  });
  thread.join();
  EXPECT_EQ(askedOn, releasing);
}

// ---------------------------------------------------------------------------------------------------------- binders

TEST_F(SavingTest, ABinderKeepsItsName) {
  const BinderPtr binder(new BinderBase("a file of mine"));
  EXPECT_EQ(binder->getName(), "a file of mine");
  const BinderPtr nameless(new BinderBase(std::string()));
  EXPECT_EQ(nameless->getName(), "");
  EXPECT_TRUE((std::is_base_of_v<Ostrel::ReferenceBase<BinderBase>, BinderBase>));
  EXPECT_TRUE(std::has_virtual_destructor_v<BinderBase>);
}

TEST_F(SavingTest, TheBinderOfACreatorWithoutOwnersIsEmpty) {
  const auto creator = makeForgetful();
  EXPECT_EQ(creator->getBinder().getRecord(), nullptr);
  creator->addOwner(makeOwner<CreatorOwner>());
  EXPECT_FALSE(creator->getBinder()) << "nor does a dead owner have one";
}

TEST_F(SavingTest, AnOwnerFillsTheSlotWithItsBinder) {
  const BinderPtr binder(new BinderBase("file"));
  bool isOneCube = false;
  bool wasEmpty = false;
  const auto saver = makeOwner<CreatorOwner>([&](Intercube& question, const Intercube& context) {
    isOneCube = &question == &context;
    wasEmpty = !*Ostrel::findInterface<BinderSlot>(question);
    return fillSlot(question, binder);
  });
  const auto creator = makeForgetful();
  creator->addOwner(saver);
  EXPECT_TRUE(creator->getBinder() == binder);
  EXPECT_TRUE(isOneCube);
  EXPECT_TRUE(wasEmpty);
  EXPECT_EQ(binder.strongCount(), 1) << "the slot has gone";
}

TEST_F(SavingTest, AnOwnerThatOnlyAgreesLeavesTheSlotEmpty) {
  const auto owner = makeOwner<CreatorOwner>();
  const auto creator = makeForgetful();
  creator->addOwner(owner);
  EXPECT_FALSE(creator->getBinder());
  EXPECT_EQ(owner->nQuestions, 1);
}

TEST_F(SavingTest, ARefusalEndsTheWalkAndLeavesTheBinderEmptyThoughTheSlotWasFilled) {
  const BinderPtr binder(new BinderBase("file"));
  int nFilled = 0;
  const auto fillAndRefuse = [&](Intercube& question, const Intercube&) {
    if (fillSlot(question, binder)) ++nFilled;
    return false;
  };
  const auto one = makeOwner<CreatorOwner>(fillAndRefuse);
  const auto two = makeOwner<CreatorOwner>(fillAndRefuse);
  const auto creator = makeForgetful();
  creator->addOwner(one);
  creator->addOwner(two);
  EXPECT_FALSE(creator->getBinder());
  EXPECT_EQ(nFilled, 1) << "the owner after it is not asked";
}

TEST_F(SavingTest, AnExceptionOfAnOwnerPassesThroughTheQuestionForABinder) {
  const auto owner =
      makeOwner<CreatorOwner>([](Intercube&, const Intercube&) -> bool { throw std::runtime_error("gone"); });
  const auto creator = makeForgetful();
  creator->addOwner(owner);
  EXPECT_THROW(creator->getBinder(), std::runtime_error);
}

TEST_F(SavingTest, TheQuestionForABinderCarriesNothingElseAndIsNotProfiled) {
  bool hasItems = true;
  const auto owner = makeOwner<CreatorOwner>([&hasItems](Intercube& question, const Intercube&) {
    hasItems = dataItemOf(question) || creatorItemOf(question);
    return true;
  });
  const auto creator = makeForgetful(makeArray(1));
  creator->addOwner(owner);
  TreskTest::ProfilerRecorder recorder;
  creator->getBinder();
  EXPECT_FALSE(hasItems);
  EXPECT_TRUE(recorder.events().empty());
}

// ------------------------------------------------------------------------------------------------- through a field

TEST_F(SavingTest, AQuestionPassesThroughAFieldToTheFieldsOwners) {
  MemBasePtr saved;
  CreatorPtr savedBy;
  const auto saver = makeOwner<FieldOwner>([&](Intercube& question, const Intercube&) {
    saved = dataItemOf(question)->getItem();
    savedBy = creatorItemOf(question)->getItem();
    EXPECT_TRUE(Ostrel::findInterface<CreatorOwner::PassThrough>(question)) << "the trace of the field";
    EXPECT_TRUE(Ostrel::findInterface<FieldOwner::PassThrough>(question)) << "the trace of the field's owner";
    return true;
  });
  const FieldPtr field(new Tresk::Field);
  field->addOwner(saver);
  const auto creator = makeForgetful(makeArray(1));
  field->setCreator(creator, unnamed());
  creator->save(creator->getData());
  EXPECT_TRUE(saved == creator->getData());
  EXPECT_TRUE(savedBy == creator);
}

TEST_F(SavingTest, ABinderIsFoundThroughAField) {
  const BinderPtr binder(new BinderBase("file"));
  const auto saver =
      makeOwner<FieldOwner>([&binder](Intercube& question, const Intercube&) { return fillSlot(question, binder); });
  const FieldPtr field(new Tresk::Field);
  field->addOwner(saver);
  const auto creator = makeForgetful();
  field->setCreator(creator, unnamed());
  EXPECT_TRUE(creator->getBinder() == binder);
  saver->onQuestion = [&binder](Intercube& question, const Intercube&) {
    fillSlot(question, binder);
    return false;
  };
  EXPECT_FALSE(creator->getBinder());
}

TEST_F(SavingTest, AFieldWithoutOwnersAgrees) {
  const FieldPtr field(new Tresk::Field);
  Intercube question;
  EXPECT_TRUE(field->processOwnership(question, question));
  const auto refusing = makeOwner<FieldOwner>();
  refusing->answer = false;
  field->addOwner(refusing);
  EXPECT_FALSE(field->processOwnership(question, question));
}

TEST_F(SavingTest, ASaverMayReadAndBindTheFieldThatTheQuestionCameThrough) {
  const FieldPtr field(new Tresk::Field);
  const auto creator = makeForgetful(makeArray(1));
  field->setCreator(creator, unnamed());
  const auto saver = makeOwner<FieldOwner>([&field](Intercube&, const Intercube&) {
    EXPECT_EQ(field->nFragments(), 1U);
    field->setCreator(makeForgetful(), field->makeFragmentID("next"));
    return true;
  });
  field->addOwner(saver);
  creator->save(creator->getData());
  EXPECT_EQ(field->nFragments(), 2U) << "no lock of the field is held while its owners are asked";
}

}  // namespace
