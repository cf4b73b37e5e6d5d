// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "OceanSource.hpp"

#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/MemArray.hpp>

#include <atomic>
#include <memory>

namespace Example {

using Means = Tresk::MemArray<1, double>;
using MeansPtr = Ostrel::StrongPtr<Means, Ostrel::Cacheable>;

/// A production on a thread: the mean by area of each depth of a month, as an array of as many numbers, read from the
/// source. It begins when it is requested, and stops at the next depth when it is discarded; there are no data then.
///
/// Lifetime: the end of the object discards a production that still runs, and waits for its thread.
class DepthMeans {
 public:
  DepthMeans(std::shared_ptr<const OceanSource> source, std::size_t month);
  DepthMeans(const DepthMeans&) = delete;
  DepthMeans& operator=(const DepthMeans&) = delete;
  ~DepthMeans();

  Tresk::AsynchronCreator& getCreator() const { return *creator_; }
  /// The number of slabs read so far.
  std::size_t nDone() const noexcept { return nDone_->load(); }
  /// Waits for the end of the thread, and gives the means. As soon as the user interrupts, it discards the production
  /// and throws `Interrupted`, without waiting: the end of this object does that.
  MeansPtr join() const;

 private:
  const std::shared_ptr<std::atomic<std::size_t>> nDone_;
  const Ostrel::StrongPtr<Tresk::AsynchronCreator, Ostrel::Creature> creator_;
};

}  // namespace Example
