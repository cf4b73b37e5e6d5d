// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Provenance.hpp>

#include <algorithm>
#include <stdexcept>

namespace Ostrel {

Provenance::Provenance(const std::string& text) : ReferenceBase<Provenance>(this), text_(text) {}
Provenance::~Provenance() = default;

std::string Provenance::getPath(char separator) const {
  std::string path = text_;
  std::replace(path.begin(), path.end(), '/', separator);
  return path;
}

StringList::StringList() : ReferenceBase<StringList>(this) {}
StringList::~StringList() = default;

const std::string& StringList::getLine(unsigned long long i) const {
  if (i >= lines_.size()) {
    throw std::out_of_range("StringList::getLine(): line " + std::to_string(i) + " of " +
                            std::to_string(lines_.size()));
  }
  return lines_[i];
}

}  // namespace Ostrel
