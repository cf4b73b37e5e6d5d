// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// The walks over a field.

#include <tresk/field/FragmentIterator.hpp>
#include <tresk/field/FragmentSelector.hpp>
#include <tresk/field/WalkHolder.hpp>
#include <tresk/foundation/Profiler.hpp>

#include <future>

namespace Tresk {

namespace {

/// Whether a walk shall visit a fragment. A selector that is gone selects everything.
bool isSelected(const FragmentSelectorWeakPtr& selector, const CreatorPtr& creator, const FragmentIDPtr& fragment) {
  const Ostrel::Pin<FragmentSelector> holder(selector);
  return !holder || holder->isSelected(*creator, fragment);
}

}  // namespace

fragment_copy_t Field::getFragmentsCopy() const {
  const Ostrel::Profiler profiler(
      "field/Field", 72,
      "const Tresk::fragment_copy_t Tresk::getFragmentsCopy(const Field::fragments_t&, Field::fragment_mutex_t&)",
      "Field::getFragmentsCopy()", 9, "");
  fragment_copy_t copy;
  copy.reserve(nFragments());  // room before the lock, as a rule; the table may grow until the lock is taken
  const SharedFragmentLock lock(mutex_);
  for (std::size_t i = 0; i < fragments_.keys.size(); ++i) copy.emplace_back(fragments_.keys[i], fragments_.values[i]);
  return copy;
}

std::optional<CreatorPtr> Field::getOnlyEntry() const {
  const SharedFragmentLock lock(mutex_);
  return fragments_.keys.size() == 1 ? std::optional(fragments_.values.front()) : std::nullopt;
}

unsigned int Field::iterateUnnamed(const FragmentFunction& f) const {
  const FragmentIDPtr unnamed;
  if (const std::optional<CreatorPtr> creator = getOnlyEntry()) return f(unnamed, *creator) ? 1 : 0;
  unsigned int nTrue = 0;
  for (const auto& [number, creator] : getFragmentsCopy()) {
    if (!creator) continue;
    if (!f(unnamed, creator)) break;
    ++nTrue;
  }
  return nTrue;
}

unsigned int Field::iterateParallel(const FragmentFunction& f, const FragmentIDCollection& collection,
                                    bool snapshot) const {
  // Declared before the lock: if a launch fails, the lock goes before the futures wait for the tasks that run.
  std::vector<std::future<bool>> tasks;
  const auto launch = [&](std::uint32_t number, const CreatorPtr& creator) {
    tasks.push_back(std::async(
        [fragment = collection.findFragmentID(number), creator = creator, f = f] { return f(fragment, creator); }));
  };
  if (snapshot) {
    const fragment_copy_t entries = getFragmentsCopy();
    tasks.reserve(entries.size());
    for (const auto& [number, creator] : entries) launch(number, creator);
  } else {
    Detail::WalkHolder holder;
    const SharedFragmentLock lock(mutex_);
    tasks.reserve(fragments_.keys.size());
    for (std::size_t i = 0; i < fragments_.keys.size(); ++i)
      launch(fragments_.keys[i], holder.holdPointer(fragments_.values[i]));
  }
  unsigned int nTrue = 0;
  for (std::future<bool>& task : tasks) nTrue += task.get() ? 1U : 0U;
  return nTrue;
}

unsigned int Field::iterate(const FragmentFunction& f, bool parallel, bool snapshot) const {
  if (!f) return 0;
  const FragmentIDCollectionPtr collection = getFragmentIDCollection();
  if (!collection) return iterateUnnamed(f);
  if (parallel) return iterateParallel(f, *collection, snapshot);

  unsigned int nTrue = 0;
  if (snapshot) {
    for (const auto& [number, creator] : getFragmentsCopy()) {
      if (!creator) continue;
      if (!f(collection->findFragmentID(number), creator)) break;
      ++nTrue;
    }
    return nTrue;
  }
  Detail::WalkHolder holder;
  const SharedFragmentLock lock(mutex_);
  for (std::size_t i = 0; i < fragments_.keys.size(); ++i) {
    const CreatorPtr& creator = holder.holdPointer(fragments_.values[i]);
    if (!creator) continue;
    if (!f(collection->findFragmentID(fragments_.keys[i]), creator)) break;
    ++nTrue;
  }
  return nTrue;
}

unsigned int Field::iterate(FragmentIterator& iterator, const FragmentSelectorWeakPtr& selector) const {
  const FragmentIDCollectionPtr collection = getFragmentIDCollection();
  if (!collection) {
    const FragmentIDPtr unnamed;
    if (const std::optional<CreatorPtr> creator = getOnlyEntry()) return iterator.apply(unnamed, *creator) ? 1 : 0;
    Detail::WalkHolder holder;
    const SharedFragmentLock lock(mutex_);
    for (const CreatorPtr& value : fragments_.values) {
      const CreatorPtr& creator = holder.holdPointer(value);
      if (creator && !iterator.apply(unnamed, creator)) break;
    }
    return 0;  // deliberately: this walk counts nothing
  }
  unsigned int nTrue = 0;
  for (const auto& [number, creator] : getFragmentsCopy()) {
    if (!creator) continue;
    const FragmentIDPtr fragment = collection->findFragmentID(number);
    if (!isSelected(selector, creator, fragment)) continue;
    if (!iterator.apply(fragment, creator)) break;
    ++nTrue;
  }
  return nTrue;
}

unsigned int Field::iterate(FragmentIndexIterator& iterator, const FragmentSelectorWeakPtr& selector,
                            bool snapshot) const TRESK_NO_THREAD_SAFETY_ANALYSIS {
  const FragmentIDCollectionPtr collection = getFragmentIDCollection();
  unsigned int nTrue = 0;
  const auto visit = [&](std::uint32_t number, const CreatorPtr& creator) {
    if (!creator) return true;
    const FragmentIDPtr fragment = collection ? collection->findFragmentID(number) : FragmentIDPtr();
    if (!isSelected(selector, creator, fragment)) return true;
    if (!iterator.apply(number, creator)) return false;
    ++nTrue;
    return true;
  };
  if (snapshot) {
    for (const auto& [number, creator] : getFragmentsCopy())
      if (!visit(number, creator)) break;
    return nTrue;
  }
  // No lock, deliberately. `iterator` itself may bind or clear: positions are looked up anew each time.
  const std::size_t nEntries = fragments_.keys.size();
  for (std::size_t i = 0; i < nEntries && i < fragments_.keys.size(); ++i) {
    const CreatorPtr creator = fragments_.values[i];
    if (!visit(fragments_.keys[i], creator)) break;
  }
  return nTrue;
}

}  // namespace Tresk
