// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreateIndirection.hpp>
#include <tresk/field/CreateSample.hpp>
#include <tresk/field/Shift.hpp>

#include <field/ChunkKinds.hpp>
#include <field/TransformReference.hpp>

#include "FuzzSupport.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <vector>

/// \file
/// Any arguments for the copies between chunks and the sums over them, against a plain reference. What callers owe,
/// such as places inside their chunks, is made good here; all else goes in as it comes.

namespace {

using TreskFuzz::demand;
using TreskFuzz::number;
using TreskTest::Bytes;
using TreskTest::bytesOf;
using TreskTest::ChunkKind;
using TreskTest::ChunkPtr;

constexpr unsigned long long Greatest = std::numeric_limits<unsigned long long>::max();
constexpr unsigned long long MostElements = 64;

const ChunkKind& kindOf(FuzzedDataProvider& data, const std::vector<ChunkKind>& kinds) {
  return kinds[data.ConsumeIntegralInRange<std::size_t>(0, kinds.size() - 1)];
}

ChunkPtr makeChunk(FuzzedDataProvider& data, const ChunkKind& kind, unsigned long long nElements) {
  return TreskTest::makeNoise(kind, nElements, data.ConsumeIntegral<std::uint16_t>());
}

ChunkPtr makeChunk(FuzzedDataProvider& data, const ChunkKind& kind) {
  return makeChunk(data, kind, data.ConsumeIntegralInRange<unsigned long long>(0, MostElements));
}

/// Either of the two chunks at times none at all.
bool isOneMissing(FuzzedDataProvider& data, ChunkPtr& a, ChunkPtr& b) {
  switch (data.ConsumeIntegralInRange<int>(0, 31)) {
    case 0:
      a.reset();
      return true;
    case 1:
      b.reset();
      return true;
    default:
      return false;
  }
}

// --------------------------------------------------------------------------------------------------------- indirection

/// One side of an indirection.
template <class IndexType>
struct Side {
  std::vector<IndexType> indices;
  bool isIndexed = false;
  int offset = 0;
  unsigned long long nItems = 0;

  explicit Side(FuzzedDataProvider& data) : isIndexed(data.ConsumeBool()), offset(data.ConsumeIntegral<int>()) {
    if (data.ConsumeIntegralInRange<int>(0, 3) != 0) offset %= 100;
    if (!isIndexed) return;
    indices.resize(data.ConsumeIntegralInRange<std::size_t>(0, 40));
    for (IndexType& index : indices) index = data.ConsumeIntegral<IndexType>();
  }

  const std::vector<IndexType>* given() const { return isIndexed ? &indices : nullptr; }

  /// Leads all items of a range into the chunk, to different places if they are written.
  void makeLegal(unsigned long long begin, unsigned long long end, bool isWritten) {
    if (!isIndexed) {
      const unsigned long long spare = nItems - (end - begin);
      const auto start = static_cast<unsigned long long>(static_cast<long long>(offset)) + begin;
      if (start > spare) offset = static_cast<int>(start % (spare + 1)) - static_cast<int>(begin);
      return;
    }
    std::vector<bool> isTaken(static_cast<std::size_t>(nItems));
    for (auto i = static_cast<std::size_t>(begin); i < end; ++i) {
      std::size_t place =
          static_cast<std::size_t>(static_cast<IndexType>(indices[i] + static_cast<IndexType>(offset))) %
          isTaken.size();
      while (isWritten && isTaken[place]) place = (place + 1) % isTaken.size();
      isTaken[place] = true;
      indices[i] = static_cast<IndexType>(static_cast<IndexType>(place) - static_cast<IndexType>(offset));
    }
  }
};

template <class IndexType>
void runIndirection(FuzzedDataProvider& data) {
  const ChunkKind& kind = kindOf(data, TreskTest::gatherKinds());
  const ChunkKind& srcKind =
      data.ConsumeIntegralInRange<int>(0, 15) == 0 ? kindOf(data, TreskTest::gatherKinds()) : kind;
  ChunkPtr dst = makeChunk(data, kind);
  const bool isOneChunk = &kind == &srcKind && data.ConsumeIntegralInRange<int>(0, 7) == 0;
  ChunkPtr src = isOneChunk ? dst : makeChunk(data, srcKind);
  Side<IndexType> to(data);
  Side<IndexType> from(data);
  TreskTest::IndirectionArguments<IndexType> arguments;
  arguments.begin = number(data, 8);
  arguments.end = number(data, 48);
  arguments.nComponents = number(data, 8);
  const bool isMissing = isOneMissing(data, dst, src);
  const bool isServed = !isMissing && kind.name() == srcKind.name();

  if (isServed && arguments.begin < arguments.end) {
    // Something is copied: items must be there, and indices for them.
    if (arguments.nComponents > MostElements) arguments.nComponents %= MostElements + 1;
    const auto nItems = [&arguments](const ChunkPtr& chunk) {
      return arguments.nComponents == 0 ? MostElements : chunk->size() / arguments.nComponents;
    };
    to.nItems = nItems(dst);
    from.nItems = nItems(src);
    // Copies within a chunk are copies of items onto themselves, as no other place may be read and written.
    if (isOneChunk) from = to;
    arguments.begin %= 1U << 20;
    for (const Side<IndexType>* side : {&to, &from})
      if (side->isIndexed) arguments.end = std::min<unsigned long long>(arguments.end, side->indices.size());
    arguments.end = std::min(arguments.end, arguments.begin + std::min(to.nItems, from.nItems));
    if (arguments.begin < arguments.end) {
      to.makeLegal(arguments.begin, arguments.end, true);
      if (isOneChunk)
        from = to;
      else
        from.makeLegal(arguments.begin, arguments.end, false);
    }
  }
  arguments.dstIndices = to.given();
  arguments.srcIndices = from.given();
  arguments.dstOffset = to.offset;
  arguments.srcOffset = from.offset;

  const Bytes source = src ? bytesOf(src) : Bytes();
  Bytes expected = dst ? bytesOf(dst) : Bytes();
  const bool answer = isServed && TreskTest::referenceIndirection(expected, source, kind.elementSize, arguments);
  demand(Tresk::CreateIndirection(dst, src, arguments.dstIndices, arguments.srcIndices, arguments.begin, arguments.end,
                                  arguments.dstOffset, arguments.srcOffset, arguments.nComponents) == answer,
         "answer of CreateIndirection");
  demand(!dst || bytesOf(dst) == expected, "destination of CreateIndirection");
  demand(!src || isOneChunk || bytesOf(src) == source, "source of CreateIndirection");
}

// -------------------------------------------------------------------------------------------------------------- sample

void runSample(FuzzedDataProvider& data) {
  const ChunkKind& kind = kindOf(data, TreskTest::gatherKinds());
  const ChunkKind& dstKind =
      data.ConsumeIntegralInRange<int>(0, 15) == 0 ? kindOf(data, TreskTest::gatherKinds()) : kind;
  const ChunkPtr src = data.ConsumeIntegralInRange<int>(0, 31) == 0 ? ChunkPtr() : makeChunk(data, kind);
  const bool isMade = data.ConsumeIntegralInRange<int>(0, 3) == 0;
  ChunkPtr dst = isMade ? ChunkPtr() : makeChunk(data, dstKind);
  Tresk::SampleParameters p{number(data, 24), number(data, 24), number(data, 6), number(data, 24), number(data, 6)};
  // Without strides there is no limit to the count but the time that it takes.
  if (p.destinationStride == 0 && p.sourceStride == 0) p.count %= 1000;

  bool isServed = src && kind.isSampled();
  if (isMade && isServed) {
    const bool isCounted =
        p.destinationStride == 0 || p.count <= (Greatest - p.destinationOffset) / p.destinationStride;
    const unsigned long long size = p.destinationStride * p.count + p.destinationOffset;
    const unsigned long long mostOfVector = (Greatest / 2) / kind.elementSize;
    if (!isCounted || size > mostOfVector) {
      bool isRefused = false;
      try {
        Tresk::CreateSample(dst, src, p);
      } catch (const std::length_error&) {
        isRefused = true;
      }
      demand(isRefused && !dst, "length error of CreateSample");
      return;
    }
    if (size > 4096) return;  // a question to the memory, and none to the library
    demand(Tresk::CreateSample(dst, src, p), "answer of CreateSample with a new chunk");
    demand(dst && dst->size() == size && dst->elementType() == src->elementType(), "new chunk of CreateSample");
    // The elements of several numbers that nothing is copied to have no value.
    Bytes expected = kind.nNumbers == 0 ? Bytes(size * kind.elementSize) : bytesOf(dst);
    TreskTest::referenceSample(expected, bytesOf(src), kind.elementSize, p);
    demand(bytesOf(dst) == expected, "contents of the new chunk of CreateSample");
    return;
  }
  isServed = isServed && kind.name() == dstKind.name();
  const Bytes source = src ? bytesOf(src) : Bytes();
  Bytes expected = dst ? bytesOf(dst) : Bytes();
  if (isServed) TreskTest::referenceSample(expected, source, kind.elementSize, p);
  demand(Tresk::CreateSample(dst, src, p) == isServed, "answer of CreateSample");
  demand(isMade ? !dst : bytesOf(dst) == expected, "destination of CreateSample");
  demand(!src || bytesOf(src) == source, "source of CreateSample");
}

// -------------------------------------------------------------------------------------------------------------- shifts

/// A kind of vector that is shifted, most often with the components of another one.
const ChunkKind& shiftKind(FuzzedDataProvider& data, const ChunkKind& like) {
  const ChunkKind& kind = kindOf(data, TreskTest::shiftKinds());
  if (data.ConsumeIntegralInRange<int>(0, 7) == 0) return kind;
  for (const ChunkKind& other : TreskTest::shiftKinds())
    if (other.primitive == kind.primitive && other.nNumbers == like.nNumbers) return other;
  return kind;
}

ChunkPtr makeShift(FuzzedDataProvider& data, const ChunkKind& kind) {
  const bool isOne = data.ConsumeIntegralInRange<int>(0, 7) != 0;
  return makeChunk(data, kind, isOne ? 1 : data.ConsumeIntegralInRange<unsigned long long>(0, 3));
}

void runShift(FuzzedDataProvider& data) {
  const ChunkKind& srcKind = kindOf(data, TreskTest::shiftKinds());
  const ChunkKind& byKind = shiftKind(data, srcKind);
  const bool isOneChunk = data.ConsumeIntegralInRange<int>(0, 3) == 0;
  const ChunkKind& dstKind = isOneChunk ? srcKind : shiftKind(data, srcKind);
  ChunkPtr src = makeChunk(data, srcKind);
  // The destination holds as many elements as the source at least.
  ChunkPtr dst = isOneChunk ? src : makeChunk(data, dstKind, src->size() + data.ConsumeIntegralInRange<unsigned>(0, 2));
  ChunkPtr shift = makeShift(data, byKind);
  const bool isMissing = isOneMissing(data, src, shift);
  const Bytes source = src ? bytesOf(src) : Bytes();
  Bytes expected = bytesOf(dst);
  const bool answer =
      !isMissing && TreskTest::referenceShift(dstKind, expected, srcKind, source, byKind, bytesOf(shift));
  demand(Tresk::Shift(dst, src, shift) == answer, "answer of Shift");
  demand(TreskTest::sameNumbers(dstKind, bytesOf(dst), expected), "destination of Shift");
  demand(!src || isOneChunk || bytesOf(src) == source, "source of Shift");
}

void runShiftInPlace(FuzzedDataProvider& data) {
  const ChunkKind& kind = kindOf(data, TreskTest::shiftKinds());
  const ChunkKind& byKind = shiftKind(data, kind);
  ChunkPtr chunk = makeChunk(data, kind);
  ChunkPtr shift = makeShift(data, byKind);
  const bool isMissing = isOneMissing(data, chunk, shift);
  Bytes expected = chunk ? bytesOf(chunk) : Bytes();
  const bool answer = !isMissing && TreskTest::referenceShiftInPlace(kind, expected, byKind, bytesOf(shift));
  demand(Tresk::ShiftInPlace(chunk, shift) == answer, "answer of ShiftInPlace");
  demand(!chunk || TreskTest::sameNumbers(kind, bytesOf(chunk), expected), "data of ShiftInPlace");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t n) {
  FuzzedDataProvider data(bytes, n);
  switch (data.ConsumeIntegralInRange<int>(0, 5)) {
    case 0:
      runIndirection<unsigned int>(data);
      break;
    case 1:
      runIndirection<unsigned long long>(data);
      break;
    case 2:
    case 3:
      runSample(data);
      break;
    case 4:
      runShift(data);
      break;
    default:
      runShiftInPlace(data);
  }
  return 0;
}
