// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/fwd.hpp>
#include <tresk/foundation/Intercube.hpp>

#include <atomic>
#include <cstdint>
#include <string>

namespace Tresk {

/// One piece of the domain of a field.
///
/// Its name is its identity across collections. It is free-standing (no owner, number 0), owned (numbered by a living
/// collection) or orphaned (the owner is gone).
/// Lifetime: counted; the collection holds its fragments strongly, and they hold it weakly.
/// Threads: the name is constant; owner and number may be read while a collection adopts the fragment.
class TRESK_EXPORT FragmentID : public Ostrel::ReferenceBase<FragmentID>, public Ostrel::Intercube {
 public:
  /// A free-standing fragment.
  explicit FragmentID(const std::string& name);
  /// A fragment that `owner` has numbered; made by collections only.
  FragmentID(const std::string& name, unsigned int number,
             const Ostrel::WeakPtr<FragmentIDCollection, FragmentIDCollection>& owner);
  ~FragmentID() override;

  /// The name, which never changes and need not be unique.
  const std::string& getName() const noexcept { return name_; }
  /// The collection that numbered the fragment; may be empty or dead.
  const Ostrel::WeakPtr<FragmentIDCollection, FragmentIDCollection>& getOwner() const noexcept { return owner_; }
  /// Index of the fragment in its collection; 0 for a free-standing one.
  unsigned int getNumericalID() const noexcept { return number_.load(std::memory_order_relaxed); }

  /// Number and name as two lines of text. The name is not escaped.
  std::string xml() const;

 private:
  friend class FragmentIDCollection;

  const std::string name_;
  Ostrel::WeakPtr<FragmentIDCollection, FragmentIDCollection> owner_;
  std::atomic<std::uint32_t> number_;
};

}  // namespace Tresk
