// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "OceanSource.hpp"

#include <tresk/field/Field.hpp>
#include <tresk/field/MemArray.hpp>

#include <atomic>
#include <cstdint>
#include <memory>

namespace Example {

using Slab = Tresk::MemArray<2, double>;
using SlabPtr = Ostrel::StrongPtr<Slab, Ostrel::Cacheable>;

/// An ocean as a field: one fragment for each month at each depth, named after both. Nothing is read before somebody
/// asks for a fragment; what was read may be forgotten at any time and is then read again.
class OceanField {
 public:
  /// Binds a creator to every fragment, month by month and from the surface down.
  explicit OceanField(std::shared_ptr<const OceanSource> source);

  const OceanSource& getSource() const noexcept { return *source_; }
  const Tresk::Field& getField() const noexcept { return *field_; }
  const Tresk::FieldPtr& getFieldPtr() const noexcept { return field_; }

  /// The name of a fragment, for instance "August 100 m".
  std::string getName(std::size_t month, std::size_t depth) const;
  /// The depth index of one of the fragments.
  std::size_t getDepth(const Tresk::FragmentIDPtr& fragment) const;
  /// The month index of one of the fragments.
  std::size_t getMonth(const Tresk::FragmentIDPtr& fragment) const;
  /// The array of a fragment, read if it is not held. Throws `std::runtime_error` if there is none.
  SlabPtr getSlab(const Tresk::FragmentIDPtr& fragment) const;

  /// How many slabs have been read from the source so far.
  unsigned long long nSlabsRead() const noexcept { return nSlabsRead_->load(std::memory_order_relaxed); }

 private:
  const std::shared_ptr<const OceanSource> source_;
  const std::shared_ptr<std::atomic<unsigned long long>> nSlabsRead_;  ///< a statistic; orders nothing
  const Tresk::FieldPtr field_;
};

/// Bytes of the data that the creators of a field hold now.
unsigned long long getMemoryHeld(const Tresk::Field& field);
/// Bytes of all data of a field, held or not, from the sizes that its creators tell.
unsigned long long getFullMemory(const Tresk::Field& field);
/// Number of creators that hold data now.
std::size_t countHeld(const Tresk::Field& field);

/// The 64-bit FNV-1a hash of all bytes of an array, which changes with every bit of every element.
std::uint64_t checksum(const Slab& slab);

}  // namespace Example
