// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Version.hpp>

namespace Tresk {

const char* libraryVersion() noexcept { return TRESK_VERSION_TEXT; }

}  // namespace Tresk
