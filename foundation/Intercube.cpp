// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Intercube.hpp>

#include <tresk/foundation/Mutex.hpp>

#include <utility>
#include <vector>

namespace Ostrel {

Attributes::Attributes() = default;
Attributes::~Attributes() = default;

InterfaceIterationParameter::InterfaceIterationParameter() : ReferenceBase<InterfaceIterationParameter>(this) {}
InterfaceIterationParameter::~InterfaceIterationParameter() = default;

InterfaceBase::InterfaceBase() : ReferenceBase<InterfaceBase>(this) {}
InterfaceBase::~InterfaceBase() = default;

void InterfaceBase::apply_const(const Intercube&,
                                const StrongPtr<InterfaceIterationParameter, InterfaceIterationParameter>&) {}
void InterfaceBase::apply(Intercube&, const StrongPtr<InterfaceIterationParameter, InterfaceIterationParameter>&) {}

/// Made with the first interface, so that the many objects without any stay small.
struct Intercube::Content {
  struct Entry {
    const std::type_info* type;
    StrongPtr<InterfaceBase, InterfaceBase> interface;
  };

  Mutex mutex;
  std::vector<Entry> entries TRESK_GUARDED_BY(mutex);

  Entry* find(const std::type_info& type) TRESK_REQUIRES(mutex) {
    // Nearly always the same object describes the type. Equality proper compares names, since two libraries may each
    // have a description of one type.
    for (Entry& entry : entries)
      if (entry.type == &type) return &entry;
    for (Entry& entry : entries)
      if (*entry.type == type) return &entry;
    return nullptr;
  }
};

Intercube::Intercube() noexcept = default;

Intercube::~Intercube() {
  // The content is out of reach before its interfaces die: the destructor of one may ask this object, and finds
  // nothing, or add another, which dies in the next round.
  while (Content* const content = content_.exchange(nullptr, std::memory_order_acq_rel)) delete content;
}

Intercube::Content& Intercube::getContent() const {
  Content* content = content_.load(std::memory_order_acquire);
  if (content != nullptr) return *content;
  Content* const made = new Content;
  if (content_.compare_exchange_strong(content, made, std::memory_order_acq_rel)) return *made;
  delete made;  // another thread was first
  return *content;
}

void Intercube::addInterface(const StrongPtr<InterfaceBase, InterfaceBase>& interface) const {
  StrongPtr<InterfaceBase, InterfaceBase> incoming = interface;
  if (!incoming) return;
  const std::type_info& type = incoming->getInterfaceType();
  Content& content = getContent();
  // What is replaced dies here, after the lock: its destructor may ask this object again.
  StrongPtr<InterfaceBase, InterfaceBase> replaced;
  {
    const MutexLock lock(content.mutex);
    if (Content::Entry* const entry = content.find(type)) {
      replaced = std::move(entry->interface);
      entry->interface = std::move(incoming);
      entry->type = &type;
    } else {
      content.entries.push_back({&type, std::move(incoming)});
    }
  }
}

StrongPtr<InterfaceBase, InterfaceBase> Intercube::findInterface(const std::type_info& type) const {
  Content* const content = content_.load(std::memory_order_acquire);
  if (content == nullptr) return StrongPtr<InterfaceBase, InterfaceBase>();
  const MutexLock lock(content->mutex);
  const Content::Entry* const entry = content->find(type);
  return entry == nullptr ? StrongPtr<InterfaceBase, InterfaceBase>() : entry->interface;
}

}  // namespace Ostrel
