// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemArrayImplementation.hpp>

TRESK_INSTANTIATE_ELEMENT_TYPE(Tresk::SimplexCell<3, unsigned int, Tresk::IJ_CellNamingConvention>);
