// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Field.hpp>

#include <map>
#include <string>

namespace Tresk {

/// Fields under their names, for instance those of one grid.
///
/// A value: holds its fields strongly. An entry without a field is allowed.
/// Threads: no lock. Filled by one thread and read afterwards.
/// Cost: logarithmic in the number of entries; questions of age are linear.
class TRESK_EXPORT FieldCollection {
 public:
  /// What is done at each entry.
  class TRESK_EXPORT Iterator {
   public:
    virtual ~Iterator();
    /// Called for an entry, whose field may be empty and may be replaced; false ends the walk.
    virtual bool apply(const std::string& name, FieldPtr& field) = 0;
  };

  FieldCollection();
  /// The same fields under the same names.
  FieldCollection(const FieldCollection& other);
  /// Takes over the entries; without memory for them this collection stays as it was.
  FieldCollection& operator=(const FieldCollection& other);
  ~FieldCollection();

  /// The entry of a name, which is made empty if it is absent. The reference holds while other names are added.
  FieldPtr& operator[](const std::string& name);
  /// The field of a name; empty if it is absent.
  FieldPtr operator()(const std::string& name) const;
  /// Calls `iterator` for each entry in the order of names, until it returns false. Returns how often it returned true.
  /// Exceptions of `iterator` pass.
  unsigned int iterate(Iterator& iterator);

  /// Whether no field is newer than `age`; true for a collection without fields. Only the ages of the fields
  /// themselves count, which change with their tables: see `Field::hasFragmentsNewerThan` for the data.
  bool FieldsAreOlderThan(const Ostrel::Ageable& age) const;
  /// Raises `age` to that of the newest field.
  void updateAge(Ostrel::Ageable& age) const;

 private:
  std::map<std::string, FieldPtr> fields_;
};

}  // namespace Tresk
