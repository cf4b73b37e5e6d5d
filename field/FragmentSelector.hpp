// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/fwd.hpp>
#include <tresk/foundation/Ageable.hpp>
#include <tresk/foundation/Pointers.hpp>

namespace Tresk {

/// Chooses fragments for a walk. Its age tells when the choice last changed, so that the result of a walk can be
/// checked against it.
///
/// Lifetime: counted; a walk refers to it weakly, and one that is gone selects everything.
class TRESK_EXPORT FragmentSelector : public Ostrel::ReferenceBase<FragmentSelector>, public Ostrel::Ageable {
 public:
  // The order of the virtual operations is part of the interface.
  ~FragmentSelector() override;
  /// Whether a walk shall visit a fragment, which may be empty. Asked on the thread of the walk, without a lock.
  virtual bool isSelected(const CreativeArrayBase& creator, FragmentIDPtr fragment) = 0;

 protected:
  FragmentSelector();
};

/// A selector, held.
using FragmentSelectorPtr = Ostrel::StrongPtr<FragmentSelector, FragmentSelector>;
/// A selector, observed, as a walk takes it.
using FragmentSelectorWeakPtr = Ostrel::WeakPtr<FragmentSelector, FragmentSelector>;

}  // namespace Tresk
