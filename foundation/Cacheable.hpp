// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Cache.hpp>
#include <tresk/foundation/CacheLink.hpp>
#include <tresk/foundation/UseBatch.hpp>

#include <string>
#include <typeinfo>

namespace Ostrel {

/// Data that a creator can hold and a cache can list.
///
/// Knows its creator weakly. It stands on the list of the creator's cache from `setCreator` on until it dies, gets
/// another creator, or the cache dies.
/// Threads: `setCreator`, `markAsUsed` and the questions are safe on any thread; the description belongs to the
/// thread that sets the data up.
class TRESK_EXPORT Cacheable : public ReferenceBase<Cacheable> {
 public:
  /// \param creator the creator that the data are made for; may be empty. The data enter no list by this.
  explicit Cacheable(const WeakPtr<Creature, Creature>& creator);
  ~Cacheable() override;

  /// Bytes held.
  virtual unsigned long long memsize() const = 0;
  /// Completes the construction at the first strong pointer, where virtual calls reach the finished object. The
  /// default does nothing.
  virtual void DeferredConstructor();
  /// Type of the data object.
  virtual const std::type_info& DomainType() const;
  /// Type of the creator, or `void` without a living one.
  virtual const std::type_info& CreatorType() const;

  /// Ties the data to the creator that holds them, and lists them with its cache if both are alive: as used just now,
  /// with the bytes of this moment.
  void setCreator(const WeakPtr<Creature, Creature>& creator);
  /// The creator; may be empty or dead.
  WeakPtr<Creature, Creature> getCreator() const;

  /// Tells the cache that the data were used just now. The use is noted for this thread without a lock, and handed to
  /// the cache with others: after 64 of them, before this thread lets data go, and when it ends.
  void markAsUsed() noexcept {
    if (Detail::UseBatch* const batch = Detail::useBatch) [[likely]]
      batch->note(getRecord(), getSerialNumber());
    else
      Detail::noteFirstUse(getRecord(), getSerialNumber());
  }
  /// How often that happened, by uses of this thread and those that other threads have handed in.
  long long getUseCount() const;

  /// Whether the data stand on the list of a cache.
  bool isOnCacheList() const;

  /// Free text about the data.
  const std::string& getDescription() const noexcept { return description_; }
  /// Replaces the text.
  void setDescription(const std::string& text) { description_ = text; }

  /// Called at the first strong pointer; runs `DeferredConstructor`.
  void CacheableDeferredConstructor() { DeferredConstructor(); }
  /// Called when the object is condemned, before its destructor: takes it off the list.
  void PreDestructor() noexcept;

 private:
  friend class Cache;
  friend struct Detail::CacheAccess;
  friend class Detail::CacheProduction;

  // Under the mutex of the caches.
  void tie(const WeakPtr<Creature, Creature>& creator, const Creature* living, Detail::CacheBooks* books,
           unsigned long long nBytes);
  void list(const Creature* creator, bool isOthers, Detail::CacheBooks& books, unsigned long long nBytes);
  CacheHolding getHolding() const;

  std::string description_;
  // Guarded by the mutex of the caches.
  Detail::CacheEntry entry_{this};
  WeakPtr<Creature, Creature> creator_;
};

}  // namespace Ostrel
