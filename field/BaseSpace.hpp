// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Field.hpp>

#include <set>

namespace Tresk {

/// Links fields to the base space that they live on: it owns fields and is owned by base spaces. A question that
/// `processOwnership` carries up from a field passes through its dependencies to their base spaces.
///
/// Lifetime: counted. Children know their owners weakly; nobody is kept alive by the link.
/// Threads: no lock of its own; see `Ownable`.
class TRESK_EXPORT BaseSpaceDependency : public Ownable<Field, ChildrenProperties>::Container,
                                         public Ownable<BaseSpaceDependency, ChildrenProperties> {
 public:
  BaseSpaceDependency();
  ~BaseSpaceDependency() override;
};

/// A dependency, held.
using BaseSpaceDependencyPtr = Ostrel::StrongPtr<BaseSpaceDependency, Ownable<Field, ChildrenProperties>::Container>;
/// A dependency, observed.
using BaseSpaceDependencyWeakPtr = Ostrel::WeakPtr<BaseSpaceDependency, Ownable<Field, ChildrenProperties>::Container>;

/// The domain that fields live on. What it is made of is the business of derived classes.
///
/// Lifetime and threads as `BaseSpaceDependency`.
class TRESK_EXPORT BaseSpace : public Ownable<BaseSpaceDependency, ChildrenProperties>::Container,
                               public Ownable<BaseSpace, ChildrenProperties>,
                               public Ostrel::Intercube {
 public:
  BaseSpace();
  ~BaseSpace() override;

  /// Does nothing, deliberately: the entry point alone is part of the interface.
  void addDependency(const BaseSpaceDependencyWeakPtr& dependency);

 private:
  std::set<BaseSpaceDependencyWeakPtr> dependencies_;  ///< stays empty: nothing in this library adds to it
};

}  // namespace Tresk
