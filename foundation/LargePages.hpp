// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <cstddef>

namespace Ostrel::Detail {

/// Asks the system to back a fresh block by large pages, if the block is large: the first write to it then costs one
/// page fault for each 2 MiB and not for each 4 KiB. An advice alone: without effect where the system has no such
/// pages, and no error. A block below 4 MiB is left alone, as it may share its pages with others.
TRESK_EXPORT void preferLargePages(const void* block, std::size_t nBytes) noexcept;

}  // namespace Ostrel::Detail
