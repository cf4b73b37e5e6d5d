// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Pointers.hpp>

class Thing : public Ostrel::ReferenceBase<Thing> {
 public:
  Thing() : ReferenceBase<Thing>(this) {}
};

Thing* makeAnother(const Thing& thing) {
#ifdef BAD
  return new Thing(thing);
#else
  static_cast<void>(thing);
  return new Thing();
#endif
}
