// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/InterfaceBase.hpp>

#include <atomic>

namespace Ostrel {

/// Carries interface objects, one for each interface type.
///
/// A base of creators, arrays, fragments and fields; it also stands on the stack as a bag of arguments.
/// Lifetime: owns its interfaces and gives them up in its destructor.
/// Threads: safe for concurrent use with itself, under a lock of its own. No interface is destroyed, and no user
/// code runs, while that lock is held.
/// Cost: 16 bytes while it is empty. A lookup is linear in the few interfaces that an object has.
class TRESK_EXPORT Intercube {
 public:
  Intercube() noexcept;
  Intercube(const Intercube&) = delete;
  Intercube& operator=(const Intercube&) = delete;
  virtual ~Intercube();

  /// Stores an interface under its type; one that stands there already is replaced. An invalid pointer is ignored.
  /// Adding an interface does not count as a change of the object, so it is possible on a constant one.
  void addInterface(const StrongPtr<InterfaceBase, InterfaceBase>& interface) const;

  /// The interface stored under `type`; empty if there is none.
  StrongPtr<InterfaceBase, InterfaceBase> findInterface(const std::type_info& type) const;

 private:
  struct Content;
  Content& getContent() const;

  mutable std::atomic<Content*> content_{nullptr};
};

/// The interface of class `I` that `cube` carries; invalid if it has none, which is an answer and not a fault.
template <class I>
StrongPtr<I, InterfaceBase> findInterface(const Intercube& cube) {
  return StrongPtr<I, InterfaceBase>(cube.findInterface(typeid(I)));
}

}  // namespace Ostrel

// The remaining parts of the same idea: what describes, saves and accounts for an object.
#include <tresk/foundation/Attributes.hpp>
#include <tresk/foundation/Diagnostics.hpp>
#include <tresk/foundation/Profiler.hpp>
#include <tresk/foundation/Provenance.hpp>
#include <tresk/foundation/SaveRegistry.hpp>
