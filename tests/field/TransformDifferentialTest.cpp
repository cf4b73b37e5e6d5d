// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreateIndirection.hpp>
#include <tresk/field/CreateSample.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/Shift.hpp>

#include <field/ChunkKinds.hpp>
#include <field/ElementSamples.hpp>
#include <field/TransformReference.hpp>
#include <support/OpenMpThreads.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Ostrel::Chunk;
using Ostrel::ChunkBase;
using Ostrel::StrongPtr;
using Tresk::CreateIndirection;
using Tresk::CreateSample;
using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::MemBasePtr;
using Tresk::MultiIndex;
using Tresk::pullData;
using Tresk::SampleParameters;
using Tresk::Shift;
using Tresk::ShiftInPlace;
using TreskTest::ArrayPtr;
using TreskTest::Bytes;
using TreskTest::bytesOf;
using TreskTest::ChunkKind;
using TreskTest::ChunkPtr;
using TreskTest::gatherKinds;
using TreskTest::makeNoise;
using TreskTest::shiftKinds;

constexpr unsigned long long Greatest = std::numeric_limits<unsigned long long>::max();
constexpr int CasesPerTest = 200;

/// Random numbers that are the same in each run.
class Dice {
 public:
  explicit Dice(unsigned int seed) : engine_(seed) {}
  /// From `least` to `most`, both included.
  unsigned long long number(unsigned long long least, unsigned long long most) {
    return std::uniform_int_distribution<unsigned long long>(least, most)(engine_);
  }
  int integer(int least, int most) { return std::uniform_int_distribution<int>(least, most)(engine_); }
  /// True once in `n` times.
  bool oneIn(unsigned long long n) { return number(1, n) == 1; }
  template <class T>
  const T& of(const std::vector<T>& values) {
    return values[static_cast<std::size_t>(number(0, values.size() - 1))];
  }
  std::uint32_t seed() { return static_cast<std::uint32_t>(number(0, 0xffffffff)); }
  std::mt19937& engine() { return engine_; }

 private:
  std::mt19937 engine_;
};

/// Random cases at a number of threads.
class TransformDifferentialTest : public TreskTest::RecordBalanceTest, public ::testing::WithParamInterface<int> {
 protected:
  TransformDifferentialTest() : threads_(GetParam()), dice(static_cast<unsigned int>(GetParam()) * 7919U) {}

 private:
  TreskTest::OpenMpThreads threads_;

 protected:
  Dice dice;
};
INSTANTIATE_TEST_SUITE_P(Threads, TransformDifferentialTest, ::testing::Values(1, 2, 7),
                         ::testing::PrintToStringParamName());

int smallOffset(Dice& dice) { return dice.integer(-40, 40); }

/// `n` different places below `nPlaces`, or any with repetitions.
std::vector<unsigned long long> places(Dice& dice, unsigned long long n, unsigned long long nPlaces, bool isDistinct) {
  std::vector<unsigned long long> result(static_cast<std::size_t>(isDistinct ? nPlaces : n));
  if (isDistinct) {
    std::iota(result.begin(), result.end(), 0ULL);
    std::shuffle(result.begin(), result.end(), dice.engine());
    result.resize(static_cast<std::size_t>(n));
  } else {
    for (unsigned long long& place : result) place = dice.number(0, nPlaces - 1);
    if (dice.oneIn(2)) std::sort(result.begin(), result.end());
  }
  return result;
}

/// A vector whose entries from `begin` on lead to the given places, by way of an offset that may be negative. All other
/// entries lead nowhere.
template <class IndexType>
std::vector<IndexType> indicesTo(Dice& dice, const std::vector<unsigned long long>& to, unsigned long long begin,
                                 int offset) {
  std::vector<IndexType> indices(static_cast<std::size_t>(begin + to.size() + dice.number(0, 3)),
                                 std::numeric_limits<IndexType>::max() / 2);
  for (std::size_t i = 0; i < to.size(); ++i)
    indices[static_cast<std::size_t>(begin) + i] =
        static_cast<IndexType>(static_cast<IndexType>(to[i]) - static_cast<IndexType>(offset));
  return indices;
}

template <class IndexType>
void runIndirection(Dice& dice) {
  const ChunkKind& kind = dice.of(gatherKinds());
  TreskTest::IndirectionArguments<IndexType> arguments;
  arguments.nComponents = dice.of(std::vector<unsigned long long>{0, 1, 1, 1, 2, 2, 3, 3, 4, 5, 6, 7, 11});
  const unsigned long long n = dice.oneIn(8) ? 0 : dice.oneIn(20) ? dice.number(500, 3000) : dice.number(1, 40);
  const bool isDstIndexed = dice.oneIn(2);
  const bool isSrcIndexed = dice.oneIn(2);
  // An item begins where it begins for both sides; consecutive places move it by the offset.
  arguments.begin = dice.number(0, 30);
  arguments.end = arguments.begin + n;
  if (n == 0 && dice.oneIn(3)) arguments.end = dice.number(0, arguments.begin);
  const auto leastOffset = -static_cast<int>(arguments.begin);
  arguments.dstOffset = isDstIndexed ? smallOffset(dice) : dice.integer(leastOffset, 10);
  arguments.srcOffset = isSrcIndexed ? smallOffset(dice) : dice.integer(leastOffset, 10);

  const auto nItems = [&](bool isIndexed, int offset) {
    const unsigned long long least =
        isIndexed ? n : n + static_cast<unsigned long long>(static_cast<int>(arguments.begin) + offset);
    return least + dice.number(n == 0 ? 0 : 1, 5);
  };
  const unsigned long long nDst = nItems(isDstIndexed, arguments.dstOffset);
  const unsigned long long nSrc = nItems(isSrcIndexed, arguments.srcOffset);
  const std::vector<IndexType> to =
      indicesTo<IndexType>(dice, places(dice, n, nDst, true), arguments.begin, arguments.dstOffset);
  const std::vector<IndexType> from =
      indicesTo<IndexType>(dice, places(dice, n, nSrc, false), arguments.begin, arguments.srcOffset);
  if (isDstIndexed) arguments.dstIndices = &to;
  if (isSrcIndexed) arguments.srcIndices = &from;

  unsigned long long nDstElements = nDst * arguments.nComponents + dice.number(0, 4);
  // A gather that fails its test.
  if (!isDstIndexed && isSrcIndexed && dice.oneIn(4)) {
    const unsigned long long needed =
        static_cast<unsigned long long>(static_cast<long long>(arguments.dstOffset)) + arguments.end;
    if (needed - 1 < 100000) nDstElements = dice.oneIn(2) ? needed - 1 : dice.number(0, needed - 1);
  }
  const ChunkKind& srcKind = dice.oneIn(20) ? dice.of(gatherKinds()) : kind;
  const ChunkPtr src = makeNoise(srcKind, nSrc * arguments.nComponents + dice.number(0, 4), dice.seed());
  const ChunkPtr dst = makeNoise(kind, nDstElements, dice.seed());
  const Bytes srcBefore = bytesOf(src);
  Bytes expected = bytesOf(dst);
  const bool expectedAnswer = srcKind.name() == kind.name() &&
                              TreskTest::referenceIndirection(expected, srcBefore, kind.elementSize, arguments);
  EXPECT_EQ(CreateIndirection(dst, src, arguments.dstIndices, arguments.srcIndices, arguments.begin, arguments.end,
                              arguments.dstOffset, arguments.srcOffset, arguments.nComponents),
            expectedAnswer);
  EXPECT_EQ(bytesOf(dst), expected) << kind.name() << " x " << arguments.nComponents << ", " << n << " items";
  EXPECT_EQ(bytesOf(src), srcBefore);
}

TEST_P(TransformDifferentialTest, Indirections) {
  for (int i = 0; i < 2 * CasesPerTest && !HasFailure(); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    i % 2 == 0 ? runIndirection<unsigned int>(dice) : runIndirection<unsigned long long>(dice);
  }
}

// -------------------------------------------------------------------------------------------------------------- samples

unsigned long long stride(Dice& dice) {
  return dice.oneIn(3) ? 1 : dice.oneIn(12) ? 0 : dice.oneIn(20) ? dice.number(0, Greatest) : dice.number(1, 8);
}

SampleParameters sampleParameters(Dice& dice) {
  SampleParameters parameters{};
  parameters.count = dice.oneIn(10) ? 0 : dice.oneIn(20) ? dice.number(1000, 4000) : dice.number(1, 40);
  parameters.destinationStride = stride(dice);
  parameters.sourceStride = stride(dice);
  const auto offset = [&dice] { return dice.oneIn(20) ? dice.number(0, Greatest) : dice.number(0, 20); };
  parameters.destinationOffset = offset();
  parameters.sourceOffset = offset();
  // Sums and products that wrap around to numbers that would fit.
  if (dice.oneIn(15)) parameters.destinationStride += 1ULL << dice.number(58, 63);
  if (dice.oneIn(15)) parameters.sourceStride += 1ULL << dice.number(58, 63);
  const bool isLong = parameters.sourceStride != 0 && parameters.destinationStride != 0 && dice.oneIn(15);
  if (isLong) parameters.count += 1ULL << dice.number(50, 63);
  return parameters;
}

/// As many elements as a side requires, modulo 2^64, and some more or fewer.
unsigned long long sampledSize(Dice& dice, unsigned long long stride, unsigned long long count,
                               unsigned long long offset) {
  const unsigned long long required = stride * count + offset;
  if (required > 40000) return dice.number(0, 50);
  switch (dice.number(0, 4)) {
    case 0:
      return required == 0 ? 0 : required - 1;
    case 1:
      return required + dice.number(1, 9);
    default:
      return required;
  }
}

TEST_P(TransformDifferentialTest, Samples) {
  for (int i = 0; i < 2 * CasesPerTest && !HasFailure(); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    const ChunkKind& kind = dice.of(gatherKinds());
    const ChunkKind& dstKind = dice.oneIn(20) ? dice.of(gatherKinds()) : kind;
    const SampleParameters p = sampleParameters(dice);
    const ChunkPtr src = makeNoise(kind, sampledSize(dice, p.sourceStride, p.count, p.sourceOffset), dice.seed());
    ChunkPtr dst =
        makeNoise(dstKind, sampledSize(dice, p.destinationStride, p.count, p.destinationOffset), dice.seed());
    const Bytes srcBefore = bytesOf(src);
    Bytes expected = bytesOf(dst);
    const bool isServed = kind.isSampled() && kind.name() == dstKind.name();
    if (isServed) TreskTest::referenceSample(expected, srcBefore, kind.elementSize, p);
    EXPECT_EQ(CreateSample(dst, src, p), isServed);
    EXPECT_EQ(bytesOf(dst), expected) << kind.name() << ": " << p.count << " from " << p.sourceOffset << " by "
                                      << p.sourceStride << " to " << p.destinationOffset << " by "
                                      << p.destinationStride;
    EXPECT_EQ(bytesOf(src), srcBefore);
  }
}

TEST_P(TransformDifferentialTest, SamplesIntoNewChunks) {
  for (int i = 0; i < CasesPerTest && !HasFailure(); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    const ChunkKind& kind = dice.of(gatherKinds());
    const SampleParameters p = sampleParameters(dice);
    const bool isCounted =
        p.destinationStride == 0 || p.count <= (Greatest - p.destinationOffset) / p.destinationStride;
    const unsigned long long size = p.destinationStride * p.count + p.destinationOffset;
    // Between what a test may ask of the memory and what a vector refuses.
    if (isCounted && size > 100000 && size < (1ULL << 63)) continue;
    const ChunkPtr src = makeNoise(kind, sampledSize(dice, p.sourceStride, p.count, p.sourceOffset), dice.seed());
    ChunkPtr dst;
    if (!kind.isSampled()) {
      EXPECT_FALSE(CreateSample(dst, src, p));
      EXPECT_FALSE(dst);
      continue;
    }
    if (!isCounted || size > 100000) {
      EXPECT_THROW(CreateSample(dst, src, p), std::length_error);
      EXPECT_FALSE(dst);
      continue;
    }
    ASSERT_TRUE(CreateSample(dst, src, p));
    ASSERT_EQ(dst->size(), size);
    // Elements of several numbers that nothing is copied to have no value; those of one are zero.
    Bytes expected = kind.nNumbers == 0 ? Bytes(size * kind.elementSize) : bytesOf(dst);
    TreskTest::referenceSample(expected, bytesOf(src), kind.elementSize, p);
    EXPECT_EQ(bytesOf(dst), expected) << kind.name();
  }
}

// --------------------------------------------------------------------------------------------------------------- shifts

/// A chunk of numbers; here and there one that is none, or as great as numbers get.
ChunkPtr makeNumbers(Dice& dice, const ChunkKind& kind, unsigned long long n) {
  const ChunkPtr chunk = kind.make(n);
  Bytes bytes(TreskTest::nBytes(*chunk));
  const auto fill = [&]<class F>(F) {
    for (std::size_t i = 0; i < bytes.size() / sizeof(F); ++i) {
      F number = static_cast<F>(std::normal_distribution<double>()(dice.engine()));
      number *= static_cast<F>(1ULL << dice.number(0, 40));
      if (dice.oneIn(100)) number *= std::numeric_limits<F>::max();
      if (dice.oneIn(200)) number = std::numeric_limits<F>::quiet_NaN();
      if (dice.oneIn(100)) number = std::numeric_limits<F>::denorm_min();
      std::memcpy(bytes.data() + i * sizeof(F), &number, sizeof(F));
    }
  };
  kind.primitive == "double" ? fill(0.0) : fill(0.0F);
  TreskTest::setBytes(chunk, bytes);
  return chunk;
}

const ChunkKind& shiftKind(Dice& dice, int n) {
  const ChunkKind& kind = dice.of(shiftKinds());
  return n == 0 || dice.oneIn(20) || kind.nNumbers == n ? kind : shiftKind(dice, n);
}

TEST_P(TransformDifferentialTest, Shifts) {
  for (int i = 0; i < CasesPerTest && !HasFailure(); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    const ChunkKind& srcKind = shiftKind(dice, 0);
    const ChunkKind& dstKind = shiftKind(dice, srcKind.nNumbers);
    const ChunkKind& byKind = shiftKind(dice, srcKind.nNumbers);
    const unsigned long long n = dice.oneIn(10) ? 0 : dice.number(1, 70);
    const ChunkPtr src = makeNumbers(dice, srcKind, n);
    const bool isOneChunk = dice.oneIn(4);
    const ChunkPtr dst = isOneChunk ? src : makeNumbers(dice, dstKind, n + dice.number(0, 3));
    const ChunkPtr shift = makeNumbers(dice, byKind, dice.oneIn(10) ? dice.number(0, 3) : 1);
    const ChunkKind& toKind = isOneChunk ? srcKind : dstKind;
    const Bytes srcBefore = bytesOf(src);
    Bytes expected = bytesOf(dst);
    const bool isServed = TreskTest::referenceShift(toKind, expected, srcKind, srcBefore, byKind, bytesOf(shift));
    EXPECT_EQ(Shift(dst, src, shift), isServed);
    EXPECT_TRUE(TreskTest::sameNumbers(toKind, bytesOf(dst), expected))
        << toKind.name() << " = " << srcKind.name() << " + " << byKind.name();
    EXPECT_TRUE(isOneChunk || bytesOf(src) == srcBefore);
  }
}

TEST_P(TransformDifferentialTest, ShiftsInPlace) {
  for (int i = 0; i < CasesPerTest && !HasFailure(); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    const ChunkKind& kind = shiftKind(dice, 0);
    const ChunkKind& byKind = shiftKind(dice, kind.nNumbers);
    const ChunkPtr data = makeNumbers(dice, kind, dice.oneIn(10) ? 0 : dice.number(1, 70));
    const ChunkPtr shift = makeNumbers(dice, byKind, dice.oneIn(10) ? dice.number(0, 3) : 1);
    Bytes expected = bytesOf(data);
    const bool isServed = TreskTest::referenceShiftInPlace(kind, expected, byKind, bytesOf(shift));
    EXPECT_EQ(ShiftInPlace(data, shift), isServed);
    EXPECT_TRUE(TreskTest::sameNumbers(kind, bytesOf(data), expected)) << kind.name() << " + " << byKind.name();
  }
}

// ---------------------------------------------------------------------------------------------------- arrays and views

/// A slice of an array of samples, or all of it.
template <class T>
MemBasePtr makeView(Dice& dice) {
  const ArrayPtr<3, T> array =
      TreskTest::makeSamples<3, T>(MultiIndex<3>(dice.number(1, 5), dice.number(1, 5), dice.number(1, 5)));
  if (dice.oneIn(3)) return array;
  const ArrayPtr<2, T> plane(array->getSlice(dice.number(0, array->getIndexSize()[2] - 1), CreatorWeakPtr()));
  if (dice.oneIn(2)) return plane;
  return plane->getSlice(dice.number(0, plane->getIndexSize()[1] - 1), CreatorWeakPtr());
}

template <class IndexType, class T>
void runPull(Dice& dice) {
  const MemBasePtr source = makeView<T>(dice);
  const Bytes storage = bytesOf(source->getChunk());
  const unsigned long long nComponents = dice.number(0, 3);
  const unsigned long long nItems = source->getChunk()->size() / std::max(nComponents, 1ULL);
  const StrongPtr<Chunk<IndexType>, ChunkBase> indices(new Chunk<IndexType>(nItems == 0 ? 0 : dice.number(0, 12)));
  for (IndexType& index : indices->vector()) index = static_cast<IndexType>(dice.number(0, nItems - 1));
  // Room for all items, or for fewer elements than there are indices.
  const unsigned long long nIndices = indices->vector().size();
  const bool isTooSmall = nIndices > 0 && dice.oneIn(5);
  const unsigned long long size =
      isTooSmall ? dice.number(0, nIndices - 1) : nIndices * std::max(nComponents, 1ULL) + dice.number(0, 3);
  const MemBasePtr pulled = pullData(source, indices, DynamicSize{size}, nComponents);
  ASSERT_EQ(static_cast<bool>(pulled), !isTooSmall);
  if (isTooSmall) return;
  ASSERT_FALSE(pulled->getSize() != DynamicSize{size});
  Bytes expected = bytesOf(pulled->getChunk());
  if constexpr (std::is_arithmetic_v<T>) std::fill(expected.begin(), expected.end(), static_cast<unsigned char>(0));
  const std::vector<IndexType> plain(indices->vector());
  EXPECT_TRUE(TreskTest::referenceIndirection<IndexType>(expected, storage, sizeof(T),
                                                         {nullptr, &plain, 0, nIndices, 0, 0, nComponents}));
  EXPECT_EQ(bytesOf(pulled->getChunk()), expected);
}

TEST_P(TransformDifferentialTest, PullsFromArraysAndViews) {
  using V = Quorvel::FixedArray<double, 3>;
  for (int i = 0; i < CasesPerTest / 4 && !HasFailure(); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    runPull<unsigned int, double>(dice);
    runPull<unsigned long long, double>(dice);
    runPull<unsigned int, V>(dice);
    runPull<unsigned long long, unsigned int>(dice);
  }
}

TEST_P(TransformDifferentialTest, SamplesOfArraysAndViews) {
  for (int i = 0; i < CasesPerTest / 2 && !HasFailure(); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    const MemBasePtr source = makeView<double>(dice);
    const SampleParameters p{dice.number(0, 12), dice.number(0, 4), dice.number(1, 3), dice.number(0, 9),
                             dice.number(0, 4)};
    const unsigned long long size = sampledSize(dice, p.destinationStride, p.count, p.destinationOffset);
    Bytes expected(size * sizeof(double));
    TreskTest::referenceSample(expected, bytesOf(source->getChunk()), sizeof(double), p);
    const MemBasePtr made = CreateSample(source, size, p, CreatorWeakPtr());
    ASSERT_TRUE(made);
    EXPECT_FALSE(made->getSize() != DynamicSize{size});
    EXPECT_EQ(bytesOf(made->getChunk()), expected);

    const MemBasePtr destination = makeView<double>(dice);
    expected = bytesOf(destination->getChunk());
    TreskTest::referenceSample(expected, bytesOf(source->getChunk()), sizeof(double), p);
    EXPECT_TRUE(CreateSample(destination, source, p));
    EXPECT_EQ(bytesOf(destination->getChunk()), expected);
  }
}

TEST_P(TransformDifferentialTest, ShiftsOfViews) {
  const ChunkKind& kind = shiftKinds()[2];
  ASSERT_EQ(kind.name(), "FixedArray<double, 3>");
  for (int i = 0; i < CasesPerTest / 4 && !HasFailure(); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    const MemBasePtr view = makeView<Quorvel::FixedArray<double, 3>>(dice);
    const ChunkPtr shift = makeNumbers(dice, kind, 1);
    const Bytes before = bytesOf(view->getChunk());
    Bytes expected = before;
    ASSERT_TRUE(TreskTest::referenceShift(kind, expected, kind, before, kind, bytesOf(shift)));
    EXPECT_TRUE(Shift(view, view, shift));
    EXPECT_TRUE(TreskTest::sameNumbers(kind, bytesOf(view->getChunk()), expected));
  }
}

}  // namespace
