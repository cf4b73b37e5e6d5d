// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Pointers.hpp>

#include <chrono>
#include <functional>
#include <string>

namespace Ostrel {

/// The numbers of a cache at one moment. Those of a cache include its children's.
///
/// Bytes are `memsize` of data at the time when their creator was set. An access through `create` is a hit, a
/// production or a failure; what several threads waited for together is one production and hits.
struct CacheStatistics {
  unsigned long long limit = 0;           ///< bytes; `Cache::NoLimit` if there is none
  unsigned long long nHeldBytes = 0;      ///< bytes of the data listed now
  unsigned long long nPeakBytes = 0;      ///< the most that was ever held
  unsigned long long nInFlightBytes = 0;  ///< bytes by which the limit may be passed now: see `Cache`
  /// Uses of held data. Those of another thread are seen when it hands them in, at the latest at its 64th, and not at
  /// all if the data die before on a third one. An asynchronous creator uses its data once itself.
  unsigned long long nHits = 0;
  unsigned long long nProductions = 0;     ///< data that entered as the result of a production
  unsigned long long nFailures = 0;        ///< productions that threw or yielded nothing
  unsigned long long nEntries = 0;         ///< data that entered by being set
  unsigned long long nAsked = 0;           ///< questions to creators whether they let data go
  unsigned long long nEvicted = 0;         ///< data let go
  unsigned long long nCannotRelease = 0;   ///< refusals: nobody could bring the data back
  unsigned long long nStillInUse = 0;      ///< refusals: held by somebody else, or being created
  unsigned long long nThrown = 0;          ///< refusals: the question ended with an exception of a saver or producer
  unsigned long long nBytesGivenBack = 0;  ///< bytes of the data that died as they were let go
};

/// What a cache tells its listener.
enum class CacheEventKind {
  Used,           ///< held data were used, `nUses` times
  Produced,       ///< data entered as the result of a production
  Failed,         ///< a production threw or yielded nothing
  Entered,        ///< data entered by being set
  Evicted,        ///< data were let go
  CannotRelease,  ///< data stay: nobody could bring them back
  StillInUse,     ///< data stay: somebody else holds them, or they are being created
  Thrown,         ///< data stay: the question ended with an exception
  LimitExceeded,  ///< the limit is passed and nothing more can be let go
  Returned        ///< freed memory was given back to the operating system
};

/// The name of a kind, as it is spelled in the code.
TRESK_EXPORT const char* toString(CacheEventKind kind) noexcept;

/// One thing that happened in a cache.
struct CacheEvent {
  CacheEventKind kind = CacheEventKind::Used;  ///< what happened
  WeakPtr<Creature, Creature> creator;         ///< empty where none is concerned
  unsigned long long nBytes = 0;               ///< of the data concerned; the excess for `LimitExceeded`
  unsigned long long nUses = 0;                ///< for `Used`
  double seconds = 0;                          ///< for `Produced`: what the production took
  unsigned long long nHeldBytes = 0;           ///< in the cache, after the event
  std::string text;                            ///< for `Thrown`: the text of the exception
  /// When it happened, for `Produced` the end of the production. Events are told later than that, at the
  /// end of the outermost operation.
  std::chrono::steady_clock::time_point time = {};
};

/// Is told of events on the thread where they happened, while no lock of this library is held but perhaps the shared
/// one of a walk. Exceptions of a listener are dropped.
using CacheListener = std::function<void(const CacheEvent&)>;

/// Why data stay.
enum class CacheHoldingState {
  Held,           ///< by the creator alone: can be asked for
  HeldByCallers,  ///< by somebody beside the creator, or by others alone
  Kept,           ///< the program asked to keep them (`Creature::enableCaching(true)`)
  CannotRelease,  ///< the creator said that nobody can bring them back
  InProduction    ///< a production of their creator runs
};

/// The name of a state, in words.
TRESK_EXPORT const char* toString(CacheHoldingState state) noexcept;

/// Data in a cache, and who holds them as far as it is known.
struct CacheHolding {
  CacheHoldingState state = CacheHoldingState::Held;  ///< why they stay
  unsigned long long nBytes = 0;                      ///< what they count in the cache
  int nHolders = 0;                                   ///< strong pointers to the data beside one
  std::string creator;                                ///< type of the creator; empty if it has died
  std::string path;                                   ///< first entry of its history; empty if it has none
  WeakPtr<Creature, Creature> creature;               ///< the creator; empty or dead if it has died
};

}  // namespace Ostrel
