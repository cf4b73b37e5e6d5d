// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/TreskTypeIndex.hpp>
#include <tresk/field/fwd.hpp>
#include <tresk/foundation/ChunkBase.hpp>

#include <cstddef>
#include <string>
#include <typeinfo>

namespace Tresk {

/// The record of one element type: its index and the operations that need its compile-time type.
///
/// Records are static objects, made while libraries are loaded, and live until the process exits.
/// Threads: the registry has no lock. Records enter it at load time, on one thread; after that any number of threads
/// may call `find`. A library that is loaded later and brings records of its own must do so while nobody searches.
class TRESK_EXPORT TreskTypeBase : public TreskTypeIndex, public Ostrel::ReferenceBase<TreskTypeBase> {
 public:
  /// A record that `find` does not know yet: the class of the complete record calls `remember`.
  explicit TreskTypeBase(const TreskTypeIndex& index);
  ~TreskTypeBase() override;

  /// The element type.
  virtual const std::type_info& getType() const = 0;
  /// Whether the element type is `type`.
  virtual bool isType(const std::type_info& type) const = 0;
  /// A new chunk of `count` value-initialised elements. Throws `std::length_error` if a vector cannot hold that many.
  virtual Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> createChunk(std::size_t count) const = 0;
  /// The number as given. For classes outside the library.
  virtual unsigned int indexOf(const unsigned int& i) const = 0;
  /// The record of the type of a component.
  virtual TreskTypePtr getComponentType() const = 0;
  /// The name of chart coordinate `i`; empty outside the chart.
  virtual std::string chartComponentName(int i) const = 0;
  /// The chart; `typeid(void)` if there is none.
  virtual const std::type_info& getChartType() const = 0;
  /// The variance of tensor index `i`: 1 upper, -1 lower, 0 for a type without indices.
  virtual int indexKind(unsigned int i) const = 0;
  /// 0. For classes outside the library.
  virtual int indexExtra(unsigned int i) const = 0;

  /// Enters this record in the registry, behind those of equal index; false if its self reference is not alive.
  bool remember() const;
  /// A living record with exactly this index, the first one remembered; empty if there is none. Logarithmic in the
  /// number of records.
  static TreskTypeWeakPtr find(const TreskTypeIndex& index);
  /// A living record of this element type; empty if there is none. Linear in the number of records.
  static TreskTypeWeakPtr find(const std::type_info& type);

  /// One line for people: that of the index, and "(upper)", "(lower)" or "()" for each tensor index.
  std::string description() const;
  /// The name of component `i` of the element: "d" or "D" and the chart coordinate for vectors, "dy^dz" and the like
  /// for two-forms, the type's name for scalars.
  std::string component_name(unsigned int i) const;
  /// Prints the record to the standard output, one line per item.
  void speak() const;
};

}  // namespace Tresk

namespace std {
/// The record in one long line.
TRESK_EXPORT string to_string(const Tresk::TreskTypeBase& type);
}  // namespace std
