// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/CreativeArrayBase.hpp>

namespace Tresk {

/// The creator for data that exist already.
///
/// It cannot make them again by itself, so it does not simply forget them: `release` offers them for saving first, and
/// lets them go only if an attached `Producer` can bring them back.
///
/// Threads: no lock. Savers and producers run on whatever thread asks, for `release` perhaps that of a cache.
class TRESK_EXPORT CreativeArray : public Ostrel::Creator<MemBase, CreativeArrayBase> {
 public:
  /// Holds `data`, becomes their creator and takes size and element type from them. Invalid data give an empty creator.
  /// When it throws, the data have the creator that they had.
  CreativeArray(const MemBasePtr& data, const CachePtr& cache);
  ~CreativeArray() override;

  /// Saves the data if they are newer than their last save, also when they are not valid, and then answers:
  /// `CannotRelease` without a producer that can make them again, whether there are data or not; `Released` if there
  /// are none; `StillInUse` if somebody else holds them; else the data go, and it is `Released`. As only a saver
  /// raises the saved age, each call saves again until one does. Exceptions of savers and producers pass, and the data
  /// are as before.
  Ostrel::Creature::ReasonForReleasal release() override;

 private:
  CreativeArray(const MemBasePtr& data, const CachePtr& cache,
                const Ostrel::WeakPtr<Ostrel::Creature, Ostrel::Creature>& former);
};

}  // namespace Tresk
