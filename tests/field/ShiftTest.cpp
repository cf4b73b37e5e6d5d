// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/Shift.hpp>
#include <tresk/field/UniformCartesianArray.hpp>

#include <field/ChunkKinds.hpp>
#include <field/ElementSamples.hpp>
#include <field/TransformReference.hpp>
#include <support/FieldDoubles.hpp>
#include <support/ProfilerRecorder.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::Chunk;
using Ostrel::ChunkBase;
using Ostrel::StrongPtr;
using Quorvel::FixedArray;
using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::MemArray;
using Tresk::MemBasePtr;
using Tresk::MultiIndex;
using Tresk::Shift;
using Tresk::ShiftInPlace;
using TreskTest::ArrayPtr;
using TreskTest::Bytes;
using TreskTest::bytesOf;
using TreskTest::ChunkKind;
using TreskTest::ChunkPtr;
using TreskTest::foreignKinds;
using TreskTest::gatherKinds;
using TreskTest::makeNoise;
using TreskTest::makeSamples;
using TreskTest::ProfilerRecorder;
using TreskTest::sample;
using TreskTest::setBytes;
using TreskTest::shiftKinds;

const CreatorWeakPtr nobody;

template <class T>
ChunkPtr chunkOf(std::initializer_list<T> values) {
  const StrongPtr<Chunk<T>, ChunkBase> chunk(new Chunk<T>(values.size()));
  chunk->vector() = values;
  return chunk;
}

template <class T>
const std::vector<T>& elements(const ChunkPtr& chunk) {
  return dynamic_cast<const Ostrel::TypedChunkBase<T>&>(*chunk).vector();
}

template <class F>
void fill(Bytes& bytes, std::uint32_t seed) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<F> mantissa(-1, 1);
  std::uniform_int_distribution<int> exponent(-12, 12);
  for (std::size_t i = 0; i + sizeof(F) <= bytes.size(); i += sizeof(F)) {
    const F number = std::ldexp(mantissa(random), exponent(random));
    std::memcpy(bytes.data() + i, &number, sizeof(F));
  }
}

/// A chunk of numbers of different magnitudes, whose sums are rounded.
ChunkPtr makeNumbers(const ChunkKind& kind, unsigned long long n, std::uint32_t seed) {
  const ChunkPtr chunk = kind.make(n);
  Bytes bytes(TreskTest::nBytes(*chunk));
  kind.primitive == "double" ? fill<double>(bytes, seed) : fill<float>(bytes, seed);
  setBytes(chunk, bytes);
  return chunk;
}

ChunkPtr deadChunk() {
  Ostrel::WeakPtr<ChunkBase, ChunkBase> observer;
  { observer = ChunkPtr(shiftKinds()[2].make(1)); }
  return ChunkPtr(observer);
}

using D3 = FixedArray<double, 3>;
using F3 = FixedArray<float, 3>;

class ShiftTest : public TreskTest::RecordBalanceTest {};

// ------------------------------------------------------------------------------------------------------ types and sums

TEST_F(ShiftTest, AddsADoubleShiftPerComponent) {
  const ChunkPtr src = chunkOf<D3>({D3(1, 2, 3), D3(4, 5, 6)});
  const ChunkPtr dst = chunkOf<D3>({D3(0, 0, 0), D3(0, 0, 0)});
  EXPECT_TRUE(Shift(dst, src, chunkOf<D3>({D3(10, 20, 30)})));
  EXPECT_EQ(elements<D3>(dst), (std::vector<D3>{D3(11, 22, 33), D3(14, 25, 36)}));
  EXPECT_EQ(elements<D3>(src), (std::vector<D3>{D3(1, 2, 3), D3(4, 5, 6)}));
}

TEST_F(ShiftTest, ServesExactlyTheCombinationsWhereTheShiftDecidesTheTypeOfTheResult) {
  int nServed = 0;
  for (const ChunkKind& dstKind : shiftKinds())
    for (const ChunkKind& srcKind : shiftKinds())
      for (const ChunkKind& shiftKind : shiftKinds()) {
        const ChunkPtr dst = makeNumbers(dstKind, 9, 1);
        const ChunkPtr src = makeNumbers(srcKind, 9, 2);
        const ChunkPtr shift = makeNumbers(shiftKind, 1, 3);
        Bytes expected = bytesOf(dst);
        const bool isServed =
            TreskTest::referenceShift(dstKind, expected, srcKind, bytesOf(src), shiftKind, bytesOf(shift));
        EXPECT_EQ(Shift(dst, src, shift), isServed)
            << dstKind.name() << " = " << srcKind.name() << " + " << shiftKind.name();
        EXPECT_EQ(bytesOf(dst), expected) << dstKind.name() << " = " << srcKind.name() << " + " << shiftKind.name();
        nServed += isServed ? 1 : 0;
      }
  EXPECT_EQ(nServed, 6 * 4);
}

TEST_F(ShiftTest, SumsAreBitExactInTheStatedPrecision) {
  for (const ChunkKind& srcKind : shiftKinds())
    for (const ChunkKind& shiftKind : shiftKinds())
      for (const unsigned long long n : {1ULL, 2ULL, 7ULL, 64ULL, 1001ULL}) {
        if (srcKind.nNumbers != shiftKind.nNumbers) continue;
        const ChunkPtr dst = makeNoise(shiftKind, n, 1);
        const ChunkPtr src = makeNumbers(srcKind, n, static_cast<std::uint32_t>(n));
        const ChunkPtr shift = makeNumbers(shiftKind, 1, 3);
        Bytes expected = bytesOf(dst);
        ASSERT_TRUE(TreskTest::referenceShift(shiftKind, expected, srcKind, bytesOf(src), shiftKind, bytesOf(shift)));
        EXPECT_TRUE(Shift(dst, src, shift));
        EXPECT_EQ(bytesOf(dst), expected) << srcKind.name() << " + " << shiftKind.name();
      }
}

TEST_F(ShiftTest, FloatsAreAddedInSinglePrecisionAndDoublesWithAFloatShiftInDoubleAndThenRounded) {
  using F1 = FixedArray<float, 1>;
  using D1 = FixedArray<double, 1>;
  // From 2^24 on floats are even numbers.
  const float big = 16777216.0F;
  const ChunkPtr shift = chunkOf<F1>({F1(0.75F)});
  const ChunkPtr dst = chunkOf<F1>({F1(0)});
  EXPECT_TRUE(Shift(dst, chunkOf<F1>({F1(big)}), shift));
  EXPECT_EQ(elements<F1>(dst)[0][0], big);
  // Rounded before the sum, the double would give the same.
  EXPECT_TRUE(Shift(dst, chunkOf<D1>({D1(16777216.75)}), shift));
  EXPECT_EQ(elements<F1>(dst)[0][0], big + 2);
  // A float that is widened keeps what a sum of floats would lose.
  const ChunkPtr wide = chunkOf<D1>({D1(0)});
  EXPECT_TRUE(Shift(wide, chunkOf<F1>({F1(big)}), chunkOf<D1>({D1(0.25)})));
  EXPECT_EQ(elements<D1>(wide)[0][0], 16777216.25);
}

TEST_F(ShiftTest, NumbersAtTheEndsOfTheRangeAreAddedAsTheProcessorDoes) {
  using F1 = FixedArray<float, 1>;
  using D1 = FixedArray<double, 1>;
  constexpr float Infinity = std::numeric_limits<float>::infinity();
  constexpr float Max = std::numeric_limits<float>::max();
  const ChunkPtr dst = chunkOf<F1>({F1(0), F1(0), F1(0), F1(0), F1(0)});
  EXPECT_TRUE(Shift(dst, chunkOf<F1>({F1(Max), F1(Infinity), F1(-Infinity), F1(std::nanf("")), F1(-Max)}),
                    chunkOf<F1>({F1(Max)})));
  EXPECT_EQ(elements<F1>(dst)[0][0], Infinity);
  EXPECT_EQ(elements<F1>(dst)[1][0], Infinity);
  EXPECT_EQ(elements<F1>(dst)[2][0], -Infinity);
  EXPECT_NE(elements<F1>(dst)[3][0], elements<F1>(dst)[3][0]);
  EXPECT_EQ(elements<F1>(dst)[4][0], 0);
  // The sum is a double, and fits a float again.
  const ChunkPtr one = chunkOf<F1>({F1(0)});
  EXPECT_TRUE(Shift(one, chunkOf<D1>({D1(2.0 * Max)}), chunkOf<F1>({F1(-Max)})));
  EXPECT_EQ(elements<F1>(one)[0][0], Max);
}

TEST_F(ShiftTest, RefusesOtherElementTypes) {
  std::vector<ChunkKind> others;
  for (const ChunkKind& kind : foreignKinds())
    if (!(kind.primitive == "float" && kind.nNumbers == 1)) others.push_back(kind);
  for (const ChunkKind& kind : gatherKinds())
    if (kind.nNumbers == 0 || (kind.primitive != "double" && kind.primitive != "float")) others.push_back(kind);
  ASSERT_EQ(others.size(), foreignKinds().size() - 1 + 10 + 8 * 5);
  const ChunkPtr good = chunkOf<D3>({D3(1, 2, 3)});
  const Bytes goodBefore = bytesOf(good);
  for (const ChunkKind& kind : others) {
    const ChunkPtr bad = makeNoise(kind, 1, 1);
    const Bytes before = bytesOf(bad);
    EXPECT_FALSE(Shift(bad, bad, bad)) << kind.name();
    EXPECT_FALSE(Shift(bad, good, good)) << kind.name();
    EXPECT_FALSE(Shift(good, bad, good)) << kind.name();
    EXPECT_FALSE(Shift(good, good, bad)) << kind.name();
    EXPECT_FALSE(ShiftInPlace(bad, bad)) << kind.name();
    EXPECT_FALSE(ShiftInPlace(bad, good)) << kind.name();
    EXPECT_FALSE(ShiftInPlace(good, bad)) << kind.name();
    EXPECT_EQ(bytesOf(bad), before) << kind.name();
  }
  EXPECT_EQ(bytesOf(good), goodBefore);
}

TEST_F(ShiftTest, AShiftOfNoneOrSeveralElementsIsRefused) {
  for (const ChunkKind& kind : shiftKinds())
    for (const unsigned long long n : {0ULL, 2ULL, 3ULL}) {
      const ChunkPtr data = makeNumbers(kind, n, 1);
      const ChunkPtr dst = makeNumbers(kind, n, 2);
      const ChunkPtr shift = makeNumbers(kind, n, 3);
      const Bytes before = bytesOf(data);
      const Bytes dstBefore = bytesOf(dst);
      EXPECT_FALSE(Shift(dst, data, shift)) << kind.name();
      EXPECT_FALSE(ShiftInPlace(data, shift)) << kind.name();
      EXPECT_EQ(bytesOf(data), before);
      EXPECT_EQ(bytesOf(dst), dstBefore);
    }
}

TEST_F(ShiftTest, AShiftOfAsManyBytesWithOtherComponentsIsRefused) {
  using F2 = FixedArray<float, 2>;
  using F6 = FixedArray<float, 6>;
  const ChunkPtr data = chunkOf<F6>({F6(1, 2, 3, 4, 5, 6)});
  EXPECT_FALSE(ShiftInPlace(data, chunkOf<F3>({F3(1, 1, 1), F3(1, 1, 1)})));
  EXPECT_FALSE(ShiftInPlace(data, chunkOf<F2>({F2(1, 1), F2(1, 1), F2(1, 1)})));
  EXPECT_FALSE(ShiftInPlace(data, chunkOf<D3>({D3(1, 1, 1)})));
  EXPECT_EQ(elements<F6>(data)[0], F6(1, 2, 3, 4, 5, 6));
}

TEST_F(ShiftTest, NullAndDeadChunksAreFalse) {
  const ChunkPtr good = chunkOf<D3>({D3(1, 2, 3)});
  for (const ChunkPtr& bad : {ChunkPtr(), deadChunk()}) {
    EXPECT_FALSE(Shift(bad, good, good));
    EXPECT_FALSE(Shift(good, bad, good));
    EXPECT_FALSE(Shift(good, good, bad));
    EXPECT_FALSE(Shift(bad, bad, bad));
    EXPECT_FALSE(ShiftInPlace(bad, good));
    EXPECT_FALSE(ShiftInPlace(good, bad));
    EXPECT_FALSE(ShiftInPlace(bad, bad));
  }
  EXPECT_EQ(elements<D3>(good)[0], D3(1, 2, 3));
}

// ------------------------------------------------------------------------------------------------------------- lengths

TEST_F(ShiftTest, ALongerDestinationKeepsItsOtherElements) {
  const ChunkPtr dst = chunkOf<F3>({F3(7, 7, 7), F3(8, 8, 8), F3(9, 9, 9)});
  EXPECT_TRUE(Shift(dst, chunkOf<D3>({D3(1, 2, 3)}), chunkOf<F3>({F3(1, 1, 1)})));
  EXPECT_EQ(elements<F3>(dst), (std::vector<F3>{F3(2, 3, 4), F3(8, 8, 8), F3(9, 9, 9)}));
}

TEST_F(ShiftTest, AnEmptySourceIsTrueAndWritesNothing) {
  for (const ChunkKind& kind : shiftKinds()) {
    const ChunkPtr dst = makeNumbers(kind, 2, 1);
    const Bytes before = bytesOf(dst);
    const ChunkPtr shift = makeNumbers(kind, 1, 2);
    EXPECT_TRUE(Shift(dst, kind.make(0), shift)) << kind.name();
    EXPECT_TRUE(Shift(kind.make(0), kind.make(0), shift)) << kind.name();
    EXPECT_TRUE(ShiftInPlace(kind.make(0), shift)) << kind.name();
    EXPECT_EQ(bytesOf(dst), before) << kind.name();
  }
}

// ------------------------------------------------------------------------------------------------------------ in place

TEST_F(ShiftTest, InPlaceServesAllFourCombinations) {
  int nServed = 0;
  for (const ChunkKind& dataKind : shiftKinds())
    for (const ChunkKind& shiftKind : shiftKinds())
      for (const unsigned long long n : {1ULL, 5ULL, 333ULL}) {
        const ChunkPtr data = makeNumbers(dataKind, n, 1);
        const ChunkPtr shift = makeNumbers(shiftKind, 1, 2);
        const Bytes shiftBefore = bytesOf(shift);
        Bytes expected = bytesOf(data);
        const bool isServed = TreskTest::referenceShiftInPlace(dataKind, expected, shiftKind, bytesOf(shift));
        EXPECT_EQ(ShiftInPlace(data, shift), isServed) << dataKind.name() << " + " << shiftKind.name();
        EXPECT_EQ(bytesOf(data), expected) << dataKind.name() << " + " << shiftKind.name();
        EXPECT_EQ(bytesOf(shift), shiftBefore);
        nServed += isServed ? 1 : 0;
      }
  EXPECT_EQ(nServed, 3 * 6 * 4);
}

TEST_F(ShiftTest, InPlaceFloatsTakeADoubleShiftInDoublePrecision) {
  using F1 = FixedArray<float, 1>;
  using D1 = FixedArray<double, 1>;
  // Half way between two floats, and a little more than that.
  const ChunkPtr data = chunkOf<F1>({F1(16777216.0F)});
  EXPECT_TRUE(ShiftInPlace(data, chunkOf<F1>({F1(1)})));
  EXPECT_EQ(elements<F1>(data)[0][0], 16777216.0F);
  EXPECT_TRUE(ShiftInPlace(data, chunkOf<D1>({D1(1.0 + 1e-8)})));
  EXPECT_EQ(elements<F1>(data)[0][0], 16777218.0F);
}

TEST_F(ShiftTest, DestinationAndSourceOfOneChunkGiveTheSameAsInPlace) {
  for (const ChunkKind& kind : shiftKinds()) {
    const ChunkPtr shift = makeNumbers(kind, 1, 2);
    const ChunkPtr once = makeNumbers(kind, 517, 1);
    const ChunkPtr twice = makeNumbers(kind, 517, 1);
    EXPECT_TRUE(Shift(once, once, shift));
    EXPECT_TRUE(ShiftInPlace(twice, shift));
    EXPECT_EQ(bytesOf(once), bytesOf(twice)) << kind.name();
  }
}

TEST_F(ShiftTest, AnElementMayBeShiftedByItself) {
  const ChunkPtr chunk = chunkOf<D3>({D3(1, 2, 3)});
  EXPECT_TRUE(Shift(chunk, chunk, chunk));
  EXPECT_EQ(elements<D3>(chunk)[0], D3(2, 4, 6));
  EXPECT_TRUE(ShiftInPlace(chunk, chunk));
  EXPECT_EQ(elements<D3>(chunk)[0], D3(4, 8, 12));
  // The shift is overwritten by the first of several sums, which the others do not see.
  EXPECT_TRUE(Shift(chunk, chunkOf<D3>({D3(1, 1, 1)}), chunk));
  EXPECT_EQ(elements<D3>(chunk)[0], D3(5, 9, 13));
}

// ------------------------------------------------------------------------------------------------------------- profile

constexpr const char* FunctionText =
    "bool Tresk::Shift(Ostrel::RefPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>&, "
    "Ostrel::RefPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>&, Ostrel::RefPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>&)";

void expectOneScope(const ProfilerRecorder& recorder) {
  int nShifts = 0;
  for (const ProfilerRecorder::Event& event : recorder.events()) {
    if (event.scope.file != "field/ShiftArray") continue;
    ++nShifts;
    EXPECT_EQ(event.isBegin, nShifts == 1);
    EXPECT_EQ(event.scope.line, 113);
    EXPECT_EQ(event.scope.function, FunctionText);
    EXPECT_EQ(event.scope.name, "Shift Array Values");
    EXPECT_EQ(event.scope.level, 5);
  }
  EXPECT_EQ(nShifts, 2);
}

TEST_F(ShiftTest, OpensOneScopeInEachFormAndAlsoIfNothingFits) {
  const ChunkPtr data = chunkOf<D3>({D3(1, 2, 3)});
  {
    const ProfilerRecorder recorder;
    EXPECT_TRUE(Shift(data, data, data));
    expectOneScope(recorder);
    EXPECT_EQ(recorder.events().size(), 2U);
  }
  {
    const ProfilerRecorder recorder;
    EXPECT_FALSE(Shift(ChunkPtr(), data, data));
    expectOneScope(recorder);
  }
  {
    const ProfilerRecorder recorder;
    EXPECT_FALSE(Shift(data, data, chunkOf<F3>({F3(1, 2, 3)})));
    expectOneScope(recorder);
  }
  const MemBasePtr array = makeSamples<1, D3>(MultiIndex<1>(3));
  {
    const ProfilerRecorder recorder;
    EXPECT_TRUE(Shift(array, array, data));
    expectOneScope(recorder);
  }
  {
    const ProfilerRecorder recorder;
    EXPECT_TRUE(Shift(array, data, nobody));
    expectOneScope(recorder);
  }
}

TEST_F(ShiftTest, InPlaceOpensNoScope) {
  const ChunkPtr data = chunkOf<D3>({D3(1, 2, 3)});
  const ProfilerRecorder recorder;
  EXPECT_TRUE(ShiftInPlace(data, data));
  EXPECT_FALSE(ShiftInPlace(data, ChunkPtr()));
  EXPECT_TRUE(recorder.events().empty());
}

// -------------------------------------------------------------------------------------------------------------- arrays

TEST_F(ShiftTest, ShiftsFromArrayToArray) {
  const ArrayPtr<2, D3> source = makeSamples<2, D3>(MultiIndex<2>(2, 3));
  const ArrayPtr<1, D3> destination = makeSamples<1, D3>(MultiIndex<1>(7));
  EXPECT_TRUE(Shift(destination, source, chunkOf<D3>({D3(1, 2, 3)})));
  for (unsigned long long i = 0; i < 6; ++i)
    for (int c = 0; c < 3; ++c) EXPECT_EQ((*destination)(i)[c], sample<D3>(i)[c] + 1 + c);
  EXPECT_EQ((*destination)(6), sample<D3>(6));
}

TEST_F(ShiftTest, MissingArraysAreFalse) {
  const MemBasePtr array = makeSamples<1, D3>(MultiIndex<1>(3));
  const ChunkPtr shift = chunkOf<D3>({D3(1, 2, 3)});
  for (const MemBasePtr& missing : {MemBasePtr(), TreskTest::makeDeadArray()}) {
    EXPECT_FALSE(Shift(missing, array, shift));
    EXPECT_FALSE(Shift(array, missing, shift));
    EXPECT_FALSE(Shift(missing, missing, shift));
    EXPECT_FALSE(Shift(missing, shift, nobody));
  }
  EXPECT_FALSE(Shift(array, array, ChunkPtr()));
  EXPECT_FALSE(Shift(array, ChunkPtr(), nobody));
  TreskTest::expectSamples(*ArrayPtr<1, D3>(array), [](unsigned long long e) { return e; });
}

TEST_F(ShiftTest, ArraysWithoutStorageOrOfOtherTypesAreFalse) {
  using Grid = Tresk::UniformCartesianArray;
  const MemBasePtr grid(new Grid(MultiIndex<3>(1, 1, 1), Grid::Point(0, 0, 0), Grid::Vector(1, 1, 1), nobody));
  const MemBasePtr array = makeSamples<1, D3>(MultiIndex<1>(3));
  const ChunkPtr shift = chunkOf<D3>({D3(1, 2, 3)});
  EXPECT_FALSE(Shift(grid, array, shift));
  EXPECT_FALSE(Shift(array, grid, shift));
  EXPECT_FALSE(Shift(grid, shift, nobody));
  const MemBasePtr numbers = TreskTest::makeArray(3, 1);
  EXPECT_FALSE(Shift(numbers, numbers, shift));
  EXPECT_FALSE(Shift(numbers, shift, nobody));
}

TEST_F(ShiftTest, ANewArrayHasTypeAndSizeOfTheSourceAndNoCreator) {
  TreskTest::forEachRank([]<int N>(std::integral_constant<int, N>) {
    const MultiIndex<N> extents = TreskTest::sampleExtents<N>();
    const Tresk::CreatorPtr creator(new Tresk::CreativeArray(MemBasePtr(), Tresk::CachePtr()));
    const ArrayPtr<N, D3> source(new MemArray<N, D3>(extents, creator));
    TreskTest::fillWithSamples<D3>(*source);
    const MemBasePtr shifted = Shift(source, chunkOf<D3>({D3(1, 2, 3)}), creator);
    ASSERT_TRUE(shifted);
    EXPECT_FALSE(shifted->getSize() != source->getSize());
    EXPECT_EQ(shifted->getElementType(), typeid(D3));
    EXPECT_FALSE(shifted->getCreator()) << "the creator given is not used";
    EXPECT_FALSE(shifted->getChunk() == source->getChunk());
    const std::vector<D3>& values = elements<D3>(shifted->getChunk());
    ASSERT_EQ(values.size(), extents.nElements());
    for (unsigned long long e = 0; e < values.size(); ++e)
      for (int c = 0; c < 3; ++c) EXPECT_EQ(values[e][c], sample<D3>(e)[c] + 1 + c);
    TreskTest::expectSamples(*source, [](unsigned long long e) { return e; });
  });
}

TEST_F(ShiftTest, ANewArrayOfNoElementsIsAnArray) {
  const MemBasePtr source = makeSamples<2, D3>(MultiIndex<2>(0, 4));
  const MemBasePtr shifted = Shift(source, chunkOf<D3>({D3(1, 2, 3)}), nobody);
  ASSERT_TRUE(shifted);
  EXPECT_FALSE(shifted->getSize() != (DynamicSize{0, 4}));
}

TEST_F(ShiftTest, ANewArrayOfDoublesTakesNoShiftOfFloats) {
  const MemBasePtr source = makeSamples<1, D3>(MultiIndex<1>(3));
  const ChunkPtr shift = chunkOf<F3>({F3(1, 2, 3)});
  const long long nBytesBefore = ChunkBase::TotalMemsize.get();
  EXPECT_FALSE(Shift(source, shift, nobody)) << "it would be one of floats";
  EXPECT_FALSE(Shift(source, chunkOf<D3>({D3(1, 2, 3), D3(1, 2, 3)}), nobody));
  EXPECT_EQ(ChunkBase::TotalMemsize.get(), nBytesBefore) << "the new array is released";
  EXPECT_TRUE(ShiftInPlace(source->getChunk(), shift));
}

TEST_F(ShiftTest, ANewArrayOfAViewIsNull) {
  using Triple = FixedArray<double, 3>;
  const MemBasePtr whole(new MemArray<2, Triple>({2, 300}, nobody));
  const MemBasePtr slice = dynamic_cast<const MemArray<2, Triple>&>(*whole).getSlice(1, nobody);
  ASSERT_TRUE(slice);
  ASSERT_LT(slice->nElements(), slice->getChunk()->size());
  EXPECT_FALSE(Shift(slice, chunkOf<Triple>({Triple(1, 2, 3)}), nobody));
}

TEST_F(ShiftTest, ViewsAreShiftedThroughTheirWholeChunk) {
  const ArrayPtr<2, D3> array = makeSamples<2, D3>(MultiIndex<2>(2, 3));
  const MemBasePtr slice = array->getSlice(2, nobody);
  const ChunkPtr shift = chunkOf<D3>({D3(1, 2, 3)});
  EXPECT_TRUE(Shift(slice, slice, shift));
  for (unsigned long long e = 0; e < 6; ++e)
    for (int c = 0; c < 3; ++c)
      EXPECT_EQ(elements<D3>(array->getChunk())[e][c], sample<D3>(e)[c] + 1 + c) << "element " << e;
}

template <class T>
class ShiftOfTypeTest : public TreskTest::RecordBalanceTest {};
TYPED_TEST_SUITE(ShiftOfTypeTest, TreskTest::AllElementTypes);

TYPED_TEST(ShiftOfTypeTest, MakesArraysOfPlainVectorsOnly) {
  using T = TypeParam;
  const ArrayPtr<1, T> source = makeSamples<1, T>(MultiIndex<1>(1));
  const ChunkPtr shift = source->getChunk();
  const MemBasePtr shifted = Shift(source, shift, nobody);
  constexpr bool IsServed = std::is_same_v<T, FixedArray<double, 2>> || std::is_same_v<T, FixedArray<double, 3>>;
  EXPECT_EQ(static_cast<bool>(shifted), IsServed);
}

}  // namespace
