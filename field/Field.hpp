// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/CreativeArrayBase.hpp>
#include <tresk/field/FragmentIDCollection.hpp>
#include <tresk/field/FragmentIDCollectionProvider.hpp>
#include <tresk/field/FragmentMutex.hpp>
#include <tresk/field/MemArrayProperties.hpp>

#include <functional>
#include <list>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Tresk {

/// What holds creators: the container that a field is.
using CreatorContainer = Ownable<CreativeArrayBase, CreativeArrayBaseContainerBase>::Container;
/// A field, held.
using FieldPtr = Ostrel::StrongPtr<Field, CreatorContainer>;
/// A field, observed.
using FieldWeakPtr = Ostrel::WeakPtr<Field, CreatorContainer>;

/// A snapshot of a field's table: the numbers of its fragments and their creators, which may be empty.
using fragment_copy_t = std::vector<std::pair<std::uint32_t, CreatorPtr>>;

/// A creator together with its fragment.
using CreatorWithFragment = std::pair<CreatorPtr, FragmentIDPtr>;

/// Maps the fragments of a domain to creators, each of which yields a typed array on demand.
///
/// The field holds no data of its own: over a thousand fragments it costs a thousand small objects until somebody asks.
/// Size, rank and element type are asked of the creators, without producing anything. Fragments are bound at any time;
/// one that was never bound is simply absent. An empty fragment pointer, `FragmentIDPtr()`, stands for the unnamed
/// fragment of an unfragmented field.
///
/// Lifetime: counted. Holds its creators and its collection strongly; creators know the field weakly. A creator that is
/// replaced is not told: its owner set keeps a weak entry for the field.
/// Threads: lookups, walks and bindings may run at once, once the field has a collection. The fragment mutex is held
/// shared by readers, also while creators are asked for size or type and while `clear` lets them release; exclusively
/// only to insert keys, to empty the table, and after a binding that failed. Creators and savers may read the field
/// under the shared lock, and must not bind or clear. The collection is not guarded by it.
/// Errors: lookups answer with null, 0xFFFFFFFF, -1, false or `void`. `setCreator` alone refuses, by an exception; what
/// binds or reserves may also throw `std::length_error` and `std::bad_alloc`. Exceptions of a production reach the
/// caller of `getData`.
/// Cost: lookup by number is a binary search, constant if the numbers have no gaps; binding in the order of numbers
/// appends. Walks and questions about the content are linear in the number of fragments.
class TRESK_EXPORT Field : public CreatorContainer,
                           public Ownable<Field, ChildrenProperties>,
                           public Ostrel::Intercube,
                           public FragmentIDCollectionProvider,
                           public Ostrel::Ageable,
                           public SaveableAttributes {
 public:
  using fragment_mutex_t = FragmentMutex;  ///< the lock of the table

  /// The fragment table: two vectors kept in step, the keys strictly ascending.
  struct fragments_t {
    std::vector<std::uint32_t> keys;  ///< the numbers of the fragments
    std::vector<CreatorPtr> values;   ///< the creator of each key; may be empty
  };

  /// Which creator `createCreator` makes for data.
  enum CreationFailAlternative {
    NoCreatorAlternative = 0,          ///< none
    PersistentCreatorAlternative = 1,  ///< one that keeps the data
    DiscardableCreatorAlternative = 2  ///< one that may forget them
  };

  // Construction. Each constructor offers the field to the save registry. A live collection with a shape reserves room
  // for its fragments.

  /// A field with a new, empty collection.
  Field();
  /// A field on a collection, which may be empty.
  explicit Field(const FragmentIDCollectionPtr& collection);
  /// A field on the collection that `provider` names. Of another field: `Field(provider)` with a reference of the
  /// provider's type, as a field itself cannot be copied.
  explicit Field(const FragmentIDCollectionProvider& provider);
  /// A sibling of a field: it shares the numbering. Of a dead field it gets no collection.
  explicit Field(const FieldWeakPtr& sibling);
  /// A sibling of a field, with a creator for the unnamed fragment (`setCreator`). When it throws, the new field is no
  /// owner of the creator.
  Field(const CreatorPtr& creator, const FieldWeakPtr& sibling);
  /// The same on the collection that `provider` names.
  Field(const CreatorPtr& creator, const FragmentIDCollectionProvider& provider);
  /// The same on a collection.
  Field(const CreatorPtr& creator, const FragmentIDCollectionPtr& collection);
  /// A sibling of a field, with data for the unnamed fragment, kept in the default cache (`setPersistentData`).
  Field(const MemBasePtr& data, const FieldWeakPtr& sibling);
  /// The same on the collection that `provider` names.
  Field(const MemBasePtr& data, const FragmentIDCollectionProvider& provider);
  /// The same on a collection.
  Field(const MemBasePtr& data, const FragmentIDCollectionPtr& collection);
  /// The same on a collection and in another cache.
  Field(const MemBasePtr& data, const CachePtr& cache, const FragmentIDCollectionPtr& collection);

  // The order of the virtual operations is part of the interface.

  /// Empties the table while the field is still whole, so that creators can ask their owners. An exception of a saver
  /// terminates.
  void extremeUnction() noexcept override;
  ~Field() override;
  /// Passes a question of a creator on to the field's owners.
  bool processOwnership(Ostrel::Intercube& question, const Ostrel::Intercube& context) const override;
  /// The numbering authority; may be empty.
  FragmentIDCollectionPtr getFragmentIDCollection() const override;

  // Fragments.

  /// The collection's slot for a name, which is made if need be, as is the collection. The reference holds until the
  /// next fragment is added.
  FragmentIDPtr& makeFragmentID(const std::string& name);
  /// The number of a fragment, which is registered if need be (`FragmentIDCollection::getID`). A field without a living
  /// collection takes the one of the fragment, or a new one.
  unsigned int getNumericalID(const FragmentIDPtr& fragment);
  /// The number of a fragment, without registering it: 0 for the unnamed fragment, 0xFFFFFFFF without a collection. A
  /// fragment of another collection has the number that it has there.
  unsigned int findNumericalID(const FragmentIDPtr& fragment) const;
  /// The number of a name; 0xFFFFFFFF if it is unknown.
  unsigned int findNumericalIDByName(const std::string& name) const;
  /// The fragment of a name; empty if it is unknown.
  FragmentIDPtr getFragmentID(const std::string& name) const;
  /// All fragments of the collection in numerical order, bound or not.
  const std::vector<FragmentIDPtr>& getFragmentIDs() const;
  /// The fragment of the first entry.
  FragmentIDPtr getFirstFragmentID() const;
  /// The fragments as an array of the collection's shape, or null.
  MemBasePtr newFragmentationArray() const;
  /// Whether the collection has a slot of that number. It says nothing about a creator.
  bool validate(unsigned int number) const;

  // Reading.

  /// The creator of a fragment of the field's own collection; a free-standing fragment or one of another collection
  /// has none. The unnamed fragment is that of a field with one entry, unless the entry belongs to a named fragment.
  CreatorPtr getCreator(const FragmentIDPtr& fragment) const;
  /// The creator of a number; empty if none is bound to it.
  CreatorPtr getCreatorByNumericalID(unsigned int number) const;
  /// The creator of the fragment of a name; empty if the name is unknown or nothing is bound to it.
  CreatorPtr getCreatorByName(const std::string& name) const;
  /// The same with the fragment; both empty if there is none.
  CreatorWithFragment getCreatorByNameF(const std::string& name) const;
  /// The creator of a fragment, or the one bound under its name, so that fragments of other collections serve too.
  CreatorWithFragment getCompatibleCreatorF(const FragmentIDPtr& fragment) const;
  /// The creator of the first entry. Takes no lock.
  CreatorPtr getFirstCreator() const;
  /// The data of a fragment, produced if need be, without a lock of the field, and marked as used. Null without a
  /// creator and if the production yields nothing; its exceptions pass.
  MemBasePtr getData(const FragmentIDPtr& fragment) const;
  /// The data of a number, likewise.
  MemBasePtr getDataByNumericalID(unsigned int number) const;
  /// The data of the first entry, likewise; looks it up without a lock.
  MemBasePtr getFirstData() const;
  /// The slot of a number, which is made if need be, for writing. As the caller may write it, this counts as a change
  /// of the field, and an unknown number leaves an entry without a creator. The reference holds until the next
  /// insertion.
  CreatorPtr& getCreatorReferenceViaFragmentIndex(unsigned int number);

  // Binding.

  /// Binds a creator to a fragment. Throws the text "Field::setCreator(): Inconsistent Fragment ID Collection!" as
  /// `const char*` if the fragment is alive and its collection is not the field's, also if it has none while the field
  /// has one; nothing is bound then. The reference holds until the next insertion.
  CreatorPtr& setCreator(const CreatorPtr& creator, const FragmentIDPtr& fragment);
  /// Binds a creator to a number. If another thread binds the number at the same moment and inserts it first, that
  /// creator stays. The reference holds until the next insertion.
  CreatorPtr& setCreatorViaFragmentIndex(unsigned int number, const CreatorPtr& creator);
  /// Binds many creators at once, as `setCreatorViaFragmentIndex` would one after the other: of entries with the same
  /// number the last one holds. The fragments come in any order: they are sorted, and the table is moved once, which
  /// takes n log n for n entries beside one pass over the table. References to slots hold if all numbers were known.
  /// Throws `std::length_error` for more than 4294967295 entries; the table survives that and a lack of memory.
  void setCreatorsViaFragmentIndex(const fragment_copy_t& entries);
  /// Makes a creator for data, which must stand on the list of a cache once that creator is theirs, and binds it. Null
  /// otherwise, and the data are then without a creator; null for null data and for any other `alternative`. The number
  /// is that of `getNumericalID`, also for a fragment of another collection.
  CreatorPtr createCreator(const MemBasePtr& data, const FragmentIDPtr& fragment, CreationFailAlternative alternative,
                           const CacheWeakPtr& cache);
  /// The same for the fragment of a name, which is made if need be, also for null data.
  CreatorPtr createCreator(const MemBasePtr& data, const std::string& name, CreationFailAlternative alternative,
                           const CacheWeakPtr& cache);
  /// Binds data by a creator that keeps them. Null data give `CreativeArrayNullPtr()` and leave the field alone. When
  /// it throws, either nothing is bound and the data still have their former creator, or they are bound and their
  /// description is not complete. `provenance` says where the data come from, and may be empty. The number is that of
  /// `getNumericalID`. The reference holds until the next insertion.
  const CreatorPtr& setPersistentData(const MemBasePtr& data, const FragmentIDPtr& fragment, const CachePtr& cache,
                                      const std::string& provenance);
  /// Binds data by a creator that may forget them for good. Null for null data. The number is that of `getNumericalID`.
  CreatorPtr setDiscardableData(const MemBasePtr& data, const CacheWeakPtr& cache, const FragmentIDPtr& fragment);
  /// Raises the capacity of the table to at least `nFragments` entries. Takes no lock: only while the field is not
  /// shared. Throws `std::length_error` with "vector::reserve" beyond the limit of the table, which survives.
  void reserve_fragments(unsigned long long nFragments);
  /// Asks all creators to release, under the shared lock, and drops them. Age and collection stay. An exception of a
  /// saver passes and leaves the table as it is.
  void clear();

  // Walks in the order of numbers. `f` is called as `f(fragment, creator)`; without a living collection the fragment is
  // empty. The answer counts the calls that returned true.

  /// What a walk calls with a fragment, which may be empty, and its creator. Exceptions end the walk and pass.
  using FragmentFunction = std::function<bool(const FragmentIDPtr&, const CreatorPtr&)>;

  /// Calls `f` for each fragment that has a creator, until it returns false; an empty `f` is called for none.
  ///
  /// With a living collection:
  /// - `parallel` false, `snapshot` false: under the shared lock. `f` may read the field and must not bind or clear.
  /// - `parallel` false, `snapshot` true: over a copy of the table without a lock. `f` may bind fragments, which are
  ///   not visited.
  /// - `parallel` true: one task for each entry on a thread of its own (on this one where the system has none left),
  ///   without a lock while they run, so that there are as many threads at once as fragments. `f` is called for entries
  ///   without a creator too, and false stops nothing. The first exception in the order of fragments is rethrown when
  ///   all tasks have ended. `snapshot` says whether the tasks are launched from a copy, or under the shared lock.
  ///
  /// Without one both flags are ignored: a single entry is visited even if it has no creator, more of them over a
  /// copy.
  unsigned int iterate(const FragmentFunction& f, bool parallel, bool snapshot) const;
  /// Calls `iterator` for each fragment that has a creator and that a living `selector` selects, until it returns
  /// false. Over a copy of the table, without a lock.
  ///
  /// Without a living collection `selector` is not asked; a single entry is visited even if it has no creator, and
  /// more of them under the shared lock, where the answer is always 0.
  unsigned int iterate(FragmentIterator& iterator,
                       const Ostrel::WeakPtr<FragmentSelector, FragmentSelector>& selector) const;
  /// The same with the number in place of the fragment, whether there is a collection or not. With `snapshot` over a
  /// copy of the table; else over the table itself without any lock, up to the present number of entries: nobody else
  /// adds fragments meanwhile.
  unsigned int iterate(FragmentIndexIterator& iterator,
                       const Ostrel::WeakPtr<FragmentSelector, FragmentSelector>& selector, bool snapshot) const;

  // Questions about the content. None of them produces data.

  /// The number of entries, those without a creator included.
  unsigned long long nFragments() const;
  /// Whether the one entry of the field belongs to no named fragment.
  bool isUnfragmented() const;
  /// Rank and element type, as the first creator that knows tells, else the field itself; may be empty.
  Ostrel::StrongPtr<MemArrayProperties, Ostrel::InterfaceBase> getProperties() const;
  /// The rank of the data; -1 if nobody knows.
  int Dims() const;
  /// The record of the element type; may be empty.
  TreskTypeWeakPtr getElementTreskType() const;
  /// The element type; `void` if nobody knows, `std::nullptr_t` if properties are known whose record is gone.
  const std::type_info& getElementType() const;
  /// How the data are stored: the type that the first creator tells; `void` without one.
  const std::type_info& getFieldStorageType() const;
  /// The sum of the known sizes of all fragments, dimension by dimension; null if none is known. Remembered until the
  /// number of entries changes: a replaced creator, or a size that becomes known later, does not show until then.
  SizePtr getSize() const;
  /// Whether no fragment that both fields have differs in a known size.
  bool isCompatible(const Field& other);

  /// The newest data age of all creators, but at least the present time of the global clock, and so as a rule just
  /// that.
  Ostrel::Ageable getMostRecentCreatorAge() const;
  /// The same of the ages of attributes.
  Ostrel::Ageable getMostRecentAttributeAge() const;
  /// Whether the data or the attributes of some creator are newer than `age`. The field's own age does not count.
  bool hasFragmentsNewerThan(const Ostrel::Ageable& age) const;
  /// Adds to `inMemory` the bytes that the creators hold now, and to `fullSize` those of all data whose size is known.
  /// Returns 1 if some creator holds bytes, 0 if none does, and -1 with both arguments untouched if the element type
  /// is unknown.
  int getMemoryUsage(unsigned long long& inMemory, unsigned long long& fullSize) const;
  /// Writes the number of fragments on one line of the standard output, behind `indent` blanks; nothing if `limit` is
  /// at least 1 and smaller than `indent`.
  void Speak(int indent, int limit) const;
  /// A description as text: element type, collection, and each fragment with its size and whether it holds data.
  /// Deliberately no well-formed document: consumers match it literally.
  std::string xml() const;

  /// The age of the field: the time of the last change of its table.
  const Ostrel::Ageable& getAge() const noexcept { return *this; }

  /// A null pointer to a creator, to refer to; never destroyed.
  static const CreatorPtr& CreativeArrayNullPtr();
  /// A null pointer to a field, likewise.
  static const FieldPtr& NullPtrField();

 private:
  static constexpr std::size_t Absent = static_cast<std::size_t>(-1);

  /// The collection, or null. Without a count: once a field has a living collection, it holds that one to its end.
  const FragmentIDCollection* livingCollection() const noexcept { return collection_.get(); }
  /// Position of a key in the table, or `Absent`.
  std::size_t findPosition(unsigned int number) const TRESK_REQUIRES_SHARED(mutex_);
  /// The creator of a key, or null.
  CreatorPtr findValue(unsigned int number) const TRESK_REQUIRES_SHARED(mutex_);
  /// Position of a key that is inserted with `creator` unless it is there.
  std::size_t insert(unsigned int number, const CreatorPtr& creator) TRESK_REQUIRES(mutex_);

  /// Stores a creator under a number; the slot.
  CreatorPtr& store(unsigned int number, const CreatorPtr& creator) TRESK_EXCLUDES(mutex_);
  /// Puts entries in the table, which stand in `order` by rising numbers (the upper half) as their places in `entries`
  /// (the lower half). What they replace goes to `former`, which has room for as many.
  void merge(const std::vector<std::uint64_t>& order, const fragment_copy_t& entries, std::vector<CreatorPtr>& former)
      TRESK_REQUIRES(mutex_);
  /// The same, and enters the field as an owner of the creator before.
  CreatorPtr& bind(unsigned int number, const CreatorPtr& creator) TRESK_EXCLUDES(mutex_);
  /// A creator that has got this field as an owner on its way into the table.
  struct Entering {
    CreativeArrayBase* creator;
    bool isBound = false;  ///< by another thread, meanwhile
  };
  /// Takes this field from the owners of creators that have not come into the table.
  void disown(std::span<Entering> entering) noexcept TRESK_EXCLUDES(mutex_);
  /// Marks the field as changed and tells the owners of the creator.
  void touchAndTell(const CreatorPtr& creator);
  template <class F>
  void bindOrForget(const F& bind);
  void dropCreators();
  /// Calls `f(creator)` for each living creator in key order under the shared lock, until it returns true.
  template <class F>
  void visitCreators(const F& f) const TRESK_EXCLUDES(mutex_);
  /// A copy of the table.
  fragment_copy_t getFragmentsCopy() const TRESK_EXCLUDES(mutex_);
  /// The one entry of a field that has just one.
  std::optional<CreatorPtr> getOnlyEntry() const TRESK_EXCLUDES(mutex_);
  /// The walks of fields without a collection.
  unsigned int iterateUnnamed(const FragmentFunction& f) const;
  /// One task for each entry.
  unsigned int iterateParallel(const FragmentFunction& f, const FragmentIDCollection& collection, bool snapshot) const;
  /// What every constructor does first.
  void offerToSavers();
  void reserveForShape();

  template <int>
  friend class RegularlyFragmentedField;

  FragmentIDCollectionPtr collection_;
  mutable fragment_mutex_t mutex_;  ///< guards the structure of the table: keys, positions, sizes
  fragments_t fragments_ TRESK_GUARDED_BY(mutex_);
  std::map<Ostrel::WeakPtr<BinderBase, BinderBase>, std::list<CreatorWeakPtr>> binderTable_;  ///< for savers
  std::list<CreatorWeakPtr> creatorList_;                                                     ///< for savers
};

/// Builds a small field by each of the ways to bind data, as a sample: "First Fragment" with data that are kept,
/// "Second Fragment" with the same data, and "On-Demand Fragment" with a function. The three fragments stay in `field`.
/// True if the data are still what was written to them.
TRESK_EXPORT bool fieldSyntaxCheck(Field& field);

}  // namespace Tresk
