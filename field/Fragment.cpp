// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Fragment.hpp>

#include <tresk/field/NamedEntries.hpp>

namespace Tresk {

Fragment::Iterator::~Iterator() = default;

Fragment::Fragment() = default;
Fragment::Fragment(const Fragment& other) = default;
Fragment& Fragment::operator=(const Fragment& other) {
  auto copy = other.creators_;  // without memory for it all stays as it was
  creators_.swap(copy);
  return *this;
}
Fragment::~Fragment() = default;

CreatorPtr& Fragment::operator[](const std::string& name) { return creators_[name]; }
CreatorPtr Fragment::operator()(const std::string& name) const { return Detail::findEntry(creators_, name); }
unsigned int Fragment::iterate(Iterator& iterator) const { return Detail::iterateEntries(creators_, iterator); }

}  // namespace Tresk
