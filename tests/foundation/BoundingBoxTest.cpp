// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/BoundingBox.hpp>
#include <tresk/foundation/Intercube.hpp>

#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <array>
#include <type_traits>

namespace {

using Ostrel::InterfaceBase;
using Ostrel::StrongPtr;
using Quorvel::BoundingBall;
using Quorvel::BoundingBox;
using Quorvel::PhysicalSpace;

using BoundingBoxTest = TreskTest::RecordBalanceTest;
using BoxPtr = StrongPtr<BoundingBox, InterfaceBase>;

TEST_F(BoundingBoxTest, CornersAreTheLowerThenTheUpperPoint) {
  const BoxPtr box(new BoundingBox(PhysicalSpace::point(1, 2, 3), PhysicalSpace::point(4, 5, 6)));
  const PhysicalSpace::AABB& corners = *box;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(corners[0][i], i + 1);
    EXPECT_EQ(corners[1][i], i + 4);
  }
}

TEST_F(BoundingBoxTest, CornersAreTakenAsTheyAre) {
  const BoxPtr box(new BoundingBox(PhysicalSpace::point(4, 0, 6), PhysicalSpace::point(1, 2, 3)));
  EXPECT_EQ((*box)[0][0], 4.0);
  EXPECT_EQ((*box)[1][0], 1.0);
}

TEST_F(BoundingBoxTest, IsCountedLikeAnyInterface) {
  BoxPtr box(new BoundingBox(PhysicalSpace::point(0, 0, 0), PhysicalSpace::point(1, 1, 1)));
  EXPECT_EQ(box.strongCount(), 1);
  EXPECT_EQ(box.weakCount(), 3);
  const Ostrel::WeakPtr<InterfaceBase, InterfaceBase> observer(box);
  box.reset();
  EXPECT_FALSE(observer.isValid());
}

TEST_F(BoundingBoxTest, IsFoundUnderTheKeyOfTheBall) {
  const Ostrel::Intercube cube;
  const BoxPtr box(new BoundingBox(PhysicalSpace::point(0, 0, 0), PhysicalSpace::point(1, 1, 1)));
  cube.addInterface(box);
  EXPECT_EQ(box->getInterfaceType(), typeid(BoundingBall));
  EXPECT_FALSE(cube.findInterface(typeid(BoundingBox)).isValid());
  const StrongPtr<BoundingBall, InterfaceBase> ball = Ostrel::findInterface<BoundingBall>(cube);
  ASSERT_TRUE(ball.isValid());
  EXPECT_TRUE(BoxPtr(ball) == box);
  EXPECT_EQ((*BoxPtr(ball))[1][2], 1.0);
}

TEST_F(BoundingBoxTest, CarriesAnAge) {
  const StrongPtr<BoundingBall, InterfaceBase> ball(new BoundingBall);
  EXPECT_EQ(ball->getAge(), 0);
  ball->touch();
  EXPECT_GT(ball->getAge(), 0);
}

TEST_F(BoundingBoxTest, BoxIsAPairOfPoints) {
  static_assert(std::is_base_of_v<std::array<PhysicalSpace::point, 2>, PhysicalSpace::AABB>);
  static_assert(!std::is_polymorphic_v<PhysicalSpace::AABB>);
  EXPECT_EQ(sizeof(PhysicalSpace::AABB), 48U);
}

}  // namespace
