// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentID.hpp>

#include <tresk/field/FragmentIDCollection.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace {

using Tresk::FragmentID;
using Tresk::FragmentIDCollection;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;

using FragmentIDTest = TreskTest::RecordBalanceTest;

TEST_F(FragmentIDTest, IsCountedAndCarriesInterfaces) {
  EXPECT_TRUE((std::is_base_of_v<Ostrel::ReferenceBase<FragmentID>, FragmentID>));
  EXPECT_TRUE((std::is_base_of_v<Ostrel::Intercube, FragmentID>));
  const FragmentIDPtr fragment(new FragmentID("a"));
  fragment->addInterface(Tresk::SizePtr(new Tresk::SizeInterface(Tresk::DynamicSize{4})));
  EXPECT_EQ(Ostrel::findInterface<Tresk::SizeInterface>(*fragment)->str(), "4");
}

TEST_F(FragmentIDTest, AFreeStandingFragmentHasNoOwnerAndNumberZero) {
  const FragmentIDPtr fragment(new FragmentID("north wing"));
  EXPECT_EQ(fragment->getName(), "north wing");
  EXPECT_EQ(fragment->getOwner().getRecord(), nullptr);
  EXPECT_EQ(fragment->getNumericalID(), 0U);
  EXPECT_EQ(FragmentIDPtr(new FragmentID(std::string()))->getName(), "");
}

TEST_F(FragmentIDTest, ANumberedFragmentKnowsItsOwnerWeakly) {
  const FragmentIDCollectionPtr owner(new FragmentIDCollection);
  const FragmentIDPtr fragment(new FragmentID("a", 0xFFFFFFFEU, owner));
  EXPECT_EQ(fragment->getName(), "a");
  EXPECT_TRUE(fragment->getOwner() == owner);
  EXPECT_EQ(fragment->getNumericalID(), 0xFFFFFFFEU);
  EXPECT_EQ(owner.strongCount(), 1);
}

TEST_F(FragmentIDTest, AFragmentWhoseOwnerDiesIsOrphanedAndKeepsItsNumber) {
  FragmentIDPtr fragment;
  {
    const FragmentIDCollectionPtr owner(new FragmentIDCollection);
    owner->makeFragmentID("first");
    fragment = owner->makeFragmentID("second");
  }
  EXPECT_FALSE(fragment->getOwner().isValid());
  EXPECT_NE(fragment->getOwner().getRecord(), nullptr);
  EXPECT_EQ(fragment->getNumericalID(), 1U);
  EXPECT_EQ(fragment->getName(), "second");
}

}  // namespace
