// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Profiler.hpp>

namespace Ostrel {

namespace {
constinit std::atomic<Profiler::Listener*> current{nullptr};
}

struct Profiler::Open {
  Listener* listener;
  Scope scope;
};

Profiler::Listener::~Listener() = default;

Profiler::Profiler(const std::string& file, int line, const std::string& function, const std::string& name, int level,
                   const std::string& detail)
    : Profiler(file.c_str(), line, function.c_str(), name.c_str(), level, detail.c_str()) {}

Profiler::Profiler(const char* file, int line, const char* function, const char* name, int level, const char* detail) {
  if (current.load(std::memory_order_relaxed) == nullptr) return;
  Listener* const listener = current.load(std::memory_order_acquire);
  if (listener == nullptr) return;
  open_.reset(new Open{listener, {file, line, function, name, level, detail}});
  listener->begin(open_->scope);
}

Profiler::~Profiler() {
  if (open_) open_->listener->end(open_->scope);
}

Profiler::Listener* Profiler::setListener(Listener* listener) noexcept {
  return current.exchange(listener, std::memory_order_acq_rel);
}

bool Profiler::replaceListener(Listener* installed, Listener* listener) noexcept {
  return current.compare_exchange_strong(installed, listener, std::memory_order_acq_rel);
}

}  // namespace Ostrel
