// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Pointers.hpp>

#include <atomic>

namespace TreskTest {

/// A counted class with derived classes of every shape that a pointer may have to cast to.
class Root : public Ostrel::ReferenceBase<Root> {
 public:
  Root() : ReferenceBase<Root>(this) { ++nAlive; }
  ~Root() override { --nAlive; }

  static inline std::atomic<int> nAlive{0};
};

/// Something that stands before the counted base and so shifts it.
class Ballast {
 public:
  virtual ~Ballast() = default;
  long long weight = 7;
};

/// Derived with an offset: the cast from `Root` moves the pointer.
class Shifted : public Ballast, public Root {
 public:
  int mark = 11;
};

/// One step further down.
class ShiftedLeaf : public Shifted {
 public:
  int leafMark = 12;
};

/// Derived virtually: the way down is known at run time only.
class Virtual : public Ballast, public virtual Root {
 public:
  int mark = 13;
};

}  // namespace TreskTest
