// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/BaseSpace.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

namespace {

using Ostrel::Ageable;
using Ostrel::Intercube;
using Tresk::BaseSpace;
using Tresk::BaseSpaceDependency;
using Tresk::BaseSpaceDependencyPtr;
using Tresk::BaseSpaceDependencyWeakPtr;
using Tresk::ChildrenProperties;
using Tresk::Ownable;
using TreskTest::FieldPtr;

using FieldContainer = Ownable<Tresk::Field, ChildrenProperties>::Container;
using DependencyContainer = Ownable<BaseSpaceDependency, ChildrenProperties>::Container;
using SpaceContainer = Ownable<BaseSpace, ChildrenProperties>::Container;
using BaseSpacePtr = Ostrel::StrongPtr<BaseSpace, DependencyContainer>;

using BaseSpaceTest = TreskTest::RecordBalanceTest;

BaseSpacePtr makeSpace() { return BaseSpacePtr(new BaseSpace); }
BaseSpaceDependencyPtr makeDependency() { return BaseSpaceDependencyPtr(new BaseSpaceDependency); }
FieldPtr makeField() { return FieldPtr(new Tresk::Field); }

TEST_F(BaseSpaceTest, ADependencyContainsFieldsAndIsAChildOfSpaces) {
  EXPECT_TRUE((std::is_base_of_v<FieldContainer, BaseSpaceDependency>));
  EXPECT_TRUE((std::is_base_of_v<Ownable<BaseSpaceDependency, ChildrenProperties>, BaseSpaceDependency>));
  EXPECT_TRUE((std::is_base_of_v<ChildrenProperties, BaseSpaceDependency>));
  EXPECT_FALSE((std::is_base_of_v<Intercube, BaseSpaceDependency>));
}

TEST_F(BaseSpaceTest, ASpaceContainsDependenciesAndIsAChildItself) {
  EXPECT_TRUE((std::is_base_of_v<DependencyContainer, BaseSpace>));
  EXPECT_TRUE((std::is_base_of_v<Ownable<BaseSpace, ChildrenProperties>, BaseSpace>));
  EXPECT_TRUE((std::is_base_of_v<Intercube, BaseSpace>));
}

TEST_F(BaseSpaceTest, BothComeAndGoWithoutAnyField) {
  const long long nBefore = nLiveSinceStart();
  {
    const BaseSpacePtr space = makeSpace();
    const BaseSpaceDependencyPtr dependency = makeDependency();
    EXPECT_EQ(space->nOwners(), 0U);
    EXPECT_EQ(dependency->nOwners(), 0U);
    EXPECT_EQ(space->age, Ageable::Ooooold);
    EXPECT_EQ(dependency->age, Ageable::Ooooold);
    EXPECT_EQ(space.strongCount(), 1);
    EXPECT_EQ(dependency.strongCount(), 1);
  }
  EXPECT_EQ(nLiveSinceStart(), nBefore);
}

TEST_F(BaseSpaceTest, TheirLastLookLeavesThemAsTheyAre) {
  const BaseSpacePtr space = makeSpace();
  const BaseSpaceDependencyPtr dependency = makeDependency();
  space->extremeUnction();
  dependency->extremeUnction();
  EXPECT_EQ(space.strongCount(), 1);
  EXPECT_EQ(dependency.strongCount(), 1);
}

TEST_F(BaseSpaceTest, AddingADependencyChangesNothing) {
  const BaseSpacePtr space = makeSpace();
  const BaseSpaceDependencyPtr dependency = makeDependency();
  const long long nRecords = nLiveSinceStart();
  const int nWeak = dependency.weakCount();
  space->addDependency(dependency);
  space->addDependency(dependency);
  space->addDependency(BaseSpaceDependencyWeakPtr());
  EXPECT_EQ(dependency.weakCount(), nWeak) << "the space does not even observe it";
  EXPECT_EQ(dependency.strongCount(), 1);
  EXPECT_EQ(dependency->nOwners(), 0U);
  EXPECT_FALSE(dependency->isOwnedBy(space));
  EXPECT_EQ(space->nOwners(), 0U);
  EXPECT_EQ(space->age, Ageable::Ooooold);
  EXPECT_EQ(nLiveSinceStart(), nRecords);
}

TEST_F(BaseSpaceTest, OwnersAreHeldWeaklyOnEveryLevel) {
  const BaseSpacePtr space = makeSpace();
  const BaseSpaceDependencyPtr dependency = makeDependency();
  const FieldPtr field = makeField();
  const auto outer = TreskTest::makeOwner<SpaceContainer>();
  EXPECT_TRUE(field->addOwner(dependency));
  EXPECT_TRUE(dependency->addOwner(space));
  EXPECT_TRUE(space->addOwner(outer));
  EXPECT_EQ(dependency.strongCount(), 1);
  EXPECT_EQ(space.strongCount(), 1);
  EXPECT_EQ(outer.strongCount(), 1);
  EXPECT_EQ(field.strongCount(), 1);
  EXPECT_TRUE(field->isOwnedBy(dependency));
  EXPECT_TRUE(dependency->isOwnedBy(space));
  EXPECT_TRUE(space->isOwnedBy(outer));
}

TEST_F(BaseSpaceTest, AQuestionClimbsFromACreatorThroughEveryLevel) {
  const auto outer = TreskTest::makeOwner<SpaceContainer>();
  const BaseSpacePtr space = makeSpace();
  const BaseSpaceDependencyPtr dependency = makeDependency();
  const FieldPtr field = makeField();
  const auto creator = TreskTest::makeForgetful();
  space->addOwner(outer);
  dependency->addOwner(space);
  field->addOwner(dependency);
  field->setCreator(creator, TreskTest::unnamed());

  Intercube question;
  EXPECT_TRUE(creator->processOwnership(question, question));
  EXPECT_EQ(outer->nQuestions, 1);
  // Each level has left its trace.
  const auto ofField = Ostrel::findInterface<Tresk::CreatorContainer::PassThrough>(question);
  const auto ofDependency = Ostrel::findInterface<FieldContainer::PassThrough>(question);
  const auto ofSpace = Ostrel::findInterface<DependencyContainer::PassThrough>(question);
  const auto ofOuter = Ostrel::findInterface<SpaceContainer::PassThrough>(question);
  ASSERT_TRUE(ofField);
  ASSERT_TRUE(ofDependency);
  ASSERT_TRUE(ofSpace);
  ASSERT_TRUE(ofOuter);
  EXPECT_TRUE(ofField->getContainer() == field);
  EXPECT_TRUE(ofDependency->getContainer() == dependency);
  EXPECT_TRUE(ofSpace->getContainer() == space);
  EXPECT_TRUE(ofOuter->getContainer() == outer);

  outer->answer = false;
  EXPECT_FALSE(creator->processOwnership(question, question)) << "and the answer comes back the same way";
}

TEST_F(BaseSpaceTest, AnArgumentClimbsTheSameWay) {
  const auto outer = TreskTest::makeOwner<SpaceContainer>();
  const BaseSpacePtr space = makeSpace();
  const BaseSpaceDependencyPtr dependency = makeDependency();
  space->addOwner(outer);
  dependency->addOwner(space);
  int argument = 0;
  dependency->forEachOwner(&argument);
  EXPECT_EQ(outer->arguments, (std::vector<void*>{&argument}));
}

TEST_F(BaseSpaceTest, WithoutOwnersBothAnswerTrueAndLeaveNoTrace) {
  const BaseSpacePtr space = makeSpace();
  const BaseSpaceDependencyPtr dependency = makeDependency();
  Intercube question;
  EXPECT_TRUE(space->processOwnership(question, question));
  EXPECT_TRUE(dependency->processOwnership(question, question));
  EXPECT_FALSE(Ostrel::findInterface<SpaceContainer::PassThrough>(question));
  EXPECT_FALSE(Ostrel::findInterface<DependencyContainer::PassThrough>(question));
}

TEST_F(BaseSpaceTest, TwoSpacesOfOneDependencyAreBothAsked) {
  const auto one = TreskTest::makeOwner<SpaceContainer>();
  const auto two = TreskTest::makeOwner<SpaceContainer>();
  const BaseSpacePtr spaces[] = {makeSpace(), makeSpace()};
  spaces[0]->addOwner(one);
  spaces[1]->addOwner(two);
  const BaseSpaceDependencyPtr dependency = makeDependency();
  for (const BaseSpacePtr& space : spaces) dependency->addOwner(space);
  Intercube question;
  EXPECT_TRUE(dependency->processOwnership(question, question));
  EXPECT_EQ(one->nQuestions, 1);
  EXPECT_EQ(two->nQuestions, 1);
}

TEST_F(BaseSpaceTest, AFieldKeepsADeadEntryOfADependencyThatHasGoneAndWalksSkipIt) {
  const auto owner = TreskTest::makeOwner<DependencyContainer>();
  const FieldPtr field = makeField();
  {
    const BaseSpaceDependencyPtr dying = makeDependency();
    dying->addOwner(owner);
    field->addOwner(dying);
    Intercube question;
    EXPECT_TRUE(field->processOwnership(question, question));
    EXPECT_EQ(owner->nQuestions, 1);
  }
  EXPECT_EQ(field->nOwners(), 1U) << "the entry stays";
  owner->answer = false;
  Intercube question;
  EXPECT_TRUE(field->processOwnership(question, question)) << "nobody answers";
  EXPECT_EQ(owner->nQuestions, 1);
  EXPECT_FALSE(Ostrel::findInterface<FieldContainer::PassThrough>(question));
  int argument = 0;
  static_cast<Ownable<Tresk::Field, ChildrenProperties>&>(*field).forEachOwner(&argument);
  EXPECT_TRUE(owner->arguments.empty());
}

TEST_F(BaseSpaceTest, ASpaceThatHasGoneIsSkippedLikewise) {
  const BaseSpaceDependencyPtr dependency = makeDependency();
  { dependency->addOwner(makeSpace()); }
  EXPECT_EQ(dependency->nOwners(), 1U);
  Intercube question;
  EXPECT_TRUE(dependency->processOwnership(question, question));
  EXPECT_FALSE(Ostrel::findInterface<DependencyContainer::PassThrough>(question));
}

class Note : public Ostrel::Interface<Note> {};

TEST_F(BaseSpaceTest, ASpaceCarriesInterfaces) {
  const BaseSpacePtr space = makeSpace();
  EXPECT_FALSE(Ostrel::findInterface<Note>(*space));
  const Ostrel::StrongPtr<Note, Ostrel::InterfaceBase> note(new Note);
  space->addInterface(note);
  EXPECT_TRUE(Ostrel::findInterface<Note>(*space) == note);
}

/// A base space of the caller's own.
class Grid : public BaseSpace {
 public:
  explicit Grid(int& deaths) : nDeaths_(deaths) {}
  ~Grid() override { ++nDeaths_; }

 private:
  int& nDeaths_;
};

TEST_F(BaseSpaceTest, IsDestroyedThroughItsBase) {
  int nDeaths = 0;
  BaseSpacePtr space(new Grid(nDeaths));
  space.reset();
  EXPECT_EQ(nDeaths, 1);
}

}  // namespace
