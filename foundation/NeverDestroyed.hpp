// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

namespace Ostrel::Detail {

/// An object in static storage whose destructor never runs: threads may use it until the process is gone. It takes no
/// memory beyond its own, so that functions that must not fail can make it at their first call.
template <class T>
class NeverDestroyed {
 public:
  NeverDestroyed() : object_() {}
  ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default): leaves the object alone
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;

  T& operator*() noexcept { return object_; }

 private:
  union {
    T object_;
  };
};

}  // namespace Ostrel::Detail
