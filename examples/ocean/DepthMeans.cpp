// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "DepthMeans.hpp"

#include "Interrupt.hpp"
#include "Statistics.hpp"

#include <tresk/field/TreskType.hpp>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace Example {

using Tresk::AsynchronCreator;
using Tresk::MemBasePtr;

namespace {

/// How long somebody who interrupts may wait to be noticed.
constexpr std::chrono::milliseconds Reaction{2};

AsynchronCreator::Function makeWork(std::shared_ptr<const OceanSource> source, std::size_t month,
                                    std::shared_ptr<std::atomic<std::size_t>> nDone) {
  return [source = std::move(source), month, nDone = std::move(nDone)](const std::atomic<bool>& isDiscarded) {
    const MeansPtr means(new Means({source->nDepths()}, Tresk::CreatorWeakPtr()));
    Slab slab({source->nLongitudes(), source->nLatitudes()}, Tresk::CreatorWeakPtr());
    for (std::size_t depth = 0; depth < source->nDepths(); ++depth) {
      if (isDiscarded) return MemBasePtr();  // part of a result is none
      source->readSlab(month, depth, {static_cast<double*>(slab.getDataPointer()), slab.nElements()});
      (*means)(depth) = summarise(slab, source->getDescription().latitude.values).getWeightedMean();
      nDone->fetch_add(1);
    }
    return MemBasePtr(means);
  };
}

}  // namespace

DepthMeans::DepthMeans(std::shared_ptr<const OceanSource> source, std::size_t month)
    : nDone_(std::make_shared<std::atomic<std::size_t>>(0)),
      creator_(new AsynchronCreator(makeWork(source, month, nDone_), Ostrel::Cache::MemCache())) {
  creator_->setup(Tresk::DynamicSize{source->nDepths()}, Tresk::getTreskType<double>());
}

DepthMeans::~DepthMeans() {
  if (!creator_->isUnderCreation()) return;
  creator_->discardCreation();
  try {
    creator_->produce();  // waits for the thread
  } catch (...) {         // NOLINT(bugprone-empty-catch): nobody wants the result any more
  }
}

MeansPtr DepthMeans::join() const {
  while (creator_->isUnderCreation() && !creator_->hasFailed()) {
    if (Interrupt::isRequested()) {
      creator_->discardCreation();
      throw Interrupted();
    }
    std::this_thread::sleep_for(Reaction);
  }
  const MeansPtr means(creator_->create(false));
  if (!means) throw std::runtime_error("the production on a thread has yielded nothing");
  return means;
}

}  // namespace Example
