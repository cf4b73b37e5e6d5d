// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/TreskTypeBase.hpp>
#include <tresk/foundation/Provenance.hpp>

#include <set>

namespace Tresk {

/// A set of element types. An empty list stands for every type, not for none; a list whose records have all died
/// stands for no type.
///
/// A plain container of weak pointers: not to be changed while it is read.
class TRESK_EXPORT TypeList {
 public:
  /// The list that stands for every type.
  TypeList();
  /// A list of one entry.
  explicit TypeList(const TreskTypeWeakPtr& type);
  /// A list of the same entries.
  TypeList(const TypeList& other);
  /// Takes over the entries; without memory for them this list stays as it was.
  TypeList& operator=(const TypeList& other);
  ~TypeList();

  /// Adds a type. An empty pointer is an entry too, and stands for no type.
  void insert(const TreskTypeWeakPtr& type);
  /// The number of entries, dead ones included.
  unsigned long long nTypes() const noexcept { return types_.size(); }

  /// Whether the list stands for `type`. Linear in the number of entries.
  bool contains(const std::type_info& type) const;

  /// Prints "{name} " for each living entry to the standard output; nothing for an empty list.
  void speak() const;
  /// The names of the living entries, one line each.
  Ostrel::StrongPtr<Ostrel::StringList, Ostrel::StringList> asText() const;

 private:
  std::set<TreskTypeWeakPtr> types_;
};

/// The same as `list.contains(type)`.
TRESK_EXPORT bool containsType(const TypeList& list, const std::type_info& type);

}  // namespace Tresk
