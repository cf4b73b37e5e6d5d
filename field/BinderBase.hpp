// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/InterfaceBase.hpp>

#include <string>

namespace Tresk {

/// What a saver is known by. Creators remember under it when they were saved (`CreativeArrayBase::binderAges`).
///
/// Lifetime: counted; creators know it weakly.
class TRESK_EXPORT BinderBase : public Ostrel::ReferenceBase<BinderBase> {
 public:
  /// \param name any text; this library does not read it
  explicit BinderBase(const std::string& name);
  ~BinderBase() override;

  /// The name, which never changes.
  const std::string& getName() const noexcept { return name_; }

 private:
  std::string name_;
};

/// One item of a question: a value, found under its own type.
template <class V>
class TRESK_OPEN_TEMPLATE SaveItem : public Ostrel::Interface<V> {
 public:
  /// Keeps a copy of the value.
  explicit SaveItem(const V& item) : item_(item) {}
  /// The value, as long as the item lives.
  const V& getItem() const noexcept { return item_; }

 private:
  V item_;
};

/// The empty slot of the question for a binder. An owner stores its binder in the pointer that the slot is.
using BinderSlot = Ostrel::InterfaceData<Ostrel::StrongPtr<BinderBase, BinderBase>, void>;

}  // namespace Tresk
