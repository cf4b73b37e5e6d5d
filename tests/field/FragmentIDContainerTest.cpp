// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentIDContainer.hpp>

#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using Tresk::FragmentIDContainer;
using Tresk::FragmentIDPtr;

using FragmentIDContainerTest = TreskTest::RecordBalanceTest;

TEST_F(FragmentIDContainerTest, IsAPlainValue) {
  EXPECT_FALSE(std::is_polymorphic_v<FragmentIDContainer>);
  EXPECT_TRUE(std::is_copy_constructible_v<FragmentIDContainer>);
  EXPECT_TRUE(std::is_copy_assignable_v<FragmentIDContainer>);
}

TEST_F(FragmentIDContainerTest, BeginsEmpty) {
  const FragmentIDContainer container;
  EXPECT_EQ(container.nFragments(), 0U);
  EXPECT_EQ(container.getFirst().getRecord(), nullptr);
}

TEST_F(FragmentIDContainerTest, CreatedFragmentsAreFreeStandingAndNotInTheSet) {
  FragmentIDContainer container;
  const FragmentIDPtr one = container.createFragmentID("a");
  const FragmentIDPtr two = container.createFragmentID("a");
  EXPECT_EQ(one->getName(), "a");
  EXPECT_EQ(one->getOwner().getRecord(), nullptr);
  EXPECT_EQ(one->getNumericalID(), 0U);
  EXPECT_FALSE(one == two) << "no name is looked up";
  EXPECT_EQ(one.strongCount(), 1);
  EXPECT_EQ(container.nFragments(), 0U);
}

TEST_F(FragmentIDContainerTest, EachFragmentEntersOnce) {
  FragmentIDContainer container;
  const FragmentIDPtr one = container.createFragmentID("a");
  const FragmentIDPtr two = container.createFragmentID("a");
  EXPECT_TRUE(container.addFragmentID(one));
  EXPECT_FALSE(container.addFragmentID(one));
  EXPECT_TRUE(container.addFragmentID(two)) << "another object of the same name is another fragment";
  EXPECT_EQ(container.nFragments(), 2U);
  EXPECT_EQ(one.strongCount(), 2);
}

TEST_F(FragmentIDContainerTest, TheFirstFragmentIsTheSmallestPointer) {
  FragmentIDContainer container;
  FragmentIDPtr smallest;
  for (const char* const name : {"c", "a", "b", "d"}) {
    const FragmentIDPtr fragment = container.createFragmentID(name);
    if (!smallest || fragment < smallest) smallest = fragment;
    container.addFragmentID(fragment);
  }
  EXPECT_TRUE(container.getFirst() == smallest);
}

TEST_F(FragmentIDContainerTest, ACopyHoldsTheSameFragmentsInASetOfItsOwn) {
  FragmentIDContainer original;
  const FragmentIDPtr one = original.createFragmentID("a");
  original.addFragmentID(one);
  FragmentIDContainer copy(original);
  EXPECT_EQ(copy.nFragments(), 1U);
  EXPECT_TRUE(copy.getFirst() == one);
  EXPECT_EQ(one.strongCount(), 3);
  copy.addFragmentID(copy.createFragmentID("b"));
  EXPECT_EQ(copy.nFragments(), 2U);
  EXPECT_EQ(original.nFragments(), 1U);
}

TEST_F(FragmentIDContainerTest, AssignmentReplacesTheFragments) {
  FragmentIDContainer source;
  const FragmentIDPtr kept = source.createFragmentID("kept");
  source.addFragmentID(kept);
  FragmentIDContainer target;
  const FragmentIDPtr dropped = target.createFragmentID("dropped");
  target.addFragmentID(dropped);
  target.addFragmentID(target.createFragmentID("dropped too"));
  target = source;
  EXPECT_EQ(target.nFragments(), 1U);
  EXPECT_TRUE(target.getFirst() == kept);
  EXPECT_EQ(dropped.strongCount(), 1);
  target = FragmentIDContainer();
  EXPECT_EQ(target.nFragments(), 0U);
  EXPECT_EQ(source.nFragments(), 1U);
}

TEST_F(FragmentIDContainerTest, AssignmentToItselfChangesNothing) {
  FragmentIDContainer container;
  const FragmentIDPtr fragment = container.createFragmentID("a");
  container.addFragmentID(fragment);
  const FragmentIDContainer& same = container;
  container = same;
  EXPECT_EQ(container.nFragments(), 1U);
  EXPECT_EQ(fragment.strongCount(), 2);
}

TEST_F(FragmentIDContainerTest, ItsEndLetsTheFragmentsGo) {
  const FragmentIDPtr fragment = FragmentIDContainer().createFragmentID("a");
  {
    FragmentIDContainer container;
    container.addFragmentID(fragment);
    EXPECT_EQ(fragment.strongCount(), 2);
  }
  EXPECT_EQ(fragment.strongCount(), 1);
}

}  // namespace
