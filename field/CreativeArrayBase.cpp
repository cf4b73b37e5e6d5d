// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreativeArrayBase.hpp>

#include <tresk/field/MemArrayProperties.hpp>
#include <tresk/foundation/Profiler.hpp>

namespace Tresk {

namespace {

using InterfacePtr = Ostrel::StrongPtr<Ostrel::InterfaceBase, Ostrel::InterfaceBase>;

/// Remembers the size of an array on a creator.
SizePtr addSize(const CreativeArrayBase& creator, const MemBase& data) {
  SizePtr size(new SizeInterface(data.getSize()));
  creator.addInterface(size);
  return size;
}

}  // namespace

CreativeArrayBase::CreativeArrayBase(const CacheWeakPtr& cache)
    : Ostrel::CreatorBase<MemBase>(cache),
      savedAge(Ostrel::Ageable::Ooooold),
      attributeSaveAge(Ostrel::Ageable::now()) {}

CreativeArrayBase::~CreativeArrayBase() = default;

void CreativeArrayBase::extremeUnction() { const MemBasePtr lastLook(getCacheable()); }

Ostrel::Ageable& CreativeArrayBase::touch() {
  Ostrel::Ageable& age = Ostrel::Ageable::touch();
  forEachOwnerProperties([&age](CreativeArrayBaseContainerBase& owner) { owner.dataAge.raiseTo(age); });
  return age;
}

Ostrel::Ageable& CreativeArrayBase::touchAttributes() const {
  Ostrel::Ageable& age = getAttributeAge().touch();
  forEachOwnerProperties([&age](CreativeArrayBaseContainerBase& owner) { owner.attributeAge.raiseTo(age); });
  return age;
}

Ostrel::Ageable& CreativeArrayBase::updateAttributeAge(const Ostrel::Ageable& age) const {
  getAttributeAge().raiseTo(age);
  // Owners are compared with `age` itself, also where this creator is newer.
  forEachOwnerProperties([&age](CreativeArrayBaseContainerBase& owner) { owner.attributeAge.raiseTo(age); });
  return getAttributeAge();
}

bool CreativeArrayBase::retryCreation(CreativeArrayBase&) { return false; }

void CreativeArrayBase::setTreskType(const TreskTypePtr& type) {
  if (type) {
    TreskTypeIndex index = *type;  // a copy first: what fails leaves all as it was
    typeIndex_ = std::move(index);
  }
  type_ = type;
}

TreskTypePtr CreativeArrayBase::getTreskType() const {
  TreskTypePtr type(type_);
  return type ? type : TreskTypePtr(TreskTypeBase::find(typeIndex_));
}

void CreativeArrayBase::addMetaInfo(const DynamicSize& size, const TreskTypePtr& type) {
  addInterface(InterfacePtr(new SizeInterface(size)));
  addMetaInfo(size.Dims(), type);
}

void CreativeArrayBase::addMetaInfo(int rank, const TreskTypePtr& type) {
  if (!type) return;
  setTreskType(type);
  addInterface(InterfacePtr(new MemArrayProperties(rank, type)));
}

void CreativeArrayBase::addDataMetaInfo(const MemBasePtr& data) {
  if (!data) return;
  addMetaInfo(data->getSize(), TreskTypePtr(TreskTypeBase::find(data->getTreskTypeIndex())));
}

void CreativeArrayBase::save(const MemBasePtr& data) const {
  const Ostrel::Profiler scope("field/CreativeArrayBase", 214,
                               "void Tresk::CreativeArrayBase::save(Ostrel::RefPtr<Tresk::MemBase>&) const",
                               "CreativeArrayBase::save()", 6, "");
  Ostrel::Intercube question;
  question.addInterface(InterfacePtr(new SaveItem<MemBasePtr>(data)));
  question.addInterface(InterfacePtr(new SaveItem<CreatorPtr>(CreatorPtr(getSelf()))));
  processOwnership(question, question);
}

BinderPtr CreativeArrayBase::getBinder() const {
  const Ostrel::StrongPtr<BinderSlot, Ostrel::InterfaceBase> slot(new BinderSlot);
  Ostrel::Intercube question;
  question.addInterface(slot);
  return processOwnership(question, question) ? static_cast<const BinderPtr&>(*slot) : BinderPtr();
}

unsigned long long getMemoryUsage(const CreativeArrayBase& creator) {
  if (!creator.hasData()) return 0;
  // Looking at the held data changes nothing, though the operation is not a constant one.
  const MemBasePtr data = const_cast<CreativeArrayBase&>(creator).getData();
  return data ? data->memsize() : 0;
}

SizePtr getSize(const CreativeArrayBase& creator) {
  if (SizePtr known = Ostrel::findInterface<SizeInterface>(creator)) return known;
  const MemBasePtr data = const_cast<CreativeArrayBase&>(creator).getData();
  return data ? addSize(creator, *data) : SizePtr();
}

SizePtr makeSize(CreativeArrayBase& creator) {
  if (SizePtr known = Ostrel::findInterface<SizeInterface>(creator)) return known;
  MemBasePtr data = creator.getData();
  if (data) {
    data->markAsUsed();
  } else {
    Ostrel::Detail::CacheProduction production(creator);
    data = creator.produce();
    production.finish(data.isValid());
    if (!data) return SizePtr();
    data->setCreator(creator.getSelf());
    creator.enableCaching(false);
  }
  return addSize(creator, *data);
}

}  // namespace Tresk
