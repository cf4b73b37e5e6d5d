// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A small user of the library: a chunk of numbers, and a counted class of its own.
#include <tresk/foundation/Chunks.hpp>
#include <tresk/foundation/Pointers.hpp>

#include <cstdio>
#include <numeric>

namespace {

class Station : public Ostrel::ReferenceBase<Station> {
 public:
  Station() : ReferenceBase<Station>(this) {}
  ~Station() override { std::puts("the last one is gone"); }
};

}  // namespace

int main() {
  const Ostrel::StrongPtr<Ostrel::Chunk<double>, Ostrel::ChunkBase> chunk(new Ostrel::Chunk<double>(1000));
  std::vector<double>& values = chunk->vector();
  std::iota(values.begin(), values.end(), 0.0);
  std::printf("%llu elements of %d bytes, sum %g\n", chunk->size(), chunk->elementSize(),
              std::accumulate(values.begin(), values.end(), 0.0));

  Ostrel::StrongPtr<Station, Station> first(new Station);
  Ostrel::StrongPtr<Station, Station> second = first;
  const int before = second.strongCount();
  first.reset();
  std::printf("%d holders, then %d\n", before, second.strongCount());
  second.reset();
  return 0;
}
