// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/ComputationalField.hpp>

namespace Example {

/// The difference of two fields of numbers. The library brings the sum ready made; any other operation is instantiated
/// by the program that uses it, as here.
using Difference = Tresk::BinaryOperator<Quorvel::Operator<'-'>, double, double, double>;

}  // namespace Example

extern template class Tresk::ComputationalField<Example::Difference>;
