// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "OceanField.hpp"

#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/TreskType.hpp>

#include <sstream>
#include <stdexcept>

namespace Example {

using Tresk::CreatorPtr;
using Tresk::Field;
using Tresk::FragmentIDPtr;
using Tresk::MemBasePtr;

OceanField::OceanField(std::shared_ptr<const OceanSource> source)
    : source_(std::move(source)), nSlabsRead_(std::make_shared<std::atomic<unsigned long long>>(0)), field_(new Field) {
  const Tresk::DynamicSize size{source_->nLongitudes(), source_->nLatitudes()};
  const Tresk::TreskTypePtr type = Tresk::getTreskType<double>();
  field_->reserve_fragments(source_->nMonths() * source_->nDepths());
  for (std::size_t month = 0; month < source_->nMonths(); ++month)
    for (std::size_t depth = 0; depth < source_->nDepths(); ++depth) {
      // The creator may outlive this object, so that its function shares what it uses.
      const auto read = [ocean = source_, nSlabsRead = nSlabsRead_, month, depth] {
        const SlabPtr slab(new Slab({ocean->nLongitudes(), ocean->nLatitudes()}, Tresk::CreatorWeakPtr()));
        ocean->readSlab(month, depth, {static_cast<double*>(slab->getDataPointer()), slab->nElements()});
        nSlabsRead->fetch_add(1, std::memory_order_relaxed);
        return MemBasePtr(slab);
      };
      const CreatorPtr creator(new Tresk::FunctionalCreator(read, false, Ostrel::Cache::MemCache()));
      creator->addMetaInfo(size, type);
      field_->setCreator(creator, field_->makeFragmentID(getName(month, depth)));
    }
}

std::string OceanField::getName(std::size_t month, std::size_t depth) const {
  const OceanDescription& ocean = source_->getDescription();
  std::ostringstream name;
  name << ocean.months.at(month) << " " << ocean.depth.values.at(depth) << " " << ocean.depth.unit;
  return name.str();
}

std::size_t OceanField::getDepth(const FragmentIDPtr& fragment) const {
  return field_->findNumericalID(fragment) % source_->nDepths();
}

std::size_t OceanField::getMonth(const FragmentIDPtr& fragment) const {
  return field_->findNumericalID(fragment) / source_->nDepths();
}

SlabPtr OceanField::getSlab(const FragmentIDPtr& fragment) const {
  const SlabPtr slab(field_->getData(fragment));
  if (!slab) throw std::runtime_error("no array for fragment \"" + (fragment ? fragment->getName() : "") + "\"");
  return slab;
}

unsigned long long getMemoryHeld(const Field& field) {
  unsigned long long bytes = 0;
  for (const FragmentIDPtr& fragment : field.getFragmentIDs())
    if (const CreatorPtr creator = field.getCreator(fragment)) bytes += Tresk::getMemoryUsage(*creator);
  return bytes;
}

unsigned long long getFullMemory(const Field& field) {
  unsigned long long bytes = 0;
  for (const FragmentIDPtr& fragment : field.getFragmentIDs()) {
    const CreatorPtr creator = field.getCreator(fragment);
    if (!creator) continue;
    const Tresk::SizePtr size = Tresk::getSize(*creator);
    const Tresk::TreskTypePtr type = creator->getTreskType();
    if (size && type) bytes += size->nElements() * type->memSize;
  }
  return bytes;
}

std::size_t countHeld(const Field& field) {
  std::size_t n = 0;
  for (const FragmentIDPtr& fragment : field.getFragmentIDs())
    if (const CreatorPtr creator = field.getCreator(fragment)) n += creator->hasData() ? 1 : 0;
  return n;
}

std::uint64_t checksum(const Slab& slab) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  const auto* const bytes = static_cast<const unsigned char*>(slab.getDataPointer());
  const unsigned long long nBytes = slab.memsize();
  for (unsigned long long i = 0; i < nBytes; ++i) hash = (hash ^ bytes[i]) * 0x100000001b3U;
  return hash;
}

}  // namespace Example
