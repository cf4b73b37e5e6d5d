// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Pointers.hpp>

namespace Ostrel {

constinit PlainCounter<long long> PointerID{0};

}  // namespace Ostrel
