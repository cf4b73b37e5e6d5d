// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Pointers.hpp>

class Thing : public Ostrel::ReferenceBase<Thing> {
 public:
  Thing() : ReferenceBase<Thing>(this) {}
};

class Other : public Ostrel::ReferenceBase<Other> {
 public:
  Other() : ReferenceBase<Other>(this) {}
};

#ifdef BAD
using Source = Ostrel::StrongPtr<Other, Other>;
#else
using Source = Ostrel::StrongPtr<Thing, Thing>;
#endif

void share(const Source& source) { const Ostrel::StrongPtr<Thing, Thing> pointer(source); }
