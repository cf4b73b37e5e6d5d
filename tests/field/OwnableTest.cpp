// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Ownable.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>
#include <typeinfo>

namespace {

using Ostrel::Ageable;
using Ostrel::Intercube;
using TreskTest::CreatorOwner;
using TreskTest::FieldOwner;
using TreskTest::makeOwner;
using TreskTest::OwnerPtr;

using OwnableTest = TreskTest::RecordBalanceTest;
using PassThrough = FieldOwner::PassThrough;

class Child : public Tresk::Ownable<Tresk::Field, Tresk::ChildrenProperties> {};

/// An owner that has owners itself.
class Middle : public FieldOwner, public Tresk::Ownable<Tresk::BinderBase, Tresk::ChildrenProperties> {};
using TopOwner = Tresk::Ownable<Tresk::BinderBase, Tresk::ChildrenProperties>::Container;

TEST_F(OwnableTest, OwnerHasItsBasesAndProperties) {
  EXPECT_TRUE((std::is_base_of_v<Ostrel::ReferenceBase<FieldOwner>, FieldOwner>));
  EXPECT_TRUE((std::is_base_of_v<Tresk::OwnerBase, FieldOwner>));
  EXPECT_TRUE((std::is_base_of_v<Tresk::ChildrenProperties, FieldOwner>));
  EXPECT_TRUE((std::is_base_of_v<Tresk::CreativeArrayBaseContainerBase, CreatorOwner>));
  EXPECT_TRUE((std::is_base_of_v<Tresk::OwnerBase, Child>));
  EXPECT_FALSE(std::has_virtual_destructor_v<Tresk::OwnerBase>);
}

TEST_F(OwnableTest, OwnersBeginOlderThanAnyChild) {
  const auto ofCreators = makeOwner<CreatorOwner>();
  EXPECT_EQ(ofCreators->dataAge, Ageable::Ooooold);
  EXPECT_EQ(ofCreators->attributeAge, Ageable::Ooooold);
  const auto ofFields = makeOwner<FieldOwner>();
  EXPECT_EQ(ofFields->age, Ageable::Ooooold);
  EXPECT_EQ(Tresk::ChildrenProperties().age, Ageable::Ooooold);
}

TEST_F(OwnableTest, AnOwnerEntersOnce) {
  const auto owner = makeOwner<FieldOwner>();
  Child child;
  EXPECT_EQ(child.nOwners(), 0U);
  EXPECT_FALSE(child.isOwnedBy(owner));
  EXPECT_TRUE(child.addOwner(owner));
  EXPECT_FALSE(child.addOwner(owner));
  EXPECT_EQ(child.nOwners(), 1U);
  EXPECT_TRUE(child.isOwnedBy(owner));
}

TEST_F(OwnableTest, ARemovedOwnerIsAskedNoMore) {
  const auto owner = makeOwner<FieldOwner>();
  Child child;
  child.addOwner(owner);
  EXPECT_TRUE(child.removeOwner(owner));
  EXPECT_FALSE(child.removeOwner(owner));
  Intercube question;
  EXPECT_TRUE(child.processOwnership(question, question));
  EXPECT_EQ(owner->nQuestions, 0);
}

TEST_F(OwnableTest, OwnersAreHeldWeakly) {
  const auto owner = makeOwner<FieldOwner>();
  Child child;
  child.addOwner(owner);
  EXPECT_EQ(owner.strongCount(), 1);
}

TEST_F(OwnableTest, WithoutOwnersTheAnswerIsTrueAndTheQuestionStaysEmpty) {
  const Child child;
  Intercube question;
  EXPECT_TRUE(child.processOwnership(question, question));
  EXPECT_FALSE(question.findInterface(typeid(PassThrough)));
}

TEST_F(OwnableTest, TheWalkLeavesItsTraceBeforeTheOwnerIsAsked) {
  Ostrel::WeakPtr<FieldOwner, FieldOwner> traced;
  const auto owner = makeOwner<FieldOwner>([&traced](Intercube& question, const Intercube&) {
    const auto trace = Ostrel::findInterface<PassThrough>(question);
    if (trace) traced = trace->getContainer();
    return true;
  });
  Child child;
  child.addOwner(owner);
  Intercube question;
  EXPECT_TRUE(child.processOwnership(question, Intercube()));
  EXPECT_TRUE(traced == owner);
  const auto trace = Ostrel::findInterface<PassThrough>(question);
  ASSERT_TRUE(trace) << "the trace stays in the question";
  EXPECT_TRUE(trace->getContainer() == owner);
  EXPECT_EQ(owner.strongCount(), 1) << "the trace holds the owner weakly";
}

TEST_F(OwnableTest, TheTraceNamesTheOwnerAskedLast) {
  Ostrel::WeakPtr<FieldOwner, FieldOwner> last;
  const auto note = [&last](Intercube& question, const Intercube&) {
    last = Ostrel::findInterface<PassThrough>(question)->getContainer();
    return true;
  };
  const auto one = makeOwner<FieldOwner>(note);
  const auto two = makeOwner<FieldOwner>(note);
  Child child;
  child.addOwner(one);
  child.addOwner(two);
  Intercube question;
  EXPECT_TRUE(child.processOwnership(question, question));
  EXPECT_EQ(one->nQuestions + two->nQuestions, 2);
  EXPECT_TRUE(Ostrel::findInterface<PassThrough>(question)->getContainer() == last);
}

TEST_F(OwnableTest, QuestionAndContextReachTheOwnerAsTheyAre) {
  const Intercube* asked = nullptr;
  const Intercube* with = nullptr;
  const auto owner = makeOwner<FieldOwner>([&](Intercube& question, const Intercube& context) {
    asked = &question;
    with = &context;
    return true;
  });
  Child child;
  child.addOwner(owner);
  Intercube question;
  const Intercube context;
  child.processOwnership(question, context);
  EXPECT_EQ(asked, &question);
  EXPECT_EQ(with, &context);
}

TEST_F(OwnableTest, TheFirstRefusalEndsTheWalk) {
  const auto one = makeOwner<FieldOwner>();
  const auto two = makeOwner<FieldOwner>();
  const auto three = makeOwner<FieldOwner>();
  for (const auto& owner : {one, two, three}) owner->answer = false;
  Child child;
  for (const auto& owner : {one, two, three}) child.addOwner(owner);
  Intercube question;
  EXPECT_FALSE(child.processOwnership(question, question));
  EXPECT_EQ(one->nQuestions + two->nQuestions + three->nQuestions, 1);
}

TEST_F(OwnableTest, ADeadOwnerIsSkippedAndStaysInTheSet) {
  const auto living = makeOwner<FieldOwner>();
  Child child;
  {
    const auto dying = makeOwner<FieldOwner>();
    dying->answer = false;
    child.addOwner(dying);
  }
  child.addOwner(living);
  Intercube question;
  EXPECT_TRUE(child.processOwnership(question, question));
  EXPECT_EQ(living->nQuestions, 1);
  EXPECT_EQ(child.nOwners(), 2U);
}

TEST_F(OwnableTest, ASetOfDeadOwnersAnswersTrueAndLeavesNoTrace) {
  Child child;
  child.addOwner(makeOwner<FieldOwner>());
  Intercube question;
  EXPECT_TRUE(child.processOwnership(question, question));
  EXPECT_FALSE(question.findInterface(typeid(PassThrough)));
}

TEST_F(OwnableTest, AnExceptionOfAnOwnerPasses) {
  const auto owner =
      makeOwner<FieldOwner>([](Intercube&, const Intercube&) -> bool { throw std::runtime_error("the disk is full"); });
  Child child;
  child.addOwner(owner);
  Intercube question;
  EXPECT_THROW(child.processOwnership(question, question), std::runtime_error);
  EXPECT_EQ(owner.strongCount(), 1);
}

TEST_F(OwnableTest, TheWalkDoesNotClaimAnOwnerThatNobodyHoldsYet) {
  auto* const owner = new TreskTest::RecordingOwner<FieldOwner>;
  Child child;
  child.addOwner(owner->getSelf());
  Intercube question;
  EXPECT_TRUE(child.processOwnership(question, question));
  child.forEachOwner(nullptr);
  EXPECT_EQ(owner->nQuestions, 1);
  EXPECT_EQ(owner->arguments.size(), 1U);
  const OwnerPtr<FieldOwner> held(owner);
  EXPECT_EQ(held.strongCount(), 1) << "this pointer is the first one";
}

TEST_F(OwnableTest, AnOwnerMayLeaveTheSetWhileItIsAsked) {
  Child child;
  const auto leave = [&child](Intercube& question, const Intercube&) {
    const auto trace = Ostrel::findInterface<PassThrough>(question);
    return child.removeOwner(trace->getContainer());
  };
  const auto one = makeOwner<FieldOwner>(leave);
  const auto two = makeOwner<FieldOwner>(leave);
  child.addOwner(one);
  child.addOwner(two);
  Intercube question;
  EXPECT_TRUE(child.processOwnership(question, question));
  EXPECT_EQ(child.nOwners(), 0U);
  EXPECT_EQ(one->nQuestions + two->nQuestions, 2);
}

TEST_F(OwnableTest, AnOwnerThatDiesWhileItIsAskedLivesToTheEndOfItsAnswer) {
  Child child;
  OwnerPtr<FieldOwner> owner = makeOwner<FieldOwner>();
  bool isAliveInside = false;
  Ostrel::WeakPtr<FieldOwner, FieldOwner> observer = owner;
  owner->onQuestion = [&](Intercube&, const Intercube&) {
    owner.reset();
    isAliveInside = observer.isValid();
    return true;
  };
  child.addOwner(owner);
  Intercube question;
  EXPECT_TRUE(child.processOwnership(question, question));
  EXPECT_TRUE(isAliveInside);
  EXPECT_FALSE(observer.isValid());
}

TEST_F(OwnableTest, OneArgumentGoesUpToAllLivingOwners) {
  const auto one = makeOwner<FieldOwner>();
  const auto two = makeOwner<FieldOwner>();
  Child child;
  child.addOwner(one);
  child.addOwner(two);
  child.addOwner(makeOwner<FieldOwner>());
  int argument = 0;
  child.forEachOwner(&argument);
  ASSERT_EQ(one->arguments.size(), 1U);
  ASSERT_EQ(two->arguments.size(), 1U);
  EXPECT_EQ(one->arguments[0], &argument);
  EXPECT_EQ(two->arguments[0], &argument);
}

TEST_F(OwnableTest, AnOwnerWithOwnersPassesQuestionsAndArgumentsOn) {
  const auto top = makeOwner<TopOwner>();
  const Ostrel::StrongPtr<Middle, FieldOwner> middle(new Middle);
  middle->addOwner(top);
  Child child;
  child.addOwner(middle);
  Intercube question;
  EXPECT_TRUE(child.processOwnership(question, question));
  EXPECT_EQ(top->nQuestions, 1);
  EXPECT_TRUE(Ostrel::findInterface<PassThrough>(question)->getContainer() == middle);
  EXPECT_TRUE(Ostrel::findInterface<TopOwner::PassThrough>(question)->getContainer() == top);
  child.forEachOwner(&question);
  ASSERT_EQ(top->arguments.size(), 1U);
  EXPECT_EQ(top->arguments[0], &question);
  top->answer = false;
  EXPECT_FALSE(child.processOwnership(question, question));
}

TEST_F(OwnableTest, AnOwnerThatSaysNothingAnswersTrue) {
  class Silent : public FieldOwner {};
  const Ostrel::StrongPtr<Silent, FieldOwner> silent(new Silent);
  Child child;
  child.addOwner(silent);
  Intercube question;
  EXPECT_TRUE(child.processOwnership(question, question));
  child.forEachOwner(&question);
}

TEST_F(OwnableTest, TheTraceIsFoundUnderItsOwnType) {
  const auto owner = makeOwner<FieldOwner>();
  const Ostrel::StrongPtr<PassThrough, Ostrel::InterfaceBase> trace(new PassThrough(owner));
  EXPECT_EQ(trace->getInterfaceType(), typeid(PassThrough));
  EXPECT_NE(typeid(PassThrough), typeid(CreatorOwner::PassThrough));
}

}  // namespace
