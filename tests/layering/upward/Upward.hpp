// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

/// \file
/// A header of a lower floor that looks upwards in three ways. The layering check must find them; nothing includes it.

#include <tresk/field/Field.hpp>

namespace Tresk {
class Field;
}

namespace Ostrel {
void look(const Tresk::Field& field);
}
