// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "OceanYear.hpp"

#include "Statistics.hpp"

#include <tresk/field/ComputationalField.hpp>
#include <tresk/field/FunctionalCreator.hpp>

#include <algorithm>

namespace Example {

using Tresk::CreatorPtr;
using Tresk::FieldPtr;
using Tresk::MemBasePtr;

namespace {

using Block = Tresk::MultiIndex<3>;
using Quotient = Tresk::BinaryOperator<Quorvel::Operator<'/'>, double, double, double>;

}  // namespace

OceanYear::OceanYear(const OceanField& ocean) {
  const OceanSource& source = ocean.getSource();
  const Block blocks(1, 1, source.nDepths());
  const Tresk::DynamicSize size{source.nLongitudes(), source.nLatitudes()};
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
    computed_.push_back(sum);
  }
  const FieldPtr count(new Tresk::Field(Tresk::FieldWeakPtr(months_.front())));
  for (std::size_t depth = 0; depth < source.nDepths(); ++depth) {
    const auto fill = [size, n = static_cast<double>(months_.size())] {
      const SlabPtr slab(new Slab({size[0], size[1]}, Tresk::CreatorWeakPtr()));
      std::fill_n(static_cast<double*>(slab->getDataPointer()), slab->nElements(), n);
      return MemBasePtr(slab);
    };
    const CreatorPtr creator(new Tresk::FunctionalCreator(fill, false, Ostrel::Cache::MemCache()));
    creator->addMetaInfo(size, Tresk::getTreskType<double>());
    count->setCreator(creator, getFragment(depth));
  }
  computed_.push_back(count);
  mean_ = Tresk::combineFields<Quotient>(sum, count);
  computed_.push_back(mean_);
}

Tresk::FragmentIDPtr OceanYear::getFragment(std::size_t depth) const {
  return months_.front()->getFragmentID(Block(0, 0, depth));
}

unsigned long long OceanYear::getComputedMemory() const {
  unsigned long long bytes = 0;
  for (const FieldPtr& field : computed_) bytes += getMemoryHeld(*field);
  return bytes;
}

std::size_t OceanYear::countComputed() const {
  std::size_t n = 0;
  for (const FieldPtr& field : computed_) n += countHeld(*field);
  return n;
}

LongProduction makeDepthMeans(std::shared_ptr<const OceanSource> source, std::size_t month) {
  const auto nDone = std::make_shared<std::atomic<std::size_t>>(0);
  const std::size_t nDepths = source->nDepths();
  const auto work = [source, month, nDone](const std::atomic<bool>& isDiscarded) {
    const Ostrel::StrongPtr<Tresk::MemArray<1, double>, Ostrel::Cacheable> means(
        new Tresk::MemArray<1, double>({source->nDepths()}, Tresk::CreatorWeakPtr()));
    Slab slab({source->nLongitudes(), source->nLatitudes()}, Tresk::CreatorWeakPtr());
    for (std::size_t depth = 0; depth < source->nDepths() && !isDiscarded; ++depth) {
      source->readSlab(month, depth, {static_cast<double*>(slab.getDataPointer()), slab.nElements()});
      (*means)(depth) = summarise(slab, source->getDescription().latitude.values).getWeightedMean();
      nDone->fetch_add(1);
    }
    return MemBasePtr(means);
  };
  LongProduction production{Ostrel::StrongPtr<Tresk::AsynchronCreator, Ostrel::Creature>(
                                new Tresk::AsynchronCreator(work, Ostrel::Cache::MemCache())),
                            nDone};
  production.creator->setup(Tresk::DynamicSize{nDepths}, Tresk::getTreskType<double>());
  return production;
}

}  // namespace Example
