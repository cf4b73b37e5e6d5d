// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <map>
#include <string>

namespace Tresk::Detail {

/// The value of a name; empty if it is absent.
template <class Value>
Value findEntry(const std::map<std::string, Value>& entries, const std::string& name) {
  const auto entry = entries.find(name);
  return entry == entries.end() ? Value() : entry->second;
}

/// Calls `iterator.apply(name, value)` in the order of names until it returns false; how often it returned true.
template <class Value, class Iterator>
unsigned int iterateEntries(std::map<std::string, Value>& entries, Iterator& iterator) {
  unsigned int nTrue = 0;
  for (auto& [name, value] : entries) {
    if (!iterator.apply(name, value)) break;
    ++nTrue;
  }
  return nTrue;
}

}  // namespace Tresk::Detail
