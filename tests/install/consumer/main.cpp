// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A small user of the library: versions, a chunk of numbers and a sample of it, arrays of every element type, and a
// counted class of its own.
#include <tresk/field/CreateSample.hpp>
#include <tresk/field/DynamicSize.hpp>
#include <tresk/field/ElementTypes.hpp>
#include <tresk/field/MemBase.hpp>
#include <tresk/field/TreskTypeBase.hpp>
#include <tresk/field/Version.hpp>
#include <tresk/foundation/Chunks.hpp>
#include <tresk/foundation/Pointers.hpp>

#include <cstdio>
#include <numeric>

namespace {

using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;
using NumbersPtr = Ostrel::StrongPtr<Ostrel::Chunk<double>, Ostrel::ChunkBase>;

class Station : public Ostrel::ReferenceBase<Station> {
 public:
  Station() : ReferenceBase<Station>(this) {}
  ~Station() override { std::puts("the last one is gone"); }
};

double sumOf(const std::vector<double>& values) { return std::accumulate(values.begin(), values.end(), 0.0); }

// The types are looked for in the registry: nothing here refers to their arrays by name.
bool hasArrays(const std::type_info& type) {
  const Tresk::TreskTypePtr record(Tresk::TreskTypeBase::find(type));
  if (!record) return false;
  const Tresk::MemBasePtr array = Tresk::MemBase::create(record, Tresk::DynamicSize{2, 3}, typeid(void));
  return array && array->memsize() == 6 * record->memSize;
}

template <class... Types>
void countTypes(Tresk::TypeSequence<Types...>) {
  const int n = (... + static_cast<int>(hasArrays(typeid(Types))));
  std::printf("%d of %d element types have arrays\n", n, static_cast<int>(sizeof...(Types)));
}

}  // namespace

int main() {
  std::printf("version %s, library %s\n", Tresk::version(), Tresk::libraryVersion());

  const NumbersPtr chunk(new Ostrel::Chunk<double>(1000));
  std::iota(chunk->vector().begin(), chunk->vector().end(), 0.0);
  std::printf("%llu elements of %d bytes, sum %g\n", chunk->size(), chunk->elementSize(), sumOf(chunk->vector()));

  ChunkPtr sample;
  Tresk::CreateSample(sample, ChunkPtr(chunk), {100, 0, 1, 0, 10});
  const NumbersPtr tenths(sample);
  std::printf("each tenth: %llu elements, sum %g\n", tenths->size(), sumOf(tenths->vector()));

  countTypes(Tresk::ElementTypeSequence());

  Ostrel::StrongPtr<Station, Station> first(new Station);
  Ostrel::StrongPtr<Station, Station> second = first;
  const int before = second.strongCount();
  first.reset();
  std::printf("%d holders, then %d\n", before, second.strongCount());
  second.reset();
  return 0;
}
