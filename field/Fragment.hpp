// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/CreativeArrayBase.hpp>

#include <map>
#include <string>

namespace Tresk {

/// The creators of one piece of the domain under the names of their fields: a cross-section through several fields.
///
/// A value: holds its creators strongly. An entry without a creator is allowed.
/// Threads: no lock. Filled by one thread and read afterwards.
/// Cost: logarithmic in the number of entries.
class TRESK_EXPORT Fragment {
 public:
  /// What is done at each entry.
  class TRESK_EXPORT Iterator {
   public:
    virtual ~Iterator();
    /// Called for an entry, whose creator may be empty and may be replaced; false ends the walk.
    virtual bool apply(const std::string& name, CreatorPtr& creator) = 0;
  };

  Fragment();
  /// The same creators under the same names.
  Fragment(const Fragment& other);
  /// Takes over the entries; without memory for them this fragment stays as it was.
  Fragment& operator=(const Fragment& other);
  ~Fragment();

  /// The entry of a name, which is made empty if it is absent. The reference holds while other names are added.
  CreatorPtr& operator[](const std::string& name);
  /// The creator of a name; empty if it is absent.
  CreatorPtr operator()(const std::string& name) const;
  /// Calls `iterator` for each entry in the order of names, until it returns false. Returns how often it returned true.
  /// The entries may be written, although the walk is const. Exceptions of `iterator` pass.
  unsigned int iterate(Iterator& iterator) const;

 private:
  mutable std::map<std::string, CreatorPtr> creators_;
};

}  // namespace Tresk
