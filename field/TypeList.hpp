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
  TypeList();
  explicit TypeList(const TreskTypeWeakPtr& type);
  TypeList(const TypeList& other);
  TypeList& operator=(const TypeList& other);
  ~TypeList();

  void insert(const TreskTypeWeakPtr& type);
  /// The number of entries, dead ones included.
  unsigned long long nTypes() const noexcept { return types_.size(); }

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
