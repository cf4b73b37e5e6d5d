// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Pointers.hpp>

namespace Ostrel {

/// What a policy knows of data that could be let go.
struct CacheCandidate {
  unsigned long long nBytes = 0;   ///< bytes that would be given back
  double seconds = 0;              ///< measured time of their last production; 0 if none was measured
  long long nUses = 0;             ///< uses so far
  unsigned long long recency = 0;  ///< time of the last use on a clock that ticks with each use: greater is later
};

/// An order of eviction. Without a policy a cache lets go what was least recently used.
///
/// A cache with a policy ranks its data from time to time, outside its lock, and lets them go in that order; data that
/// are used after the ranking wait for the next one. Cost: n log n per ranking, which serves for about n / 8 data.
class TRESK_EXPORT CachePolicy : public ReferenceBase<CachePolicy> {
 public:
  CachePolicy();
  ~CachePolicy() override;

  /// What it is worth to keep the data: those of the least worth go first, and among equals the least recently used.
  /// Called on any thread, by several at once. An exception makes the cache fall back on the order of use.
  virtual double worth(const CacheCandidate& candidate) const = 0;
};

/// Lets go first what gives most bytes for the time that it takes to make them again.
///
/// The worth is the measured time of production over the bytes (as in the GreedyDual-Size family of policies, Cao and
/// Irani 1997, without their ageing term). Data whose production was not measured are worth nothing and go first.
class TRESK_EXPORT CostAwarePolicy : public CachePolicy {
 public:
  CostAwarePolicy();
  ~CostAwarePolicy() override;

  /// Seconds of the last production for each byte; the seconds themselves for data of no bytes.
  double worth(const CacheCandidate& candidate) const override;
};

}  // namespace Ostrel
