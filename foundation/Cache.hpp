// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/CachePolicy.hpp>
#include <tresk/foundation/CacheStatistics.hpp>
#include <tresk/foundation/Pointers.hpp>

#include <memory>
#include <string>
#include <vector>

namespace Ostrel {

/// The counted base of caches.
class TRESK_EXPORT CacheBase : public ReferenceBase<CacheBase> {
 public:
  CacheBase();
  ~CacheBase() override;
};

/// Keeps the books of data that can be given back, and gives them back when they pass a limit.
///
/// Data enter when a creator of this cache is set on them, and stand in the order of their use. Creators enter at
/// their first strong pointer.
///
/// The limit. At rest the bytes held are at most the limit, unless what cannot be let go exceeds it alone: data held
/// by callers, data that the program asked to keep, data that nobody can bring back, data in production
/// (`getHoldings` tells which). Data are let go at the end of the outermost `create`, `produce`, `makeSize`, `request`
/// or setting of data on the thread that brought them, and at the end of the thread of an asynchronous creator. When a
/// caller lets data go nothing happens: the next of these operations that makes data or tries to, `enforceLimit` or the
/// thread of the cache sees to it. While operations run, the bytes held are at most the limit and the bytes in flight:
/// what the running operations have brought in beyond the limit, and what is being let go at the moment.
///
/// The order. Least recently used first, exactly for the uses of one thread; uses of other threads are seen at the
/// latest when there are 64 of them. A policy can replace the order.
///
/// A cache may have a parent: then its data count in the parent too, whose limit they share with those of its other
/// children, in one order of use.
///
/// Lifetime: creators and data refer to their cache weakly. A cache that dies leaves them on no list. A cache holds its
/// parent.
/// Threads: all operations may run on any thread. One mutex guards the lists of all caches; it is a leaf and never
/// held while a creator is asked or an object dies. Inside a walk under the shared lock of a field only creators are
/// asked whose `release` calls nobody; the others are asked when the walk has ended. The same holds on the thread of an
/// asynchronous creator, which others may wait for: there the others are left to the next operation.
/// Errors: exceptions of savers and producers that come out of `release` pass to whoever called `trim` or
/// `enforceLimit`. Where nobody asked, they are counted, and the data stay.
/// Cost: constant for a use, an entry and an eviction, without allocation; data that are held by callers are looked at
/// again by each eviction that comes past them.
class TRESK_EXPORT Cache : public CacheBase {
 public:
  /// The limit of a cache without one.
  static constexpr unsigned long long NoLimit = ~0ULL;

  Cache();
  /// A cache whose data count in `parent` too. An empty pointer means no parent.
  explicit Cache(const StrongPtr<Cache, CacheBase>& parent);
  ~Cache() override;

  /// The default cache of the process. It lives until the process ends.
  static const StrongPtr<Cache, CacheBase>& MemCache();
  /// All caches of the process that somebody holds, oldest first.
  static std::vector<StrongPtr<Cache, CacheBase>> getCaches();
  /// The cache whose limit this one shares; empty without one.
  const StrongPtr<Cache, CacheBase>& getParent() const noexcept { return parent_; }

  /// The bytes that may be held at rest; `NoLimit` at first. Data that exceed a new limit are let go at once, unless
  /// the caller is inside a production.
  void setLimit(unsigned long long nBytes);
  /// The limit in bytes; `NoLimit` without one. A limit of a parent is not looked at.
  unsigned long long getLimit() const;

  /// Asks the creators of the data, least recently used first, to release them, until `bytes` bytes have been given
  /// back or all have been asked. Creators whose data are to be kept (`Creature::enableCaching(true)`) are not asked.
  /// Returns the bytes given back, by `memsize` of the data. Runs savers, as `release` does; an exception of one of
  /// them ends the walk and passes.
  unsigned long long trim(unsigned long long bytes);
  /// Lets data go until the limit of this cache and those of its parents hold; false if they cannot be brought to. Asks
  /// those too that have refused before. Exceptions as for `trim`.
  bool enforceLimit();

  /// The order in which data are let go; an empty pointer means least recently used first.
  void setPolicy(const StrongPtr<CachePolicy, CachePolicy>& policy);
  /// Is told of all events of this cache and its children from now on; an empty function ends that. A listener that
  /// was called just now may still be running when this returns.
  void setListener(const CacheListener& listener);
  /// Gives free memory back to the operating system whenever `nBytes` bytes have been evicted since the last time;
  /// `NoLimit`, as at first, means never. Takes milliseconds; nothing happens where the C library cannot do it.
  void setReturnsMemoryAfter(unsigned long long nBytes);

  /// Starts a thread that lets data go when others could not: because they were inside a walk, or what might have gone
  /// was in use. While the limit is passed it tries again, after 10 milliseconds at first and each second at last.
  /// Savers run on it. Nothing happens if it runs. Throws `std::system_error` if there is no thread to be had.
  void startThread();
  /// Ends it, and waits for it. The end of the cache does the same.
  void stopThread();

  /// The numbers of this moment.
  CacheStatistics getStatistics() const;
  /// The data listed here and in the children, largest first, with the state that they are in, and at the end the
  /// creators at work whose data do not count yet, with 0 bytes. Linear in the number of data and creators.
  std::vector<CacheHolding> getHoldings() const;
  /// The numbers, the accounted bytes beside the resident set of the process, and, if the limit is passed, what stands
  /// in the way: at most `nLines` of the largest holdings that cannot be let go.
  std::string describe(unsigned int nLines = 10) const;

  /// Number of data objects on the list.
  unsigned long long nCacheables() const;
  /// Number of creators in the books.
  unsigned long long nCreatures() const;
  /// The creators in the books, without those of the children. Linear in their number.
  std::vector<WeakPtr<Creature, Creature>> getCreatures() const;

 private:
  friend class Cacheable;
  friend class Creature;

  const StrongPtr<Cache, CacheBase> parent_;
  const std::unique_ptr<Detail::CacheBooks> books_;
};

/// Bytes of the process that are in memory now; 0 where the operating system does not tell.
TRESK_EXPORT unsigned long long getResidentBytes();

}  // namespace Ostrel
