// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/DynamicSize.hpp>
#include <tresk/field/FragmentID.hpp>
#include <tresk/field/TypedArray.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Tresk {

/// Numbers the fragments of a domain. Fields that share a collection agree on the numbers.
///
/// Slot i holds the fragment of number i, or an empty pointer: the unnamed fragment of an unfragmented field takes a
/// slot without a name. Slots only grow, and a number once given stays valid for the life of the collection. A
/// collection with a shape is fixed: it takes no new names through `getID`.
/// Lifetime: counted; holds its fragments strongly. They hold it weakly.
/// Threads: no lock. Whoever makes a collection grow on several threads orders that; reading is safe while nobody
/// makes it grow.
/// Errors: `std::length_error` for a fragment more than there are numbers, and `std::bad_alloc`; nothing has changed
/// then.
/// Cost: names by hash, numbers by index; the unnamed fragment by a search of all slots.
class TRESK_EXPORT FragmentIDCollection : public Ostrel::ReferenceBase<FragmentIDCollection> {
 public:
  /// What a lookup answers when there is no number.
  static constexpr unsigned int NoNumber = 0xFFFFFFFFU;

  /// An empty collection without a shape.
  FragmentIDCollection();
  /// A fixed collection: one fragment for each name, in storage order, arranged as the array is. A name that occurs
  /// twice makes two fragments, and the later one is found by it. Without an array or its chunk the collection has no
  /// slots at all.
  explicit FragmentIDCollection(const Ostrel::StrongPtr<TypedArray<std::string>, Ostrel::Cacheable>& names);
  ~FragmentIDCollection() override;

  /// The slot of the fragment of that name, which is made if need be, also in a fixed collection. The reference holds
  /// until the next fragment is added.
  FragmentIDPtr& makeFragmentID(const std::string& name);

  /// Makes room for `nFragments` fragments in all, so that names are added without moving those that are there.
  /// References to slots hold no longer. Throws `std::length_error` if a vector cannot hold that many; nothing has
  /// changed then.
  void reserve(unsigned long long nFragments);

  /// The number of a fragment, which is registered if need be.
  ///
  /// An invalid pointer stands for the unnamed fragment: the number of the first slot without a living fragment, which
  /// is added if there is none. A fragment with a living owner: its own number, with a warning through
  /// `Ostrel::breakpoint` if the owner is another collection. Any other fragment goes by its name: a known name gives
  /// its number and makes this collection the fragment's owner, while the slot keeps the fragment that it holds; an
  /// unknown name is added, or gives `NoNumber` if the collection is fixed.
  unsigned int getID(const FragmentIDPtr& fragment);

  /// The number stored in a fragment, whatever its owner is; 0 for an invalid pointer, although number 0 may belong to
  /// a named fragment. Never registers.
  unsigned int findID(const FragmentIDPtr& fragment) const;
  /// The fragment in a slot; empty beyond the last one.
  FragmentIDPtr findFragmentID(unsigned int number) const;
  /// The fragment of a name; empty if the name is unknown.
  FragmentIDPtr findFragmentIDByName(const std::string& name) const;
  /// The number of a name; `NoNumber` if the name is unknown.
  unsigned int findNumericalIDByName(const std::string& name) const;

  /// Calls `f(fragment, number, name)` for each name, in no particular order, until it returns false. Returns how
  /// often it returned true. Slots without a name are not visited. `f` must not add fragments. An empty function throws
  /// `std::bad_function_call` at the first name.
  unsigned int iterate(const std::function<bool(const FragmentIDPtr&, int, const std::string&)>& f) const;

  /// The fragments as an array of the shape, on the collection's own storage; null without a shape or for a rank
  /// outside 1 to 3.
  Ostrel::StrongPtr<TypedArray<FragmentIDPtr>, Ostrel::Cacheable> getFragmentIDArray() const;

  /// All slots as text. It names the address of this collection, by which two descriptions tell whether they share
  /// one.
  std::string xml() const;

  /// The number of slots, those without a fragment included.
  unsigned long long nFragmentIDs() const noexcept { return getFragmentIDs().size(); }
  /// The slots in numerical order.
  const std::vector<FragmentIDPtr>& getFragmentIDs() const noexcept;
  /// The arrangement of a fixed collection; rank 0 otherwise.
  const DynamicSize& getShape() const noexcept { return shape_; }

 private:
  template <int>
  friend class RegularlyFragmentedField;

  using SlotChunk = Ostrel::StrongPtr<Ostrel::TypedChunk<FragmentIDPtr>, Ostrel::ChunkBase>;

  Ostrel::WeakPtr<FragmentIDCollection, FragmentIDCollection> self() { return getSelf(); }
  /// Makes room for one more slot and returns its number. An array that shows the present storage keeps it.
  unsigned int prepareSlot();
  /// Gives the slots room for that many. An array that shows the present storage keeps it.
  void growSlots(std::size_t nSlots);
  /// Makes this a collection of the given shape with one fragment for each index, in place of all former slots. Names
  /// are the indices joined by "x", and then `suffix`. Throws `std::length_error` if a vector cannot hold that many.
  void fill(const DynamicSize& shape, const std::string& suffix);
  /// Adds a slot under a name.
  FragmentIDPtr& append(unsigned int number, const std::string& name, FragmentIDPtr fragment);

  std::unordered_map<std::string, std::uint32_t> index_;
  SlotChunk identifiers_;
  DynamicSize shape_;
};

}  // namespace Tresk
