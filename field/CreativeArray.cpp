// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreativeArray.hpp>

#include <tresk/foundation/Profiler.hpp>

namespace Tresk {

namespace {

using CreatureWeakPtr = Ostrel::WeakPtr<Ostrel::Creature, Ostrel::Creature>;

CreatureWeakPtr creatorOf(const MemBasePtr& data) { return data ? data->getCreator() : CreatureWeakPtr(); }

}  // namespace

CreativeArray::CreativeArray(const MemBasePtr& initial, const CachePtr& cache)
    : CreativeArray(initial, cache, creatorOf(initial)) {}

CreativeArray::CreativeArray(const MemBasePtr& initial, const CachePtr& cache, const CreatureWeakPtr& former)
    : Ostrel::Creator<MemBase, CreativeArrayBase>(initial, cache) {
  if (!initial) return;
  try {
    initial->setCreator(getSelf());
    addDataMetaInfo(initial);
  } catch (...) {
    initial->setCreator(former);  // they knew this one too early
    throw;
  }
}

CreativeArray::~CreativeArray() = default;

Ostrel::Creature::ReasonForReleasal CreativeArray::release() {
  const Ostrel::Profiler scope("field/CreativeArray", 74,
                               "virtual Ostrel::Creature::ReasonForReleasal Tresk::CreativeArray::release()",
                               "CreativeArray::release()", 5, "");
  if (savedAge < getDataAge()) save(data);
  if (!canProduce()) return CannotRelease;
  return data.forgetIfSole() == Ostrel::Forgetting::IsShared ? StillInUse : Released;
}

}  // namespace Tresk
