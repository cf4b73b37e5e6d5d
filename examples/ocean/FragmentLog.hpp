// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Field.hpp>
#include <tresk/foundation/CacheStatistics.hpp>

#include <memory>
#include <string>
#include <vector>

namespace Example {

/// Records what becomes of the arrays of some fields: when they are computed, held and forgotten, by the word of their
/// cache.
///
/// Threads: events come from any thread; everything else happens on one.
class FragmentLog {
 public:
  /// Something that happened to one array.
  struct Entry {
    std::size_t group;
    std::size_t row;            ///< of the array within its group
    bool isMade;                ///< else it was let go
    double seconds;             ///< when, since the log was made; for an array made: when it was there
    double duration;            ///< of its production, in seconds
    unsigned long long nBytes;  ///< of the array
    unsigned long long nHeld;   ///< bytes that the cache holds then
  };
  /// What a row is at a moment.
  enum class State : unsigned char { Untouched, Computing, Held, Forgotten };

  FragmentLog();

  /// Adds the fragments of fields as the rows of a new group: first all fields at the first fragment, then all at the
  /// second, and so on. Returns the number of the group.
  std::size_t addGroup(const std::string& name, const std::vector<Tresk::FieldPtr>& fields);
  /// The function that the cache of the fields tells. It may outlive the log.
  Ostrel::CacheListener makeListener() const;

  std::size_t nGroups() const;
  const std::string& getName(std::size_t group) const;
  std::size_t nRows(std::size_t group) const;
  /// All entries by their time.
  std::vector<Entry> getEntries() const;
  /// Seconds since the log was made.
  double now() const;

 private:
  struct Book;
  const std::shared_ptr<Book> book_;
};

/// The states of the rows of a group in equal spans of time, row by row. A span in which an array was being computed
/// for some time counts as that, and so do the next ones up to \p nLeast, for short productions to be seen; else the
/// state at its end holds.
std::vector<FragmentLog::State> paintRows(const std::vector<FragmentLog::Entry>& entries, std::size_t group,
                                          std::size_t nRows, double begin, double end, std::size_t nSpans,
                                          std::size_t nLeast = 1);

/// Bytes held at a moment by each group.
struct HeldBytes {
  double seconds;
  std::vector<unsigned long long> groups;
  unsigned long long inCache;  ///< by the word of the cache
};

/// The bytes held after each entry.
std::vector<HeldBytes> addUpBytes(const std::vector<FragmentLog::Entry>& entries, std::size_t nGroups);

}  // namespace Example
