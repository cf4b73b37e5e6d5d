// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Ageable.hpp>
#include <tresk/foundation/Intercube.hpp>
#include <tresk/foundation/InterfaceBase.hpp>
#include <tresk/foundation/Mutex.hpp>
#include <tresk/foundation/Pointers.hpp>

#include <optional>
#include <unordered_set>
#include <vector>

namespace Tresk {

/// What can be asked of anything that has owners. Not for destroying objects by: it has no virtual destructor.
class TRESK_EXPORT OwnerBase {
 public:
  /// Lets all owners answer a question; false ends the walk. Without owners the answer is true.
  /// \param question receives the trace of the walk and the answers; \param context further arguments, may be the same
  virtual bool processOwnership(Ostrel::Intercube& question, const Ostrel::Intercube& context) const;
  /// Hands one argument up to all owners. No class of this library acts on it.
  virtual void forEachOwner(void* argument);

 protected:
  OwnerBase();
  /// For derived classes; there is nothing to copy.
  OwnerBase(const OwnerBase&) = default;
  /// For derived classes; there is nothing to assign.
  OwnerBase& operator=(const OwnerBase&) = default;
  ~OwnerBase();
};

namespace Detail {

/// Guards entering and leaving of all owner sets, and the copies that questions are asked from. A leaf. Never
/// destroyed, as creators may die during the exit of the process.
TRESK_EXPORT extern Ostrel::Mutex ownerMutex;

}  // namespace Detail

/// An object of class `T` that keeps weak pointers to its owners.
///
/// `C` is the property part of an owner: what it remembers of its children.
/// Threads: owners may enter and leave while other threads ask questions, as a cache that releases a creator does.
/// Walks that raise ages take no lock: owners do not enter or leave while another thread touches the object. Owners
/// answer on whatever thread asks.
/// Errors: exceptions of an owner pass, and owners behind it are not asked.
/// Cost: entering and leaving by hash; a walk over several owners copies the set, one over a single owner does not.
template <class T, class C>
class TRESK_OPEN_TEMPLATE Ownable : public virtual OwnerBase {
 public:
  /// What an owner of such objects derives from.
  class TRESK_OPEN_TEMPLATE Container : public Ostrel::ReferenceBase<Container>, public virtual OwnerBase, public C {
   public:
    /// An owner, observed.
    using WeakPointer = Ostrel::WeakPtr<Container, Container>;

    /// The trace that the walk leaves in a question: the owner asked last.
    class TRESK_OPEN_TEMPLATE PassThrough : public Ostrel::Interface<PassThrough> {
     public:
      /// \param container the owner that is about to be asked
      explicit PassThrough(const WeakPointer& container) : container_(container) {}
      /// The owner asked last; may have died since.
      const WeakPointer& getContainer() const noexcept { return container_; }

     private:
      WeakPointer container_;
    };

   protected:
    Container() : Ostrel::ReferenceBase<Container>(this) {}
  };
  /// An owner, observed.
  using OwnerPointer = Ostrel::WeakPtr<Container, Container>;

  /// Enters an owner; false if it stands in the set already or the pointer is empty.
  bool addOwner(const OwnerPointer& owner) {
    if (owner.getRecord() == nullptr) return false;
    const Ostrel::MutexLock lock(Detail::ownerMutex);
    return owners_.insert(owner).second;
  }
  /// Takes an owner, dead or alive, out of the set; false if it does not stand there.
  bool removeOwner(const OwnerPointer& owner) {
    const Ostrel::MutexLock lock(Detail::ownerMutex);
    return owners_.erase(owner) != 0;
  }
  /// Whether an owner, dead or alive, stands in the set.
  bool isOwnedBy(const OwnerPointer& owner) const {
    const Ostrel::MutexLock lock(Detail::ownerMutex);
    return owners_.count(owner) != 0;
  }
  /// The number of entries, dead ones included: they stay and are skipped.
  unsigned long long nOwners() const {
    const Ostrel::MutexLock lock(Detail::ownerMutex);
    return owners_.size();
  }

  /// A copy of the owners in the order of the set, dead ones included.
  std::vector<OwnerPointer> getOwners() const {
    const Ostrel::MutexLock lock(Detail::ownerMutex);
    return {owners_.begin(), owners_.end()};
  }

  /// Asks the living owners in the order of the set until one answers false, which is then the answer. Before each of
  /// them its `PassThrough` is laid in the question, in place of the former one. Without a living owner true.
  bool processOwnership(Ostrel::Intercube& question, const Ostrel::Intercube& context) const override {
    bool goesOn = true;
    forEachLivingOwner([&](Container& owner) {
      using PassThrough = typename Container::PassThrough;
      question.addInterface(
          Ostrel::StrongPtr<Ostrel::InterfaceBase, Ostrel::InterfaceBase>(new PassThrough(OwnerPointer(&owner))));
      goesOn = owner.processOwnership(question, context);
      return goesOn;
    });
    return goesOn;
  }

  /// Hands the argument to all living owners in the order of the set.
  void forEachOwner(void* argument) override {
    forEachLivingOwner([argument](Container& owner) {
      owner.forEachOwner(argument);
      return true;
    });
  }

 protected:
  /// The set is as a new one is: one bucket, which takes no memory, and a greatest load of 1.
  Ownable() = default;
  ~Ownable() = default;

  /// Calls `f` for the properties of each living owner. Nothing that `f` does may change the set. Takes no lock and
  /// allocates nothing.
  template <class F>
  void forEachOwnerProperties(const F& f) const {
    for (const OwnerPointer& pointer : owners_) {
      const Ostrel::Pin<Container> owner(pointer);
      if (owner) f(static_cast<C&>(*owner));
    }
  }

 private:
  /// Calls `f(owner)` for each living owner in the order of the set, until it answers false. Owners run code of their
  /// own, which may change the set; the walk is over the set as it was.
  template <class F>
  void forEachLivingOwner(const F& f) const {
    std::optional<Ostrel::Pin<Container>> only;
    std::vector<OwnerPointer> owners;
    {
      const Ostrel::MutexLock lock(Detail::ownerMutex);
      if (owners_.size() == 1)
        only.emplace(*owners_.begin());  // nearly always; needs no copy
      else
        owners.assign(owners_.begin(), owners_.end());
    }
    if (only && *only) f(**only);
    for (const OwnerPointer& pointer : owners) {
      const Ostrel::Pin<Container> owner(pointer);
      if (owner && !f(*owner)) return;
    }
  }

  std::unordered_set<OwnerPointer> owners_;
};

/// What a field remembers of its creators: the newest ages of any of them.
struct TRESK_EXPORT CreativeArrayBaseContainerBase {
  Ostrel::Ageable dataAge = Ostrel::Ageable::Ooooold;       ///< of data, raised by `CreativeArrayBase::touch`
  Ostrel::Ageable attributeAge = Ostrel::Ageable::Ooooold;  ///< of attributes, raised by `touchAttributes` and its like
};

/// What other owners remember of their children.
struct TRESK_EXPORT ChildrenProperties {
  Ostrel::Ageable age = Ostrel::Ageable::Ooooold;  ///< for derived classes; this library leaves it as it is
};

}  // namespace Tresk
