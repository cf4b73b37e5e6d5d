// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>

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

extern "C" void dropField(void* field) { delete static_cast<Held*>(field); }
