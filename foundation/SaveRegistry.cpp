// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/SaveRegistry.hpp>

#include <tresk/foundation/Mutex.hpp>

#include <algorithm>
#include <map>
#include <typeindex>
#include <vector>

namespace Ostrel {

namespace {

using CreatorPtr = StrongPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>;

struct CreatorTable {
  Mutex mutex;
  std::map<std::type_index, std::vector<CreatorPtr>> creators TRESK_GUARDED_BY(mutex);
};

/// Never destroyed: arrays may be made during the exit of the process.
CreatorTable& theTable() {
  static CreatorTable* const table = new CreatorTable;
  return *table;
}

}  // namespace

SaveInterfaceCreatorBase::SaveInterfaceCreatorBase() : ReferenceBase<SaveInterfaceCreatorBase>(this) {}
SaveInterfaceCreatorBase::~SaveInterfaceCreatorBase() = default;

SaveRegistryBase::SaveRegistryBase() = default;
SaveRegistryBase::~SaveRegistryBase() = default;

void SaveRegistryBase::traverseCreators(const std::type_info& type) {
  CreatorTable& table = theTable();
  std::vector<CreatorPtr> creators;
  {
    const MutexLock lock(table.mutex);
    const auto entry = table.creators.find(type);
    if (entry != table.creators.end()) creators = entry->second;
  }
  for (const CreatorPtr& creator : creators) apply(creator);
}

bool SaveRegistryBase::registerCreator(const std::type_info& type, const CreatorPtr& creator) {
  if (!creator) return false;
  CreatorTable& table = theTable();
  const MutexLock lock(table.mutex);
  std::vector<CreatorPtr>& creators = table.creators[type];
  if (std::find(creators.begin(), creators.end(), creator) != creators.end()) return false;
  creators.push_back(creator);
  return true;
}

bool SaveRegistryBase::unregisterCreator(const std::type_info& type, const CreatorPtr& creator) {
  CreatorTable& table = theTable();
  CreatorPtr removed;  // dies after the lock
  {
    const MutexLock lock(table.mutex);
    const auto entry = table.creators.find(type);
    if (entry == table.creators.end()) return false;
    std::vector<CreatorPtr>& creators = entry->second;
    const auto place = std::find(creators.begin(), creators.end(), creator);
    if (place == creators.end()) return false;
    removed = *place;
    creators.erase(place);
  }
  return true;
}

}  // namespace Ostrel
