// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

/// \file
/// Data and those who stand for them: chunks (`Chunk`), ages (`Ageable`), the cache contract (`Cache`, `Cacheable`,
/// `Creature`) and the creator templates (`CreatorBase`, `Creator`, `AlzheimerCreator`).

#include <tresk/foundation/Ageable.hpp>
#include <tresk/foundation/Cache.hpp>
#include <tresk/foundation/Cacheable.hpp>
#include <tresk/foundation/Chunk.hpp>
#include <tresk/foundation/Creator.hpp>
#include <tresk/foundation/Creature.hpp>
