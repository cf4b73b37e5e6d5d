// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Mutex.hpp>

namespace Ostrel::Detail {

/// Guards the links of all caches, data and creators, and the creator pointer of data. A leaf: nothing that can call
/// out runs under it. Never destroyed, as data may die during the exit of the process.
extern Mutex cacheMutex;

}  // namespace Ostrel::Detail
