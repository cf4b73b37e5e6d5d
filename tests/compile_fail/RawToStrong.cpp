// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Pointers.hpp>

class Thing : public Ostrel::ReferenceBase<Thing> {
 public:
  Thing() : ReferenceBase<Thing>(this) {}
};

void hold(Thing* object) {
#ifdef BAD
  const Ostrel::StrongPtr<Thing, Thing> pointer = object;
#else
  const Ostrel::StrongPtr<Thing, Thing> pointer(object);
#endif
}
