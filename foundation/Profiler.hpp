// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <atomic>
#include <memory>
#include <string>

namespace Ostrel {

/// One scope of the profile: it starts at construction and ends at destruction.
///
/// Without a listener a scope costs one relaxed load and nothing is recorded.
/// Threads: scopes are opened on any thread; the listener must stand concurrent calls.
class TRESK_EXPORT Profiler {
 public:
  /// What a scope tells of itself.
  struct Scope {
    std::string file;      ///< source path without extension, for instance "field/CreativeArray"
    int line;              ///< line of the scope in that source, a label of the scope
    std::string function;  ///< long function text
    std::string name;      ///< short name
    int level;             ///< depth of detail: greater is finer
    std::string detail;    ///< whatever the scope adds, often empty
  };

  /// Receives the beginning and the end of every scope.
  class TRESK_EXPORT Listener {
   public:
    virtual ~Listener();
    /// A scope has begun, on the thread that calls. An exception passes to the code that opened it.
    virtual void begin(const Scope& scope) = 0;
    /// The same scope ends. Called by a destructor, so that an exception terminates the process.
    virtual void end(const Scope& scope) = 0;
  };

  /// Opens a scope that tells this of itself, if there is a listener.
  Profiler(const std::string& file, int line, const std::string& function, const std::string& name, int level,
           const std::string& detail);
  /// The same from literals, without making texts that nobody reads.
  Profiler(const char* file, int line, const char* function, const char* name, int level, const char* detail);
  Profiler(const Profiler&) = delete;
  Profiler& operator=(const Profiler&) = delete;
  ~Profiler();

  /// Installs a listener, or none if it is null, and returns the former one. A scope reports its end to the listener
  /// that heard its beginning: the caller keeps a replaced listener alive until its open scopes have ended.
  static Listener* setListener(Listener* listener) noexcept;
  /// Installs `listener` if `installed` is the installed one, and tells whether it was.
  static bool replaceListener(Listener* installed, Listener* listener) noexcept;

 private:
  struct Open;
  std::unique_ptr<Open> open_;
};

}  // namespace Ostrel
