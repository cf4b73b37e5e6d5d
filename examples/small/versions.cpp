// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Tells the version of the headers and that of the library.
// [needed version]
#include <tresk/field/Version.hpp>

#if TRESK_VERSION_NUMBER < 100  // 10000 x major + 100 x minor + patch
#error "needs Tresk 0.1"
#endif
// [needed version]
#include <iostream>

int main() {
  // [two versions]
  std::cout << Tresk::version() << "\n"          // of the headers that this file was compiled with: "0.1.0"
            << Tresk::libraryVersion() << "\n";  // of the library that runs
  // [two versions]
}
