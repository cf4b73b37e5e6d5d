// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/CacheStatistics.hpp>
#include <tresk/foundation/Creature.hpp>
#include <tresk/foundation/Mutex.hpp>
#include <tresk/foundation/Profiler.hpp>

#include <memory>
#include <string>

namespace Ostrel {

/// Writes what the library does, and when, into a file in the Chrome trace event format, which the viewers
/// ui.perfetto.dev and chrome://tracing show as one lane per thread.
///
/// The file is a JSON object whose `traceEvents` are: profiler scopes as pairs "B" and "E", productions of a cache as
/// slices "X" that last what the production took, all other events of a cache but its uses as instants "i", the bytes
/// held and the program's own numbers as counters "C", and names of process and threads as metadata "M". Times are
/// microseconds since the construction of the writer, with three decimals. Scopes end in the file when the writer is
/// closed, if they are still open then. Texts are UTF-8; bytes that are not read U+FFFD.
///
/// Threads of the file have small numbers in the order in which they are first heard of. The one on which the writer
/// was made is called "main", the others "thread 2" and so on; a thread that starts after another has ended may carry
/// its number on. The process has the number 1.
///
/// Lifetime: as every listener it outlives the scopes that it has heard begin, and listeners are removed in the reverse
/// order of their installation. Functions made by `makeCacheListener` may outlive it, and record nothing then.
/// Threads: all operations may run on any thread. One mutex guards the file, a leaf; a full buffer is written under it.
/// Errors: the constructor throws; afterwards whatever finds no room, in memory or on the disk, is left out, and
/// `isComplete` tells. After a failed write the file ends somewhere and is no JSON.
/// A scope that ends on another thread than it began on ends the innermost open scope there. A process that is forked
/// off writes nothing: the file belongs to the one that made it.
/// Cost: about a microsecond and 280 bytes of the file for each scope; the writer allocates at the first event of a
/// thread only. Without a writer a scope costs one relaxed load.
class TRESK_EXPORT TraceWriter : public Profiler::Listener {
 public:
  /// Makes the file, or empties it. Throws `std::runtime_error` with path and reason if that cannot be.
  explicit TraceWriter(const std::string& path);
  TraceWriter(const TraceWriter&) = delete;
  TraceWriter& operator=(const TraceWriter&) = delete;
  /// Closes the file.
  ~TraceWriter() override;

  /// Installs the writer as the listener of all profiler scopes. The former listener hears nothing until `close`, which
  /// installs it again if this writer is still the installed one. Does nothing a second time, also if another listener
  /// has been installed since, and after `close`.
  void attach();
  /// A function for `Cache::setListener`. Events of several caches may go into one file.
  /// \param counterName name of the counter that shows the bytes held, in bytes
  CacheListener makeCacheListener(const std::string& counterName = "bytes held") const;
  /// Records a number of the program. Numbers that are not finite are left out.
  void counter(const std::string& name, double value);

  /// Ends the file, and is no listener any more. Whatever comes later is left out. Returns `isComplete()`.
  bool close() noexcept;
  /// Whether all that was to be recorded so far has found its place; after `close` whether it has reached the file.
  bool isComplete() const noexcept;

  void begin(const Profiler::Scope& scope) override;
  void end(const Profiler::Scope& scope) override;

 private:
  class File;

  const std::shared_ptr<File> file_;
  Mutex mutex_;  ///< a leaf: attaching and closing
  Profiler::Listener* former_ TRESK_GUARDED_BY(mutex_) = nullptr;
  bool isAttached_ TRESK_GUARDED_BY(mutex_) = false;
  bool isClosed_ TRESK_GUARDED_BY(mutex_) = false;
};

}  // namespace Ostrel
