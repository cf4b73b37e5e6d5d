// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Pointers.hpp>

#include <typeinfo>

namespace Ostrel {

/// Attaches the save interface of one file format to objects of one class.
class TRESK_EXPORT SaveInterfaceCreatorBase : public ReferenceBase<SaveInterfaceCreatorBase> {
 public:
  SaveInterfaceCreatorBase();
  ~SaveInterfaceCreatorBase() override;
};

/// The same, for objects of class `T`. A program derives from this and registers its object with
/// `SaveRegistryBase::registerCreator(typeid(T), ...)`.
template <class T>
class TRESK_OPEN_TEMPLATE SaveInterfaceCreator : public SaveInterfaceCreatorBase {
 public:
  /// Attaches the interface to `object`. A `Field` is still in its constructor then, and arrays are in the
  /// construction of their first strong pointer: weak pointers may be kept, strong ones to a `Field` may not.
  virtual long long createInterface(T* object) = 0;
};

/// Offers one object to every save interface creator that is registered at that moment. Formats registered later do
/// not reach it.
/// Threads: the table of creators has a lock, which is not held while a creator runs.
class TRESK_EXPORT SaveRegistryBase {
 public:
  SaveRegistryBase();
  SaveRegistryBase(const SaveRegistryBase&) = delete;
  SaveRegistryBase& operator=(const SaveRegistryBase&) = delete;
  virtual ~SaveRegistryBase();

  /// Offers the object to one creator; the result is the creator's, or 0 if it serves another class.
  virtual int apply(const StrongPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>& creator) = 0;

  /// Calls `apply` for each creator registered under `type`, in the order of registration.
  void traverseCreators(const std::type_info& type);

  /// Enters a creator under `type`; false for an invalid pointer or one that stands there already.
  static bool registerCreator(const std::type_info& type,
                              const StrongPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>& creator);
  /// Removes it again; false if it was not there.
  static bool unregisterCreator(const std::type_info& type,
                                const StrongPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>& creator);
};

/// A registry bound to one object of class `T`; it stands on the stack for the time of one traversal.
template <class T>
class TRESK_OPEN_TEMPLATE SaveRegistry : public SaveRegistryBase {
 public:
  /// \param object what is offered; it outlives the registry
  explicit SaveRegistry(T* object) noexcept : object_(object) {}

  /// The answer of a creator for class `T`, cut to 32 bits; 0 for any other one.
  int apply(const StrongPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>& creator) override {
    const StrongPtr<SaveInterfaceCreator<T>, SaveInterfaceCreatorBase> typed(creator);
    if (!typed) return 0;
    // Cut to 32 bits, deliberately.
    return static_cast<int>(static_cast<unsigned int>(typed->createInterface(object_)));
  }

 private:
  T* object_;
};

}  // namespace Ostrel
