// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>

#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/WalkHolder.hpp>
#include <tresk/foundation/NeverDestroyed.hpp>
#include <tresk/foundation/SaveRegistry.hpp>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>

namespace Tresk {

namespace {

/// The collection of a field that may be gone.
FragmentIDCollectionPtr collectionOf(const FieldWeakPtr& sibling) {
  // A pin: the sibling may be a field that nobody holds yet.
  const Ostrel::Pin<CreatorContainer> holder(sibling);
  if (!holder || !sibling) return FragmentIDCollectionPtr();
  return static_cast<const Field&>(*holder).getFragmentIDCollection();
}

using DiscardableCreator = Ostrel::AlzheimerCreator<MemBase, CreativeArrayBase>;

/// Gives data back to their former creator if another one, which they knew for a moment, does not come to be.
class CreatorKeeper {
 public:
  explicit CreatorKeeper(const MemBasePtr& data) : data_(data), former_(data->getCreator()) {}
  CreatorKeeper(const CreatorKeeper&) = delete;
  CreatorKeeper& operator=(const CreatorKeeper&) = delete;
  ~CreatorKeeper() {
    if (!isAccepted_) data_->setCreator(former_);
  }
  void accept() noexcept { isAccepted_ = true; }

 private:
  const MemBasePtr data_;
  Ostrel::WeakPtr<Ostrel::Creature, Ostrel::Creature> former_;
  bool isAccepted_ = false;
};

/// How many entries ahead memory is asked for: entries in disorder lead anywhere.
constexpr std::size_t Ahead = 8;

/// Calls `f` for each creator of the entries, in their order.
template <class F>
void forEachCreator(const fragment_copy_t& entries, const F& f) {
  const std::size_t n = entries.size();
  for (std::size_t i = 0; i < n; ++i) {
    if (i + 2 * Ahead < n) __builtin_prefetch(entries[i + 2 * Ahead].second.getRecord());
    if (i + Ahead < n) __builtin_prefetch(entries[i + Ahead].second.get());
    if (entries[i].second) f(entries[i].second);
  }
}

}  // namespace

// ---------------------------------------------------------------------------------------------------- construction

void Field::offerToSavers() {
  Ostrel::SaveRegistry<Field> registry(this);
  registry.traverseCreators(typeid(Field));
}

void Field::reserveForShape() {
  if (collection_) reserve_fragments(collection_->getShape().nElements());
}

/// Runs the last step of a constructor. If that fails, the destructor runs, which is not to ask creators to save their
/// data that nobody has seen bound.
template <class F>
void Field::bindOrForget(const F& bind) {
  try {
    bind();
  } catch (...) {
    visitCreators([this](CreativeArrayBase& creator) {
      creator.removeOwner(getSelf());
      return false;
    });
    dropCreators();
    throw;
  }
}

Field::Field() : collection_(new FragmentIDCollection) { offerToSavers(); }

Field::Field(const FragmentIDCollectionPtr& collection) : collection_(collection) {
  offerToSavers();
  reserveForShape();
}

Field::Field(const FragmentIDCollectionProvider& provider) : Field(provider.getFragmentIDCollection()) {}

Field::Field(const FieldWeakPtr& sibling) : Field(collectionOf(sibling)) {}

Field::Field(const CreatorPtr& creator, const FieldWeakPtr& sibling) : Field(creator, collectionOf(sibling)) {}

Field::Field(const CreatorPtr& creator, const FragmentIDCollectionProvider& provider)
    : Field(creator, provider.getFragmentIDCollection()) {}

Field::Field(const CreatorPtr& creator, const FragmentIDCollectionPtr& collection) : Field(collection) {
  bindOrForget([&] { setCreator(creator, FragmentIDPtr()); });
}

Field::Field(const MemBasePtr& data, const FieldWeakPtr& sibling) : Field(data, collectionOf(sibling)) {}

Field::Field(const MemBasePtr& data, const FragmentIDCollectionProvider& provider)
    : Field(data, provider.getFragmentIDCollection()) {}

Field::Field(const MemBasePtr& data, const FragmentIDCollectionPtr& collection)
    : Field(data, Ostrel::Cache::MemCache(), collection) {}

Field::Field(const MemBasePtr& data, const CachePtr& cache, const FragmentIDCollectionPtr& collection)
    : Field(collection) {
  std::optional<CreatorKeeper> keeper;  // to the end: data that are bound, but not described yet, are let go again
  if (data) keeper.emplace(data);
  bindOrForget([&] { setPersistentData(data, FragmentIDPtr(), cache, std::string()); });
  if (keeper) keeper->accept();
}

void Field::extremeUnction() noexcept { clear(); }

Field::~Field() { clear(); }

bool Field::processOwnership(Ostrel::Intercube& question, const Ostrel::Intercube& context) const {
  return Ownable<Field, ChildrenProperties>::processOwnership(question, context);
}

FragmentIDCollectionPtr Field::getFragmentIDCollection() const { return collection_; }

const CreatorPtr& Field::CreativeArrayNullPtr() {
  static Ostrel::Detail::NeverDestroyed<CreatorPtr> null;
  return *null;
}

const FieldPtr& Field::NullPtrField() {
  static Ostrel::Detail::NeverDestroyed<FieldPtr> null;
  return *null;
}

// ------------------------------------------------------------------------------------------------------- fragments

FragmentIDPtr& Field::makeFragmentID(const std::string& name) {
  if (!collection_) collection_ = FragmentIDCollectionPtr(new FragmentIDCollection);
  return collection_->makeFragmentID(name);
}

unsigned int Field::getNumericalID(const FragmentIDPtr& fragment) {
  if (!collection_) {
    FragmentIDCollectionPtr adopted;
    if (fragment) adopted = FragmentIDCollectionPtr(fragment->getOwner());
    collection_ = adopted ? adopted : FragmentIDCollectionPtr(new FragmentIDCollection);
  }
  return collection_->getID(fragment);
}

unsigned int Field::findNumericalID(const FragmentIDPtr& fragment) const {
  if (!fragment) return 0;
  const FragmentIDCollection* const collection = livingCollection();
  return collection != nullptr ? collection->findID(fragment) : FragmentIDCollection::NoNumber;
}

unsigned int Field::findNumericalIDByName(const std::string& name) const {
  const FragmentIDCollection* const collection = livingCollection();
  return collection != nullptr ? collection->findNumericalIDByName(name) : FragmentIDCollection::NoNumber;
}

FragmentIDPtr Field::getFragmentID(const std::string& name) const {
  const FragmentIDCollection* const collection = livingCollection();
  return collection != nullptr ? collection->findFragmentIDByName(name) : FragmentIDPtr();
}

const std::vector<FragmentIDPtr>& Field::getFragmentIDs() const {
  static Ostrel::Detail::NeverDestroyed<std::vector<FragmentIDPtr>> none;
  return collection_ ? collection_->getFragmentIDs() : *none;
}

FragmentIDPtr Field::getFirstFragmentID() const {
  const FragmentIDCollection* const collection = livingCollection();
  if (collection == nullptr) return FragmentIDPtr();
  const SharedFragmentLock lock(mutex_);
  return fragments_.keys.empty() ? FragmentIDPtr() : collection->findFragmentID(fragments_.keys.front());
}

MemBasePtr Field::newFragmentationArray() const {
  const FragmentIDCollectionPtr collection = getFragmentIDCollection();
  if (!collection) return MemBasePtr();
  return MemBasePtr(collection->getFragmentIDArray());
}

bool Field::validate(unsigned int number) const {
  const FragmentIDCollectionPtr collection = getFragmentIDCollection();
  return collection && number < collection->nFragmentIDs();
}

// ------------------------------------------------------------------------------------------------------- the table

std::size_t Field::findPosition(unsigned int number) const {
  const std::vector<std::uint32_t>& keys = fragments_.keys;
  if (keys.empty() || number > keys.back()) return Absent;
  // The keys rise strictly: if the last one is the number of those before it, there are no gaps, and none stands behind
  // the position of its own number.
  if (keys.back() == keys.size() - 1) return number;
  const std::size_t last = std::min<std::size_t>(number, keys.size() - 1);
  if (keys[last] == number) return last;
  const auto end = keys.begin() + static_cast<std::ptrdiff_t>(last);
  const auto place = std::lower_bound(keys.begin(), end, number);
  return place != end && *place == number ? static_cast<std::size_t>(place - keys.begin()) : Absent;
}

CreatorPtr Field::findValue(unsigned int number) const {
  const std::size_t position = findPosition(number);
  return position == Absent ? CreatorPtr() : fragments_.values[position];
}

std::size_t Field::insert(unsigned int number, const CreatorPtr& creator) {
  std::vector<std::uint32_t>& keys = fragments_.keys;
  std::vector<CreatorPtr>& values = fragments_.values;
  const bool isLast = keys.empty() || keys.back() < number;
  const auto place = isLast ? keys.end() : std::lower_bound(keys.begin(), keys.end(), number);
  const std::ptrdiff_t position = place - keys.begin();
  if (place != keys.end() && *place == number) return static_cast<std::size_t>(position);
  // Both vectors get their room before either changes.
  if (keys.size() == keys.capacity()) keys.reserve(std::max<std::size_t>(4, 2 * keys.size()));
  if (values.size() == values.capacity()) values.reserve(std::max<std::size_t>(4, 2 * values.size()));
  keys.insert(keys.begin() + position, number);
  values.insert(values.begin() + position, creator);
  return static_cast<std::size_t>(position);
}

CreatorPtr& Field::store(unsigned int number, const CreatorPtr& creator) {
  // The former creator dies here, after the lock: its end may ask this field.
  CreatorPtr replaced;
  {
    const SharedFragmentLock lock(mutex_);
    const std::size_t position = findPosition(number);
    if (position != Absent) {
      // Under the shared lock the slot stays where it is; readers may copy it at this very moment.
      CreatorPtr& slot = fragments_.values[position];
      replaced = slot.exchangeFor(creator);
      return slot;
    }
  }
  const ExclusiveFragmentLock lock(mutex_);
  return fragments_.values[insert(number, creator)];
}

void Field::touchAndTell(const CreatorPtr& creator) {
  Ostrel::Ageable& age = Ostrel::Ageable::touch();
  if (creator) creator->forEachOwner(&age);
}

// --------------------------------------------------------------------------------------------------------- reading

CreatorPtr Field::getCreator(const FragmentIDPtr& fragment) const {
  const SharedFragmentLock lock(mutex_);
  if (fragments_.keys.empty()) return CreatorPtr();
  if (fragment) {
    const FragmentID& identity = *fragment;
    if (identity.getOwner().getRecord() != collection_.getRecord()) return CreatorPtr();
    return findValue(livingCollection() != nullptr ? identity.getNumericalID() : FragmentIDCollection::NoNumber);
  }
  if (fragments_.keys.size() > 1) return CreatorPtr();
  const FragmentIDCollection* const collection = livingCollection();
  if (collection != nullptr && collection->findFragmentID(fragments_.keys.front())) return CreatorPtr();
  return fragments_.values.front();
}

CreatorPtr Field::getCreatorByNumericalID(unsigned int number) const {
  const SharedFragmentLock lock(mutex_);
  return findValue(number);
}

CreatorPtr Field::getCreatorByName(const std::string& name) const {
  const FragmentIDCollection* const collection = livingCollection();
  if (collection == nullptr) return CreatorPtr();
  return getCreatorByNumericalID(collection->findNumericalIDByName(name));
}

CreatorWithFragment Field::getCreatorByNameF(const std::string& name) const {
  const FragmentIDCollection* const collection = livingCollection();
  if (collection == nullptr) return CreatorWithFragment();
  const unsigned int number = collection->findNumericalIDByName(name);
  CreatorPtr creator = getCreatorByNumericalID(number);
  if (!creator) return CreatorWithFragment();
  return CreatorWithFragment(std::move(creator), collection->findFragmentID(number));
}

CreatorWithFragment Field::getCompatibleCreatorF(const FragmentIDPtr& fragment) const {
  CreatorPtr creator = getCreator(fragment);
  if (!fragment) return CreatorWithFragment(std::move(creator), FragmentIDPtr());
  if (creator) return CreatorWithFragment(std::move(creator), fragment);
  return getCreatorByNameF(fragment->getName());
}

CreatorPtr Field::getFirstCreator() const TRESK_NO_THREAD_SAFETY_ANALYSIS {
  return fragments_.values.empty() ? CreatorPtr() : fragments_.values.front();
}

MemBasePtr Field::getData(const FragmentIDPtr& fragment) const {
  const CreatorPtr creator = getCreator(fragment);
  return creator ? creator->create(false) : MemBasePtr();
}

MemBasePtr Field::getDataByNumericalID(unsigned int number) const {
  const CreatorPtr creator = getCreatorByNumericalID(number);
  return creator ? creator->create(false) : MemBasePtr();
}

MemBasePtr Field::getFirstData() const {
  const CreatorPtr creator = getFirstCreator();
  return creator ? creator->create(false) : MemBasePtr();
}

CreatorPtr& Field::getCreatorReferenceViaFragmentIndex(unsigned int number) {
  CreatorPtr* slot = nullptr;
  {
    const SharedFragmentLock lock(mutex_);
    const std::size_t position = findPosition(number);
    if (position != Absent) slot = &fragments_.values[position];
  }
  if (slot == nullptr) {
    const ExclusiveFragmentLock lock(mutex_);
    slot = &fragments_.values[insert(number, CreatorPtr())];
  }
  Ostrel::Ageable::touch();
  return *slot;
}

// --------------------------------------------------------------------------------------------------------- binding

CreatorPtr& Field::setCreatorViaFragmentIndex(unsigned int number, const CreatorPtr& creator) {
  // A copy: `creator` may be a slot of this very table, which an insertion moves, or belong to the creator that is
  // replaced.
  const CreatorPtr bound = creator;
  CreatorPtr& slot = bind(number, bound);
  touchAndTell(bound);
  return slot;
}

CreatorPtr& Field::bind(unsigned int number, const CreatorPtr& creator) {
  // The owner first: a creator that is bound is owned. What fails leaves all as it was.
  if (!creator) return store(number, creator);
  if (creator->addOwner(getSelf())) {
    try {
      return store(number, creator);
    } catch (...) {
      Entering entering{creator.get()};
      disown({&entering, 1});
      throw;
    }
  }
  CreatorPtr& slot = store(number, creator);
  creator->addOwner(getSelf());  // once more: a thread that failed to bind it may have taken the owner away meanwhile
  return slot;
}

void Field::disown(std::span<Entering> entering) noexcept {
  std::sort(entering.begin(), entering.end(),
            [](const Entering& a, const Entering& b) { return std::less<>()(a.creator, b.creator); });
  const FieldWeakPtr self = getSelf();
  // In one step with the search, so that no other thread binds one of them in between.
  const ExclusiveFragmentLock lock(mutex_);
  for (const CreatorPtr& bound : fragments_.values) {
    const auto place =
        std::lower_bound(entering.begin(), entering.end(), bound.get(),
                         [](const Entering& e, const CreativeArrayBase* p) { return std::less<>()(e.creator, p); });
    if (place != entering.end() && place->creator == bound.get()) place->isBound = true;
  }
  for (const Entering& e : entering)
    if (!e.isBound) e.creator->removeOwner(self);
}

void Field::setCreatorsViaFragmentIndex(const fragment_copy_t& entries) {
  if (entries.empty()) return;
  if (entries.size() > 0xFFFFFFFFULL) {
    throw std::length_error("Field::setCreatorsViaFragmentIndex: " + std::to_string(entries.size()) +
                            " entries, more than there are numbers");
  }
  // The order of the entries: their number, and their place to tell equal numbers apart.
  std::vector<std::uint64_t> order(entries.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = std::uint64_t{entries[i].first} << 32U | i;
  if (!std::is_sorted(order.begin(), order.end())) std::sort(order.begin(), order.end());
  // Of one number the last entry holds.
  std::size_t nDistinct = 0;
  for (std::size_t i = 0; i < order.size(); ++i)
    if (i + 1 == order.size() || order[i] >> 32U != order[i + 1] >> 32U) order[nDistinct++] = order[i];
  order.resize(nDistinct);

  std::vector<CreatorPtr> former;  // die after the lock: the ends of replaced creators may ask this field
  former.reserve(nDistinct);
  // Owners first: a creator that is bound is owned. What fails leaves all as it was.
  std::vector<Entering> entering;
  entering.reserve(entries.size());
  const FieldWeakPtr self = getSelf();
  try {
    forEachCreator(entries, [&](const CreatorPtr& creator) {
      if (creator->addOwner(self)) entering.push_back({creator.get()});
    });
    const ExclusiveFragmentLock lock(mutex_);
    merge(order, entries, former);
  } catch (...) {
    disown(entering);
    throw;
  }
  if (entering.size() < entries.size()) {  // some were owned before; see `bind`
    forEachCreator(entries, [&self](const CreatorPtr& creator) { creator->addOwner(self); });
  }
  Ostrel::Ageable& age = Ostrel::Ageable::touch();
  forEachCreator(entries, [&age](const CreatorPtr& creator) { creator->forEachOwner(&age); });
}

void Field::merge(const std::vector<std::uint64_t>& order, const fragment_copy_t& entries,
                  std::vector<CreatorPtr>& former) {
  const auto numberOf = [](std::uint64_t place) { return static_cast<std::uint32_t>(place >> 32U); };
  const auto creatorOf = [&entries](std::uint64_t place) -> const CreatorPtr& {
    return entries[static_cast<std::uint32_t>(place)].second;
  };
  std::vector<std::uint32_t>& keys = fragments_.keys;
  std::vector<CreatorPtr>& values = fragments_.values;
  const std::size_t nFormer = keys.size();
  std::size_t nNew = 0;
  std::size_t present = 0;
  for (const std::uint64_t place : order) {
    while (present < nFormer && keys[present] < numberOf(place)) ++present;
    if (present == nFormer || keys[present] != numberOf(place)) ++nNew;
  }
  // Both vectors get their room before either changes. From here on nothing fails.
  const std::size_t nAll = nFormer + nNew;
  if (nAll > keys.capacity()) keys.reserve(std::max(nAll, 2 * nFormer));
  if (nAll > values.capacity()) values.reserve(std::max(nAll, 2 * nFormer));
  if (nFormer == 0 || keys.back() < numberOf(order.front())) {
    for (std::size_t i = 0; i < order.size(); ++i) {
      if (i + Ahead < order.size()) __builtin_prefetch(creatorOf(order[i + Ahead]).getRecord());
      keys.push_back(numberOf(order[i]));
      values.push_back(creatorOf(order[i]));
    }
    return;
  }
  // From the end on each entry moves once, by as many places as there are new ones before it.
  keys.resize(nAll);
  values.resize(nAll);
  std::size_t next = nFormer;  // behind the one that is to move next
  for (std::size_t i = order.size(), nLeft = nNew; i-- > 0;) {
    const std::uint32_t number = numberOf(order[i]);
    for (; next > 0 && keys[next - 1] > number; --next) {
      if (nLeft == 0) continue;
      keys[next - 1 + nLeft] = keys[next - 1];
      values[next - 1 + nLeft] = std::move(values[next - 1]);
    }
    if (next > 0 && keys[next - 1] == number) {
      // Stays in its slot as long as none moves; readers without a lock may copy it at this very moment.
      former.push_back(values[next - 1].exchangeFor(creatorOf(order[i])));
      continue;
    }
    --nLeft;
    keys[next + nLeft] = number;
    values[next + nLeft] = creatorOf(order[i]);
  }
}

CreatorPtr& Field::setCreator(const CreatorPtr& creator, const FragmentIDPtr& fragment) {
  if (fragment && fragment->getOwner().getRecord() != collection_.getRecord())
    throw "Field::setCreator(): Inconsistent Fragment ID Collection!";  // a plain text, deliberately
  return setCreatorViaFragmentIndex(getNumericalID(fragment), creator);
}

CreatorPtr Field::createCreator(const MemBasePtr& data, const FragmentIDPtr& fragment,
                                CreationFailAlternative alternative, const CacheWeakPtr& cache) {
  if (!data) return CreatorPtr();
  CreatorKeeper keeper(data);
  CreatorPtr creator;
  if (alternative == PersistentCreatorAlternative)
    creator = CreatorPtr(new CreativeArray(data, CachePtr(cache)));
  else if (alternative == DiscardableCreatorAlternative)
    creator = CreatorPtr(new DiscardableCreator(data, cache));  // becomes the creator of the data, and is touched
  else {
    keeper.accept();
    return CreatorPtr();
  }
  if (!data->isOnCacheList()) {
    keeper.accept();  // the creator goes, and the data stay without one: this is deliberate
    return CreatorPtr();
  }
  creator->addDataMetaInfo(data);
  data->setCreator(creator);
  bind(getNumericalID(fragment), creator);
  keeper.accept();
  touchAndTell(creator);
  return creator;
}

CreatorPtr Field::createCreator(const MemBasePtr& data, const std::string& name, CreationFailAlternative alternative,
                                const CacheWeakPtr& cache) {
  const FragmentIDPtr fragment = makeFragmentID(name);
  return createCreator(data, fragment, alternative, cache);
}

const CreatorPtr& Field::setPersistentData(const MemBasePtr& data, const FragmentIDPtr& fragment, const CachePtr& cache,
                                           const std::string& provenance) {
  if (!data) return CreativeArrayNullPtr();
  CreatorKeeper keeper(data);
  const CreatorPtr creator(new CreativeArray(data, cache));
  const CreatorPtr& slot = bind(getNumericalID(fragment), creator);
  keeper.accept();
  touchAndTell(creator);
  creator->addDataMetaInfo(data);
  if (data->getDescription().empty()) data->setDescription("Field::setPersistentData()");
  if (!provenance.empty()) {
    creator->addProvenance(
        Ostrel::StrongPtr<Ostrel::Provenance, Ostrel::Provenance>(new Ostrel::Provenance(provenance)));
  }
  touchAndTell(creator);
  return slot;
}

CreatorPtr Field::setDiscardableData(const MemBasePtr& data, const CacheWeakPtr& cache, const FragmentIDPtr& fragment) {
  if (!data) return CreatorPtr();
  CreatorKeeper keeper(data);
  const CreatorPtr creator(new DiscardableCreator(data, cache));
  creator->addDataMetaInfo(data);
  bind(getNumericalID(fragment), creator);
  keeper.accept();
  touchAndTell(creator);
  return creator;
}

void Field::reserve_fragments(unsigned long long nFragments) TRESK_NO_THREAD_SAFETY_ANALYSIS {
  if (nFragments > fragments_.keys.max_size() || nFragments > fragments_.values.max_size())
    throw std::length_error("vector::reserve");
  fragments_.keys.reserve(nFragments);
  fragments_.values.reserve(nFragments);
}

void Field::clear() {
  visitCreators([](CreativeArrayBase& creator) {
    creator.release();
    return false;
  });
  dropCreators();
}

void Field::dropCreators() {
  // The creators die after the lock: their ends may ask this field.
  fragments_t dropped;
  const ExclusiveFragmentLock lock(mutex_);
  std::swap(dropped, fragments_);
}

// ------------------------------------------------------------------------------------------------------- questions

unsigned long long Field::nFragments() const {
  const SharedFragmentLock lock(mutex_);
  return fragments_.keys.size();
}

bool Field::isUnfragmented() const {
  const SharedFragmentLock lock(mutex_);
  if (fragments_.keys.size() != 1) return false;
  const FragmentIDCollection* const collection = livingCollection();
  return collection == nullptr || !collection->findFragmentID(fragments_.keys.front());
}

Ostrel::StrongPtr<MemArrayProperties, Ostrel::InterfaceBase> Field::getProperties() const {
  Ostrel::StrongPtr<MemArrayProperties, Ostrel::InterfaceBase> properties;
  visitCreators([&properties](const CreativeArrayBase& creator) {
    properties = Ostrel::findInterface<MemArrayProperties>(creator);
    return properties.isValid();
  });
  return properties ? properties : Ostrel::findInterface<MemArrayProperties>(*this);
}

int Field::Dims() const {
  if (const auto properties = getProperties()) return properties->getRank();
  int rank = -1;
  visitCreators([&rank](const CreativeArrayBase& creator) {
    const SizePtr size = Tresk::getSize(creator);
    if (!size) return false;
    rank = size->Dims();
    return true;
  });
  return rank;
}

TreskTypeWeakPtr Field::getElementTreskType() const {
  if (const auto properties = getProperties()) return properties->getType();
  TreskTypeWeakPtr type;
  visitCreators([&type](CreativeArrayBase& creator) {
    type = creator.getTreskType();
    if (type) return true;
    const MemBasePtr data = creator.getData();
    if (data) type = TreskTypeBase::find(data->getTreskTypeIndex());
    return type.isValid();
  });
  return type;
}

const std::type_info& Field::getElementType() const {
  if (const auto properties = getProperties()) {
    const TreskTypePtr type(properties->getType());
    return type ? type->getType() : typeid(std::nullptr_t);
  }
  const std::type_info* type = &typeid(void);
  visitCreators([&type](CreativeArrayBase& creator) {
    if (const TreskTypePtr record = creator.getTreskType()) {
      type = &record->getType();
      return true;
    }
    const MemBasePtr data = creator.getData();
    if (data) type = &data->getElementType();
    return data.isValid();
  });
  return *type;
}

const std::type_info& Field::getFieldStorageType() const {
  const std::type_info* type = &typeid(void);
  visitCreators([&type](CreativeArrayBase& creator) {
    type = &creator.getType();
    return true;
  });
  return *type;
}

SizePtr Field::getSize() const {
  const Ostrel::StrongPtr<FragmentedSizeInterface, Ostrel::InterfaceBase> known(findInterface(typeid(SizeInterface)));
  Detail::WalkHolder holder;
  const SharedFragmentLock lock(mutex_);
  const unsigned long long nEntries = fragments_.keys.size();
  if (known && known->getFragmentCount() == nEntries) return known;
  SizePtr sum;
  for (const CreatorPtr& value : fragments_.values) {
    const CreativeArrayBase* const creator = holder.hold(value);
    const SizePtr size = creator != nullptr ? Tresk::getSize(*creator) : SizePtr();
    if (!size) continue;
    if (!sum) sum = SizePtr(new SizeInterface(DynamicSize()));
    *sum += *size;
  }
  if (sum) {
    addInterface(
        Ostrel::StrongPtr<Ostrel::InterfaceBase, Ostrel::InterfaceBase>(new FragmentedSizeInterface(*sum, nEntries)));
  }
  return sum;
}

bool Field::isCompatible(const Field& other) {
  Detail::WalkHolder mineHolder;
  Detail::WalkHolder theirsHolder;
  const SharedFragmentLock lock(mutex_);
  for (std::size_t i = 0; i < fragments_.keys.size(); ++i) {
    const CreativeArrayBase* const mine = mineHolder.hold(fragments_.values[i]);
    if (mine == nullptr) continue;
    // A lookup like any other: the other field's lock is not held while creators are asked.
    const CreativeArrayBase* const theirs = theirsHolder.hold(other.getCreatorByNumericalID(fragments_.keys[i]));
    if (theirs == nullptr) continue;
    const SizePtr a = Tresk::getSize(*mine);
    const SizePtr b = Tresk::getSize(*theirs);
    if (a && b && static_cast<const DynamicSize&>(*a) != *b) return false;
  }
  return true;
}

}  // namespace Tresk
