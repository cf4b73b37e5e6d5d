// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// What the sample page shows. Nobody compiles it.
// [outer]
int main() {
  // [inner]
  const char* text = "a; b [c] \n ${d}";

  if (text == nullptr) {
    return 1;
  }
  // [inner]
  return 0;
}
// [outer]
// [once]
  // [shifted]
int x;
  // [shifted]
