// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/SizeInterface.hpp>
#include <tresk/field/fwd.hpp>
#include <tresk/foundation/Intercube.hpp>

#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <type_traits>
#include <typeinfo>

namespace {

using Ostrel::InterfaceBase;
using Ostrel::StrongPtr;
using Tresk::DynamicSize;
using Tresk::FragmentedSizeInterface;
using Tresk::SizeInterface;
using Tresk::SizePtr;

class SizeInterfaceTest : public TreskTest::RecordBalanceTest {};

TEST_F(SizeInterfaceTest, IsASizeThatCanBeAttached) {
  EXPECT_TRUE((std::is_base_of_v<Ostrel::Interface<SizeInterface>, SizeInterface>));
  EXPECT_TRUE((std::is_base_of_v<DynamicSize, SizeInterface>));
  EXPECT_TRUE(std::has_virtual_destructor_v<SizeInterface>);
  EXPECT_EQ(sizeof(SizeInterface), sizeof(InterfaceBase) + sizeof(DynamicSize)) << "it adds no field";
}

TEST_F(SizeInterfaceTest, CopiesTheSizeThatItIsMadeFrom) {
  DynamicSize size{4, 5};
  const SizePtr attached(new SizeInterface(size));
  size += DynamicSize{1, 1};
  EXPECT_EQ(attached->str(), "4x5");
  EXPECT_NE(attached->getExtents(), size.getExtents());
}

TEST_F(SizeInterfaceTest, CopyIsDeepAndAnObjectOfItsOwn) {
  const SizePtr original(new SizeInterface(DynamicSize{4, 5}));
  const SizePtr copy(new SizeInterface(*original));
  EXPECT_FALSE(copy == original);
  EXPECT_NE(copy->getExtents(), original->getExtents());
  EXPECT_EQ(copy->str(), "4x5");
}

TEST_F(SizeInterfaceTest, SumsTwoSizesEntryByEntry) {
  const SizePtr a(new SizeInterface(DynamicSize{1, 2, 3}));
  const SizePtr b(new SizeInterface(DynamicSize{10, 20, 30}));
  const SizePtr sum(new SizeInterface(2, *a, *b));
  EXPECT_EQ(sum->str(), "11x22");
}

TEST_F(SizeInterfaceTest, IsFoundOnItsCarrierUnderItsOwnType) {
  const Ostrel::Intercube carrier;
  EXPECT_FALSE(Ostrel::findInterface<SizeInterface>(carrier));
  const SizePtr attached(new SizeInterface(DynamicSize{4, 5}));
  EXPECT_EQ(attached->getInterfaceType(), typeid(SizeInterface));
  carrier.addInterface(attached);
  const SizePtr found(carrier.findInterface(typeid(SizeInterface)));
  EXPECT_TRUE(found == attached);
  EXPECT_EQ(found->str(), "4x5");
}

TEST_F(SizeInterfaceTest, TheSizeOfAFieldIsFoundUnderTheSameKeyAndToldByADynamicCast) {
  const Ostrel::Intercube carrier;
  carrier.addInterface(SizePtr(new SizeInterface(DynamicSize{1})));
  const SizePtr plain = Ostrel::findInterface<SizeInterface>(carrier);
  EXPECT_EQ(dynamic_cast<FragmentedSizeInterface*>(plain.get()), nullptr);

  const SizePtr summed(new FragmentedSizeInterface(DynamicSize{4, 5}, 12));
  EXPECT_EQ(summed->getInterfaceType(), typeid(SizeInterface));
  carrier.addInterface(summed);
  EXPECT_FALSE(carrier.findInterface(typeid(FragmentedSizeInterface)));
  const SizePtr found = Ostrel::findInterface<SizeInterface>(carrier);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->str(), "4x5") << "the later size replaces the earlier one";
  const auto* const fragmented = dynamic_cast<FragmentedSizeInterface*>(found.get());
  ASSERT_NE(fragmented, nullptr);
  EXPECT_EQ(fragmented->getFragmentCount(), 12U);
}

TEST_F(SizeInterfaceTest, TheSizeOfAFieldRemembersAnyNumberOfFragments) {
  const StrongPtr<FragmentedSizeInterface, InterfaceBase> size(
      new FragmentedSizeInterface(DynamicSize(), 0xFFFFFFFFFFFFFFFFULL));
  EXPECT_EQ(size->getFragmentCount(), 0xFFFFFFFFFFFFFFFFULL);
  EXPECT_EQ(size->Dims(), 0);
}

}  // namespace
