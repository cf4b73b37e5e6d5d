// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/FunctionalCreator.hpp>

namespace Example {

/// A creator of a program's own: the numbers of another creator's array times a factor, computed when they are asked
/// for and forgotten when the cache wants the memory.
///
/// The operand is a two-dimensional array of numbers in double precision; of any other operand there are no data.
/// Lifetime: holds the creator of the operand.
/// Threads: one computation at a time, on the thread that asks.
class ScaledCreator : public Tresk::FunctionalCreatorBase {
 public:
  /// Takes the size from the operand, if it is known without producing anything.
  ScaledCreator(const Tresk::CreatorPtr& operand, double factor, const Tresk::CacheWeakPtr& cache);

  Tresk::MemBasePtr compute() const override;

 private:
  const Tresk::CreatorPtr operand_;
  const double factor_;
};

}  // namespace Example
