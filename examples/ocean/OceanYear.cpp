// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "OceanYear.hpp"

#include "Difference.hpp"
#include "ScaledCreator.hpp"

#include <tresk/field/TreskType.hpp>

#include <stdexcept>

namespace Example {

using Tresk::CreatorPtr;
using Tresk::FieldPtr;

namespace {

using Block = Tresk::MultiIndex<3>;

SlabPtr checked(const SlabPtr& slab) {
  if (!slab) throw std::runtime_error("a field of the year yields no array");
  return slab;
}

}  // namespace

OceanYear::OceanYear(const OceanField& ocean) {
  const OceanSource& source = ocean.getSource();
  const Block blocks(1, 1, source.nDepths());
  for (std::size_t m = 0; m < source.nMonths(); ++m) {
    const MonthPtr month(months_.empty() ? new Month(blocks, " level")
                                         : new Month(blocks, Tresk::FieldWeakPtr(months_.front()), " level"));
    for (std::size_t depth = 0; depth < source.nDepths(); ++depth)
      month->setCreator(ocean.getField().getCreatorByName(ocean.getName(m, depth)),
                        month->getFragmentID(Block(0, 0, depth)));
    months_.push_back(month);
  }

  FieldPtr sum = months_.front();
  for (std::size_t m = 1; m < months_.size(); ++m) {
    sum = Tresk::addFields(sum, months_[m]);
    sums_.push_back(sum);
  }
  // The sums do not know their size before they have data.
  const Tresk::DynamicSize size{source.nLongitudes(), source.nLatitudes()};
  mean_ = FieldPtr(new Tresk::Field(Tresk::FieldWeakPtr(months_.front())));
  for (std::size_t depth = 0; depth < source.nDepths(); ++depth) {
    const CreatorPtr creator(new ScaledCreator(sum->getCreator(getFragment(depth)),
                                               1.0 / static_cast<double>(months_.size()), Ostrel::Cache::MemCache()));
    creator->addMetaInfo(size, Tresk::getTreskType<double>());
    mean_->setCreator(creator, getFragment(depth));
  }
  for (const MonthPtr& month : months_) anomalies_.push_back(Tresk::combineFields<Difference>(month, mean_));
}

Tresk::FragmentIDPtr OceanYear::getFragment(std::size_t depth) const {
  return months_.front()->getFragmentID(Block(0, 0, depth));
}

SlabPtr OceanYear::makeMean(std::size_t depth, bool isKept) const {
  const CreatorPtr mean = mean_->getCreator(getFragment(depth));
  if (!mean->hasData())
    for (const FieldPtr& sum : sums_) checked(SlabPtr(sum->getData(getFragment(depth))));
  return checked(SlabPtr(mean->create(isKept)));
}

void OceanYear::stopKeeping() const {
  mean_->iterate(
      [](const Tresk::FragmentIDPtr&, const CreatorPtr& creator) {
        creator->enableCaching(false);
        return true;
      },
      false, false);
}

SlabPtr OceanYear::makeAnomaly(std::size_t month, std::size_t depth, bool isMeanKept) const {
  makeMean(depth, isMeanKept);
  return checked(SlabPtr(anomalies_.at(month)->getData(getFragment(depth))));
}

unsigned long long OceanYear::getChainMemory() const {
  unsigned long long bytes = getMemoryHeld(*mean_);
  for (const FieldPtr& sum : sums_) bytes += getMemoryHeld(*sum);
  return bytes;
}

std::size_t OceanYear::countChain() const {
  std::size_t n = countHeld(*mean_);
  for (const FieldPtr& sum : sums_) n += countHeld(*sum);
  return n;
}

}  // namespace Example
