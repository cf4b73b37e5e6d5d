// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Intercube.hpp>

#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace {

using Ostrel::findInterface;
using Ostrel::Intercube;
using Ostrel::Interface;
using Ostrel::InterfaceBase;
using Ostrel::InterfaceData;
using Ostrel::StrongPtr;

template <class I>
using InterfacePtr = StrongPtr<I, InterfaceBase>;

class Colour : public Interface<Colour> {
 public:
  explicit Colour(int initial) : value(initial) {}
  int value;
};
class Weight : public Interface<Weight> {
 public:
  explicit Weight(int initial) : value(initial) {}
  int value;
};
/// An interface that is found under a value type.
class Text : public Interface<std::string> {
 public:
  explicit Text(std::string initial) : value(std::move(initial)) {}
  std::string value;
};
/// Of a class below the one that is the key.
class DeepColour : public Colour {
 public:
  DeepColour() : Colour(99) {}
};

using IntercubeTest = TreskTest::RecordBalanceTest;

TEST_F(IntercubeTest, MissingInterfaceIsAnEmptyPointer) {
  const Intercube cube;
  EXPECT_EQ(cube.findInterface(typeid(Colour)).getRecord(), nullptr);
  EXPECT_FALSE(findInterface<Colour>(cube).isValid());
  cube.addInterface(InterfacePtr<Weight>(new Weight(1)));
  EXPECT_EQ(cube.findInterface(typeid(Colour)).getRecord(), nullptr);
  EXPECT_FALSE(findInterface<Colour>(cube).isValid());
}

TEST_F(IntercubeTest, InterfaceIsFoundUnderItsType) {
  const Intercube cube;
  const InterfacePtr<Colour> colour(new Colour(3));
  cube.addInterface(colour);
  EXPECT_TRUE(cube.findInterface(typeid(Colour)) == colour);
  const InterfacePtr<Colour> found = findInterface<Colour>(cube);
  EXPECT_EQ(found->value, 3);
  EXPECT_EQ(colour.strongCount(), 3) << "caller, cube, and the pointer just found";
}

TEST_F(IntercubeTest, InterfacesOfDifferentKeysDoNotCollide) {
  const Intercube cube;
  cube.addInterface(InterfacePtr<Colour>(new Colour(1)));
  cube.addInterface(InterfacePtr<Weight>(new Weight(1)));
  cube.addInterface(InterfacePtr<Text>(new Text("1")));
  EXPECT_EQ(findInterface<Colour>(cube)->value, 1);
  EXPECT_EQ(findInterface<Weight>(cube)->value, 1);
  EXPECT_EQ(InterfacePtr<Text>(cube.findInterface(typeid(std::string)))->value, "1");
}

TEST_F(IntercubeTest, LastInterfaceUnderAKeyWins) {
  const Intercube cube;
  InterfacePtr<Colour> first(new Colour(1));
  cube.addInterface(first);
  cube.addInterface(InterfacePtr<Colour>(new Colour(2)));
  EXPECT_EQ(findInterface<Colour>(cube)->value, 2);
  EXPECT_EQ(first.strongCount(), 1) << "the cube has let the replaced one go";
}

TEST_F(IntercubeTest, AddingTheSameInterfaceAgainKeepsOne) {
  const Intercube cube;
  const InterfacePtr<Colour> colour(new Colour(1));
  cube.addInterface(colour);
  cube.addInterface(colour);
  EXPECT_EQ(colour.strongCount(), 2);
}

TEST_F(IntercubeTest, KeyIsTheInterfaceTypeAndNotTheDynamicType) {
  const Intercube cube;
  cube.addInterface(InterfacePtr<DeepColour>(new DeepColour));
  EXPECT_FALSE(cube.findInterface(typeid(DeepColour)).isValid());
  EXPECT_EQ(findInterface<Colour>(cube)->value, 99);
  cube.addInterface(InterfacePtr<Colour>(new Colour(4)));
  EXPECT_EQ(findInterface<Colour>(cube)->value, 4) << "both classes share the key";
}

TEST_F(IntercubeTest, LookupUnderAKeyOfAnotherClassConvertsByDynamicCast) {
  const Intercube cube;
  cube.addInterface(InterfacePtr<Text>(new Text("t")));
  const InterfacePtr<Colour> wrong(cube.findInterface(typeid(std::string)));
  EXPECT_FALSE(wrong.isValid());
}

TEST_F(IntercubeTest, InvalidInterfaceIsIgnored) {
  const Intercube cube;
  const InterfacePtr<Colour> colour(new Colour(1));
  cube.addInterface(colour);
  cube.addInterface(StrongPtr<InterfaceBase, InterfaceBase>());
  EXPECT_TRUE(findInterface<Colour>(cube) == colour);
}

TEST_F(IntercubeTest, DestructorGivesUpAllInterfaces) {
  const InterfacePtr<Colour> colour(new Colour(1));
  const InterfacePtr<Weight> weight(new Weight(1));
  {
    const Intercube cube;
    cube.addInterface(colour);
    cube.addInterface(weight);
    EXPECT_EQ(colour.strongCount(), 2);
  }
  EXPECT_EQ(colour.strongCount(), 1);
  EXPECT_EQ(weight.strongCount(), 1);
}

TEST_F(IntercubeTest, FoundInterfaceSurvivesItsReplacementAndTheCube) {
  InterfacePtr<Colour> found;
  {
    const Intercube cube;
    cube.addInterface(InterfacePtr<Colour>(new Colour(7)));
    found = findInterface<Colour>(cube);
    cube.addInterface(InterfacePtr<Colour>(new Colour(8)));
  }
  EXPECT_EQ(found->value, 7);
  EXPECT_EQ(found.strongCount(), 1);
}

TEST_F(IntercubeTest, CubeIsNeitherCopiedNorMoved) {
  static_assert(!std::is_copy_constructible_v<Intercube>);
  static_assert(!std::is_copy_assignable_v<Intercube>);
  static_assert(std::is_polymorphic_v<Intercube>);
}

/// Calls back when it dies.
class LastWords : public Interface<LastWords> {
 public:
  explicit LastWords(std::function<void()> words) : words_(std::move(words)) {}
  ~LastWords() override { words_(); }

 private:
  std::function<void()> words_;
};

TEST_F(IntercubeTest, ReplacedInterfaceMayAskTheCubeWhileItDies) {
  const Intercube cube;
  int seen = 0;
  cube.addInterface(InterfacePtr<Colour>(new Colour(5)));
  const StrongPtr<InterfaceBase, InterfaceBase> successor(new LastWords([] {}));
  bool seesSuccessor = false;
  cube.addInterface(InterfacePtr<LastWords>(new LastWords([&] {
    seen = findInterface<Colour>(cube)->value;
    seesSuccessor = cube.findInterface(typeid(LastWords)) == successor;
    cube.addInterface(InterfacePtr<Weight>(new Weight(6)));
  })));
  cube.addInterface(successor);
  EXPECT_EQ(seen, 5);
  EXPECT_TRUE(seesSuccessor);
  EXPECT_EQ(findInterface<Weight>(cube)->value, 6);
}

TEST_F(IntercubeTest, InterfaceMayAskADyingCubeWhileItDies) {
  int nCalls = 0;
  bool foundAny = false;
  {
    const Intercube cube;
    cube.addInterface(InterfacePtr<Colour>(new Colour(1)));
    cube.addInterface(InterfacePtr<LastWords>(new LastWords([&] {
      ++nCalls;
      foundAny = findInterface<Colour>(cube).isValid() || findInterface<LastWords>(cube).isValid();
      cube.addInterface(InterfacePtr<Weight>(new Weight(1)));
    })));
    cube.addInterface(InterfacePtr<Weight>(new Weight(2)));
  }
  EXPECT_EQ(nCalls, 1);
  EXPECT_FALSE(foundAny) << "a cube that gives its interfaces up has none any more";
}

TEST_F(IntercubeTest, ConcurrentAddingAndFindingSeesWholeInterfaces) {
  const Intercube cube;
  constexpr int nRounds = 1000;
  std::atomic<int> nWrong{0};
  TreskTest::RaceRunner race;
  race.add(2, [&](int) {
    for (int i = 1; i <= nRounds; ++i) {
      cube.addInterface(InterfacePtr<Colour>(new Colour(i)));
      cube.addInterface(InterfacePtr<Weight>(new Weight(-i)));
    }
  });
  race.add(2, [&](int) {
    for (int i = 0; i < nRounds; ++i) {
      if (const auto colour = findInterface<Colour>(cube); colour && (colour->value < 1 || colour->value > nRounds))
        ++nWrong;
      if (const auto weight = findInterface<Weight>(cube); weight && weight->value >= 0) ++nWrong;
      if (cube.findInterface(typeid(Text)).isValid()) ++nWrong;
    }
  });
  race.run();
  EXPECT_EQ(nWrong, 0);
  EXPECT_EQ(findInterface<Colour>(cube)->value, nRounds);
  EXPECT_EQ(findInterface<Colour>(cube).strongCount(), 2) << "the cube and the pointer just found";
}

TEST_F(IntercubeTest, FirstInterfaceMayComeFromSeveralThreads) {
  for (int round = 0; round < 200; ++round) {
    const Intercube cube;
    TreskTest::RaceRunner race;
    race.add([&](int) { cube.addInterface(InterfacePtr<Colour>(new Colour(1))); });
    race.add([&](int) { cube.addInterface(InterfacePtr<Weight>(new Weight(2))); });
    race.run();
    ASSERT_TRUE(findInterface<Colour>(cube).isValid());
    ASSERT_TRUE(findInterface<Weight>(cube).isValid());
  }
}

using InterfaceTest = TreskTest::RecordBalanceTest;

TEST_F(InterfaceTest, TypeIsTheTemplateArgument) {
  EXPECT_EQ(InterfacePtr<Colour>(new Colour(1))->getInterfaceType(), typeid(Colour));
  EXPECT_EQ(InterfacePtr<DeepColour>(new DeepColour)->getInterfaceType(), typeid(Colour));
  EXPECT_EQ(InterfacePtr<Text>(new Text(""))->getInterfaceType(), typeid(std::string));
}

TEST_F(InterfaceTest, AddsNoMemberToItsBase) { EXPECT_EQ(sizeof(Interface<int>), sizeof(InterfaceBase)); }

TEST_F(InterfaceTest, DefaultApplicationsDoNothing) {
  Intercube cube;
  const InterfacePtr<Colour> colour(new Colour(1));
  using Parameter = StrongPtr<Ostrel::InterfaceIterationParameter, Ostrel::InterfaceIterationParameter>;
  const Parameter parameter(new Ostrel::InterfaceIterationParameter);
  colour->apply(cube, parameter);
  colour->apply_const(cube, Parameter());
  EXPECT_EQ(colour->value, 1);
  EXPECT_EQ(parameter.strongCount(), 1);
  EXPECT_FALSE(findInterface<Colour>(cube).isValid());
}

class Bound : public Ostrel::ReferenceBase<Bound> {
 public:
  Bound() : ReferenceBase<Bound>(this) {}
};
using BoundPtr = StrongPtr<Bound, Bound>;
using BoundData = InterfaceData<BoundPtr>;

TEST_F(InterfaceTest, ValueInterfaceIsItsValue) {
  static_assert(std::is_same_v<BoundData, InterfaceData<BoundPtr, void>>);
  static_assert(std::is_base_of_v<BoundPtr, BoundData> && std::is_base_of_v<Interface<BoundData>, BoundData>);
  const Intercube cube;
  const InterfacePtr<BoundData> slot(new BoundData);
  cube.addInterface(slot);
  EXPECT_EQ(slot->getInterfaceType(), typeid(BoundData));
  EXPECT_FALSE(cube.findInterface(typeid(BoundPtr)).isValid()) << "the key is the interface's own type";
  const InterfacePtr<BoundData> found = findInterface<BoundData>(cube);
  ASSERT_TRUE(found.isValid());
  EXPECT_FALSE(static_cast<const BoundPtr&>(*found).isValid());
  const BoundPtr value(new Bound);
  static_cast<BoundPtr&>(*found) = value;
  EXPECT_TRUE(static_cast<const BoundPtr&>(*slot) == value);
  EXPECT_EQ(value.strongCount(), 2);
}

TEST_F(InterfaceTest, ValueInterfaceTakesAnInitialValue) {
  const BoundPtr value(new Bound);
  {
    const InterfacePtr<BoundData> slot(new BoundData(value));
    EXPECT_EQ(value.strongCount(), 2);
  }
  EXPECT_EQ(value.strongCount(), 1);
}

}  // namespace
