// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/OnDemandCreator.hpp>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace TreskTest {

using Tresk::CacheWeakPtr;
using Tresk::CreatorPtr;
using Tresk::CreatorWeakPtr;
using Tresk::FieldPtr;
using Tresk::FragmentIDCollectionPtr;
using Tresk::FragmentIDPtr;
using Tresk::MemBasePtr;

/// What owns creators, and what owns fields.
using CreatorOwner = Tresk::CreatorContainer;
using FieldOwner = Tresk::Ownable<Tresk::Field, Tresk::ChildrenProperties>::Container;

/// A creator that holds its data and forgets them when told.
using ForgetfulArray = Ostrel::AlzheimerCreator<Tresk::MemBase, Tresk::CreativeArrayBase>;

inline MemBasePtr makeArray(unsigned long long n0, double value = 0) {
  auto* const array = new Tresk::MemArray<1, double>(Tresk::MultiIndex<1>(n0), CreatorWeakPtr());
  const MemBasePtr held(array);
  for (double& element : array->getTypedChunk()->vector()) element = value;
  return held;
}
inline MemBasePtr makeArray(unsigned long long n0, unsigned long long n1, double value) {
  auto* const array = new Tresk::MemArray<2, double>(Tresk::MultiIndex<2>(n0, n1), CreatorWeakPtr());
  const MemBasePtr held(array);
  for (double& element : array->getTypedChunk()->vector()) element = value;
  return held;
}

/// A pointer with a record whose array has died.
inline MemBasePtr makeDeadArray() {
  Ostrel::WeakPtr<Tresk::MemBase, Ostrel::Cacheable> observer;
  { observer = makeArray(1); }
  return MemBasePtr(observer);
}

/// An empty pointer that says which pointer it is.
inline FragmentIDPtr unnamed() { return FragmentIDPtr(); }

/// An owner that records what it is asked and answers as it is told.
template <class Container>
class RecordingOwner : public Container {
 public:
  using Answer = std::function<bool(Ostrel::Intercube&, const Ostrel::Intercube&)>;

  explicit RecordingOwner(Answer howToAnswer = {}) : onQuestion(std::move(howToAnswer)) {}

  bool processOwnership(Ostrel::Intercube& question, const Ostrel::Intercube& context) const override {
    ++nQuestions;
    return onQuestion ? onQuestion(question, context) : answer;
  }
  void forEachOwner(void* argument) override { arguments.push_back(argument); }

  mutable int nQuestions = 0;
  bool answer = true;
  Answer onQuestion;
  std::vector<void*> arguments;
};

template <class Container>
using OwnerPtr = Ostrel::StrongPtr<RecordingOwner<Container>, Container>;

template <class Container>
OwnerPtr<Container> makeOwner(typename RecordingOwner<Container>::Answer onQuestion = {}) {
  return OwnerPtr<Container>(new RecordingOwner<Container>(std::move(onQuestion)));
}

/// Makes arrays from outside for whatever creator it is attached to, and counts what it is asked.
class ArrayProducer : public Ostrel::CreatorBase<Tresk::MemBase>::Producer {
 public:
  explicit ArrayProducer(std::function<MemBasePtr()> makeOne, const std::string& producerName = "array producer")
      : Producer(producerName), make(std::move(makeOne)) {}

  MemBasePtr produce(const Ostrel::WeakPtr<Ostrel::CreatorBase<Tresk::MemBase>, Ostrel::Creature>& creator) override {
    ++nProductions;
    lastCreator = creator;
    return make();
  }
  bool canProduce() override {
    ++nQuestions;
    if (onQuestion) onQuestion();
    return canProduceNow;
  }
  bool isUnderCreation() const override { return false; }

  std::function<MemBasePtr()> make;
  std::function<void()> onQuestion;
  bool canProduceNow = true;
  int nProductions = 0;
  int nQuestions = 0;
  Ostrel::WeakPtr<Ostrel::CreatorBase<Tresk::MemBase>, Ostrel::Creature> lastCreator;
};

using ProducerPtr = Ostrel::StrongPtr<ArrayProducer, Ostrel::InterfaceBase>;

inline ProducerPtr attachArrayProducer(const Ostrel::Intercube& creator, std::function<MemBasePtr()> make) {
  const ProducerPtr producer(new ArrayProducer(std::move(make)));
  creator.addInterface(producer);
  return producer;
}

/// A computer for `OnDemandCreator`: runs a function that it shares with its copies.
class SharedComputer {
 public:
  using Compute = std::function<MemBasePtr(const CreatorWeakPtr&)>;
  explicit SharedComputer(Compute compute) : compute_(std::make_shared<Compute>(std::move(compute))) {}
  MemBasePtr operator()(const CreatorWeakPtr& creator) const { return (*compute_)(creator); }

 private:
  std::shared_ptr<Compute> compute_;
};

/// A creator of any kind whose operations can be watched. The hooks run before the operation itself.
template <class Kind>
class WatchedCreator : public Kind {
 public:
  using Kind::Kind;
  ~WatchedCreator() override {
    if (onDeath) onDeath();
  }

  Ostrel::Creature::ReasonForReleasal release() override {
    ++nReleases;
    if (onRelease) onRelease();
    return Kind::release();
  }
  MemBasePtr produce() override {
    ++nProductions;
    return Kind::produce();
  }
  MemBasePtr getData() override {
    ++nQuestions;
    if (onQuestion) onQuestion();
    return Kind::getData();
  }
  Ostrel::StrongPtr<Ostrel::Cacheable, Ostrel::Cacheable> getCacheable() override {
    ++nCacheableQuestions;
    return Kind::getCacheable();
  }

  std::atomic<int> nReleases{0};
  std::atomic<int> nProductions{0};
  std::atomic<int> nQuestions{0};
  std::atomic<int> nCacheableQuestions{0};
  std::function<void()> onRelease;
  std::function<void()> onQuestion;
  std::function<void()> onDeath;
};

using WatchedForgetful = WatchedCreator<ForgetfulArray>;
using WatchedArray = WatchedCreator<Tresk::CreativeArray>;
using WatchedFunctional = WatchedCreator<Tresk::FunctionalCreator>;

template <class Kind>
using KindPtr = Ostrel::StrongPtr<Kind, Ostrel::Creature>;

inline KindPtr<WatchedForgetful> makeForgetful(const MemBasePtr& data = {}, const CacheWeakPtr& cache = {}) {
  return data ? KindPtr<WatchedForgetful>(new WatchedForgetful(data, cache))
              : KindPtr<WatchedForgetful>(new WatchedForgetful(cache));
}
inline KindPtr<WatchedFunctional> makeFunctional(const Tresk::FunctionalCreator::Function& function,
                                                 const CacheWeakPtr& cache = {}) {
  return KindPtr<WatchedFunctional>(new WatchedFunctional(function, false, cache));
}

/// The present stamp of the clock.
inline long long clockNow() { return Ostrel::Ageable::GlobalTime.load(); }
/// The age of the data of a creator, as a number.
inline long long dataStamp(const Tresk::CreativeArrayBase& creator) { return creator.getDataAge().getAge(); }
inline long long attributeStamp(const Ostrel::Attributes& object) { return object.getAttributeAge().getAge(); }
inline long long fieldStamp(const Tresk::Field& field) { return field.getAge().getAge(); }

}  // namespace TreskTest
