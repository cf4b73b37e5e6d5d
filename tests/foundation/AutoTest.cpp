// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Pointers.hpp>

#include <support/PointerClasses.hpp>
#include <support/RecordBalance.hpp>
#include <support/SpeakRecorder.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <new>
#include <string>

namespace {

using Ostrel::Auto;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using TreskTest::Root;
using TreskTest::Shifted;
using TreskTest::Virtual;

using Strong = StrongPtr<Root, Root>;
using Weak = WeakPtr<Root, Root>;
using AutoTest = TreskTest::RecordBalanceTest;

class Named : public Ostrel::ReferenceBase<Named> {
 public:
  Named(const std::string& first, int second) : ReferenceBase<Named>(this), text(first + std::to_string(second)) {}
  void extremeUnction() override { ++nHooks; }
  std::string text;
  static inline int nHooks = 0;
};

TEST_F(AutoTest, HoldsAStrongReferenceToItself) {
  Auto<Root> object;
  EXPECT_EQ(object.getRecord()->strong.load(), 1);
  EXPECT_EQ(object.getRecord()->weak.load(), 3);
  EXPECT_EQ(object.getRecord()->deferred.load(), 2);
}

TEST_F(AutoTest, PassesItsArgumentsOn) {
  const Auto<Named> object("name", 7);
  EXPECT_EQ(object.text, "name7");
}

TEST_F(AutoTest, PointersComeAndGoWithoutDeletingTheObject) {
  Auto<Named> object("n", 1);
  for (int i = 0; i < 3; ++i) {
    StrongPtr<Named, Named> pointer(&object);
    EXPECT_EQ(pointer.strongCount(), 2);
    EXPECT_EQ(pointer.weakCount(), 4);
    const StrongPtr<Named, Named> fromWeak{object.getSelf()};
    EXPECT_EQ(pointer.strongCount(), 3);
    pointer.reset();
  }
  EXPECT_EQ(object.getRecord()->strong.load(), 1);
  EXPECT_EQ(object.text, "n1");
  EXPECT_EQ(Named::nHooks, 0) << "the last reference is its own and is never released";
}

TEST_F(AutoTest, LeavesNoRecordBehind) {
  TreskTest::SpeakRecorder recorder;
  { const Auto<Root> object; }
  EXPECT_EQ(nLiveSinceStart(), 0);
  EXPECT_TRUE(recorder.invalidWeaks().empty());
}

TEST_F(AutoTest, PointersThatOutliveItAreInvalid) {
  Weak weak;
  Strong strong;
  {
    Auto<Root> object;
    weak = object.getSelf();
    strong = Strong(&object);
    EXPECT_EQ(strong.strongCount(), 2);
  }
  EXPECT_FALSE(weak.isValid());
  EXPECT_FALSE(strong.isValid());
  EXPECT_EQ(strong.strongCount(), -111);
  EXPECT_EQ(strong.weakCount(), 2);
  EXPECT_EQ(strong.getRecord()->object.load(), nullptr);
}

TEST_F(AutoTest, WorksForClassesWithAnOffsetAndAVirtualBase) {
  Auto<Shifted> shifted;
  Auto<Virtual> virtually;
  const StrongPtr<Shifted, Root> a{shifted.getSelf()};
  const StrongPtr<Virtual, Root> b{virtually.getSelf()};
  EXPECT_EQ(a.get(), static_cast<Shifted*>(&shifted));
  EXPECT_EQ(b.get(), static_cast<Virtual*>(&virtually));
  EXPECT_EQ(a.strongCount(), 2);
  EXPECT_EQ(b.strongCount(), 2);
}

TEST_F(AutoTest, InStaticStorageItEndsForItsPointersAndStaysInMemory) {
  alignas(Ostrel::StaticAuto<Root>) static std::byte storage[sizeof(Ostrel::StaticAuto<Root>)];
  auto* const holder = new (storage) Ostrel::StaticAuto<Root>;
  Root* const object = holder->get();
  const Strong strong(object);
  const Weak weak = object->getSelf();
  EXPECT_TRUE(strong.isValid() && weak.isValid());
  expectParked(1);  // its record stays

  std::destroy_at(holder);
  EXPECT_FALSE(strong.isValid() || weak.isValid());
  EXPECT_EQ(strong.strongCount(), -111);
  EXPECT_FALSE(Strong(object).isValid()) << "nobody gets a pointer to it any more";
  EXPECT_EQ(strong.get(), object) << "a thread that has tested its pointer a moment before still finds the object";
}

Auto<Named> atFileScope("static", 3);

TEST_F(AutoTest, ServesAsAStaticObject) {
  const StrongPtr<Named, Named> pointer(&atFileScope);
  EXPECT_EQ(pointer->text, "static3");
  EXPECT_EQ(pointer.strongCount(), 2);
}

}  // namespace
