// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Pointers.hpp>

#include <support/PointerClasses.hpp>
#include <support/RecordBalance.hpp>
#include <support/SpeakRecorder.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

// Random sequences of pointer operations on one thread run beside a reference machine of plain integers, which follows
// the steps of each operation as they are stated. After each operation every count, validity and object must agree.

namespace {

using Ostrel::DynPtr;
using Ostrel::Forgetting;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using TreskTest::Root;
using TreskTest::Shifted;
using TreskTest::ShiftedLeaf;
using TreskTest::Virtual;

/// An object that resurrects itself at its first last release.
class Reviving : public Root {
 public:
  void extremeUnction() override {
    if (std::exchange(hasRevived_, true)) return;
    kept.emplace_back(this);
  }

  static inline std::vector<StrongPtr<Root, Root>> kept;  ///< in the order of the resurrections

 private:
  bool hasRevived_ = false;
};

/// What the machine knows of one record.
struct MachineRecord {
  int strong = 1;
  int weak = 2;
  bool isClaimed = false;
  bool hasObject = true;
  int kind = 0;  ///< index of the class of the object in `Types`, or `RevivingKind`
  Root* object = nullptr;
  int nForsaken = 0;  ///< units of the strong count that no pointer will ever give back
  bool hasRevived = false;
};

constexpr int RevivingKind = 4;

/// Counts as the steps say.
class Machine {
 public:
  using Index = int;
  static constexpr Index None = -1;

  Index construct(int kind, Root* object) {
    records.push_back({1, 2, false, true, kind, object});
    return static_cast<Index>(records.size()) - 1;
  }
  MachineRecord& at(Index i) { return records[static_cast<std::size_t>(i)]; }

  void raiseStrong(Index i) {
    if (at(i).strong > 0) ++at(i).strong;
  }
  void copyWeak(Index i) {
    if (i != None) ++at(i).weak;
  }
  void copyStrong(Index i) {
    if (i == None) return;
    ++at(i).weak;
    raiseStrong(i);
  }
  void strongFromWeak(Index i) {
    if (i == None) return;
    ++at(i).weak;
    if (at(i).isClaimed)
      raiseStrong(i);
    else
      at(i).isClaimed = true;
  }
  void releaseWeak(Index i) {
    if (i == None) return;
    if (--at(i).weak == 0) ++nDeleted;
  }
  void releaseStrongUnit(Index i) {
    MachineRecord& r = at(i);
    if (r.strong < 1) return;
    if (r.strong > 1) {
      --r.strong;
      return;
    }
    if (r.kind == RevivingKind && !std::exchange(r.hasRevived, true)) {
      r.strong = 2;  // of the pointer that the hook keeps, and the one that was to be released
      ++r.weak;
      ++r.nForsaken;
      revived.push_back(i);
      return;
    }
    r.strong = -111;
    r.hasObject = false;
    releaseWeak(i);  // the self pointer, in the destructor
    releaseWeak(i);  // the object
  }
  void releaseStrong(Index i) {
    if (i == None) return;
    releaseStrongUnit(i);
    releaseWeak(i);
  }
  void dieUnclaimed(Index i) {
    at(i).strong = -111;
    at(i).hasObject = false;
    --at(i).weak;
    releaseWeak(i);
  }
  bool resetUnlessLast(Index i) {
    if (i == None) return true;
    if (at(i).strong == 1) return false;
    if (at(i).strong > 1) --at(i).strong;
    releaseWeak(i);
    return true;
  }
  void forsake(Index i) {
    if (i == None) return;
    if (at(i).strong > 0) ++at(i).nForsaken;
    releaseWeak(i);
  }
  bool isAlive(Index i) { return i != None && at(i).hasObject && at(i).strong >= 1; }

  std::vector<MachineRecord> records;
  std::vector<Index> revived;  ///< in the order of the resurrections
  long long nDeleted = 0;
};

using Types = std::tuple<Root, Shifted, ShiftedLeaf, Virtual>;
constexpr int nTypes = std::tuple_size_v<Types>;
static_assert(RevivingKind == nTypes);
constexpr int nSlots = 5;

/// Whether an object of class number `kind` is a class number `type`.
constexpr bool isA(int kind, int type) { return type == 0 || kind == type || (kind == 2 && type == 1); }

template <class P>
struct Slot {
  std::unique_ptr<P> pointer = std::make_unique<P>();
  Machine::Index model = Machine::None;
};

template <class T>
struct Slots {
  std::array<Slot<StrongPtr<T, Root>>, nSlots> strong;
  std::array<Slot<WeakPtr<T, Root>>, nSlots> weak;
};

class Comparison {
 public:
  explicit Comparison(unsigned int seed) : random_(seed) {}

  void step() {
    switch (pick(21)) {
      case 0:
        makeObject();
        break;
      case 1:
        makeUnclaimed();
        break;
      case 2:
        withTwoTypes([this]<class T, class U>() { copyConstructStrong<T, U>(); });
        break;
      case 3:
        withTwoTypes([this]<class T, class U>() { copyConstructWeak<T, U>(); });
        break;
      case 4:
        withTwoTypes([this]<class T, class U>() { strongFromWeak<T, U>(); });
        break;
      case 5:
        withTwoTypes([this]<class T, class U>() { weakFromStrong<T, U>(); });
        break;
      case 6:
        withTwoTypes([this]<class T, class U>() { assignStrong<T, U>(); });
        break;
      case 7:
        withTwoTypes([this]<class T, class U>() { assignWeak<T, U>(); });
        break;
      case 8:
        withTwoTypes([this]<class T, class U>() { moveConstruct<T, U>(); });
        break;
      case 9:
        withType([this]<class T>() { moveAssign<T>(); });
        break;
      case 10:
        withType([this]<class T>() { resetStrong<T>(); });
        break;
      case 11:
        withType([this]<class T>() { resetWeak<T>(); });
        break;
      case 12:
        withType([this]<class T>() { takeOrExchange<T>(); });
        break;
      case 13:
        withType([this]<class T>() { forget<T>(); });
        break;
      case 14:
        withType([this]<class T>() { pin<T>(); });
        break;
      case 15:
        withType([this]<class T>() { resetUnlessLast<T>(); });
        break;
      case 16:
        withTwoTypes([this]<class T, class U>() { fill<T, U>(); });
        break;
      case 17:
        withType([this]<class T>() { strongFromObject<T>(); });
        break;
      case 18:
        withType([this]<class T>() { selfOf<T>(); });
        break;
      case 19:
        withTwoTypes([this]<class T, class U>() { moveAssignConverted<T, U>(); });
        break;
      default:
        // Rare, as the object then stays to the end.
        if (pick(8) == 0) withType([this]<class T>() { forsake<T>(); });
        break;
    }
  }

  /// Compares everything that a caller can see.
  void check(long long nLiveRecords, int nAliveObjects) {
    checkType<0>();
    checkType<1>();
    checkType<2>();
    checkType<3>();
    long long nRecords = static_cast<long long>(machine_.records.size()) - machine_.nDeleted;
    EXPECT_EQ(nLiveRecords, nRecords) << last_;
    int nObjects = 0;
    for (const MachineRecord& record : machine_.records) nObjects += record.hasObject ? 1 : 0;
    EXPECT_EQ(nAliveObjects, nObjects) << last_;
    EXPECT_EQ(Reviving::kept.size(), machine_.revived.size()) << last_;
    EXPECT_EQ(speaker_.unctionChanges().size(), machine_.revived.size()) << last_;
    EXPECT_TRUE(speaker_.invalidWeaks().empty()) << last_;
  }

  /// Empties all slots, and deletes what nobody ever claimed and what keeps a unit that nobody gives back.
  void finish() {
    withEveryType([this]<class T>() {
      for (auto& slot : slots<T>().strong) {
        slot.pointer->reset();
        machine_.releaseStrong(std::exchange(slot.model, Machine::None));
      }
    });
    for (std::size_t i = 0; i < Reviving::kept.size(); ++i) {
      EXPECT_EQ(Reviving::kept[i].strongCount(), machine_.at(machine_.revived[i]).strong);
      Reviving::kept[i].reset();
      machine_.releaseStrong(machine_.revived[i]);
    }
    for (MachineRecord& record : machine_.records) {
      if (!record.hasObject) continue;
      EXPECT_EQ(record.strong, record.isClaimed ? record.nForsaken : 1);
      EXPECT_EQ(record.object->getRecord()->strong.load(), record.strong);
      delete record.object;
      machine_.dieUnclaimed(static_cast<Machine::Index>(&record - machine_.records.data()));
    }
    last_ = "after the end of all objects";
  }
  void dropWeak() {
    withEveryType([this]<class T>() {
      for (auto& slot : slots<T>().weak) {
        slot.pointer->reset();
        machine_.releaseWeak(std::exchange(slot.model, Machine::None));
      }
    });
    last_ = "after the end of all pointers";
  }

 private:
  int pick(int n) { return static_cast<int>(random_() % static_cast<unsigned int>(n)); }

  template <class T>
  Slots<T>& slots() {
    return std::get<Slots<T>>(slots_);
  }
  template <class T>
  Slot<StrongPtr<T, Root>>& anyStrong() {
    return slots<T>().strong[static_cast<std::size_t>(pick(nSlots))];
  }
  template <class T>
  Slot<WeakPtr<T, Root>>& anyWeak() {
    return slots<T>().weak[static_cast<std::size_t>(pick(nSlots))];
  }

  template <class F>
  void withType(F f) {
    switch (pick(nTypes)) {
      case 0:
        f.template operator()<Root>();
        break;
      case 1:
        f.template operator()<Shifted>();
        break;
      case 2:
        f.template operator()<ShiftedLeaf>();
        break;
      default:
        f.template operator()<Virtual>();
        break;
    }
  }
  template <class F>
  void withTwoTypes(F f) {
    withType([&]<class T>() { withType([&]<class U>() { f.template operator()<T, U>(); }); });
  }
  template <class F>
  void withEveryType(F f) {
    f.template operator()<Root>();
    f.template operator()<Shifted>();
    f.template operator()<ShiftedLeaf>();
    f.template operator()<Virtual>();
  }

  Root* makeAny(int kind) {
    switch (kind) {
      case 0:
        return new Root;
      case 1:
        return new Shifted;
      case 2:
        return new ShiftedLeaf;
      case RevivingKind:
        return new Reviving;
      default:
        return new Virtual;
    }
  }

  /// Puts a new pointer object in a slot and destroys the old one.
  template <class P>
  void install(Slot<P>& slot, std::unique_ptr<P> made, Machine::Index model) {
    slot.pointer = std::move(made);
    const Machine::Index old = std::exchange(slot.model, model);
    if constexpr (std::is_same_v<P, StrongPtr<typename P::ElementType, Root>>)
      machine_.releaseStrong(old);
    else
      machine_.releaseWeak(old);
  }

  void makeObject() {
    last_ = "first strong pointer";
    const int kind = pick(nTypes + 1);
    Root* const object = makeAny(kind);
    const Machine::Index model = machine_.construct(kind, object);
    auto& slot = anyStrong<Root>();
    auto made = std::make_unique<StrongPtr<Root, Root>>(object);
    machine_.strongFromWeak(model);
    install(slot, std::move(made), model);
  }

  void makeUnclaimed() {
    last_ = "weak pointer to an unclaimed object";
    const int kind = pick(nTypes + 1);
    Root* const object = makeAny(kind);
    const Machine::Index model = machine_.construct(kind, object);
    auto made = std::make_unique<WeakPtr<Root, Root>>(object);
    machine_.copyWeak(model);
    install(anyWeak<Root>(), std::move(made), model);
  }

  template <class T, class U>
  void copyConstructStrong() {
    last_ = "strong pointer from a strong pointer";
    auto& source = anyStrong<U>();
    auto& target = anyStrong<T>();
    auto made = std::make_unique<StrongPtr<T, Root>>(*source.pointer);
    machine_.copyStrong(source.model);
    install(target, std::move(made), source.model);
  }

  template <class T, class U>
  void copyConstructWeak() {
    last_ = "weak pointer from a weak pointer";
    auto& source = anyWeak<U>();
    auto& target = anyWeak<T>();
    auto made = std::make_unique<WeakPtr<T, Root>>(*source.pointer);
    machine_.copyWeak(source.model);
    install(target, std::move(made), source.model);
  }

  template <class T, class U>
  void strongFromWeak() {
    last_ = "strong pointer from a weak pointer";
    auto& source = anyWeak<U>();
    auto& target = anyStrong<T>();
    auto made = std::make_unique<StrongPtr<T, Root>>(*source.pointer);
    machine_.strongFromWeak(source.model);
    install(target, std::move(made), source.model);
  }

  template <class T, class U>
  void weakFromStrong() {
    last_ = "weak pointer from a strong pointer";
    auto& source = anyStrong<U>();
    auto& target = anyWeak<T>();
    auto made = std::make_unique<WeakPtr<T, Root>>(*source.pointer);
    machine_.copyWeak(source.model);
    install(target, std::move(made), source.model);
  }

  template <class T, class U>
  void assignStrong() {
    last_ = "assignment of strong pointers";
    auto& source = anyStrong<U>();
    auto& target = anyStrong<T>();
    const long long id = target.pointer->getPointerID();
    *target.pointer = *source.pointer;
    EXPECT_EQ(target.pointer->getPointerID(), id);
    if (target.model == source.model) return;
    machine_.copyStrong(source.model);
    machine_.releaseStrong(std::exchange(target.model, source.model));
  }

  template <class T, class U>
  void assignWeak() {
    last_ = "assignment of weak pointers";
    auto& source = anyWeak<U>();
    auto& target = anyWeak<T>();
    const long long id = target.pointer->getPointerID();
    *target.pointer = *source.pointer;
    EXPECT_EQ(target.pointer->getPointerID(), id);
    if (target.model == source.model) return;
    machine_.copyWeak(source.model);
    machine_.releaseWeak(std::exchange(target.model, source.model));
  }

  template <class T, class U>
  void moveConstruct() {
    last_ = "move construction";
    auto& source = anyStrong<U>();
    auto& target = anyStrong<T>();
    auto made = std::make_unique<StrongPtr<T, Root>>(std::move(*source.pointer));
    const Machine::Index model = std::exchange(source.model, Machine::None);
    install(target, std::move(made), model);
  }

  template <class T>
  void moveAssign() {
    last_ = "move assignment";
    auto& source = anyStrong<T>();
    auto& target = anyStrong<T>();
    *target.pointer = std::move(*source.pointer);
    if (&source == &target) return;
    machine_.releaseStrong(std::exchange(target.model, std::exchange(source.model, Machine::None)));
  }

  template <class T, class U>
  void moveAssignConverted() {
    if constexpr (!std::is_same_v<T, U>) {
      last_ = "move assignment from another type";
      auto& source = anyStrong<U>();
      auto& target = anyStrong<T>();
      const long long id = target.pointer->getPointerID();
      *target.pointer = std::move(*source.pointer);
      EXPECT_EQ(target.pointer->getPointerID(), id);
      EXPECT_EQ(source.pointer->getRecord(), nullptr);
      machine_.releaseStrong(std::exchange(target.model, std::exchange(source.model, Machine::None)));
    }
  }

  /// A living object, held or not: its model, or `None`.
  Machine::Index anyLiving() {
    if (machine_.records.empty()) return Machine::None;
    const auto model = static_cast<Machine::Index>(pick(static_cast<int>(machine_.records.size())));
    return machine_.at(model).hasObject ? model : Machine::None;
  }

  template <class T>
  void strongFromObject() {
    last_ = "strong pointer to an object that may have some";
    const Machine::Index model = anyLiving();
    if (model == Machine::None || !isA(machine_.at(model).kind, typeNumber<T>())) return;
    auto made = std::make_unique<StrongPtr<T, Root>>(dynamic_cast<T*>(machine_.at(model).object));
    machine_.strongFromWeak(model);
    install(anyStrong<T>(), std::move(made), model);
  }

  template <class T>
  void selfOf() {
    last_ = "weak pointer from an object itself";
    const Machine::Index model = anyLiving();
    if (model == Machine::None) return;
    auto made = std::make_unique<WeakPtr<T, Root>>(machine_.at(model).object->getSelf());
    machine_.copyWeak(model);
    install(anyWeak<T>(), std::move(made), model);
  }

  template <class T>
  void resetStrong() {
    last_ = "reset of a strong pointer";
    auto& slot = anyStrong<T>();
    slot.pointer->reset();
    machine_.releaseStrong(std::exchange(slot.model, Machine::None));
  }

  template <class T>
  void resetWeak() {
    last_ = "reset of a weak pointer";
    auto& slot = anyWeak<T>();
    slot.pointer->reset();
    machine_.releaseWeak(std::exchange(slot.model, Machine::None));
  }

  template <class T>
  void takeOrExchange() {
    auto& slot = anyStrong<T>();
    auto& other = anyStrong<T>();
    if (pick(2) == 0) {
      last_ = "take";
      StrongPtr<T, Root> taken = slot.pointer->take();
      EXPECT_EQ(slot.pointer->getRecord(), nullptr);
      taken.reset();
      machine_.releaseStrong(std::exchange(slot.model, Machine::None));
    } else {
      last_ = "exchange";
      const StrongPtr<T, Root> former = slot.pointer->exchangeFor(*other.pointer);
      if (slot.model == other.model) {
        EXPECT_EQ(former.getRecord(), nullptr);
        return;
      }
      machine_.copyStrong(other.model);
      machine_.releaseStrong(std::exchange(slot.model, other.model));
    }
  }

  template <class T>
  void forget() {
    last_ = "forget if sole";
    constexpr int type = typeNumber<T>();
    auto& slot = anyStrong<T>();
    StrongPtr<T, Root> former;
    const bool isKept = pick(2) == 0;
    const Forgetting answer = isKept ? slot.pointer->forgetIfSole(former) : slot.pointer->forgetIfSole();
    if (!machine_.isAlive(slot.model) || !isA(machine_.at(slot.model).kind, type)) {
      EXPECT_EQ(answer, Forgetting::WasInvalid);
    } else if (machine_.at(slot.model).strong > 1) {
      EXPECT_EQ(answer, Forgetting::IsShared);
      EXPECT_EQ(former.getRecord(), nullptr);
    } else {
      EXPECT_EQ(answer, Forgetting::Forgotten);
      EXPECT_EQ(slot.pointer->getRecord(), nullptr);
      EXPECT_EQ(former.strongCount(), isKept ? 1 : 0) << "the reference itself is handed over";
      former.reset();
      machine_.releaseStrong(std::exchange(slot.model, Machine::None));
    }
  }

  template <class T>
  void pin() {
    last_ = "pin";
    auto& slot = anyWeak<T>();
    {
      const Ostrel::Pin<Root> pinned(*slot.pointer);
      machine_.copyStrong(slot.model);
      EXPECT_EQ(static_cast<bool>(pinned), machine_.isAlive(slot.model));
      if (pinned) {
        EXPECT_EQ(pinned.get(), machine_.at(slot.model).object);
        EXPECT_EQ(slot.pointer->strongCount(), machine_.at(slot.model).strong);
        EXPECT_EQ(slot.pointer->weakCount(), machine_.at(slot.model).weak);
      }
    }
    machine_.releaseStrong(slot.model);
  }

  template <class T>
  void resetUnlessLast() {
    last_ = "reset unless last";
    auto& slot = anyStrong<T>();
    const bool isReset = machine_.resetUnlessLast(slot.model);
    EXPECT_EQ(slot.pointer->resetUnlessLast(), isReset);
    if (isReset) slot.model = Machine::None;
  }

  template <class T, class U>
  void fill() {
    last_ = "fill";
    auto& source = anyStrong<U>();
    auto& target = anyStrong<T>();
    if (target.model != Machine::None) return;
    target.pointer->fill(*source.pointer);
    machine_.copyStrong(source.model);
    target.model = source.model;
  }

  template <class T>
  void forsake() {
    last_ = "forget";
    auto& slot = anyStrong<T>();
    slot.pointer->forget();
    machine_.forsake(std::exchange(slot.model, Machine::None));
  }

  template <class T>
  static constexpr int typeNumber() {
    if constexpr (std::is_same_v<T, Root>) return 0;
    if constexpr (std::is_same_v<T, Shifted>) return 1;
    if constexpr (std::is_same_v<T, ShiftedLeaf>) return 2;
    return 3;
  }

  template <class P>
  void checkSlot(const Slot<P>& slot) {
    using T = typename P::ElementType;
    const P& pointer = *slot.pointer;
    if (slot.model == Machine::None) {
      EXPECT_EQ(pointer.getRecord(), nullptr) << last_;
      EXPECT_FALSE(pointer.isValid()) << last_;
      return;
    }
    MachineRecord& record = machine_.at(slot.model);
    ASSERT_NE(pointer.getRecord(), nullptr) << last_;
    EXPECT_EQ(pointer.strongCount(), record.strong) << last_;
    EXPECT_EQ(pointer.weakCount(), record.weak) << last_;
    EXPECT_EQ(pointer.getRecord()->deferred.load(), record.isClaimed ? 2 : 0) << last_;
    const bool isValid = machine_.isAlive(slot.model) && isA(record.kind, typeNumber<T>());
    EXPECT_EQ(pointer.isValid(), isValid) << last_;
    if constexpr (requires { pointer.holdsObject(); }) {
      EXPECT_EQ(pointer.holdsObject(), isValid) << last_;
    }
    if (isValid)
      EXPECT_EQ(pointer.get(), dynamic_cast<T*>(record.object)) << last_;
    else
      EXPECT_EQ(pointer.get(), nullptr) << last_;
  }

  template <int type>
  void checkType() {
    using T = std::tuple_element_t<type, Types>;
    for (const auto& slot : slots<T>().strong) checkSlot(slot);
    for (const auto& slot : slots<T>().weak) checkSlot(slot);
  }

  std::mt19937 random_;
  TreskTest::SpeakRecorder speaker_;
  Machine machine_;
  std::tuple<Slots<Root>, Slots<Shifted>, Slots<ShiftedLeaf>, Slots<Virtual>> slots_;
  std::string last_;
};

class PointerPropertyTest : public TreskTest::RecordBalanceTest, public ::testing::WithParamInterface<unsigned int> {};

TEST_P(PointerPropertyTest, RandomOperationsAgreeWithTheReferenceMachine) {
  const int nAliveAtStart = Root::nAlive;
  Reviving::kept.clear();
  Comparison comparison(GetParam());
  for (int i = 0; i < 3000 && !HasFailure(); ++i) {
    comparison.step();
    comparison.check(nLiveSinceStart(), Root::nAlive - nAliveAtStart);
  }
  comparison.finish();
  comparison.check(nLiveSinceStart(), Root::nAlive - nAliveAtStart);
  comparison.dropWeak();
  comparison.check(nLiveSinceStart(), Root::nAlive - nAliveAtStart);
  Reviving::kept.clear();
}

INSTANTIATE_TEST_SUITE_P(Seeds, PointerPropertyTest, ::testing::Range(1U, 13U));

}  // namespace
