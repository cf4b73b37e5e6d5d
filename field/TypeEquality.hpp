// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <typeinfo>

namespace Tresk {

/// Whether two descriptions mean one type: by the address of the name first, by equality if those differ.
inline bool isSameType(const std::type_info& a, const std::type_info& b) noexcept {
  return a.name() == b.name() || a == b;
}

}  // namespace Tresk
