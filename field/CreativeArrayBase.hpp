// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/BinderBase.hpp>
#include <tresk/field/DynamicSize.hpp>
#include <tresk/field/MemBase.hpp>
#include <tresk/field/Ownable.hpp>
#include <tresk/field/SaveableAttributes.hpp>
#include <tresk/field/SizeInterface.hpp>
#include <tresk/field/TreskTypeBase.hpp>
#include <tresk/foundation/Creator.hpp>

#include <map>

namespace Tresk {

/// Stands for the array of one fragment: it knows size and element type without work, and yields the array when
/// somebody asks. What a field stores.
///
/// Lifetime: counted. Owns its data and its interfaces; knows its owners weakly, as the data know the creator. A
/// creator is made with `new` and given at once to a strong pointer; `save` and `release` of a creator that never had
/// one are forbidden.
/// Threads: the cache may call `release` on any thread. Owners and descriptions (`addMetaInfo`, `setTreskType`) are set
/// up before the creator is shared. Ages are plain stores: the last writer wins.
/// Errors: exceptions of a production reach whoever asked for the data.
class TRESK_EXPORT CreativeArrayBase : public Ostrel::CreatorBase<MemBase>,
                                       public Ownable<CreativeArrayBase, CreativeArrayBaseContainerBase>,
                                       public SaveableAttributes {
 public:
  /// \param cache where the creator keeps its books; may be empty
  explicit CreativeArrayBase(const CacheWeakPtr& cache);
  ~CreativeArrayBase() override;

  /// A last look at the data before the creator dies: the data outlive the call.
  void extremeUnction() override;

  /// Marks the data as changed: the data age takes a new tick of the clock, and owners are at least that new.
  Ostrel::Ageable& touch();
  /// Marks the attributes as changed, likewise.
  Ostrel::Ageable& touchAttributes() const;
  /// Raises the attribute age to `age`, here and in the owners, wherever it is older than that.
  Ostrel::Ageable& updateAttributeAge(const Ostrel::Ageable& age) const;
  /// The age of the data.
  const Ostrel::Ageable& getDataAge() const noexcept { return *this; }

  /// False. The hook for a creator that could try again.
  bool retryCreation(CreativeArrayBase& creator);

  /// Describes the data to come: size, element type and rank. The size is added whether `type` is valid or not; an
  /// invalid type leaves type and rank alone.
  void addMetaInfo(const DynamicSize& size, const TreskTypePtr& type);
  /// Describes rank and element type of the data to come. Nothing happens for an invalid type.
  void addMetaInfo(int rank, const TreskTypePtr& type);
  /// Describes the data by an array. Nothing happens for an invalid pointer.
  void addDataMetaInfo(const MemBasePtr& data);
  /// Sets the element type. An invalid pointer is stored too, while the index of the former type stays remembered.
  void setTreskType(const TreskTypePtr& type);
  /// The record of the element type; by the remembered index if the record has died. Empty if none is known.
  TreskTypePtr getTreskType() const;

  /// Asks the owners for the binder of their saver; empty if none answers or one of them refuses. Exceptions of owners
  /// pass.
  BinderPtr getBinder() const;
  /// Offers data to the owners for saving. The request carries a `SaveItem` with the data and one with this creator,
  /// and lives for the time of the call. Changes no age: a saver that has saved raises `savedAge`. Exceptions of
  /// owners pass.
  void save(const MemBasePtr& data) const;

 private:
  TreskTypeIndex typeIndex_;
  TreskTypeWeakPtr type_;

 public:
  // For savers, which stand outside the library and write these; the library reads `savedAge` only.
  mutable Ostrel::Ageable savedAge;  ///< age of the data at their last save
  mutable std::map<Ostrel::WeakPtr<BinderBase, BinderBase>, Ostrel::Ageable> binderAges;  ///< one age per binder
  mutable Ostrel::Ageable attributeSaveAge;  ///< age of the attributes at their last save
  mutable int savingState = 0;               ///< free for savers
};

/// Bytes of the data that a creator holds now; 0 without data.
TRESK_EXPORT unsigned long long getMemoryUsage(const CreativeArrayBase& creator);

/// The size of a creator's data, if it is known without producing them, else an empty pointer. The first answer stands:
/// it is remembered on the creator, also after the data have gone.
TRESK_EXPORT SizePtr getSize(const CreativeArrayBase& creator);

/// The size of a creator's data, which are produced if that is the only way to learn it; null if that yields nothing.
/// What is produced is tied to the creator, as by `create(false)`. Exceptions of the production pass.
TRESK_EXPORT SizePtr makeSize(CreativeArrayBase& creator);

}  // namespace Tresk
