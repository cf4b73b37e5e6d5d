// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Ageable.hpp>
#include <tresk/foundation/Cacheable.hpp>
#include <tresk/foundation/Intercube.hpp>

#include <atomic>
#include <vector>

namespace Ostrel {

/// Something that stands for data which may or may not exist at the moment.
///
/// Its `Ageable` base is the age of the data: the time of the creator's last change.
/// Lifetime: refers to its cache weakly.
/// Threads: the cache may call `release` on any thread.
class TRESK_EXPORT Creature : public ReferenceBase<Creature>, public Intercube, public Ageable {
 public:
  /// The answer of `release`.
  enum ReasonForReleasal {
    CannotRelease = 0,  ///< the data stay, because the creator could not make them again
    StillInUse = 1,     ///< the data stay: somebody else holds them, or they are being created
    Released = 2        ///< the creator holds no data any more, or held none
  };

  /// \param cache where the creator keeps its books; may be empty
  explicit Creature(const WeakPtr<Cache, CacheBase>& cache);
  ~Creature() override;

  /// Gives the data up if possible.
  virtual ReasonForReleasal release() = 0;
  /// The held data, without producing them; empty if there are none.
  virtual StrongPtr<Cacheable, Cacheable> getCacheable() = 0;
  /// Whether data are held now. Takes no lock.
  virtual bool hasData() const;
  /// Whether a production is running.
  virtual bool isUnderCreation() const;
  /// Asks a running production to stop.
  virtual bool discardCreation();

  /// Enters the creator in the books of its cache, on the first call. With `keep` the cache leaves its data alone
  /// until the next call.
  void enableCaching(bool keep) const;
  /// How often `enableCaching` was called. Whoever sees a positive count sees a creator that has been built.
  long long getCachingCount() const noexcept { return nCachings_.load(std::memory_order_acquire); }
  /// Whether the last `enableCaching` asked to keep the data.
  bool isKept() const noexcept { return isKept_.load(std::memory_order_relaxed); }
  /// Whether `release` of this creator is known to call nobody: no saver, no producer.
  bool isReleaseSilent() const noexcept { return isReleaseSilent_; }
  /// What the last production took, in seconds; 0 if none was measured. Productions are measured while a cache has a
  /// policy or a listener.
  double getProductionSeconds() const noexcept { return productionSeconds_.load(std::memory_order_relaxed); }
  /// The cache; may be empty or dead.
  const WeakPtr<Cache, CacheBase>& getCache() const noexcept { return cache_; }

  /// Appends to the history of the data. Safe while others read it.
  void addProvenance(const StrongPtr<Provenance, Provenance>& provenance);
  /// The history, oldest first.
  std::vector<StrongPtr<Provenance, Provenance>> getProvenances() const;

 protected:
  /// For constructors: says whether `release` calls nobody, so that a cache may ask under the shared lock of a field. A
  /// class says no that overrides `release` with something that does.
  void setReleaseSilent(bool isSilent) noexcept { isReleaseSilent_ = isSilent; }

 private:
  friend struct Detail::CacheAccess;
  struct History;

  WeakPtr<Cache, CacheBase> cache_;
  // Guarded by the mutex of the caches.
  mutable CacheLink<const Creature> link_{this};
  mutable Detail::CacheBooks* books_ = nullptr;

  bool isReleaseSilent_ = false;
  mutable std::atomic<double> productionSeconds_{0};
  mutable std::atomic<long long> nCachings_{0};
  mutable std::atomic<bool> isKept_{false};
  std::atomic<History*> history_{nullptr};
};

}  // namespace Ostrel
