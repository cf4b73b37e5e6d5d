// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Chunks.hpp>

class Data : public Ostrel::Cacheable {
 public:
#ifdef BAD
  Data() {}
#else
  explicit Data(const Ostrel::WeakPtr<Ostrel::Creature, Ostrel::Creature>& creator) : Cacheable(creator) {}
#endif
  unsigned long long memsize() const override { return 0; }
};
