// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Difference.hpp"

template class Tresk::ComputationalField<Example::Difference>;
