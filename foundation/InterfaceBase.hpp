// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Pointers.hpp>

#include <typeinfo>

namespace Ostrel {

/// What a caller hands to all interfaces of an object. This library passes it on and looks at nothing in it.
class TRESK_EXPORT InterfaceIterationParameter : public ReferenceBase<InterfaceIterationParameter> {
 public:
  InterfaceIterationParameter();
  ~InterfaceIterationParameter() override;
};

/// Base of what an `Intercube` can carry.
class TRESK_EXPORT InterfaceBase : public ReferenceBase<InterfaceBase> {
 public:
  InterfaceBase();
  ~InterfaceBase() override;

  /// The key under which an `Intercube` stores the interface.
  virtual const std::type_info& getInterfaceType() const = 0;
  /// A caller's operation on a constant object; the default does nothing.
  virtual void apply_const(const Intercube& object,
                           const StrongPtr<InterfaceIterationParameter, InterfaceIterationParameter>& parameter);
  /// A caller's operation on an object; the default does nothing.
  virtual void apply(Intercube& object,
                     const StrongPtr<InterfaceIterationParameter, InterfaceIterationParameter>& parameter);
};

/// Supplies the key of an interface class: `class X : public Interface<X>`, or `Interface<V>` for an interface that
/// is found under a value type.
template <class T>
class TRESK_OPEN_TEMPLATE Interface : public InterfaceBase {
 public:
  /// The type `T`.
  const std::type_info& getInterfaceType() const override { return typeid(T); }
};

template <class V, class Tag = void>
class InterfaceData;

/// An interface that is a value: its key is its own type, and the value is its second base.
template <class V>
class TRESK_OPEN_TEMPLATE InterfaceData<V, void> : public Interface<InterfaceData<V, void>>, public V {
 public:
  /// With a value made by its default constructor.
  InterfaceData() = default;
  /// With a copy of `value`.
  explicit InterfaceData(const V& value) : V(value) {}
};

}  // namespace Ostrel
