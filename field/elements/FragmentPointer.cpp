// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemArrayImplementation.hpp>

TRESK_INSTANTIATE_ELEMENT_TYPE(Ostrel::StrongPtr<Tresk::FragmentID, Tresk::FragmentID>);
