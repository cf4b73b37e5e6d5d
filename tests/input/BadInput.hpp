// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/FragmentIDCollection.hpp>
#include <tresk/field/TreskTypeBase.hpp>

#include <input/BadPointers.hpp>
#include <support/FieldDoubles.hpp>
#include <support/NameArray.hpp>

#include <cstddef>
#include <string>
#include <typeinfo>
#include <vector>

/// \file
/// Bad input of the field floor. Not together with `CreatorDoubles.hpp`, which names the same things in its own way.

namespace TreskTest {

/// A free-standing fragment.
inline FragmentIDPtr makeFragment(const std::string& name) { return FragmentIDPtr(new Tresk::FragmentID(name)); }
/// A collection that takes no new names through `getID`.
inline FragmentIDCollectionPtr makeFixed(const Tresk::DynamicSize& shape, const std::vector<std::string>& names) {
  return FragmentIDCollectionPtr(new Tresk::FragmentIDCollection(makeNames(shape, names)));
}

/// A record that no array exists for and that nobody has remembered.
class OwnRecord : public Tresk::TreskTypeBase {
 public:
  explicit OwnRecord(const Tresk::TreskTypeIndex& index) : TreskTypeBase(index) {}
  const std::type_info& getType() const override { return typeid(OwnRecord); }
  bool isType(const std::type_info& type) const override { return type == typeid(OwnRecord); }
  Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> createChunk(std::size_t) const override { return {}; }
  unsigned int indexOf(const unsigned int& i) const override { return i; }
  Tresk::TreskTypePtr getComponentType() const override { return {}; }
  std::string chartComponentName(int) const override { return {}; }
  const std::type_info& getChartType() const override { return typeid(void); }
  int indexKind(unsigned int) const override { return 0; }
  int indexExtra(unsigned int) const override { return 0; }
};

inline Tresk::TreskTypePtr makeRecord(const std::string& name = "record of a test") {
  Tresk::TreskTypeIndex index;
  index.typeName = name;
  return Tresk::TreskTypePtr(new OwnRecord(index));
}

}  // namespace TreskTest
