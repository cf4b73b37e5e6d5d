// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/StrongPtr.hpp>

#include <utility>

namespace Ostrel {

/// Makes an object of static storage usable under the counted scheme.
///
/// It holds a strong reference to itself from its construction on, so that no release of other strong pointers can
/// try to delete it. At its own end it gives that reference up without a release; pointers that still refer to it are
/// invalid from then on.
template <class T>
class TRESK_OPEN_TEMPLATE Auto : public T {
 public:
  template <class... Arguments>
  explicit Auto(Arguments&&... arguments) : T(std::forward<Arguments>(arguments)...), self_(this) {}
  ~Auto() override { self_.forget(); }

 private:
  StrongPtr<T, typename T::ReferenceBaseType> self_;
};

}  // namespace Ostrel
