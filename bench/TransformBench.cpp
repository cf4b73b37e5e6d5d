// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Gathering, scattering, sampling and shifting beside raw loops with the same threads.

#include "Harness.hpp"

#include <tresk/field/CreateIndirection.hpp>
#include <tresk/field/CreateSample.hpp>
#include <tresk/field/Shift.hpp>
#include <tresk/foundation/Chunk.hpp>
#include <tresk/foundation/FixedArray.hpp>

#include <algorithm>
#include <cstring>
#include <omp.h>
#include <random>

namespace TreskBench {
namespace {

using Ostrel::Chunk;
using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;
template <class F>
using Triple = Quorvel::FixedArray<F, 3>;

constexpr unsigned long long Count = 1ULL << 24;
constexpr unsigned long long Triples = 1ULL << 23;

/// A chunk that lives as long as the program, with every page written.
template <class T, int Which>
const ChunkPtr& chunkOf(unsigned long long n) {
  static const ChunkPtr chunk = [n] {
    auto* const made = new Chunk<T>(n);
    std::memset(static_cast<void*>(made->data()), Which, n * sizeof(T));
    return ChunkPtr(made);
  }();
  return chunk;
}

template <class T>
T* dataOf(const ChunkPtr& chunk) {
  return static_cast<T*>(chunk->data());
}

/// A permutation, in random or in ascending order.
template <class Index, bool IsSorted, unsigned long long N = Count>
const std::vector<Index>& indices() {
  static const std::vector<Index> all = [] {
    std::vector<Index> made(N);
    for (unsigned long long i = 0; i < N; ++i) made[i] = static_cast<Index>(i);
    if (!IsSorted) std::shuffle(made.begin(), made.end(), std::mt19937_64(7));
    return made;
  }();
  return all;
}

using Run = void (*)();

/// A row of two functions, on one thread and on two, and a row of the first on two threads against itself on one.
/// \param scaling target of the last row; 0 where one thread takes most of the bandwidth of the memory
void addThreadRows(const std::string& name, double scaling, Run value, Run raw) {
  const auto side = [](Run run, int nThreads) {
    return [run, nThreads](benchmark::State& state) {
      omp_set_num_threads(nThreads);
      run();
      for (auto _ : state) run();
    };
  };
  addRow("transform/" + name, 1.05, side(value, 1), side(raw, 1));
  addRow("transform/" + name + " on 2", 1.05, side(value, 2), side(raw, 2));
  addRow("transform/" + name + " 2 to 1", scaling, side(value, 2), side(value, 1));
}

template <class Index, bool IsSorted>
void gather() {
  Tresk::CreateIndirection(chunkOf<double, 1>(Count), chunkOf<double, 2>(Count), nullptr, &indices<Index, IsSorted>(),
                           0, Count, 0, 0, 1);
}
template <class Index, bool IsSorted>
void gatherRaw() {
  auto* const dst = dataOf<double>(chunkOf<double, 1>(Count));
  const auto* const src = dataOf<double>(chunkOf<double, 2>(Count));
  const Index* const index = indices<Index, IsSorted>().data();
#pragma omp parallel for schedule(static)
  for (unsigned long long i = 0; i < Count; ++i) dst[i] = src[index[i]];
  benchmark::ClobberMemory();
}

void gatherBlocks() {
  Tresk::CreateIndirection(chunkOf<double, 1>(Count), chunkOf<double, 2>(Count), nullptr,
                           &indices<unsigned int, false, Count / 4>(), 0, Count / 4, 0, 0, 3);
}
void gatherBlocksRaw() {
  auto* const dst = dataOf<double>(chunkOf<double, 1>(Count));
  const auto* const src = dataOf<double>(chunkOf<double, 2>(Count));
  const unsigned int* const index = indices<unsigned int, false, Count / 4>().data();
#pragma omp parallel for schedule(static)
  for (unsigned long long i = 0; i < Count / 4; ++i)
    for (unsigned long long k = 0; k < 3; ++k) dst[3 * i + k] = src[3ULL * index[i] + k];
  benchmark::ClobberMemory();
}

void scatter() {
  Tresk::CreateIndirection(chunkOf<double, 1>(Count), chunkOf<double, 2>(Count), &indices<unsigned int, false>(),
                           nullptr, 0, Count, 0, 0, 1);
}
void scatterRaw() {
  auto* const dst = dataOf<double>(chunkOf<double, 1>(Count));
  const auto* const src = dataOf<double>(chunkOf<double, 2>(Count));
  const unsigned int* const index = indices<unsigned int, false>().data();
#pragma omp parallel for schedule(static)
  for (unsigned long long i = 0; i < Count; ++i) dst[index[i]] = src[i];
  benchmark::ClobberMemory();
}

template <unsigned long long To, unsigned long long From, unsigned long long N>
void sample() {
  ChunkPtr dst = chunkOf<double, 1>(Count);
  Tresk::CreateSample(dst, chunkOf<double, 2>(Count), {N, 0, To, 0, From});
}
template <unsigned long long To, unsigned long long From, unsigned long long N>
void sampleRaw() {
  auto* const dst = dataOf<double>(chunkOf<double, 1>(Count));
  const auto* const src = dataOf<double>(chunkOf<double, 2>(Count));
  if constexpr (To == 1 && From == 1) {
#pragma omp parallel
    {
      const auto t = static_cast<unsigned long long>(omp_get_num_threads());
      const auto k = static_cast<unsigned long long>(omp_get_thread_num());
      std::memcpy(dst + N / t * k, src + N / t * k, N / t * sizeof(double));
    }
  } else {
#pragma omp parallel for schedule(static)
    for (unsigned long long i = 0; i < N; ++i) dst[To * i] = src[From * i];
  }
  benchmark::ClobberMemory();
}

void sampleBytes() {
  ChunkPtr dst = chunkOf<unsigned char, 1>(Count);
  Tresk::CreateSample(dst, chunkOf<unsigned char, 2>(Count), {Count / 2, 0, 1, 0, 2});
}
/// With strides that the compiler does not know, as in the library: known ones become vector code.
void sampleBytesRaw() {
  static volatile unsigned long long strides[2] = {1, 2};
  const unsigned long long to = strides[0];
  const unsigned long long from = strides[1];
  auto* const dst = dataOf<unsigned char>(chunkOf<unsigned char, 1>(Count));
  const auto* const src = dataOf<unsigned char>(chunkOf<unsigned char, 2>(Count));
#pragma omp parallel for schedule(static)
  for (unsigned long long i = 0; i < Count / 2; ++i) dst[to * i] = src[from * i];
  benchmark::ClobberMemory();
}

template <class F, bool IsInPlace>
void shift() {
  static const ChunkPtr constant(new Chunk<Triple<F>>(1));
  *dataOf<Triple<F>>(constant) = Triple<F>(F(1e-30), F(2e-30), F(3e-30));
  if constexpr (IsInPlace)
    Tresk::ShiftInPlace(chunkOf<Triple<F>, 1>(Triples), constant);
  else
    Tresk::Shift(chunkOf<Triple<F>, 1>(Triples), chunkOf<Triple<F>, 2>(Triples), constant);
}
template <class F, bool IsInPlace>
void shiftRaw() {
  auto* const dst = dataOf<F>(chunkOf<Triple<F>, 1>(Triples));
  const F* const src = IsInPlace ? dst : dataOf<F>(chunkOf<Triple<F>, 2>(Triples));
  const F x = F(1e-30);
  const F y = F(2e-30);
  const F z = F(3e-30);
  for (unsigned long long i = 0; i < 3 * Triples; i += 3) {
    dst[i] = src[i] + x;
    dst[i + 1] = src[i + 1] + y;
    dst[i + 2] = src[i + 2] + z;
  }
  benchmark::ClobberMemory();
}

/// The search for the last of 60 types, and nothing to copy.
using LastType = Quorvel::FixedArray<char, 6>;

void dispatch() {
  Tresk::CreateIndirection(chunkOf<LastType, 1>(1), chunkOf<LastType, 2>(1),
                           static_cast<const std::vector<unsigned int>*>(nullptr), nullptr, 0, 0, 0, 0, 1);
}

template <class T>
bool areOf(const ChunkPtr& dst, const ChunkPtr& src) {
  const auto* const to = dynamic_cast<const Ostrel::TypedChunkBase<T>*>(dst.get());
  const auto* const from = dynamic_cast<const Ostrel::TypedChunkBase<T>*>(src.get());
  return to != nullptr && from != nullptr && to->vector().size() == from->vector().size();
}
template <class P>
bool areOfPrimitive(const ChunkPtr& dst, const ChunkPtr& src) {
  using Quorvel::FixedArray;
  return areOf<P>(dst, src) || areOf<FixedArray<P, 2>>(dst, src) || areOf<FixedArray<P, 3>>(dst, src) ||
         areOf<FixedArray<P, 4>>(dst, src) || areOf<FixedArray<P, 5>>(dst, src) || areOf<FixedArray<P, 6>>(dst, src);
}
void dispatchRaw() {
  const ChunkPtr dst = chunkOf<LastType, 1>(1);
  const ChunkPtr src = chunkOf<LastType, 2>(1);
  const bool isFound = areOfPrimitive<float>(dst, src) || areOfPrimitive<double>(dst, src) ||
                       areOfPrimitive<int>(dst, src) || areOfPrimitive<short>(dst, src) ||
                       areOfPrimitive<signed char>(dst, src) || areOfPrimitive<unsigned int>(dst, src) ||
                       areOfPrimitive<unsigned long long>(dst, src) || areOfPrimitive<unsigned short>(dst, src) ||
                       areOfPrimitive<unsigned char>(dst, src) || areOfPrimitive<char>(dst, src);
  benchmark::DoNotOptimize(isFound);
}

/// The casts to the one type that the chunks have, where it is known.
void dispatchBare() {
  const bool isFound = areOf<LastType>(chunkOf<LastType, 1>(1), chunkOf<LastType, 2>(1));
  benchmark::DoNotOptimize(isFound);
}

void addPlainRow(const std::string& name, double target, Run value, Run raw, Run bare = nullptr) {
  const auto side = [](Run run) {
    return [run](benchmark::State& state) {
      run();
      for (auto _ : state) run();
    };
  };
  addRow("transform/" + name, target, side(value), side(raw), bare == nullptr ? Side() : side(bare));
}

const Rows rows([] {
  addThreadRows("gather 32 bit", 0.60, gather<unsigned int, false>, gatherRaw<unsigned int, false>);
  addThreadRows("gather 32 bit sorted", 0, gather<unsigned int, true>, gatherRaw<unsigned int, true>);
  addThreadRows("gather 64 bit", 0.60, gather<unsigned long long, false>, gatherRaw<unsigned long long, false>);
  addThreadRows("gather 64 bit sorted", 0, gather<unsigned long long, true>, gatherRaw<unsigned long long, true>);
  addThreadRows("gather blocks of 3", 0.60, gatherBlocks, gatherBlocksRaw);
  addThreadRows("scatter 32 bit", 0.60, scatter, scatterRaw);
  addThreadRows("sample 1:1", 0, sample<1, 1, Count>, sampleRaw<1, 1, Count>);
  addThreadRows("sample 1:2", 0, sample<1, 2, Count / 2>, sampleRaw<1, 2, Count / 2>);
  addThreadRows("sample 7:7", 0, sample<7, 7, Count / 7>, sampleRaw<7, 7, Count / 7>);
  addThreadRows("sample 1:2 of bytes", 0, sampleBytes, sampleBytesRaw);
  addPlainRow("dispatch", 1.10, dispatch, dispatchRaw, dispatchBare);
  addPlainRow("shift double", 1.05, shift<double, false>, shiftRaw<double, false>);
  addPlainRow("shift double in place", 1.05, shift<double, true>, shiftRaw<double, true>);
  addPlainRow("shift float", 1.05, shift<float, false>, shiftRaw<float, false>);
  addPlainRow("shift float in place", 1.05, shift<float, true>, shiftRaw<float, true>);
});

}  // namespace
}  // namespace TreskBench
