// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Field.hpp>

#include <string>

/// \file
/// What the program and the plug-in it loads know of each other. The element type of the plug-in is not among it.

namespace TreskTest {

/// An interface whose class both sides compile; the plug-in attaches it, and the program finds it.
class Station : public Ostrel::Interface<Station> {
 public:
  virtual std::string name() const = 0;
};

/// An interface that the program attaches and the plug-in finds.
class Strength : public Ostrel::Interface<Strength> {
 public:
  virtual double factor() const = 0;
};

/// What the plug-in offers.
struct WindPlugin {
  /// A creator of a class of the plug-in, which makes `nElements` winds.
  Tresk::CreatorPtr (*makeCreator)(unsigned long long nElements, const Tresk::CacheWeakPtr& cache);
  /// How many arrays the plug-in's own allocator has made.
  int (*nAllocated)();
  /// How many creators of the plug-in's class there are.
  int (*nCreators)();
  /// Takes a field of the program, and adds the first components of all winds in it.
  double (*sumOf)(const Tresk::FieldPtr& field);
};

/// The name under which the plug-in offers it: `const WindPlugin* treskTestPlugin()`.
inline constexpr const char* PluginEntry = "treskTestPlugin";

}  // namespace TreskTest
