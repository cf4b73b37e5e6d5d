// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A program that is not linked with the library loads it with a module, uses it, and closes it, three times. The module
// may go; the library stays mapped, as records of counted objects may be looked at until the process ends. The last
// field stays in an object of static storage that is older than the library, and is dropped after the library's statics.
// usage: load_and_close <module> <soname of the library>

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace {

/// Ends the program with a word if something is not there.
void* demand(void* found, const char* what) {
  if (found != nullptr) return found;
  const char* const error = dlerror();
  std::fprintf(stderr, "%s: %s\n", what, error == nullptr ? "null" : error);
  std::_Exit(1);
}

struct Kept {
  void* field = nullptr;
  void (*drop)(void*) = nullptr;
  int (*hasEnded)() = nullptr;
  ~Kept() {
    if (drop == nullptr) return;
    drop(field);
    std::puts(hasEnded() == 1 ? "the last field is gone" : "the library has not ended");
  }
};
Kept kept;

}  // namespace

int main(int, char** argv) {
  for (int round = 0; round < 3; ++round) {
    if (dlopen(argv[2], RTLD_NOW | RTLD_NOLOAD) != nullptr && round == 0) return 2;
    void* const module = demand(dlopen(argv[1], RTLD_NOW | RTLD_LOCAL), "module");
    const auto make = reinterpret_cast<void* (*)(int)>(demand(dlsym(module, "makeField"), "makeField"));
    const auto drop = reinterpret_cast<void (*)(void*)>(demand(dlsym(module, "dropField"), "dropField"));
    const auto hasEnded = reinterpret_cast<int (*)()>(demand(dlsym(module, "hasEnded"), "hasEnded"));
    void* const field = demand(make(100), "field");
    if (hasEnded() != 0) return 4;
    if (round == 2) {
      kept.field = field;
      kept.drop = drop;
      kept.hasEnded = hasEnded;
      break;
    }
    drop(field);
    if (dlclose(module) != 0) return 3;
    void* const library = demand(dlopen(argv[2], RTLD_NOW | RTLD_NOLOAD), "the library is still mapped");
    dlclose(library);
  }
  return 0;
}
