// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreateSample.hpp>
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/UniformCartesianArray.hpp>

#include <field/ChunkKinds.hpp>
#include <field/ElementSamples.hpp>
#include <field/TransformReference.hpp>
#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <limits>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::Chunk;
using Ostrel::ChunkBase;
using Ostrel::StrongPtr;
using Quorvel::FixedArray;
using Tresk::CreateSample;
using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::MemArray;
using Tresk::MemBasePtr;
using Tresk::MultiIndex;
using Tresk::SampleParameters;
using TreskTest::ArrayPtr;
using TreskTest::Bytes;
using TreskTest::bytesOf;
using TreskTest::ChunkKind;
using TreskTest::ChunkPtr;
using TreskTest::foreignKinds;
using TreskTest::gatherKinds;
using TreskTest::makeNoise;
using TreskTest::makeSamples;
using TreskTest::sample;

using Doubles = std::vector<double>;

const CreatorWeakPtr nobody;
constexpr unsigned long long Greatest = std::numeric_limits<unsigned long long>::max();

static_assert(sizeof(SampleParameters) == 5 * sizeof(unsigned long long));
static_assert(offsetof(SampleParameters, count) == 0);
static_assert(offsetof(SampleParameters, destinationOffset) == 8);
static_assert(offsetof(SampleParameters, destinationStride) == 16);
static_assert(offsetof(SampleParameters, sourceOffset) == 24);
static_assert(offsetof(SampleParameters, sourceStride) == 32);

ChunkPtr chunkOf(std::initializer_list<double> values) {
  const StrongPtr<Chunk<double>, ChunkBase> chunk(new Chunk<double>(values.size()));
  chunk->vector() = values;
  return chunk;
}

/// 0, 1, 2 and so on.
ChunkPtr numbers(unsigned long long n) {
  const StrongPtr<Chunk<double>, ChunkBase> chunk(new Chunk<double>(n));
  for (unsigned long long i = 0; i < n; ++i) chunk->vector()[i] = static_cast<double>(i);
  return chunk;
}

const Doubles& elements(const ChunkPtr& chunk) {
  return dynamic_cast<const Ostrel::TypedChunkBase<double>&>(*chunk).vector();
}
Doubles elements(const MemBasePtr& array) { return array ? elements(array->getChunk()) : Doubles(); }

ChunkPtr deadChunk() {
  Ostrel::WeakPtr<ChunkBase, ChunkBase> observer;
  { observer = chunkOf({0}); }
  return ChunkPtr(observer);
}

class CreateSampleTest : public TreskTest::RecordBalanceTest {
 protected:
  void SetUp() override { nBytesAtStart_ = ChunkBase::TotalMemsize.get(); }
  long long nBytesSinceStart() const { return ChunkBase::TotalMemsize.get() - nBytesAtStart_; }

 private:
  long long nBytesAtStart_ = 0;
};

// ------------------------------------------------------------------------------------------------------------ the types

TEST_F(CreateSampleTest, ServesFiftyFourElementTypes) {
  int nServed = 0;
  for (const ChunkKind& kind : gatherKinds()) {
    if (!kind.isSampled()) continue;
    ++nServed;
    for (const SampleParameters& parameters :
         {SampleParameters{3, 1, 2, 2, 3}, SampleParameters{4, 2, 1, 3, 1}, SampleParameters{2, 0, 1, 1, 4}}) {
      const ChunkPtr src = makeNoise(kind, 11, 1);
      ChunkPtr dst = makeNoise(kind, 9, 2);
      const ChunkPtr before = dst;
      Bytes expected = bytesOf(dst);
      TreskTest::referenceSample(expected, bytesOf(src), kind.elementSize, parameters);
      EXPECT_NE(expected, bytesOf(dst)) << "the case is one of a copy";
      EXPECT_TRUE(CreateSample(dst, src, parameters)) << kind.name();
      EXPECT_EQ(bytesOf(dst), expected) << kind.name();
      EXPECT_TRUE(dst == before) << "the chunk given is kept";
    }
  }
  EXPECT_EQ(nServed, 54);
}

TEST_F(CreateSampleTest, MakesANewChunkOfTheTypeOfTheSource) {
  for (const ChunkKind& kind : gatherKinds()) {
    if (!kind.isSampled()) continue;
    const ChunkPtr src = makeNoise(kind, 6, 1);
    ChunkPtr dst;
    EXPECT_TRUE(CreateSample(dst, src, {3, 0, 1, 0, 2})) << kind.name();
    ASSERT_TRUE(dst) << kind.name();
    EXPECT_EQ(dst->elementType(), src->elementType()) << kind.name();
    Bytes expected(3 * kind.elementSize);
    TreskTest::referenceSample(expected, bytesOf(src), kind.elementSize, {3, 0, 1, 0, 2});
    EXPECT_EQ(bytesOf(dst), expected) << kind.name();
  }
}

TEST_F(CreateSampleTest, RefusesUnsignedLongLongAndOtherTypesAndLeavesANullDestinationNull) {
  std::vector<ChunkKind> refused = foreignKinds();
  for (const ChunkKind& kind : gatherKinds())
    if (!kind.isSampled()) refused.push_back(kind);
  ASSERT_EQ(refused.size(), foreignKinds().size() + 6);
  for (const ChunkKind& kind : refused) {
    const ChunkPtr src = makeNoise(kind, 4, 1);
    const long long nBytesBefore = nBytesSinceStart();
    ChunkPtr missing;
    EXPECT_FALSE(CreateSample(missing, src, {2, 0, 1, 0, 1})) << kind.name();
    EXPECT_EQ(missing.getRecord(), nullptr) << kind.name();
    EXPECT_FALSE(CreateSample(missing, src, {Greatest, 1, Greatest, 0, 1})) << "nothing is made that could be too big";
    EXPECT_FALSE(CreateSample(missing, src, {0, 0, 0, 0, 0})) << kind.name();
    EXPECT_FALSE(missing) << kind.name();
    EXPECT_EQ(nBytesSinceStart(), nBytesBefore);
    ChunkPtr dst = makeNoise(kind, 4, 2);
    const Bytes before = bytesOf(dst);
    EXPECT_FALSE(CreateSample(dst, src, {2, 0, 1, 0, 1})) << kind.name();
    EXPECT_EQ(bytesOf(dst), before) << kind.name();
  }
}

TEST_F(CreateSampleTest, RefusesADestinationOfAnotherElementTypeAndLeavesItAsItWas) {
  std::vector<ChunkPtr> chunks;
  for (const ChunkKind& kind : gatherKinds()) chunks.push_back(makeNoise(kind, 2, 3));
  for (const ChunkKind& kind : foreignKinds()) chunks.push_back(makeNoise(kind, 2, 3));
  for (std::size_t d = 0; d < chunks.size(); ++d) {
    const Bytes before = bytesOf(chunks[d]);
    ChunkPtr dst = chunks[d];
    for (std::size_t s = 0; s < chunks.size(); ++s) {
      if (d == s) continue;
      EXPECT_FALSE(CreateSample(dst, chunks[s], {1, 0, 1, 1, 1}));
      EXPECT_FALSE(CreateSample(dst, chunks[s], {0, 0, 0, 0, 0}));
      EXPECT_FALSE(CreateSample(dst, chunks[s], {Greatest, 0, Greatest, 0, 1})) << "also if nothing fits";
    }
    EXPECT_TRUE(dst == chunks[d]);
    EXPECT_EQ(bytesOf(chunks[d]), before);
  }
}

TEST_F(CreateSampleTest, NullAndDeadSourcesAreFalse) {
  for (const ChunkPtr& bad : {ChunkPtr(), deadChunk()}) {
    ChunkPtr dst = chunkOf({7, 8});
    EXPECT_FALSE(CreateSample(dst, bad, {1, 0, 1, 0, 1}));
    EXPECT_EQ(elements(dst), (Doubles{7, 8}));
    ChunkPtr missing;
    EXPECT_FALSE(CreateSample(missing, bad, {1, 0, 1, 0, 1}));
    EXPECT_FALSE(missing);
  }
}

// ------------------------------------------------------------------------------------------------------------- the copy

TEST_F(CreateSampleTest, CopiesElementsAtStridesFromOffsets) {
  const ChunkPtr src = numbers(20);
  ChunkPtr dst = chunkOf({-1, -1, -1, -1, -1, -1, -1, -1});
  EXPECT_TRUE(CreateSample(dst, src, {3, 1, 2, 4, 5}));
  EXPECT_EQ(elements(dst), (Doubles{-1, 4, -1, 9, -1, 14, -1, -1}));
  EXPECT_EQ(elements(src), elements(numbers(20)));
}

TEST_F(CreateSampleTest, UnitStridesGiveTheSameAsOtherStridesForTheSameElements) {
  for (const ChunkKind& kind : gatherKinds()) {
    if (!kind.isSampled()) continue;
    const ChunkPtr packed = makeNoise(kind, 10, 1);
    // The same elements with one between each two.
    ChunkPtr spread = kind.make(20);
    const Bytes filler = bytesOf(makeNoise(kind, 20, 2));
    Bytes bytes = filler;
    TreskTest::referenceSample(bytes, bytesOf(packed), kind.elementSize, {10, 0, 2, 0, 1});
    TreskTest::setBytes(spread, bytes);
    ChunkPtr fromPacked = makeNoise(kind, 14, 3);
    ChunkPtr fromSpread = makeNoise(kind, 14, 3);
    EXPECT_TRUE(CreateSample(fromPacked, packed, {7, 3, 1, 2, 1}));
    EXPECT_TRUE(CreateSample(fromSpread, spread, {7, 3, 1, 4, 2}));
    EXPECT_EQ(bytesOf(fromPacked), bytesOf(fromSpread)) << kind.name();
    ChunkPtr toSpread = makeNoise(kind, 20, 2);
    EXPECT_TRUE(CreateSample(toSpread, packed, {10, 0, 2, 0, 1}));
    EXPECT_EQ(bytesOf(toSpread), bytes) << kind.name();
  }
}

TEST_F(CreateSampleTest, AZeroSourceStrideCopiesOneElementOverAndOver) {
  ChunkPtr dst = chunkOf({-1, -1, -1, -1, -1});
  EXPECT_TRUE(CreateSample(dst, numbers(3), {4, 1, 1, 2, 0}));
  EXPECT_EQ(elements(dst), (Doubles{-1, 2, 2, 2, 2}));
  ChunkPtr made;
  EXPECT_TRUE(CreateSample(made, numbers(1), {3, 0, 1, 0, 0}));
  EXPECT_EQ(elements(made), (Doubles{0, 0, 0}));
}

TEST_F(CreateSampleTest, AZeroDestinationStrideKeepsTheLastElement) {
  ChunkPtr dst = chunkOf({-1, -1, -1});
  EXPECT_TRUE(CreateSample(dst, numbers(100000), {49999, 1, 0, 1, 2}));
  EXPECT_EQ(elements(dst), (Doubles{-1, 99997, -1}));
  EXPECT_TRUE(CreateSample(dst, numbers(3), {5, 2, 0, 1, 0})) << "one element onto one element";
  EXPECT_EQ(elements(dst), (Doubles{-1, 99997, 1}));
}

TEST_F(CreateSampleTest, ZeroStridesAtTheEndOfAChunkHaveNoElementThere) {
  // stride x count + offset is no more than the size, and yet the first element would lie behind the last.
  ChunkPtr dst = chunkOf({7, 8});
  EXPECT_TRUE(CreateSample(dst, numbers(3), {1, 0, 1, 3, 0}));
  EXPECT_EQ(elements(dst), (Doubles{7, 8}));
  EXPECT_TRUE(CreateSample(dst, numbers(3), {2, 2, 0, 0, 1}));
  EXPECT_EQ(elements(dst), (Doubles{7, 8}));
  EXPECT_TRUE(CreateSample(dst, numbers(0), {2, 0, 1, 0, 0}));
  EXPECT_EQ(elements(dst), (Doubles{7, 8}));
  ChunkPtr made;
  EXPECT_TRUE(CreateSample(made, numbers(3), {2, 0, 0, 0, 1}));
  ASSERT_TRUE(made);
  EXPECT_EQ(made->size(), 0U);
}

TEST_F(CreateSampleTest, CopiesBetweenDisjointPlacesOfOneChunk) {
  const ChunkPtr chunk = numbers(8);
  ChunkPtr dst = chunk;
  EXPECT_TRUE(CreateSample(dst, chunk, {4, 0, 2, 1, 2})) << "7 + 2 elements do not fit";
  EXPECT_EQ(elements(dst), elements(numbers(8)));
  EXPECT_TRUE(CreateSample(dst, chunk, {3, 0, 2, 1, 2}));
  EXPECT_EQ(elements(dst), (Doubles{1, 1, 3, 3, 5, 5, 6, 7}));
  EXPECT_TRUE(CreateSample(dst, dst, {4, 0, 1, 4, 1}));
  EXPECT_EQ(elements(chunk), (Doubles{5, 5, 6, 7, 5, 5, 6, 7}));
}

// ------------------------------------------------------------------------------------------------------- the new chunk

TEST_F(CreateSampleTest, ANullDestinationBecomesAChunkOfCountTimesStrideAndOffset) {
  const ChunkPtr src = numbers(10);
  const long long nBytesBefore = nBytesSinceStart();
  ChunkPtr dst;
  EXPECT_TRUE(CreateSample(dst, src, {3, 2, 4, 1, 3}));
  EXPECT_EQ(elements(dst), (Doubles{0, 0, 1, 0, 0, 0, 4, 0, 0, 0, 7, 0, 0, 0}));
  EXPECT_EQ(nBytesSinceStart() - nBytesBefore, 14 * 8) << "its bytes are counted";
  dst.reset();
  EXPECT_EQ(nBytesSinceStart(), nBytesBefore);
}

TEST_F(CreateSampleTest, ADeadDestinationIsReplaced) {
  ChunkPtr dst = deadChunk();
  EXPECT_TRUE(CreateSample(dst, numbers(5), {2, 0, 1, 1, 2}));
  ASSERT_TRUE(dst);
  EXPECT_EQ(elements(dst), (Doubles{1, 3}));
}

TEST_F(CreateSampleTest, ACountOfZeroMakesAChunkOfOffsetElements) {
  const ChunkPtr src = numbers(4);
  ChunkPtr dst;
  EXPECT_TRUE(CreateSample(dst, src, {0, 5, 3, 0, 1}));
  EXPECT_EQ(elements(dst), Doubles(5, 0.0));
  ChunkPtr empty;
  EXPECT_TRUE(CreateSample(empty, src, {0, 0, Greatest, 0, Greatest}));
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->size(), 0U);
  ChunkPtr fromNothing;
  EXPECT_TRUE(CreateSample(fromNothing, numbers(0), {0, 2, 1, 0, 1}));
  EXPECT_EQ(elements(fromNothing), Doubles(2, 0.0));
}

TEST_F(CreateSampleTest, TheNewChunkIsMadeAlsoIfTheSourceIsTooShort) {
  ChunkPtr dst;
  EXPECT_TRUE(CreateSample(dst, numbers(2), {3, 1, 2, 0, 1}));
  EXPECT_EQ(elements(dst), Doubles(7, 0.0));
  ChunkPtr wrapped;
  EXPECT_TRUE(CreateSample(wrapped, numbers(2), {3, 0, 1, 0, Greatest / 2}));
  EXPECT_EQ(elements(wrapped), Doubles(3, 0.0));
}

TEST_F(CreateSampleTest, AChunkThatNoVectorHoldsIsALengthError) {
  const ChunkPtr src = numbers(4);
  const long long nBytesBefore = nBytesSinceStart();
  for (const SampleParameters& parameters : {
           SampleParameters{Greatest, 0, 1, 0, 1},
           SampleParameters{1, Greatest, 0, 0, 1},
           SampleParameters{0, Greatest, 7, 0, 1},
           SampleParameters{1ULL << 60, 0, 1, 0, 1},
           SampleParameters{1, 0, 1ULL << 60, 0, 1},
           // Sums and products that wrap around to small numbers.
           SampleParameters{1ULL << 32, 3, 1ULL << 32, 0, 1},
           SampleParameters{1, Greatest, 3, 0, 1},
           SampleParameters{Greatest, 2, 1, 0, 1},
           SampleParameters{Greatest / 2 + 1, 1, 2, 0, 0},
           SampleParameters{3, 0, Greatest / 3 + 1, 0, 0},
       }) {
    ChunkPtr dst;
    try {
      CreateSample(dst, src, parameters);
      ADD_FAILURE() << parameters.count << " x " << parameters.destinationStride << " + "
                    << parameters.destinationOffset;
    } catch (const std::length_error& error) {
      EXPECT_STREQ(error.what(), "cannot create std::vector larger than max_size()");
    }
    EXPECT_FALSE(dst);
    EXPECT_EQ(nBytesSinceStart(), nBytesBefore);
  }
}

// ------------------------------------------------------------------------------------------------- true without a copy

TEST_F(CreateSampleTest, ASourceThatIsTooShortIsTrueAndWritesNothing) {
  ChunkPtr dst = chunkOf({-1, -1, -1, -1});
  EXPECT_TRUE(CreateSample(dst, numbers(9), {3, 0, 1, 1, 3}));
  EXPECT_EQ(elements(dst), Doubles(4, -1.0)) << "9 of 3 x 3 + 1";
  EXPECT_TRUE(CreateSample(dst, numbers(10), {3, 0, 1, 1, 3}));
  EXPECT_EQ(elements(dst), (Doubles{1, 4, 7, -1})) << "exactly as many, though the last one read is number 7";
  EXPECT_TRUE(CreateSample(dst, numbers(4), {4, 0, 1, 1, 1}));
  EXPECT_EQ(elements(dst), (Doubles{1, 4, 7, -1})) << "4 of 4 + 1";
  EXPECT_TRUE(CreateSample(dst, numbers(5), {4, 0, 1, 1, 1}));
  EXPECT_EQ(elements(dst), (Doubles{1, 2, 3, 4}));
}

TEST_F(CreateSampleTest, ADestinationThatIsTooShortIsTrueAndStaysAsItWas) {
  ChunkPtr dst = chunkOf({-1, -1, -1, -1, -1, -1});
  const ChunkPtr before = dst;
  EXPECT_TRUE(CreateSample(dst, numbers(9), {3, 1, 2, 0, 1}));
  EXPECT_EQ(elements(dst), Doubles(6, -1.0)) << "6 of 3 x 2 + 1, though the last one written were number 5";
  EXPECT_TRUE(CreateSample(dst, numbers(9), {3, 4, 1, 0, 1}));
  EXPECT_EQ(elements(dst), Doubles(6, -1.0));
  EXPECT_TRUE(CreateSample(dst, numbers(9), {3, 0, 2, 0, 1}));
  EXPECT_EQ(elements(dst), (Doubles{0, -1, 1, -1, 2, -1}));
  EXPECT_TRUE(CreateSample(dst, numbers(9), {3, 3, 1, 6, 1}));
  EXPECT_EQ(elements(dst), (Doubles{0, -1, 1, 6, 7, 8}));
  EXPECT_TRUE(dst == before);
}

TEST_F(CreateSampleTest, RequiredSizesThatWrapDoNotFit) {
  const ChunkPtr src = numbers(8);
  constexpr unsigned long long Half = Greatest / 2 + 1;
  for (const SampleParameters& parameters : {
           SampleParameters{2, 0, 1, 0, Half},                 // 2 x 2^63
           SampleParameters{2, 0, Half, 0, 1},                 //
           SampleParameters{1ULL << 32, 0, 1ULL << 32, 0, 0},  // 2^64
           SampleParameters{2, 0, 1, Greatest, 1},             // 2^64 + 1
           SampleParameters{2, Greatest, 1, 0, 1},             //
           SampleParameters{2, Greatest - 1, 1, 0, 1},         // 2^64
           SampleParameters{3, 4, Greatest, 0, 1},             // 3 x (2^64 - 1) + 4 = 1 modulo 2^64
           SampleParameters{3, 0, 1, 4, Greatest},             //
           SampleParameters{Greatest, 1, 1, 0, 0},             //
           SampleParameters{Greatest, 0, 0, 1, 1},             //
           SampleParameters{1, Greatest, 0, 0, 1},             // no wrap, and no such element
           SampleParameters{1, 0, 1, Greatest, 0},             //
       }) {
    ChunkPtr dst = chunkOf({-1, -2, -3, -4});
    EXPECT_TRUE(CreateSample(dst, src, parameters));
    EXPECT_EQ(elements(dst), (Doubles{-1, -2, -3, -4}))
        << parameters.count << " elements, " << parameters.destinationStride << " + " << parameters.destinationOffset
        << ", " << parameters.sourceStride << " + " << parameters.sourceOffset;
  }
}

TEST_F(CreateSampleTest, ACountOfZeroIsTrueAndWritesNothing) {
  ChunkPtr dst = chunkOf({-1, -2});
  for (const SampleParameters& parameters :
       {SampleParameters{0, 0, 1, 0, 1}, SampleParameters{0, 2, 1, 3, 1}, SampleParameters{0, 0, 0, 0, 0},
        SampleParameters{0, 0, Greatest, 0, Greatest}, SampleParameters{0, 3, 2, 4, 2}})
    EXPECT_TRUE(CreateSample(dst, numbers(3), parameters));
  EXPECT_EQ(elements(dst), (Doubles{-1, -2}));
}

TEST_F(CreateSampleTest, EmptyChunksAreTrue) {
  ChunkPtr dst = numbers(0);
  EXPECT_TRUE(CreateSample(dst, numbers(0), {0, 0, 1, 0, 1}));
  EXPECT_TRUE(CreateSample(dst, numbers(0), {1, 0, 1, 0, 1}));
  EXPECT_EQ(dst->size(), 0U);
}

// ----------------------------------------------------------------------------------------------------- two given arrays

TEST_F(CreateSampleTest, CopiesBetweenTheChunksOfArrays) {
  const ArrayPtr<2, double> source = makeSamples<2, double>(MultiIndex<2>(3, 4));
  const MemBasePtr destination = TreskTest::makeArray(2, 3, -1);
  EXPECT_TRUE(CreateSample(destination, source, {2, 1, 2, 2, 3}));
  EXPECT_EQ(elements(destination), (Doubles{-1, sample<double>(2), -1, sample<double>(5), -1, -1}));
  EXPECT_TRUE(CreateSample(destination, source, {7, 0, 1, 0, 1})) << "true without a copy";
  EXPECT_EQ(elements(destination), (Doubles{-1, sample<double>(2), -1, sample<double>(5), -1, -1}));
}

TEST_F(CreateSampleTest, MissingArraysAreFalse) {
  const MemBasePtr array = TreskTest::makeArray(3, 5);
  for (const MemBasePtr& missing : {MemBasePtr(), TreskTest::makeDeadArray()}) {
    EXPECT_FALSE(CreateSample(missing, array, SampleParameters{1, 0, 1, 0, 1}));
    EXPECT_FALSE(CreateSample(array, missing, SampleParameters{1, 0, 1, 0, 1}));
    EXPECT_FALSE(CreateSample(missing, missing, SampleParameters{1, 0, 1, 0, 1}));
    EXPECT_FALSE(CreateSample(missing, 3, SampleParameters{1, 0, 1, 0, 1}, nobody));
  }
  EXPECT_EQ(elements(array), Doubles(3, 5.0));
}

MemBasePtr makeGrid() {
  using Grid = Tresk::UniformCartesianArray;
  return MemBasePtr(new Grid(MultiIndex<3>(2, 2, 2), Grid::Point(0, 0, 0), Grid::Vector(1, 1, 1), nobody));
}

TEST_F(CreateSampleTest, ArraysWithoutStorageAreFalse) {
  const MemBasePtr array = TreskTest::makeArray(3, 5);
  const MemBasePtr grid = makeGrid();
  ASSERT_FALSE(grid->getChunk());
  EXPECT_FALSE(CreateSample(grid, array, SampleParameters{1, 0, 1, 0, 1})) << "no chunk is made for an array";
  EXPECT_FALSE(CreateSample(array, grid, SampleParameters{1, 0, 1, 0, 1}));
  EXPECT_FALSE(CreateSample(grid, 3, SampleParameters{1, 0, 1, 0, 1}, nobody));
  EXPECT_EQ(elements(array), Doubles(3, 5.0));
}

TEST_F(CreateSampleTest, ArraysOfDifferentElementTypesAreFalse) {
  const MemBasePtr array = TreskTest::makeArray(3, 5);
  const ArrayPtr<1, unsigned int> other = makeSamples<1, unsigned int>(MultiIndex<1>(3));
  EXPECT_FALSE(CreateSample(array, other, SampleParameters{1, 0, 1, 0, 1}));
  EXPECT_FALSE(CreateSample(other, array, SampleParameters{1, 0, 1, 0, 1}));
  EXPECT_EQ(elements(array), Doubles(3, 5.0));
}

TEST_F(CreateSampleTest, ViewsAreSampledThroughTheirWholeChunk) {
  const ArrayPtr<2, double> source = makeSamples<2, double>(MultiIndex<2>(3, 2));
  const MemBasePtr slice = source->getSlice(1, nobody);
  EXPECT_EQ(elements(CreateSample(slice, 2, {2, 0, 1, 0, 3}, nobody)), (Doubles{sample<double>(0), sample<double>(3)}));
  const ArrayPtr<2, double> destination(TreskTest::makeArray(2, 2, -1));
  EXPECT_TRUE(CreateSample(destination->getSlice(1, nobody), source, SampleParameters{1, 0, 1, 5, 1}));
  EXPECT_EQ(elements(destination), (Doubles{sample<double>(5), -1, -1, -1}));
}

// -------------------------------------------------------------------------------------------------------- the new array

TEST_F(CreateSampleTest, MakesAnArrayOfRankOneWithoutACreator) {
  const ArrayPtr<3, double> source = makeSamples<3, double>(MultiIndex<3>(2, 3, 4));
  const Tresk::CreatorPtr creator(new Tresk::CreativeArray(MemBasePtr(), Tresk::CachePtr()));
  const MemBasePtr made = CreateSample(source, 3, {3, 0, 1, 1, 7}, creator);
  ASSERT_TRUE(made);
  EXPECT_FALSE(made->getSize() != DynamicSize{3});
  EXPECT_EQ(made->getElementType(), typeid(double));
  EXPECT_EQ(elements(made), (Doubles{sample<double>(1), sample<double>(8), sample<double>(15)}));
  EXPECT_FALSE(made->getCreator()) << "the creator given is not used";
}

TEST_F(CreateSampleTest, TheNewArrayHasTheSizeThatIsGivenAndNotThatOfTheSample) {
  const ArrayPtr<1, double> source = makeSamples<1, double>(MultiIndex<1>(10));
  EXPECT_EQ(elements(CreateSample(source, 4, {2, 1, 1, 0, 1}, nobody)),
            (Doubles{0, sample<double>(0), sample<double>(1), 0}));
  EXPECT_EQ(elements(CreateSample(source, 2, {3, 0, 1, 0, 1}, nobody)), (Doubles{0, 0})) << "too small for the sample";
  const MemBasePtr empty = CreateSample(source, 0, {3, 0, 1, 0, 1}, nobody);
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->nElements(), 0U);
}

TEST_F(CreateSampleTest, ASourceThatIsTooShortGivesTheNewArrayAsItWasMade) {
  const ArrayPtr<1, double> source = makeSamples<1, double>(MultiIndex<1>(5));
  EXPECT_EQ(elements(CreateSample(source, 3, {3, 0, 1, 0, 2}, nobody)), (Doubles{0, 0, 0}));
}

template <class T>
class CreateSampleOfTypeTest : public TreskTest::RecordBalanceTest {};
TYPED_TEST_SUITE(CreateSampleOfTypeTest, TreskTest::AllElementTypes);

TYPED_TEST(CreateSampleOfTypeTest, MakesArraysOfNumbersAndVectorsOfThemOnly) {
  using T = TypeParam;
  constexpr bool IsServed = std::is_same_v<T, double> || std::is_same_v<T, unsigned int> ||
                            std::is_same_v<T, FixedArray<double, 2>> || std::is_same_v<T, FixedArray<double, 3>>;
  const ArrayPtr<1, T> source = makeSamples<1, T>(MultiIndex<1>(6));
  const MemBasePtr made = CreateSample(source, 2, {2, 0, 1, 1, 2}, nobody);
  EXPECT_EQ(static_cast<bool>(made), IsServed);
  if (!IsServed) {
    EXPECT_FALSE(CreateSample(source, source, SampleParameters{0, 0, 1, 0, 1})) << "also where nothing is copied";
    return;
  }
  const ArrayPtr<1, T> typed(made);
  ASSERT_TRUE(typed);
  TreskTest::expectSamples(*typed, [](unsigned long long e) { return 1 + 2 * e; });
}

}  // namespace
