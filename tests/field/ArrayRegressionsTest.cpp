// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ElementText.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/field/TypeList.hpp>

#include <gtest/gtest.h>

#include <typeinfo>

namespace {

/// An element type of these tests alone.
struct Unheld {
  int value;
};

}  // namespace

template <>
struct Tresk::ElementTraits<Unheld> : Tresk::ScalarTraits<Unheld> {};

namespace {

using Ostrel::Cacheable;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using Tresk::CreatorWeakPtr;
using Tresk::MemArray;
using Tresk::MemBase;
using Tresk::MultiIndex;
using Tresk::TreskTypeBase;
using Tresk::TreskTypePtr;
using Tresk::TypeList;

TEST(MemArrayRegressionTest, WeakPointerToADeadArrayConvertsToTheCommonBaseWithoutTouchingIt) {
  StrongPtr<MemArray<2, double>, Cacheable> array(new MemArray<2, double>(MultiIndex<2>(2, 2), CreatorWeakPtr()));
  const WeakPtr<MemArray<2, double>, Cacheable> observer(array);
  const WeakPtr<MemBase, Cacheable> before(observer);
  EXPECT_EQ(before.get(), static_cast<MemBase*>(array.get()));
  EXPECT_EQ(array.strongCount(), 1);
  array.reset();
  const WeakPtr<MemBase, Cacheable> after(observer);
  EXPECT_FALSE(after.isValid());
  EXPECT_EQ(after.get(), nullptr);
  EXPECT_TRUE(after.sameRecord(observer));
}

TEST(IteratorRegressionTest, ReferencesToElementsOfTheArrayTypesCompareByValue) {
  using Element = Quorvel::FixedArray<double, 3>;
  MemArray<1, Element>* const made = new MemArray<1, Element>(MultiIndex<1>(3), CreatorWeakPtr());
  const StrongPtr<MemArray<1, Element>, Cacheable> array(made);
  (*array)(0) = Element(1, 2, 3);
  (*array)(1) = Element(1, 2, 3);
  (*array)(2) = Element(1, 2, 4);
  EXPECT_TRUE((*array)(0) == (*array)(1));
  EXPECT_FALSE((*array)(0) == (*array)(2));
  EXPECT_TRUE((*array)(0) != (*array)(2));
}

TEST(ElementTextRegressionTest, NumbersAndArraysOfFurtherTypesHaveATextToo) {
  EXPECT_EQ(Tresk::elementText(-3), "-3");
  EXPECT_EQ(Tresk::elementText(7U), "7");
  EXPECT_EQ(Tresk::elementText(-9000000000LL), "-9000000000");
  EXPECT_EQ(Tresk::elementText(static_cast<unsigned char>(200)), "200");
  EXPECT_EQ(Tresk::elementText(Quorvel::FixedArray<float, 2>(0.5F, -1.0F)), "{0.5,-1}");
  EXPECT_EQ(Tresk::elementText(Quorvel::FixedArray<short, 3>(1, -2, 3)), "{1,-2,3}");
  EXPECT_EQ((Tresk::elementText(Tresk::RegularCell<2, unsigned int, Tresk::IJ_CellNamingConvention>(1, 2, 3, 4))),
            "1x2x3x4");
  EXPECT_EQ(Tresk::elementText(Quorvel::PhysicalSpace::point(1, 2, 3)), "{1,2,3}");
}

/// A record outside the usual form, which nobody holds yet.
class UnheldRecord : public Tresk::TreskType<Unheld> {
 public:
  explicit UnheldRecord(bool& isAlive) : isAlive_(isAlive) { isAlive_ = true; }
  ~UnheldRecord() override { isAlive_ = false; }

 private:
  bool& isAlive_;
};

TEST(TreskTypeRegressionTest, SearchByTypeDoesNotTakeOverARecordThatNobodyHoldsYet) {
  bool isAlive = false;
  auto* const unheld = new UnheldRecord(isAlive);
  EXPECT_FALSE(TreskTypeBase::find(typeid(short)).isValid());
  ASSERT_TRUE(isAlive);
  EXPECT_EQ(TreskTypeBase::find(typeid(Unheld)).get(), unheld);
  ASSERT_TRUE(isAlive);
  TreskTypePtr holder(unheld);
  EXPECT_EQ(holder.strongCount(), 1);
  holder.reset();
  EXPECT_FALSE(isAlive);
  EXPECT_FALSE(TreskTypeBase::find(typeid(Unheld)).isValid());
}

TEST(TypeListRegressionTest, QuestionsDoNotTakeOverARecordThatNobodyHoldsYet) {
  bool isAlive = false;
  auto* const unheld = new UnheldRecord(isAlive);
  const TypeList list(unheld->getSelf());
  EXPECT_TRUE(list.contains(typeid(Unheld)));
  EXPECT_FALSE(list.contains(typeid(double)));
  EXPECT_EQ(list.asText()->nLines(), 1U);
  ASSERT_TRUE(isAlive);
  const TreskTypePtr holder(unheld);
  EXPECT_EQ(holder.strongCount(), 1);
}

}  // namespace
