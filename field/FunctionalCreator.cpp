// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FunctionalCreator.hpp>

#include <chrono>

namespace Tresk {

FunctionalCreatorBase::FunctionalCreatorBase(bool creatorFlag, const CacheWeakPtr& cache)
    : Ostrel::AlzheimerCreator<MemBase, CreativeArrayBase>(cache), flag(creatorFlag) {}

FunctionalCreatorBase::~FunctionalCreatorBase() = default;

MemBasePtr FunctionalCreatorBase::produce() {
  const Ostrel::Detail::CacheOperation operation;
  const Ostrel::MutexLock lock(creationMutex);
  if (MemBasePtr held = data) {
    held->markAsUsed();
    return held;
  }
  // The result is held here as well: the cache may empty the creator as soon as the data stand in it.
  MemBasePtr made = compute();
  data = made;
  return made;
}

bool FunctionalCreatorBase::request(const Callback&) {
  if (const MemBasePtr held = getData()) {
    held->markAsUsed();
    return true;
  }
  Ostrel::Detail::CacheProduction production(*this);
  const MemBasePtr made = produce();
  production.finish(made.isValid());
  if (made) {
    made->setCreator(getSelf());
    enableCaching(false);
  }
  return true;
}

bool FunctionalCreatorBase::isUnderCreation() const {
  return creationFuture.valid() && creationFuture.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
}

FunctionalCreator::FunctionalCreator(const Function& function, bool creatorFlag, const CacheWeakPtr& cache)
    : FunctionalCreatorBase(creatorFlag, cache), function_(function) {}

FunctionalCreator::~FunctionalCreator() = default;

MemBasePtr FunctionalCreator::compute() const { return function_ ? function_() : MemBasePtr(); }

}  // namespace Tresk
