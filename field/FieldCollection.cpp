// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FieldCollection.hpp>

#include <tresk/field/NamedEntries.hpp>

namespace Tresk {

FieldCollection::Iterator::~Iterator() = default;

FieldCollection::FieldCollection() = default;
FieldCollection::FieldCollection(const FieldCollection& other) = default;
FieldCollection& FieldCollection::operator=(const FieldCollection& other) {
  auto copy = other.fields_;  // without memory for it all stays as it was
  fields_.swap(copy);
  return *this;
}
FieldCollection::~FieldCollection() = default;

FieldPtr& FieldCollection::operator[](const std::string& name) { return fields_[name]; }
FieldPtr FieldCollection::operator()(const std::string& name) const { return Detail::findEntry(fields_, name); }
unsigned int FieldCollection::iterate(Iterator& iterator) { return Detail::iterateEntries(fields_, iterator); }

bool FieldCollection::FieldsAreOlderThan(const Ostrel::Ageable& age) const {
  for (const auto& [name, field] : fields_)
    if (field && field->getAge() > age) return false;
  return true;
}

void FieldCollection::updateAge(Ostrel::Ageable& age) const {
  for (const auto& [name, field] : fields_)
    if (field) age.raiseTo(field->getAge());
}

}  // namespace Tresk
