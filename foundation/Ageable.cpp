// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Ageable.hpp>

namespace Ostrel {

constinit const Ageable Ageable::Ooooold{std::numeric_limits<long long>::min()};
constinit std::atomic<long long> Ageable::GlobalTime{0};

std::string Ageable::str() const { return *this == Ooooold ? std::string("never") : std::to_string(getAge()); }

}  // namespace Ostrel
