// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ComputationalField.hpp>

namespace Tresk {

template class ComputationalField<BinaryOperator<Quorvel::Operator<'+', 0>, double, double, double>>;
template FieldPtr addFields<double, double, double>(const FieldPtr& left, const FieldPtr& right);

}  // namespace Tresk
