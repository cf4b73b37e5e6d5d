// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentIDCollection.hpp>

#include <tresk/field/MemArray.hpp>
#include <tresk/foundation/Diagnostics.hpp>
#include <tresk/foundation/NeverDestroyed.hpp>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Tresk {

FragmentIDCollection::FragmentIDCollection()
    : Ostrel::ReferenceBase<FragmentIDCollection>(this), identifiers_(new Ostrel::Chunk<FragmentIDPtr>(0)) {
  index_.max_load_factor(1.0F);
}

FragmentIDCollection::FragmentIDCollection(const Ostrel::StrongPtr<TypedArray<std::string>, Ostrel::Cacheable>& names)
    : Ostrel::ReferenceBase<FragmentIDCollection>(this) {
  index_.max_load_factor(1.0F);
  if (!names) return;
  const Ostrel::StrongPtr<Ostrel::TypedChunk<std::string>, Ostrel::ChunkBase> chunk = names->getTypedChunk();
  if (!chunk) return;
  shape_ = names->getSize();
  const unsigned long long nSlots = shape_.nElements();
  identifiers_ = SlotChunk(new Ostrel::Chunk<FragmentIDPtr>(nSlots));
  const unsigned long long nNames = std::min<unsigned long long>(nSlots, chunk->vector().size());
  index_.reserve(nNames);
  for (unsigned long long i = 0; i < nNames; ++i) {
    const std::string& name = chunk->vector()[i];
    const auto number = static_cast<unsigned int>(i);
    identifiers_->vector()[i] = FragmentIDPtr(new FragmentID(name, number, self()));
    index_[name] = number;
  }
}

FragmentIDCollection::~FragmentIDCollection() = default;

const std::vector<FragmentIDPtr>& FragmentIDCollection::getFragmentIDs() const noexcept {
  static Ostrel::Detail::NeverDestroyed<std::vector<FragmentIDPtr>> none;
  return identifiers_ ? identifiers_->vector() : *none;
}

unsigned int FragmentIDCollection::prepareSlot() {
  if (!identifiers_) identifiers_ = SlotChunk(new Ostrel::Chunk<FragmentIDPtr>(0));
  const std::vector<FragmentIDPtr>* slots = &identifiers_->vector();
  if (slots->size() >= NoNumber) {
    throw std::length_error("FragmentIDCollection: no number left for a further fragment beside " +
                            std::to_string(slots->size()));
  }
  if (slots->size() == slots->capacity()) {
    growSlots(std::max<std::size_t>(4, 2 * slots->size()));
    slots = &identifiers_->vector();
  }
  return static_cast<unsigned int>(slots->size());
}

void FragmentIDCollection::growSlots(std::size_t nSlots) {
  if (identifiers_.strongCount() > 1) identifiers_ = SlotChunk(identifiers_->clone());
  identifiers_->vector().reserve(nSlots);
}

void FragmentIDCollection::reserve(unsigned long long nFragments) {
  if (!identifiers_) identifiers_ = SlotChunk(new Ostrel::Chunk<FragmentIDPtr>(0));
  if (nFragments > std::min<unsigned long long>(identifiers_->vector().max_size(), index_.max_size()))
    throw std::length_error("FragmentIDCollection::reserve: no room for " + std::to_string(nFragments) + " fragments");
  if (nFragments > identifiers_->vector().capacity()) growSlots(nFragments);
  if (nFragments > index_.bucket_count()) index_.reserve(nFragments);  // it would take room back as well
}

FragmentIDPtr& FragmentIDCollection::append(unsigned int number, const std::string& name, FragmentIDPtr fragment) {
  // The slot has its room already: from here on only the index can fail, and then nothing has changed.
  index_[name] = number;
  return identifiers_->vector().emplace_back(std::move(fragment));
}

void FragmentIDCollection::fill(const DynamicSize& shape, const std::string& suffix) {
  const unsigned long long nSlots = shape.nElements();
  const SlotChunk slots(new Ostrel::Chunk<FragmentIDPtr>(nSlots));
  std::unordered_map<std::string, std::uint32_t> index;
  index.max_load_factor(1.0F);
  index.reserve(nSlots);
  std::vector<unsigned long long> position(static_cast<std::size_t>(shape.Dims()), 0);
  for (unsigned long long i = 0; i < nSlots; ++i) {
    std::string name;
    for (const unsigned long long p : position) name += (name.empty() ? "" : "x") + std::to_string(p);
    name += suffix;
    const auto number = static_cast<unsigned int>(i);
    slots->vector()[i] = FragmentIDPtr(new FragmentID(name, number, self()));
    index[name] = number;
    for (int d = 0; d < shape.Dims() && ++position[static_cast<std::size_t>(d)] == shape[d]; ++d)
      position[static_cast<std::size_t>(d)] = 0;
  }
  identifiers_ = slots;
  index_.swap(index);
  shape_ = shape;
}

FragmentIDPtr& FragmentIDCollection::makeFragmentID(const std::string& name) {
  const auto known = index_.find(name);
  if (known != index_.end() && known->second < nFragmentIDs()) return identifiers_->vector()[known->second];
  const unsigned int number = prepareSlot();
  return append(number, name, FragmentIDPtr(new FragmentID(name, number, self())));
}

unsigned int FragmentIDCollection::getID(const FragmentIDPtr& fragment) {
  if (!fragment) {
    const std::vector<FragmentIDPtr>& slots = getFragmentIDs();
    for (std::size_t i = 0; i < slots.size(); ++i)
      if (!slots[i]) return static_cast<unsigned int>(i);
    const unsigned int number = prepareSlot();
    identifiers_->vector().emplace_back();
    return number;
  }
  FragmentID& identity = *fragment;
  if (identity.owner_) {
    if (identity.owner_.getRecord() != getRecord()) {
      Ostrel::breakpoint(
          "FragmentIDCollection::getID(): WARNING: accessing fragmentID collection from an external fragment");
    }
    return identity.getNumericalID();
  }
  const auto known = index_.find(identity.getName());
  if (known != index_.end()) {
    // The slot keeps its fragment, deliberately: two objects may share one number from now on.
    identity.number_.store(known->second, std::memory_order_relaxed);
    identity.owner_ = self();
    return known->second;
  }
  if (shape_.getExtents() != nullptr) return NoNumber;
  FragmentIDPtr added = fragment;  // a copy: `fragment` may be one of the slots, which move
  const unsigned int number = prepareSlot();
  append(number, identity.getName(), std::move(added));
  identity.number_.store(number, std::memory_order_relaxed);
  identity.owner_ = self();
  return number;
}

unsigned int FragmentIDCollection::findID(const FragmentIDPtr& fragment) const {
  return fragment ? fragment->getNumericalID() : 0;
}

FragmentIDPtr FragmentIDCollection::findFragmentID(unsigned int number) const {
  const std::vector<FragmentIDPtr>& slots = getFragmentIDs();
  return number < slots.size() ? slots[number] : FragmentIDPtr();
}

FragmentIDPtr FragmentIDCollection::findFragmentIDByName(const std::string& name) const {
  const auto known = index_.find(name);
  return known == index_.end() ? FragmentIDPtr() : findFragmentID(known->second);
}

unsigned int FragmentIDCollection::findNumericalIDByName(const std::string& name) const {
  const auto known = index_.find(name);
  return known == index_.end() ? NoNumber : known->second;
}

unsigned int FragmentIDCollection::iterate(
    const std::function<bool(const FragmentIDPtr&, int, const std::string&)>& f) const {
  unsigned int nTrue = 0;
  for (const auto& [name, number] : index_) {
    const std::vector<FragmentIDPtr>& slots = getFragmentIDs();
    if (number >= slots.size()) continue;
    if (!f(slots[number], static_cast<int>(number), name)) break;
    ++nTrue;
  }
  return nTrue;
}

Ostrel::StrongPtr<TypedArray<FragmentIDPtr>, Ostrel::Cacheable> FragmentIDCollection::getFragmentIDArray() const {
  using Result = Ostrel::StrongPtr<TypedArray<FragmentIDPtr>, Ostrel::Cacheable>;
  if (shape_.getExtents() == nullptr) return Result();
  const CreatorWeakPtr nobody;
  switch (shape_.Dims()) {
    case 1:
      return Result(new MemArray<1, FragmentIDPtr>(identifiers_, MultiIndex<1>(shape_[0]), nobody));
    case 2:
      return Result(new MemArray<2, FragmentIDPtr>(identifiers_, MultiIndex<2>(shape_[0], shape_[1]), nobody));
    case 3:
      return Result(
          new MemArray<3, FragmentIDPtr>(identifiers_, MultiIndex<3>(shape_[0], shape_[1], shape_[2]), nobody));
    default:
      return Result();
  }
}

}  // namespace Tresk
