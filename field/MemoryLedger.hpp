// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Field.hpp>
#include <tresk/foundation/Cache.hpp>

#include <string>
#include <utility>
#include <vector>

namespace Tresk {

/// Creators that are in one state, and what their data take or would take.
struct MemoryAmount {
  unsigned long long nCreators = 0;       ///< creators in the state
  unsigned long long nBytes = 0;          ///< of the data whose size is known
  unsigned long long nOfUnknownSize = 0;  ///< creators among them that count no bytes, as nobody knows how many
};

/// A line of a ledger: some creators, each of which is in exactly one of the states.
///
/// A creator that holds data is in one of the first two states, whatever else it does. Bytes of data that are not there
/// are those of the size and the element type that the creator tells; data of unknown size or type count none.
struct TRESK_EXPORT MemoryRow {
  std::string name;            ///< what the line is about
  MemoryAmount held;           ///< data held by the creator alone
  MemoryAmount heldByCallers;  ///< data held by the creator and by somebody else; several creators count them once
  MemoryAmount computing;      ///< no data yet: a production runs
  MemoryAmount stuck;          ///< no data: the work of an asynchronous creator has failed, and it takes no request
  MemoryAmount forgotten;      ///< no data: they were never made or have been let go, and what they take is known
  MemoryAmount unknown;        ///< no data, and no word of what they would take

  /// Creators in any state.
  unsigned long long nCreators() const noexcept;
  /// Bytes that are in memory.
  unsigned long long nHeldBytes() const noexcept;
};

/// The line of a cache: the creators that keep their books in it, without those of its children.
struct CacheMemoryRow : MemoryRow {
  std::string parent;                  ///< name of the cache whose limit this one shares; empty without one
  Ostrel::CacheStatistics statistics;  ///< the numbers of the cache, with those of its children
};

/// An account of memory: bytes by state, by field and by cache, for some fields or for the whole process.
///
/// A value: the numbers of one moment, as a record and as a text. A creator that stands in several fields counts in the
/// row of each, but only once in the total, which is then less than the sum of the rows. Data that several creators
/// hold count once in each row. Data that callers hold and their creator does not are in no state; the accounted bytes
/// include them.
///
/// Nothing is produced, no saver runs and no age changes; creators are asked for their data and for what they know of
/// their size, as in the walks over a field, but under no lock of a field.
/// Lifetime: refers to nothing. While it is taken, the data of one creator at a time are held, for the time of one
/// look; a cache that asks for them just then finds them in use, and so does another ledger. The caches are held until
/// the end. What has lost all its other holders during a look dies on this thread after it; for a field this means what
/// its destructor does.
/// Threads: may be taken at any time on any thread. Each creator is looked at once, and counts the same wherever it
/// stands; the creators of a field are looked at together, so that the numbers of a row are of about one moment.
/// Productions are seen as far as they were running when the ledger was begun. Of a creator that stands in no field the
/// element type is known by its `MemArrayProperties` alone: whoever made it may still be setting it up.
/// Errors: exceptions of the creators that are asked pass, and so do failures of allocation.
/// Cost: linear in the number of creators and the fields that they stand in.
struct TRESK_EXPORT MemoryLedger {
  /// A field under a name to tell it by.
  using NamedField = std::pair<std::string, FieldPtr>;

  /// The ledger of one field, which the caller keeps alive.
  static MemoryLedger of(const Field& field);
  /// The ledger of some fields, in their order; empty pointers and repetitions are left out. An empty name stands for
  /// the one that the ledger gives.
  static MemoryLedger of(const std::vector<NamedField>& fields);
  /// The ledger of all creators in the books of some cache, of the fields that they stand in, and of all creators of
  /// these. The given fields come first and under the given names, the others in the order of their construction.
  /// Caches and fields that no pointer has held yet, as those on the stack, have no row. A creator without a cache is
  /// seen only through a field that is given or has other creators, and a field that is not given only by creators that
  /// are in the books when the ledger is begun and stay until they are asked.
  static MemoryLedger ofProcess(const std::vector<NamedField>& fields = {});

  /// The ledger as tables, without the columns of states and the rows of leftovers that have nothing to tell.
  std::string toText() const;

  std::vector<MemoryRow> fields;       ///< a field without a given name is called by the number of its construction
  MemoryRow inNoField;                 ///< creators that stand in no field
  std::vector<CacheMemoryRow> caches;  ///< of a process all, oldest first; of fields those of their creators
  MemoryRow inNoCache;                 ///< creators without a cache that somebody holds
  MemoryRow total;                     ///< each creator once

  unsigned long long nInSeveralFields = 0;  ///< creators that stand in more than one row of `fields`
  unsigned long long nAccountedBytes = 0;   ///< of the process: data on the lists of caches
  unsigned long long nChunkBytes = 0;       ///< of the process: contents of chunks (`ChunkBase::TotalMemsize`)
  unsigned long long nResidentBytes = 0;    ///< of the process: memory resident; 0 where the system does not tell
};

}  // namespace Tresk
