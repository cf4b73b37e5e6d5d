// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/RawData.hpp>

#include <tresk/field/ArrayInterpolator.hpp>
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/MemArray.hpp>

#include <gtest/gtest.h>

namespace {

using namespace Tresk;
using Vectors = Ostrel::StrongPtr<Ostrel::TypedChunkBase<Quorvel::FixedArray<double, 3>>, Ostrel::ChunkBase>;
using RawDataPtr = Ostrel::StrongPtr<RawData, Ostrel::InterfaceBase>;

CreatorPtr someCreator() { return CreatorPtr(new CreativeArray(MemBasePtr(), Ostrel::Cache::MemCache())); }

TEST(RawDataTest, KeepsItsCreatorAlive) {
  CreatorPtr creator = someCreator();
  const CreatorWeakPtr observer(creator);
  RawDataPtr raw(new RawData(creator));
  EXPECT_EQ(creator.strongCount(), 2);
  creator.reset();
  EXPECT_TRUE(observer);
  EXPECT_TRUE(raw->getCreator());
  raw.reset();
  EXPECT_FALSE(observer);
}

TEST(RawDataTest, PackedVectorsAreFoundUnderRawData) {
  const Ostrel::StrongPtr<VecPacked_10_11_11, Ostrel::InterfaceBase> packed(
      new VecPacked_10_11_11(someCreator(), {0.0, 0.0, 0.0}, {1.0, 1.0, 1.0}));
  const Ostrel::Intercube cube;
  cube.addInterface(packed);
  const RawDataPtr found = Ostrel::findInterface<RawData>(cube);
  ASSERT_TRUE(found);
  EXPECT_TRUE((Ostrel::StrongPtr<VecPacked_10_11_11, Ostrel::InterfaceBase>(found)));
  EXPECT_FALSE(Ostrel::findInterface<VecPacked_10_11_11>(cube)) << "the key is that of the base";
}

TEST(RawDataTest, PackingTwiceGivesIndependentChunksOfEqualContent) {
  const Vectors vectors(new Ostrel::Chunk<Quorvel::FixedArray<double, 3>>(2));
  vectors->vector()[0] = {0.0, 5.0, 10.0};
  vectors->vector()[1] = {10.0, 2.5, 0.0};
  VecPacked_10_11_11 packer(someCreator(), {0.0, 0.0, 0.0}, {10.0, 10.0, 10.0});
  const Ostrel::StrongPtr<Ostrel::TypedChunkBase<unsigned int>, Ostrel::ChunkBase> a(packer.pack(vectors));
  const Ostrel::StrongPtr<Ostrel::TypedChunkBase<unsigned int>, Ostrel::ChunkBase> b(packer.pack(vectors));
  ASSERT_TRUE(a);
  EXPECT_FALSE(a.sameRecord(b));
  EXPECT_EQ(a->vector(), b->vector());
  EXPECT_EQ(a->vector()[0], 0U | 1024U << 10 | 2047U << 21);
  EXPECT_EQ(a->vector()[1], 1023U | 512U << 10 | 0U << 21);
}

TEST(RawDataTest, BoundsAreThoseGiven) {
  const VecPacked_10_11_11 packer(someCreator(), {1.0, 2.0, 3.0}, {4.0, 5.0, 6.0});
  EXPECT_EQ(packer.getLowerBound(), (Quorvel::FixedArray<double, 3>(1.0, 2.0, 3.0)));
  EXPECT_EQ(packer.getUpperBound(), (Quorvel::FixedArray<double, 3>(4.0, 5.0, 6.0)));
}

struct Nearest : ArrayInterpolator {
  ~Nearest() override = default;
};

TEST(ArrayInterpolatorTest, ArrayWithoutOneAnswersNull) {
  const Ostrel::StrongPtr<MemArray<2, double>, Ostrel::Cacheable> array(
      new MemArray<2, double>({2, 2}, CreatorWeakPtr()));
  EXPECT_FALSE(array->getInterpolator());
}

TEST(ArrayInterpolatorTest, ArrayAnswersWithTheOneThatWasAdded) {
  const Ostrel::StrongPtr<MemArray<2, double>, Ostrel::Cacheable> array(
      new MemArray<2, double>({2, 2}, CreatorWeakPtr()));
  const Ostrel::StrongPtr<Nearest, Ostrel::InterfaceBase> nearest(new Nearest);
  array->addInterface(nearest);
  EXPECT_EQ(array->getInterpolator().get(), nearest.get());
  EXPECT_EQ(array->getInterpolator().get(), nearest.get());
}

}  // namespace
