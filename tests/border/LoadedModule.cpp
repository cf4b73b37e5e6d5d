// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <string>

// What a program loads that is not linked with the library: makes a field, and lets it go on demand.

namespace {

using Tresk::CreatorPtr;
using Tresk::FieldPtr;
using Tresk::MemBasePtr;

struct Held {
  FieldPtr field = FieldPtr(new Tresk::Field);
};

}  // namespace

extern "C" TRESK_EXPORT void* makeField(int nFragments);
extern "C" TRESK_EXPORT void dropField(void* field);
extern "C" TRESK_EXPORT int hasEnded();

/// Null if a fragment does not yield its data.
extern "C" void* makeField(int nFragments) {
  auto* const held = new Held;
  for (int i = 0; i < nFragments; ++i) {
    const CreatorPtr creator(new Tresk::FunctionalCreator(
        [] { return MemBasePtr(new Tresk::MemArray<1, double>(Tresk::MultiIndex<1>(10), Tresk::CreatorWeakPtr())); },
        false, Ostrel::Cache::MemCache()));
    held->field->setCreator(creator, held->field->makeFragmentID(std::to_string(i)));
    if (!creator->create(false)) {
      delete held;
      return nullptr;
    }
  }
  return held;
}

/// Whether the records of element types have ended: then 1 if there is no record and no allocator any more, while
/// arrays of a known class can still be made; -1 if anything else is the case. 0 before.
extern "C" int hasEnded() {
  const Tresk::TreskTypePtr type = Tresk::getTreskType<double>();
  const MemBasePtr byType = Tresk::MemBase::create(type, Tresk::DynamicSize{10}, typeid(void));
  const MemBasePtr byClass(new Tresk::MemArray<1, double>(Tresk::MultiIndex<1>(10), Tresk::CreatorWeakPtr()));
  const MemBasePtr like = byClass->create(typeid(void));
  if (byClass->memsize() != 80 || type.isValid() != byType.isValid() || type.isValid() != like.isValid()) return -1;
  return type ? 0 : 1;
}

extern "C" void dropField(void* field) { delete static_cast<Held*>(field); }
