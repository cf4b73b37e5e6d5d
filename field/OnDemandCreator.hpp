// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/CreativeArrayBase.hpp>
#include <tresk/field/MemArray.hpp>

#include <utility>

namespace Tresk {

/// A creator with a computer: an object whose call makes the array of a creator.
///
/// `computer(creator)` takes the weak pointer of this creator and returns a strong pointer to an array; an array other
/// than a `MemArray<N, T>` counts as none.
/// \tparam Computer class of the computer; \tparam N rank and \tparam T element type of the arrays
///
/// Threads: `produce` is not serialised: two threads may both compute, and the last array stays. The computer runs
/// without a lock.
/// Errors: exceptions of the computer pass, and the creator is as before.
template <class Computer, int N, class T>
class TRESK_OPEN_TEMPLATE OnDemandCreator : public CreativeArrayBase {
 public:
  /// \param computer is copied; \param cache where the creator keeps its books, may be empty
  OnDemandCreator(const Computer& computer, const CacheWeakPtr& cache) : CreativeArrayBase(cache), computer_(computer) {
    setReleaseSilent(true);
  }

  Ostrel::Creature::ReasonForReleasal release() override {
    return data_.forgetIfSole() == Ostrel::Forgetting::IsShared ? StillInUse : Released;
  }
  Ostrel::StrongPtr<Ostrel::Cacheable, Ostrel::Cacheable> getCacheable() override { return data_; }
  bool hasData() const override { return data_.isValid(); }
  /// The element type, whether data are held or not.
  const std::type_info& getType() override { return typeid(T); }
  /// The held data, or those that the computer makes: they are tied to this creator at once, and it is touched.
  MemBasePtr produce() override {
    if (MemBasePtr held = data_) return held;
    const Ostrel::Detail::CacheOperation operation;
    const CreatorWeakPtr self(this);
    Ostrel::StrongPtr<MemArray<N, T>, Ostrel::Cacheable> made(computer_(self));
    // An array of another kind is let go here: as a plain array its pointer would become valid again.
    if (!made) made.reset();
    data_ = made;
    if (made) {
      made->setCreator(getSelf());
      touch();
    }
    return made;
  }
  MemBasePtr getData() override { return data_; }
  MemBasePtr takeData() override { return data_.take(); }

 private:
  Computer computer_;
  Ostrel::StrongPtr<MemArray<N, T>, Ostrel::Cacheable> data_;
};

}  // namespace Tresk
