// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/CreativeArrayBase.hpp>
#include <tresk/foundation/Mutex.hpp>

#include <functional>
#include <future>

namespace Tresk {

/// A creator that makes its data by running code, whenever they are asked for, and forgets them when told.
///
/// Threads: one computation at a time: a second caller waits and then finds the data. The creation mutex is held during
/// `compute`, so that code must not call `produce` of the same creator, which would block for good.
class TRESK_EXPORT FunctionalCreatorBase : public Ostrel::AlzheimerCreator<MemBase, CreativeArrayBase> {
 public:
  ~FunctionalCreatorBase() override;

  /// The held data, marked as used, or else those that `compute` makes, which the creator then holds. An exception of
  /// `compute` passes, and the creator is as before.
  MemBasePtr produce() override;
  /// Produces the data at once, unless they are held; the result is fetched by `getData`. True, also if the production
  /// yields nothing. `callback` is not called. An exception of `compute` passes.
  bool request(const Callback& callback) override;
  /// Whether a production runs that a derived class has put in `creationFuture`. No operation of this library fills
  /// it, so that the answer is false, even during `produce`.
  bool isUnderCreation() const override;

  /// Makes the data, which `produce` stores. Called directly it runs without the creation mutex.
  virtual MemBasePtr compute() const = 0;

 protected:
  /// \param flag for derived classes; \param cache where the creator keeps its books, may be empty
  FunctionalCreatorBase(bool flag, const CacheWeakPtr& cache);

  std::future<MemBasePtr> creationFuture;  ///< for derived classes that compute elsewhere
  Ostrel::Mutex creationMutex;             ///< held during `compute`
  const bool flag;                         ///< for derived classes; not read by this library
};

/// A creator that runs a function.
class TRESK_EXPORT FunctionalCreator : public FunctionalCreatorBase {
 public:
  /// Makes the data; an invalid pointer says that there are none.
  using Function = std::function<MemBasePtr()>;

  /// \param function makes the data; an empty one makes none
  /// \param flag for derived classes
  /// \param cache where the creator keeps its books; may be empty
  FunctionalCreator(const Function& function, bool flag, const CacheWeakPtr& cache);
  ~FunctionalCreator() override;

  MemBasePtr compute() const override;

 private:
  Function function_;
};

}  // namespace Tresk
