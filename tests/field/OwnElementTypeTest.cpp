// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <field/ElementSamples.hpp>
#include <field/OwnElementType.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <typeinfo>

namespace {

using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::getTreskType;
using Tresk::MemArray;
using Tresk::MemBase;
using Tresk::MemBasePtr;
using Tresk::MultiIndex;
using Tresk::TreskTypeBase;
using Tresk::TreskTypePtr;
using TreskTest::ArrayPtr;
using TreskTest::Colour;
using TreskTest::forEachRank;
using TreskTest::makeSamples;
using TreskTest::sampleExtents;

const CreatorWeakPtr nobody;

class OwnElementTypeTest : public TreskTest::RecordBalanceTest {};

TEST_F(OwnElementTypeTest, HasItsRecordInTheRegistryOfTheLibrary) {
  const TreskTypePtr byType(TreskTypeBase::find(typeid(Colour)));
  ASSERT_TRUE(byType);
  EXPECT_TRUE(byType == getTreskType<Colour>());
  EXPECT_TRUE(TreskTypeBase::find(static_cast<const Tresk::TreskTypeIndex&>(*byType)) == byType);
  EXPECT_EQ(byType->description(), "{TreskTest::Colour} is voiddouble[4] (rank 1, grade 0) Size=32 [4 x 8](upper)");
  EXPECT_EQ(byType->component_name(2), "D");
}

TEST_F(OwnElementTypeTest, WasRegisteredWhileTheProgramWasLoaded) {
  forEachRank([]<int N>(std::integral_constant<int, N>) {
    EXPECT_TRUE((MemArray<N, Colour>::isRegistered));
    const DynamicSize size(N, sampleExtents<N>().begin());
    const MemBasePtr base = MemBase::create(getTreskType<Colour>(), size, typeid(OwnElementTypeTest));
    ASSERT_TRUE(base);
    const MemBase& made = *base;
    EXPECT_EQ(typeid(made), (typeid(MemArray<N, Colour>)));
    EXPECT_EQ(made.memsize(), 32 * size.nElements());
    const MemBasePtr other = made.create(typeid(OwnElementTypeTest));
    ASSERT_TRUE(other);
    EXPECT_FALSE(other->getSize() != size);
  });
  EXPECT_FALSE(MemBase::create(getTreskType<Colour>(), DynamicSize(), typeid(void)));
}

TEST_F(OwnElementTypeTest, HasArraysWithAllOperations) {
  const ArrayPtr<3, Colour> array = makeSamples<3, Colour>(MultiIndex<3>(2, 3, 4));
  TreskTest::expectSamples(*array, [](unsigned long long e) { return e; });
  const ArrayPtr<2, Colour> slice(array->getSlice(1, nobody));
  TreskTest::expectSamples(*slice, [](unsigned long long e) { return 6 + e; });
  const ArrayPtr<3, Colour> box(
      static_cast<const MemBase&>(*array).createSubArray(DynamicSize{1, 1, 1}, DynamicSize{1, 2, 3}, nobody));
  ASSERT_TRUE(box);
  EXPECT_TRUE((*box)(0, 1, 2) == (*array)(1, 2, 3));
  const ArrayPtr<3, double> opacity(array->getComponent(3, nobody));
  ASSERT_TRUE(opacity);
  EXPECT_EQ((*opacity)(1, 2, 3), (*array)(1, 2, 3)[3]);
  EXPECT_FALSE(array->getComponent(4, nobody));
  const ArrayPtr<3, Colour> copy(array->copy(nobody));
  TreskTest::expectSamples(*copy, [](unsigned long long e) { return e; });
  const ArrayPtr<3, Colour> empty = TreskTest::makeArray<3, Colour>(MultiIndex<3>(0, 3, 4));
  EXPECT_TRUE(empty->first() == Colour(0.0, 0.0, 0.0, 0.0));
}

TEST_F(OwnElementTypeTest, TellsItsElementsInItsOwnWords) {
  const ArrayPtr<1, Colour> array = TreskTest::makeArray<1, Colour>(MultiIndex<1>(1));
  (*array)(0) = Colour(1.0, 0.5, 0.25, 1.0);
  EXPECT_EQ(array->getElementString(0), "rgba 1 0.5 0.25 1");
}

TEST_F(OwnElementTypeTest, IsReachedWithoutItsRank) {
  const MemBasePtr base = makeSamples<2, Colour>(MultiIndex<2>(3, 4));
  const auto* const typed = dynamic_cast<const Tresk::TypedArray<Colour>*>(base.get());
  ASSERT_NE(typed, nullptr);
  EXPECT_EQ(typed->getIterator().nElements(), 12U);
  EXPECT_TRUE(typed->last() == TreskTest::sample<Colour>(11));
}

}  // namespace
