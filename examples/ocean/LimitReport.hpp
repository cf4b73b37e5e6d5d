// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "Checks.hpp"
#include "OceanField.hpp"

#include <tresk/foundation/CacheStatistics.hpp>

#include <iosfwd>

namespace Example {

/// Shows the same work under limits of the cache of 100 %, 20 % and 5 % of the data: what it costs, and that it comes to
/// the same. Begins and ends with nothing held and no limit.
///
/// The work goes over the months: for each month twice over its depths, for the mean and for the spread about it, and
/// at last once more over everything.
/// \param also is told of the events of the cache, too; may be empty
void showLimits(const OceanField& ocean, std::ostream& out, Checks& checks, int chapter,
                const Ostrel::CacheListener& also);

}  // namespace Example
