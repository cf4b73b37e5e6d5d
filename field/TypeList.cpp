// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/TypeList.hpp>

#include <tresk/field/TypeEquality.hpp>
#include <tresk/foundation/Diagnostics.hpp>

#include <cstdio>

namespace Tresk {

TypeList::TypeList() = default;
TypeList::TypeList(const TreskTypeWeakPtr& type) { insert(type); }
TypeList::TypeList(const TypeList& other) = default;
TypeList& TypeList::operator=(const TypeList& other) {
  auto copy = other.types_;  // without memory for it all stays as it was
  types_.swap(copy);
  return *this;
}
TypeList::~TypeList() = default;

void TypeList::insert(const TreskTypeWeakPtr& type) { types_.insert(type); }

bool TypeList::contains(const std::type_info& type) const {
  if (types_.empty()) return true;
  for (const TreskTypeWeakPtr& entry : types_) {
    const Ostrel::Pin<TreskTypeBase> record(entry);
    if (record && isSameType(record->getType(), type)) return true;
  }
  return false;
}

void TypeList::speak() const {
  for (const TreskTypeWeakPtr& entry : types_)
    if (const Ostrel::Pin<TreskTypeBase> record(entry); record)
      std::printf("{%s} ", Ostrel::Typename(record->getType()).c_str());
}

Ostrel::StrongPtr<Ostrel::StringList, Ostrel::StringList> TypeList::asText() const {
  Ostrel::StrongPtr<Ostrel::StringList, Ostrel::StringList> lines(new Ostrel::StringList);
  for (const TreskTypeWeakPtr& entry : types_)
    if (const Ostrel::Pin<TreskTypeBase> record(entry); record) lines->addLine(Ostrel::Typename(record->getType()));
  return lines;
}

bool containsType(const TypeList& list, const std::type_info& type) { return list.contains(type); }

}  // namespace Tresk
