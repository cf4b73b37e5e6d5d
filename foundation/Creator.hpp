// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/CacheOperation.hpp>
#include <tresk/foundation/Creature.hpp>

#include <cstddef>
#include <functional>
#include <string>

namespace Ostrel {

/// A creator of objects of class `Domain`, which derives from `Cacheable`.
template <class Domain>
class TRESK_OPEN_TEMPLATE CreatorBase : public Creature {
 public:
  /// A holder of the data. An invalid one says that there are none.
  using DataPtr = StrongPtr<Domain, Cacheable>;
  /// Told of a finished production.
  using Callback = std::function<void(const CreatorBase<Domain>&, const StrongPtr<Domain, Cacheable>&)>;

  /// Makes data for a creator from outside. An object of this interface, attached to the creator, brings back what
  /// the creator cannot make by itself.
  class TRESK_OPEN_TEMPLATE Producer : public Interface<Producer> {
   public:
    /// \param producerName what `CreatorBase::producerName` answers
    explicit Producer(const std::string& producerName = std::string()) : name(producerName) {}

    /// The data, or an invalid pointer. An exception passes to whoever asked.
    virtual StrongPtr<Domain, Cacheable> produce(const WeakPtr<CreatorBase<Domain>, Creature>& creator) = 0;
    /// Whether `produce` may be expected to yield data: creators that cannot make their data let them go only then.
    virtual bool canProduce() = 0;
    /// Starts a production that tells `callback` of its result; true if it was accepted.
    virtual bool request(const Callback& callback);
    /// Whether a production that was requested still runs.
    virtual bool isUnderCreation() const = 0;

    /// Name of the producer, for display.
    std::string name;
  };

  /// \param cache where the creator keeps its books; may be empty
  explicit CreatorBase(const WeakPtr<Cache, CacheBase>& cache) : Creature(cache) {}

  /// Whether the attached producer says so; false without one.
  bool isUnderCreation() const override;

  /// Whether data can be made again.
  virtual bool canProduce();
  /// Name of the producer; empty without one.
  virtual std::string producerName();
  /// Type of the data.
  virtual const std::type_info& getType() = 0;
  /// Makes the data, holds and returns them; invalid if that failed. An exception of the production passes, and the
  /// creator is as before.
  virtual DataPtr produce() = 0;
  /// The held data, without producing them. Takes no lock and allocates nothing.
  virtual DataPtr getData() = 0;
  /// The held data, which the creator gives up.
  virtual DataPtr takeData();
  /// Asks for a production; false if nobody takes the request.
  virtual bool request(const Callback& callback);

  /// The data, produced if need be: the access that everybody uses. Held data are marked as used unless `keep`.
  /// Invalid if the production yields nothing; exceptions of the production pass.
  DataPtr create(bool keep) {
    DataPtr held = getData();
    if (held.holdsObject()) [[likely]] {
      if (!keep) held->markAsUsed();
      return held;
    }
    produceFor(held, keep);
    return held;
  }

 private:
  /// Makes the data, ties them to this creator and has their cache see to its limit.
  TRESK_COLD void produceFor(DataPtr& made, bool keep) {
    Detail::CacheProduction production(*this);
    made = produce();
    production.finish(made.holdsObject());
    if (!made.holdsObject()) {
      made.reset();
      return;
    }
    production.enter(*made);
    this->enableCaching(keep);
  }
};

template <class Domain>
bool CreatorBase<Domain>::Producer::request(const Callback&) {
  return true;
}

template <class Domain>
bool CreatorBase<Domain>::isUnderCreation() const {
  const StrongPtr<Producer, InterfaceBase> producer = Ostrel::findInterface<Producer>(*this);
  return producer && producer->isUnderCreation();
}

template <class Domain>
bool CreatorBase<Domain>::canProduce() {
  const StrongPtr<Producer, InterfaceBase> producer = Ostrel::findInterface<Producer>(*this);
  return producer && producer->canProduce();
}

template <class Domain>
std::string CreatorBase<Domain>::producerName() {
  const StrongPtr<Producer, InterfaceBase> producer = Ostrel::findInterface<Producer>(*this);
  return producer ? producer->name : std::string();
}

template <class Domain>
typename CreatorBase<Domain>::DataPtr CreatorBase<Domain>::takeData() {
  return DataPtr();
}

template <class Domain>
bool CreatorBase<Domain>::request(const Callback& callback) {
  const StrongPtr<Producer, InterfaceBase> producer = Ostrel::findInterface<Producer>(*this);
  return producer && producer->request(callback);
}

/// A creator that holds its data and never gives them up by itself.
///
/// `Base` is the middle of the class tree and derives from `CreatorBase<Domain>`.
/// Threads: `hasData`, `getData`, `takeData` and `release` may run at any time on any thread, also while another
/// thread assigns the data. `produce` is not serialised here.
template <class Domain, class Base>
class TRESK_OPEN_TEMPLATE Creator : public Base {
 public:
  /// A holder of the data. An invalid one says that there are none.
  using DataPtr = StrongPtr<Domain, Cacheable>;

  /// An empty creator.
  explicit Creator(const WeakPtr<Cache, CacheBase>& cache) : Base(cache) {}
  /// A creator that begins with data: it becomes their creator, and its own age is touched.
  Creator(const DataPtr& initial, const WeakPtr<Cache, CacheBase>& cache) : Base(cache), data(initial) {
    if (!initial) return;
    initial->setCreator(this->getSelf());
    this->touch();
  }

  /// Always `CannotRelease`, even when there is nothing to release.
  Creature::ReasonForReleasal release() override { return Creature::CannotRelease; }
  /// `getData` in base form.
  StrongPtr<Cacheable, Cacheable> getCacheable() override { return getData(); }
  /// Whether data are held now. Takes no lock and no count.
  bool hasData() const override { return data.isValid(); }

  /// `std::nullptr_t` while the creator has never held data or let them go; `void` when it refers to data that have
  /// died; else the type of the data.
  const std::type_info& getType() override {
    // In base form: the type of data that are no `Domain` is told all the same.
    const StrongPtr<Cacheable, Cacheable> held = data;
    if (held.getRecord() == nullptr) return typeid(std::nullptr_t);
    if (!held) return typeid(void);
    const Cacheable& object = *held;
    return typeid(object);
  }

  /// Asks the attached `Producer`, if there is one, and holds its answer, valid or not.
  DataPtr produce() override {
    const auto producer = Ostrel::findInterface<typename CreatorBase<Domain>::Producer>(*this);
    if (!producer) return data;
    const Detail::CacheOperation operation;
    // Held here until it is returned: a release on another thread must not turn a production into an empty answer.
    DataPtr made = producer->produce(WeakPtr<CreatorBase<Domain>, Creature>(this));
    data = made;
    return made;
  }
  /// The held data; of several threads that ask each gets a holder of its own.
  DataPtr getData() override { return data; }
  /// The held data, which the creator gives up; of several threads that take, one gets them.
  DataPtr takeData() override { return data.take(); }

 protected:
  /// The held data. Other threads change it at any time: copy it before use (Note [Copying from a slot that changes]
  /// in DynPtr.hpp).
  DataPtr data;
};

/// A creator that forgets its data as soon as it is told to, for it can always make them again.
template <class Domain, class Base>
class TRESK_OPEN_TEMPLATE AlzheimerCreator : public Creator<Domain, Base> {
 public:
  using typename Creator<Domain, Base>::DataPtr;

  /// An empty creator.
  explicit AlzheimerCreator(const WeakPtr<Cache, CacheBase>& cache) : Creator<Domain, Base>(cache) {
    this->setReleaseSilent(true);
  }
  /// A creator that begins with data, and makes others when these are forgotten.
  AlzheimerCreator(const DataPtr& initial, const WeakPtr<Cache, CacheBase>& cache)
      : Creator<Domain, Base>(initial, cache) {
    this->setReleaseSilent(true);
  }

  /// Lets the data go unless somebody else holds them: `StillInUse` then, else `Released`.
  Creature::ReasonForReleasal release() override {
    return this->data.forgetIfSole() == Forgetting::IsShared ? Creature::StillInUse : Creature::Released;
  }
};

}  // namespace Ostrel
