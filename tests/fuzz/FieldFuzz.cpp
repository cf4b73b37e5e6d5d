// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/FragmentIterator.hpp>
#include <tresk/field/FragmentSelector.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/foundation/Cache.hpp>
#include <tresk/foundation/ReferenceRecord.hpp>

#include <support/BreakpointRecorder.hpp>
#include <support/NameArray.hpp>

#include "PlainFields.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// \file
/// Sequences of operations on fields that share collections, creators and a cache with a limit, on one thread, against
/// maps and vectors. What the cache lets go is its own business; the numbers must be right all the same.

namespace {

using Tresk::CacheWeakPtr;
using Tresk::CreativeArrayBase;
using Tresk::CreatorPtr;
using Tresk::CreatorWeakPtr;
using Tresk::CreatorWithFragment;
using Tresk::DynamicSize;
using Tresk::Field;
using Tresk::FieldPtr;
using Tresk::FragmentID;
using Tresk::FragmentIDCollection;
using Tresk::FragmentIDCollectionPtr;
using Tresk::FragmentIDPtr;
using Tresk::MemBasePtr;
using TreskFuzz::checkData;
using TreskFuzz::Content;
using TreskFuzz::demand;
using TreskFuzz::elementsOf;
using TreskFuzz::Failure;
using TreskFuzz::isSame;
using TreskFuzz::Kind;
using TreskFuzz::Known;
using TreskFuzz::KnownCreator;
using TreskFuzz::makeArray;
using TreskFuzz::Numbers;
using TreskFuzz::numbersOf;
using TreskFuzz::onceIn;
using TreskFuzz::oneOf;
using TreskFuzz::PlainCollection;
using TreskFuzz::PlainCollectionPtr;
using TreskFuzz::PlainCreator;
using TreskFuzz::PlainCreatorPtr;
using TreskFuzz::PlainField;
using TreskFuzz::PlainFieldPtr;
using TreskFuzz::PlainFragment;
using TreskFuzz::PlainFragmentPtr;
using TreskFuzz::product;
using TreskFuzz::sizeOf;
using TreskFuzz::upTo;

/// One call of a walk.
struct Visit {
  unsigned int number;
  PlainFragmentPtr fragment;
  PlainCreatorPtr creator;
};

/// Compares the calls of a walk with those that should come, and refuses the last one that was asked for.
class Visitor : public Tresk::FragmentIterator, public Tresk::FragmentIndexIterator {
 public:
  Visitor(const std::vector<Visit>& visits, std::size_t nWanted) : visits_(visits), nWanted_(nWanted) {}

  bool apply(const FragmentIDPtr& fragment, const CreatorPtr& creator) override {
    demand(nCalls < visits_.size() && nCalls <= nWanted_, "call of a walk");
    demand(isSame(fragment, visits_[nCalls].fragment), "fragment of a walk");
    return count(creator);
  }
  bool apply(unsigned int number, const CreatorPtr& creator) override {
    demand(nCalls < visits_.size() && nCalls <= nWanted_, "call of a walk by numbers");
    demand(number == visits_[nCalls].number, "number of a walk");
    return count(creator);
  }

  std::size_t nCalls = 0;
  std::function<void()> onCall;

 private:
  bool count(const CreatorPtr& creator) {
    demand(isSame(creator, visits_[nCalls].creator), "creator of a walk");
    if (onCall) onCall();
    return nCalls++ < nWanted_;
  }

  const std::vector<Visit>& visits_;
  const std::size_t nWanted_;
};

/// Selects every creator whose bit is set in a mask.
class Selector : public Tresk::FragmentSelector {
 public:
  explicit Selector(unsigned int mask) : mask_(mask) {}
  bool isSelected(const CreativeArrayBase& creator, FragmentIDPtr fragment) override {
    lastFragment = fragment.get();
    return selects(&creator);
  }
  bool selects(const CreativeArrayBase* creator) const { return (mask_ >> (creator->getSerialNumber() % 8) & 1U) != 0; }

  const FragmentID* lastFragment = nullptr;

 private:
  unsigned int mask_;
};
using SelectorPtr = Ostrel::StrongPtr<Selector, Tresk::FragmentSelector>;

// ---------------------------------------------------------------------------------------------------------- operations

class World {
 public:
  explicit World(FuzzedDataProvider& data) : data_(data), cache_(new Ostrel::Cache) {
    fragments_.resize(6);
    creators_.resize(6);
    if (data_.ConsumeBool()) cache_->setLimit(upTo(data_, 4096));
    for (std::size_t i = 0; i < NCollections; ++i) makeCollection(i);
    for (std::size_t i = 0; i < NFields; ++i) makeField(i);
  }

  void run() {
    for (int nOperations = 1; nOperations <= 60 && data_.remaining_bytes() > 0; ++nOperations) {
      const std::size_t i = upTo(data_, NFields - 1);
      operateAndCheck(i);
      // Looking at everything takes longer than the operations do.
      if (nOperations % 10 == 0) checkAll();
    }
    checkAll();
  }

 private:
  static constexpr std::size_t NCollections = 2;
  static constexpr std::size_t NFields = 3;

  void operateAndCheck(std::size_t i) {
    long long ages[NFields];
    for (std::size_t k = 0; k < NFields; ++k) {
      ages[k] = fields_[k]->getAge().getAge();
      plain_[k]->isTouched = isNew_[k] = false;
    }
    field_ = fields_[i];
    own_ = plain_[i];
    operate(i);
    field_.reset();
    own_.reset();
    check(*fields_[i], *plain_[i]);
    for (std::size_t k = 0; k < NFields; ++k)
      if (!isNew_[k]) demand((fields_[k]->getAge().getAge() > ages[k]) == plain_[k]->isTouched, "age of a field");
  }

  void operate(std::size_t i) {
    switch (upTo(data_, 25)) {
      case 0:
        makeCollection(upTo(data_, NCollections - 1));
        break;
      case 1:
        // Nobody else holds it any more, so that it ends as soon as the next one takes its place.
        field_.reset();
        own_.reset();
        makeField(i);
        break;
      case 2:
      case 3:
      case 4:
        makeComputing();
        break;
      case 5:
        oneOf(data_, creators_) = KnownCreator();
        break;
      case 6:
        makeFree();
        break;
      case 7:
        oneOf(data_, fragments_) = Known();
        break;
      case 8:
        makeFragment();
        break;
      case 9:
        registerFragment();
        break;
      case 10:
      case 11:
        setCreator();
        break;
      case 12:
        setByNumber();
        break;
      case 13:
        setMany();
        break;
      case 14:
        writeSlot();
        break;
      case 15:
        createCreator();
        break;
      case 16:
        setPersistent();
        break;
      case 17:
        setDiscardable();
        break;
      case 18:
      case 19:
        getData();
        break;
      case 20:
        if (!held_.empty()) held_.erase(held_.begin() + static_cast<std::ptrdiff_t>(upTo(data_, held_.size() - 1)));
        break;
      case 21:
        useCreator();
        break;
      case 22:
        ask();
        break;
      case 23:
        walk();
        break;
      case 24:
        useCache();
        break;
      default:
        shrinkOrGrow();
    }
  }

  // Things to operate with.

  std::string name() { return TreskFuzz::nameFrom(data_, names_); }
  unsigned int number() { return static_cast<unsigned int>(TreskFuzz::number(data_, 12)); }
  CacheWeakPtr anyCache() { return onceIn(data_, 8) ? CacheWeakPtr() : CacheWeakPtr(cache_); }

  Content newContent() {
    Content content;
    content.extents.resize(1 + upTo(data_, 2));
    for (unsigned long long& extent : content.extents) extent = 1 + upTo(data_, 4);
    content.first = 1e4 * ++nContents_;
    content.step = 1;
    return content;
  }

  /// Notes a creator that was made, and perhaps keeps it.
  PlainCreatorPtr meet(const CreatorPtr& creator, Kind kind, const Content& content) {
    const PlainCreatorPtr plain = std::make_shared<PlainCreator>();
    plain->kind = kind;
    plain->content = content;
    plain->object = creator.get();
    plain->knowsSize = plain->knowsType = kind == Kind::Persistent || kind == Kind::Discardable;
    observed_.emplace_back(creator, plain);
    if (data_.ConsumeBool()) oneOf(data_, creators_) = KnownCreator{creator, plain};
    return plain;
  }

  void makeCollection(std::size_t i) {
    const PlainCollectionPtr plain = std::make_shared<PlainCollection>();
    if (onceIn(data_, 3)) {
      plain->shape = {1 + upTo(data_, 1), upTo(data_, 3)};
      std::vector<std::string> names(product(plain->shape));
      for (std::string& each : names) plain->append(each = name());
      collections_[i] =
          FragmentIDCollectionPtr(new FragmentIDCollection(TreskTest::makeNames(sizeOf(plain->shape), names)));
    } else {
      collections_[i] = FragmentIDCollectionPtr(new FragmentIDCollection);
    }
    plain->meet(*collections_[i]);
    plainCollections_[i] = plain;
  }

  void makeField(std::size_t i) {
    const PlainFieldPtr plain = std::make_shared<PlainField>();
    plain->id = ++nFields_;
    isNew_[i] = true;
    const std::size_t other = upTo(data_, NFields - 1);
    const bool isSibling = fields_[other].isValid() && data_.ConsumeBool();
    const FragmentIDCollectionPtr collection = collections_[upTo(data_, NCollections - 1)];
    if (isSibling) {
      plain->collection = plain_[other]->collection;
    } else if (data_.ConsumeBool()) {
      for (const PlainCollectionPtr& each : plainCollections_)
        if (each->object == collection.get()) plain->collection = each;
    }
    const bool hasGiven = plain->collection && !isSibling;
    const FragmentIDCollectionPtr given = hasGiven ? collection : FragmentIDCollectionPtr();
    FieldPtr field;
    switch (upTo(data_, 2)) {
      case 0: {
        const KnownCreator known = oneOf(data_, creators_);
        if (!isSibling)
          field = FieldPtr(new Field(known.creator, given));
        else if (data_.ConsumeBool())
          field = FieldPtr(new Field(known.creator, Tresk::FieldWeakPtr(fields_[other])));
        else
          field = FieldPtr(
              new Field(known.creator, static_cast<const Tresk::FragmentIDCollectionProvider&>(*fields_[other])));
        plain->bind(plain->getNumber({}), known.plain);
        break;
      }
      case 1: {
        const Content content = newContent();
        const MemBasePtr array = makeArray(content);
        if (!isSibling)
          field = FieldPtr(new Field(array, Tresk::CachePtr(cache_), given));
        else if (data_.ConsumeBool())
          field = FieldPtr(new Field(array, Tresk::FieldWeakPtr(fields_[other])));
        else
          field = FieldPtr(new Field(array, static_cast<const Tresk::FragmentIDCollectionProvider&>(*fields_[other])));
        const unsigned int slot = plain->getNumber({});
        plain->bind(slot, meet(field->getCreatorByNumericalID(slot), Kind::Persistent, content));
        break;
      }
      default:
        if (isSibling) {
          field = data_.ConsumeBool()
                      ? FieldPtr(new Field(Tresk::FieldWeakPtr(fields_[other])))
                      : FieldPtr(new Field(static_cast<const Tresk::FragmentIDCollectionProvider&>(*fields_[other])));
        } else if (hasGiven || data_.ConsumeBool()) {
          field = FieldPtr(new Field(given));
        } else {
          field = FieldPtr(new Field);
          plain->needCollection();
        }
    }
    meetCollection(*field, *plain);
    fields_[i] = field;
    plain_[i] = plain;
  }
  static void meetCollection(const Field& field, const PlainField& plain) {
    const FragmentIDCollectionPtr collection = field.getFragmentIDCollection();
    demand(collection.isValid() == (plain.collection != nullptr), "collection of a field");
    if (collection) plain.collection->meet(*collection);
  }

  void makeComputing() {
    PlainCreatorPtr summand;
    Kind kind = Kind::Computing;
    Content content = newContent();
    Tresk::FunctionalCreator::Function function = [content] { return makeArray(content); };
    switch (upTo(data_, 7)) {
      case 0:
        kind = Kind::Nothing;
        function = data_.ConsumeBool() ? [] { return MemBasePtr(); } : Tresk::FunctionalCreator::Function();
        break;
      case 1:
        kind = Kind::Throwing;
        function = []() -> MemBasePtr { throw Failure(); };
        break;
      case 2:
      case 3: {
        // A sum: it asks another creator whenever it is asked.
        const KnownCreator inner = oneOf(data_, creators_);
        if (!inner.plain || inner.plain->kind != Kind::Computing) break;
        summand = inner.plain;
        content.extents = summand->content.extents;
        const Content own = content;
        content.first += summand->content.first;
        content.step += summand->content.step;
        function = [own, other = inner.creator] {
          const MemBasePtr sum = makeArray(own);
          const MemBasePtr added = other->create(false);
          auto& elements = dynamic_cast<Tresk::TypedArray<double>&>(*sum).getTypedChunk()->vector();
          for (std::size_t e = 0; e < elements.size(); ++e) elements[e] += elementsOf(added)[e];
          return sum;
        };
        break;
      }
      default:
        break;
    }
    const CreatorPtr creator(new Tresk::FunctionalCreator(function, false, anyCache()));
    // Not through `function` as it stands here: that holds the other creator as well.
    function = nullptr;
    const PlainCreatorPtr plain = meet(creator, kind, content);
    plain->summand = summand;
    if (onceIn(data_, 4)) {
      plain->knowsSize = true;
      plain->knowsType = data_.ConsumeBool();
      creator->addMetaInfo(sizeOf(content.extents),
                           plain->knowsType ? Tresk::getTreskType<double>() : Tresk::TreskTypePtr());
    }
    oneOf(data_, creators_) = KnownCreator{creator, plain};
  }

  void makeFree() {
    const std::string given = name();
    Known& place = oneOf(data_, fragments_);
    place.fragment = FragmentIDPtr(new FragmentID(given));
    place.plain = std::make_shared<PlainFragment>(PlainFragment{given, {}, 0, place.fragment.get()});
  }

  // Fragments of the present field.

  void makeFragment() {
    const std::string given = name();
    own_->needCollection();
    const unsigned int slot = own_->collection->make(given);
    const FragmentIDPtr fragment = field_->makeFragmentID(given);
    meetCollection(*field_, *own_);
    demand(isSame(fragment, own_->collection->slots[slot]), "fragment that was made");
    oneOf(data_, fragments_) = Known{fragment, own_->collection->slots[slot]};
  }

  void registerFragment() {
    const Known& known = oneOf(data_, fragments_);
    const unsigned int expected = own_->getNumber(known.plain);
    const TreskTest::BreakpointRecorder recorder;
    demand(field_->getNumericalID(known.fragment) == expected, "number that a field gives");
    meetCollection(*field_, *own_);
  }

  // Bindings of the present field.

  void setCreator() {
    const KnownCreator known = oneOf(data_, creators_);
    const Known& fragment = oneOf(data_, fragments_);
    const bool isRefused = fragment.plain && !own_->isOwn(fragment.plain);
    bool isThrown = false;
    try {
      const CreatorPtr& slot = field_->setCreator(known.creator, fragment.fragment);
      demand(slot == known.creator, "slot of a creator that was set");
    } catch (const char* text) {
      isThrown = std::strcmp(text, "Field::setCreator(): Inconsistent Fragment ID Collection!") == 0;
    }
    demand(isThrown == isRefused, "fragment of another collection");
    if (!isRefused) own_->bind(own_->getNumber(fragment.plain), known.plain);
    meetCollection(*field_, *own_);
  }

  void setByNumber() {
    // At times a slot of the field's own table.
    const unsigned int to = number();
    if (onceIn(data_, 4) && !own_->table.empty()) {
      auto from = own_->table.begin();
      std::advance(from, static_cast<std::ptrdiff_t>(upTo(data_, own_->table.size() - 1)));
      const PlainCreatorPtr plain = from->second;
      const CreatorPtr& slot = field_->getCreatorReferenceViaFragmentIndex(from->first);
      demand(isSame(field_->setCreatorViaFragmentIndex(to, slot), plain), "slot that was copied");
      own_->bind(to, plain);
      return;
    }
    const KnownCreator known = oneOf(data_, creators_);
    demand(field_->setCreatorViaFragmentIndex(to, known.creator) == known.creator, "slot of a number");
    own_->bind(to, known.plain);
  }

  void setMany() {
    Tresk::fragment_copy_t entries;
    std::vector<std::pair<unsigned int, PlainCreatorPtr>> plain;
    const unsigned int first = number();
    const bool isRow = data_.ConsumeBool();
    for (std::size_t n = upTo(data_, 8); n > 0; --n) {
      const KnownCreator& known = oneOf(data_, creators_);
      const unsigned int to = isRow ? first + static_cast<unsigned int>(n) : number();
      entries.emplace_back(to, known.creator);
      plain.emplace_back(to, known.plain);
    }
    field_->setCreatorsViaFragmentIndex(entries);
    for (const auto& [to, creator] : plain) own_->bind(to, creator);
  }

  void writeSlot() {
    const unsigned int to = number();
    CreatorPtr& slot = field_->getCreatorReferenceViaFragmentIndex(to);
    PlainCreatorPtr& plainSlot = own_->table[to];
    own_->isTouched = true;
    demand(isSame(slot, plainSlot), "slot for writing");
    if (data_.ConsumeBool()) return;
    const KnownCreator known = oneOf(data_, creators_);
    slot = known.creator;
    plainSlot = known.plain;
  }

  /// New data most of the time, else some that have a creator already, or none.
  std::pair<MemBasePtr, Content> anyData() {
    if (onceIn(data_, 10)) return {};
    if (onceIn(data_, 6) && !held_.empty()) {
      const Held& held = oneOf(data_, held_);
      return {held.data, held.content};
    }
    const Content content = newContent();
    return {makeArray(content), content};
  }

  void createCreator() {
    const auto [array, content] = anyData();
    const auto alternative = static_cast<Field::CreationFailAlternative>(upTo(data_, 2));
    const bool isNew = array && !array->isOnCacheList();
    const CacheWeakPtr cache = isNew ? anyCache() : CacheWeakPtr(cache_);
    const TreskTest::BreakpointRecorder recorder;
    CreatorPtr creator;
    PlainFragmentPtr fragment;
    if (data_.ConsumeBool()) {
      const std::string given = name();
      creator = field_->createCreator(array, given, alternative, cache);
      // The fragment is made even if no creator is.
      own_->needCollection();
      const unsigned int slot = own_->collection->make(given);
      meetCollection(*field_, *own_);
      fragment = own_->collection->slots[slot];
    } else {
      const Known known = oneOf(data_, fragments_);
      creator = field_->createCreator(array, known.fragment, alternative, cache);
      fragment = known.plain;
    }
    const bool isExpected = array && alternative != Field::NoCreatorAlternative && cache.isValid();
    demand(creator.isValid() == isExpected, "creator for data");
    if (!isExpected) return;
    const Kind kind = alternative == Field::PersistentCreatorAlternative ? Kind::Persistent : Kind::Discardable;
    const unsigned int slot = own_->getNumber(fragment);
    own_->bind(slot, meet(creator, kind, content));
    meetCollection(*field_, *own_);
    demand(field_->getCreatorByNumericalID(slot) == creator, "creator that was made for data");
  }

  void setPersistent() {
    const auto [array, content] = anyData();
    const Known known = oneOf(data_, fragments_);
    const std::string provenance = data_.ConsumeRandomLengthString(4);
    const TreskTest::BreakpointRecorder recorder;
    const CreatorPtr& slot = field_->setPersistentData(array, known.fragment, Tresk::CachePtr(anyCache()), provenance);
    if (!array) {
      demand(&slot == &Field::CreativeArrayNullPtr(), "what stands for no data");
      return;
    }
    demand(slot->getProvenances().size() == (provenance.empty() ? 0U : 1U), "provenance of data");
    demand(!array->getDescription().empty(), "description of data");
    const CreatorPtr creator = slot;
    own_->bind(own_->getNumber(known.plain), meet(creator, Kind::Persistent, content));
    meetCollection(*field_, *own_);
  }

  void setDiscardable() {
    const auto [array, content] = anyData();
    const Known known = oneOf(data_, fragments_);
    const TreskTest::BreakpointRecorder recorder;
    const CreatorPtr creator = field_->setDiscardableData(array, anyCache(), known.fragment);
    demand(creator.isValid() == array.isValid(), "creator for data that may go");
    if (!array) return;
    own_->bind(own_->getNumber(known.plain), meet(creator, Kind::Discardable, content));
    meetCollection(*field_, *own_);
  }

  void shrinkOrGrow() {
    if (onceIn(data_, 3)) {
      field_->clear();
      own_->table.clear();
      return;
    }
    if (data_.ConsumeBool()) {
      field_->reserve_fragments(upTo(data_, 200));
      return;
    }
    bool isRefused = false;
    try {
      field_->reserve_fragments(1ULL << 62 | data_.ConsumeIntegral<unsigned long long>());
    } catch (const std::length_error& error) {
      isRefused = std::string(error.what()) == "vector::reserve";
    }
    demand(isRefused, "room for more fragments than there is");
  }

  // Data.

  /// Data that are held here, and of which creator.
  struct Held {
    MemBasePtr data;
    Content content;
    std::weak_ptr<PlainCreator> creator;
  };

  /// Asks for data in one of several ways, and compares them.
  template <class F>
  void expectData(const PlainCreatorPtr& plain, const F& get) {
    const bool hadData = plain && plain->object->hasData();
    MemBasePtr found;
    bool isThrown = false;
    try {
      found = get();
    } catch (const Failure&) {
      isThrown = true;
    }
    demand(isThrown == (plain && plain->kind == Kind::Throwing), "exception of a function");
    bool isExpected = plain && (plain->kind == Kind::Computing || plain->kind == Kind::Persistent);
    if (plain && plain->kind == Kind::Discardable) isExpected = hadData;
    demand(found.isValid() == isExpected, "data that there are");
    if (!found) return;
    checkData(found, plain->content);
    if (held_.size() < 6 && data_.ConsumeBool()) held_.push_back({found, plain->content, plain});
  }

  void getData() {
    switch (upTo(data_, 4)) {
      case 0: {
        const Known known = oneOf(data_, fragments_);
        expectData(own_->find(known.plain), [&] { return field_->getData(known.fragment); });
        break;
      }
      case 1:
      case 2: {
        const unsigned int of = number();
        expectData(own_->find(of), [&] { return field_->getDataByNumericalID(of); });
        break;
      }
      case 3:
        expectData(own_->table.empty() ? PlainCreatorPtr() : own_->table.begin()->second,
                   [&] { return field_->getFirstData(); });
        break;
      default:
        // All of them, one after the other, so that those of small caches come and go.
        for (const auto& [of, plain] : own_->table)
          expectData(plain, [&field = field_, of = of] { return field->getDataByNumericalID(of); });
    }
  }

  /// A creator outside its fields.
  void useCreator() {
    const KnownCreator known = oneOf(data_, creators_);
    if (!known.plain) return;
    CreativeArrayBase& creator = *known.creator;
    PlainCreator& plain = *known.plain;
    switch (upTo(data_, 3)) {
      case 0: {
        const int nHolders = creator.getData().strongCount() - 1;  // beside the pointer here
        const auto expected = plain.kind == Kind::Persistent ? Ostrel::Creature::CannotRelease
                              : nHolders > 1                 ? Ostrel::Creature::StillInUse
                                                             : Ostrel::Creature::Released;
        demand(creator.release() == expected, "answer of a release");
        demand(creator.hasData() == (expected != Ostrel::Creature::Released), "data after a release");
        break;
      }
      case 1: {
        Tresk::SizePtr size;
        bool isThrown = false;
        const bool isKnown = plain.tellsSize();
        try {
          size = Tresk::makeSize(creator);
        } catch (const Failure&) {
          isThrown = true;
        }
        const bool isMade = isKnown || plain.kind == Kind::Computing;
        demand(size.isValid() == isMade, "size that is made");
        demand(isThrown == (!isKnown && plain.kind == Kind::Throwing), "exception of a size");
        if (size) demand(numbersOf(*size) == plain.content.extents, "extents of a size that is made");
        plain.knowsSize = plain.knowsSize || isMade;
        break;
      }
      case 2:
        demand(creator.removeOwner(field_) == (plain.owners.erase(own_->id) != 0), "owner that leaves");
        break;
      default:
        demand(creator.addOwner(field_) == plain.owners.insert(own_->id).second, "owner that enters");
    }
  }

  void useCache() {
    if (data_.ConsumeBool()) {
      cache_->setLimit(onceIn(data_, 3) ? Ostrel::Cache::NoLimit : upTo(data_, 4096));
      return;
    }
    const bool isKept = cache_->enforceLimit();
    const Ostrel::CacheStatistics now = cache_->getStatistics();
    demand(isKept == (now.nHeldBytes <= now.limit), "answer of a cache");
    demand(now.nInFlightBytes == 0, "bytes in flight at rest");
    unsigned long long nBytes = 0;
    for (const Ostrel::CacheHolding& holding : cache_->getHoldings()) {
      nBytes += holding.nBytes;
      demand(isKept || holding.state != Ostrel::CacheHoldingState::Held, "data that could go");
    }
    demand(nBytes == now.nHeldBytes, "bytes in a cache");
  }

  // Questions.

  void ask() {
    const std::size_t other = upTo(data_, NFields - 1);
    switch (upTo(data_, 4)) {
      case 0: {
        const bool isRemembered = own_->size && own_->size->second == own_->table.size();
        if (!isRemembered) {
          std::optional<Numbers> sum;
          for (const auto& [of, creator] : own_->table) {
            if (!creator || !creator->tellsSize()) continue;
            const Numbers& extents = creator->content.extents;
            if (!sum) sum.emplace();
            sum->resize(std::max(sum->size(), extents.size()));
            for (std::size_t d = 0; d < extents.size(); ++d) (*sum)[d] += extents[d];
          }
          if (sum) own_->size.emplace(*sum, own_->table.size());
        }
        const bool isKnown = own_->size && own_->size->second == own_->table.size();
        const Tresk::SizePtr size = field_->getSize();
        demand(size.isValid() == isKnown, "size of a field");
        if (isKnown) demand(numbersOf(*size) == own_->size->first, "extents of a field");
        break;
      }
      case 1: {
        int expected = -1;
        for (const auto& [of, creator] : own_->table)
          if (expected < 0 && creator && creator->knowsType)
            expected = static_cast<int>(creator->content.extents.size());
        demand(field_->getProperties().isValid() == (expected >= 0), "properties of a field");
        for (const auto& [of, creator] : own_->table)
          if (expected < 0 && creator && creator->tellsSize())
            expected = static_cast<int>(creator->content.extents.size());
        demand(field_->Dims() == expected, "rank of a field");
        break;
      }
      case 2: {
        bool isExpected = true;
        for (const auto& [of, creator] : own_->table) {
          const PlainCreatorPtr theirs = plain_[other]->find(of);
          if (!isExpected || !creator || !theirs) continue;
          const bool areKnown = static_cast<int>(creator->tellsSize()) + static_cast<int>(theirs->tellsSize()) == 2;
          if (areKnown && creator->content.extents != theirs->content.extents) isExpected = false;
        }
        demand(field_->isCompatible(*fields_[other]) == isExpected, "compatibility of fields");
        break;
      }
      case 3: {
        const bool isTyped = anyCreator([](const PlainCreator& creator) { return creator.tellsType(); });
        demand(field_->getElementTreskType().isValid() == isTyped, "record of an element type");
        demand(field_->getElementType() == (isTyped ? typeid(double) : typeid(void)), "element type of a field");
        unsigned long long inMemory = 7;
        unsigned long long fullSize = 9;
        unsigned long long expectedInMemory = inMemory;
        unsigned long long expectedFullSize = fullSize;
        for (const auto& [of, creator] : own_->table) {
          if (!creator || !isTyped) continue;
          const unsigned long long nBytes = product(creator->content.extents) * sizeof(double);
          if (creator->tellsSize()) expectedFullSize += nBytes;
          if (creator->object->hasData()) expectedInMemory += nBytes;
        }
        const int answer = field_->getMemoryUsage(inMemory, fullSize);
        demand(answer == (!isTyped ? -1 : expectedInMemory > 7 ? 1 : 0), "answer about memory");
        demand(inMemory == expectedInMemory && fullSize == expectedFullSize, "bytes of a field");
        break;
      }
      default: {
        demand(field_->hasFragmentsNewerThan(Ostrel::Ageable::Ooooold) ==
                   anyCreator([](const PlainCreator&) { return true; }),
               "fragments newer than anything");
        demand(!field_->hasFragmentsNewerThan(Ostrel::Ageable::now()), "fragments newer than the present");
        demand(field_->getMostRecentCreatorAge() == Ostrel::Ageable::now(), "age of the newest creator");
      }
    }
  }
  template <class F>
  bool anyCreator(const F& f) const {
    return std::any_of(own_->table.begin(), own_->table.end(),
                       [&f](const auto& entry) { return entry.second && f(*entry.second); });
  }

  void walk() {
    const bool isNamed = own_->collection != nullptr;
    const std::size_t form = upTo(data_, 2);
    const bool isSnapshot = data_.ConsumeBool();
    SelectorPtr selector;
    Tresk::FragmentSelectorWeakPtr observer;
    if (form != 0 && data_.ConsumeBool()) {
      selector = SelectorPtr(new Selector(data_.ConsumeIntegral<std::uint8_t>()));
      observer = selector;
      // One that is gone selects everything.
      if (onceIn(data_, 4)) selector.reset();
    }
    // Walks by numbers are the same with and without a collection.
    const bool isOnly = !isNamed && form != 2 && own_->table.size() == 1;
    std::vector<Visit> visits;
    for (const auto& [of, creator] : own_->table) {
      if (!creator && !isOnly) continue;
      if (selector && (isNamed || form == 2) && !selector->selects(creator->object)) continue;
      visits.push_back({of, own_->fragmentOf(of), creator});
    }
    const std::size_t nWanted = upTo(data_, visits.size());
    Visitor visitor(visits, nWanted);
    const bool mayBind = isNamed && (form == 1 || isSnapshot);
    if (mayBind && data_.ConsumeBool()) {
      // What is bound meanwhile is not visited.
      visitor.onCall = [&] {
        if (visitor.nCalls == 0) setByNumber();
      };
    }
    unsigned int nTrue = 0;
    switch (form) {
      case 0:
        nTrue = field_->iterate([&visitor](const FragmentIDPtr& fragment,
                                           const CreatorPtr& creator) { return visitor.apply(fragment, creator); },
                                false, isSnapshot);
        demand(field_->iterate(Field::FragmentFunction(), false, isSnapshot) == 0, "walk without a function");
        break;
      case 1:
        nTrue = field_->iterate(static_cast<Tresk::FragmentIterator&>(visitor), observer);
        break;
      default:
        nTrue = field_->iterate(static_cast<Tresk::FragmentIndexIterator&>(visitor), observer, isSnapshot);
    }
    demand(visitor.nCalls == std::min(nWanted + 1, visits.size()), "number of calls of a walk");
    const bool isUncounted = form == 1 && !isNamed && !isOnly;
    demand(nTrue == (isUncounted ? 0 : nWanted), "answer of a walk");
  }

  // What must hold after each operation.

  void checkAll() {
    for (std::size_t i = 0; i < NFields; ++i) meetCollection(*fields_[i], *plain_[i]);
    for (const Known& known : fragments_)
      if (known.plain) TreskFuzz::check(known);
    for (std::size_t i = 0; i < NCollections; ++i)
      TreskFuzz::check(*collections_[i], *plainCollections_[i], names_, fragments_);
    for (std::size_t i = 0; i < NFields; ++i) check(*fields_[i], *plain_[i]);
    for (const auto& [creator, plain] : observed_) {
      const PlainCreatorPtr living = plain.lock();
      demand(creator.isValid() == (living != nullptr), "life of a creator");
      if (living) check(*living);
    }
    for (const Held& held : held_) {
      checkData(held.data, held.content);
      if (const PlainCreatorPtr living = held.creator.lock())
        demand(living->object->getData() == held.data, "data that are in use");
    }
  }

  void check(PlainCreator& plain) const {
    const CreativeArrayBase& creator = *plain.object;
    demand(creator.nOwners() == plain.owners.size(), "number of owners");
    for (std::size_t i = 0; i < NFields; ++i)
      demand(creator.isOwnedBy(fields_[i]) == (plain.owners.count(plain_[i]->id) != 0), "owner of a creator");
    const bool hasData = creator.hasData();
    demand(!hasData || (plain.kind != Kind::Nothing && plain.kind != Kind::Throwing), "data of a failing function");
    demand(hasData || plain.kind != Kind::Persistent, "data that nobody can bring back");
    demand(!hasData || !plain.isLost, "data that were lost");
    if (plain.kind == Kind::Discardable) plain.isLost = !hasData;
    if (hasData) checkData(plain.object->getData(), plain.content);
  }

  void check(const Field& field, const PlainField& plain) const {
    const auto& table = plain.table;
    demand(field.nFragments() == table.size(), "number of entries");
    for (unsigned int n = 0; n < 4; ++n) checkNumber(field, plain, n);
    checkNumber(field, plain, PlainCollection::None);
    for (const auto& [n, creator] : table) checkNumber(field, plain, n);
    for (const std::string& each : names_) {
      const unsigned int n = plain.numberOf(each);
      demand(field.findNumericalIDByName(each) == n, "number of a name in a field");
      demand(isSame(field.getFragmentID(each), plain.fragmentOf(n)), "fragment of a name in a field");
      const PlainCreatorPtr creator = plain.collection ? plain.find(n) : PlainCreatorPtr();
      demand(isSame(field.getCreatorByName(each), creator), "creator of a name");
      const CreatorWithFragment both = field.getCreatorByNameF(each);
      demand(isSame(both.first, creator), "creator of a name, with its fragment");
      demand(isSame(both.second, creator ? plain.fragmentOf(n) : PlainFragmentPtr()), "fragment of a creator");
    }
    for (const Known& known : fragments_) {
      const unsigned int n = !known.plain ? 0 : plain.collection ? known.plain->number : PlainCollection::None;
      demand(field.findNumericalID(known.fragment) == n, "number of a fragment in a field");
      const PlainCreatorPtr creator = plain.find(known.plain);
      demand(isSame(field.getCreator(known.fragment), creator), "creator of a fragment");
      const CreatorWithFragment both = field.getCompatibleCreatorF(known.fragment);
      if (creator || !known.plain) {
        demand(isSame(both.first, creator) && isSame(both.second, known.plain), "compatible creator");
      } else {
        const CreatorWithFragment byName = field.getCreatorByNameF(known.plain->name);
        demand(both == byName, "compatible creator by name");
      }
    }
    const bool isEmpty = table.empty();
    demand(isSame(field.getFirstCreator(), isEmpty ? PlainCreatorPtr() : table.begin()->second), "first creator");
    demand(isSame(field.getFirstFragmentID(), isEmpty ? PlainFragmentPtr() : plain.fragmentOf(table.begin()->first)),
           "first fragment");
    demand(field.isUnfragmented() == (table.size() == 1 && !plain.fragmentOf(table.begin()->first)),
           "whether a field is unfragmented");
    const FragmentIDCollectionPtr collection = field.getFragmentIDCollection();
    if (collection) {
      TreskFuzz::check(*collection, *plain.collection, names_, fragments_);
      demand(&field.getFragmentIDs() == &collection->getFragmentIDs(), "fragments of a field");
    } else {
      demand(field.getFragmentIDs().empty(), "fragments without a collection");
    }
  }
  static void checkNumber(const Field& field, const PlainField& plain, unsigned int n) {
    demand(isSame(field.getCreatorByNumericalID(n), plain.find(n)), "creator of a number");
    demand(field.validate(n) == (plain.collection && n < plain.collection->slots.size()), "number of a slot");
  }

  FuzzedDataProvider& data_;
  const Ostrel::StrongPtr<Ostrel::Cache, Ostrel::CacheBase> cache_;
  std::vector<std::string> names_{"", "a", "b", "c", "d"};
  unsigned int nContents_ = 0;
  unsigned int nFields_ = 0;
  FragmentIDCollectionPtr collections_[NCollections];
  PlainCollectionPtr plainCollections_[NCollections];
  std::vector<Known> fragments_;
  std::vector<KnownCreator> creators_;
  std::vector<std::pair<CreatorWeakPtr, std::weak_ptr<PlainCreator>>> observed_;
  std::vector<Held> held_;
  FieldPtr fields_[NFields];
  PlainFieldPtr plain_[NFields];
  bool isNew_[NFields] = {};
  FieldPtr field_;     ///< the one that is operated on
  PlainFieldPtr own_;  ///< what it should be
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t n) {
  FuzzedDataProvider data(bytes, n);
  static_cast<void>(Ostrel::Cache::MemCache());  // stays once it is made
  const long long nRecords = Ostrel::ReferenceRecord::nLive();
  World(data).run();
  demand(Ostrel::ReferenceRecord::nLive() == nRecords, "objects that stay behind");
  return 0;
}
