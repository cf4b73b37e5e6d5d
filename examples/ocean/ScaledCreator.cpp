// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "ScaledCreator.hpp"

#include "OceanField.hpp"

#include <tresk/field/TreskType.hpp>

#include <algorithm>

namespace Example {

ScaledCreator::ScaledCreator(const Tresk::CreatorPtr& operand, double factor, const Tresk::CacheWeakPtr& cache)
    : Tresk::FunctionalCreatorBase(false, cache), operand_(operand), factor_(factor) {
  const Tresk::TreskTypePtr type = Tresk::getTreskType<double>();
  if (const Tresk::SizePtr size = operand ? Tresk::getSize(*operand) : Tresk::SizePtr())
    addMetaInfo(*size, type);
  else
    addMetaInfo(2, type);
}

Tresk::MemBasePtr ScaledCreator::compute() const {
  const SlabPtr operand(operand_ ? operand_->create(false) : Tresk::MemBasePtr());
  if (!operand) return Tresk::MemBasePtr();
  const SlabPtr scaled(new Slab(operand->getIndexSize(), Tresk::CreatorWeakPtr()));
  const auto* const from = static_cast<const double*>(operand->getDataPointer());
  std::transform(from, from + operand->nElements(), static_cast<double*>(scaled->getDataPointer()),
                 [this](double value) { return factor_ * value; });
  return Tresk::MemBasePtr(scaled);
}

}  // namespace Example
