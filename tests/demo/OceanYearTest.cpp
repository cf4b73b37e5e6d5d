// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "TinyOcean.hpp"

#include <gtest/gtest.h>
#include <ocean/OceanYear.hpp>
#include <ocean/ScaledCreator.hpp>
#include <tresk/field/SizeInterface.hpp>
#include <tresk/field/TreskType.hpp>

#include <cmath>

namespace {

using namespace Example;
using Ostrel::Cache;
using TreskTest::TinyOcean;

constexpr unsigned long long SlabBytes = 64;

class OceanYearTest : public testing::Test {
 protected:
  void TearDown() override {
    year_.stopKeeping();
    Cache::MemCache()->setLimit(Cache::NoLimit);
    Cache::MemCache()->trim(Cache::NoLimit);
  }

  const std::shared_ptr<TinyOcean> source_ = std::make_shared<TinyOcean>();
  const OceanField ocean_{source_};
  const OceanYear year_{ocean_};
};

TEST_F(OceanYearTest, MeanAndAnomaliesHoldNothingUntilTheyAreAsked) {
  EXPECT_EQ(year_.countChain(), 0U);
  for (const Tresk::FieldPtr& anomaly : year_.getAnomalies()) {
    EXPECT_EQ(anomaly->nFragments(), 3U);
    EXPECT_EQ(anomaly->Dims(), 2);
    EXPECT_EQ(anomaly->getElementType(), typeid(double));
    EXPECT_EQ(countHeld(*anomaly), 0U);
  }
  EXPECT_EQ(year_.getMean()->getSize()->str(), "12x6") << "known before the mean is";
  EXPECT_EQ(ocean_.nSlabsRead(), 0U);
}

TEST_F(OceanYearTest, TheMeanIsThatOfAllMonths) {
  const SlabPtr mean = year_.makeMean(2, false);
  EXPECT_EQ((*mean)(3, 1), 500 + 200 + 13);
  EXPECT_TRUE(std::isnan((*mean)(0, 1)));
  EXPECT_EQ(year_.countChain(), 2U) << "a sum and the mean";
  EXPECT_EQ(year_.getChainMemory(), 2 * SlabBytes);
}

TEST_F(OceanYearTest, AnAnomalyIsTheMonthLessTheMean) {
  const SlabPtr march = year_.makeAnomaly(0, 1, false);
  const SlabPtr may = year_.makeAnomaly(1, 1, false);
  EXPECT_EQ((*march)(2, 0), -500);
  EXPECT_EQ((*may)(2, 0), 500);
  EXPECT_TRUE(std::isnan((*may)(0, 1)));
  EXPECT_EQ(ocean_.nSlabsRead(), 2U) << "each month serves the mean and the difference";
}

TEST_F(OceanYearTest, AnAnomalyComesAboutByOneRequestAsWell) {
  const SlabPtr may(year_.getAnomalies()[1]->getData(year_.getFragment(0)));
  ASSERT_TRUE(may);
  EXPECT_EQ((*may)(1, 1), 500);
}

TEST_F(OceanYearTest, AMonthThatTheCacheForgotIsReadAgain) {
  year_.makeAnomaly(0, 0, false);
  Cache::MemCache()->trim(Cache::NoLimit);
  EXPECT_EQ((*year_.makeAnomaly(1, 0, false))(0, 0), 500);
  EXPECT_EQ(ocean_.nSlabsRead(), 4U);
}

TEST_F(OceanYearTest, AMeanThatIsKeptStaysUnderALimitThatHasRoomForNothingElse) {
  year_.makeMean(0, true);
  Cache::MemCache()->setLimit(SlabBytes);
  EXPECT_EQ(countHeld(*year_.getMean()), 1U);
  EXPECT_EQ(Cache::MemCache()->getStatistics().nHeldBytes, SlabBytes);
  year_.makeAnomaly(1, 0, true);
  EXPECT_EQ(ocean_.nSlabsRead(), 3U) << "the month, and not the mean, again";
  year_.stopKeeping();
  Cache::MemCache()->trim(Cache::NoLimit);
  EXPECT_EQ(year_.countChain(), 0U);
}

TEST_F(OceanYearTest, AnErrorOfTheSourceReachesWhoeverAskedForAnAnomaly) {
  source_->isBroken = true;
  EXPECT_THROW(year_.makeAnomaly(0, 0, false), std::runtime_error);
  source_->isBroken = false;
  EXPECT_EQ((*year_.makeAnomaly(0, 0, false))(0, 0), -500);
}

TEST_F(OceanYearTest, AScaledCreatorTellsSizeAndTypeOfItsOperand) {
  const Tresk::CreatorPtr operand = ocean_.getField().getCreatorByNumericalID(0);
  const Tresk::CreatorPtr half(new ScaledCreator(operand, 0.5, Cache::MemCache()));
  EXPECT_EQ(Tresk::getSize(*half)->str(), "4x2");
  EXPECT_EQ(half->getTreskType()->getType(), typeid(double));
  EXPECT_FALSE(operand->hasData());
  const SlabPtr slab(half->create(false));
  ASSERT_TRUE(slab);
  EXPECT_EQ((*slab)(3, 1), 6.5);
}

TEST_F(OceanYearTest, AScaledCreatorWithoutAnOperandOfNumbersHasNoData) {
  const Tresk::CreatorPtr none(new ScaledCreator(Tresk::CreatorPtr(), 2, Cache::MemCache()));
  EXPECT_FALSE(none->create(false));
  const Tresk::CreatorPtr text(new Tresk::FunctionalCreator(
      [] { return Tresk::MemBasePtr(new Tresk::MemArray<1, double>({3}, Tresk::CreatorWeakPtr())); }, false,
      Cache::MemCache()));
  const Tresk::CreatorPtr scaled(new ScaledCreator(text, 2, Cache::MemCache()));
  EXPECT_FALSE(scaled->create(false));
}

}  // namespace
