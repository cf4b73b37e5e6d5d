// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <border/WindPlugin.hpp>
#include <support/CacheDoubles.hpp>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <stdexcept>
#include <string>

// A plug-in is loaded while the program runs. It brings an element type, an allocator and a class of creators, and
// from then on the program works with them without knowing their classes.

namespace {

using Ostrel::StrongPtr;
using Tresk::CreatorPtr;
using Tresk::DynamicSize;
using Tresk::MemBase;
using Tresk::MemBasePtr;
using Tresk::TreskTypePtr;
using TreskTest::FieldPtr;
using TreskTest::Station;
using TreskTest::Strength;
using TreskTest::WindPlugin;

constexpr unsigned long long nElements = 5;

class Gale : public Strength {
 public:
  double factor() const override { return 10; }
};

/// The plug-in is closed at once, and yet stays loaded, as it is linked so: its classes may live in objects until the
/// end.
const WindPlugin& plugin() {
  static const WindPlugin* const loaded = [] {
    void* const module = dlopen(TRESK_TEST_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) throw std::runtime_error(dlerror());
    const auto entry = reinterpret_cast<const WindPlugin* (*)()>(dlsym(module, TreskTest::PluginEntry));
    dlclose(module);
    return entry();
  }();
  return *loaded;
}

class PluginTest : public TreskTest::LimitedCacheTest {
 public:
  static void SetUpTestSuite() { plugin(); }

 protected:
  CreatorPtr makeCreator() const { return plugin().makeCreator(nElements, cache); }
};

TEST_F(PluginTest, AnElementTypeOfThePluginIsFoundInTheRegistryOfTheLibrary) {
  const CreatorPtr creator = makeCreator();
  const TreskTypePtr type = creator->getTreskType();
  ASSERT_TRUE(type);
  EXPECT_EQ(type->description(), "{TreskTest::Wind} is voiddouble[2] (rank 1, grade 0) Size=16 [2 x 8](upper)");
  EXPECT_TRUE(TreskTypePtr(Tresk::TreskTypeBase::find(type->getType())) == type);
  EXPECT_TRUE(TreskTypePtr(Tresk::TreskTypeBase::find(static_cast<const Tresk::TreskTypeIndex&>(*type))) == type);
}

TEST_F(PluginTest, AnAllocatorOfThePluginServesTheProgram) {
  const TreskTypePtr type = makeCreator()->getTreskType();
  const int before = plugin().nAllocated();
  const MemBasePtr made = MemBase::create(type, DynamicSize{2, 3}, typeid(void));
  ASSERT_TRUE(made);
  EXPECT_EQ(plugin().nAllocated(), before + 1);
  EXPECT_EQ(made->rank(), 2);
  EXPECT_EQ(made->memsize(), 2U * 3 * 16);
  const MemBasePtr sibling = made->create(typeid(void));
  ASSERT_TRUE(sibling);
  const MemBase& a = *made;
  const MemBase& b = *sibling;
  EXPECT_EQ(typeid(a), typeid(b));
}

TEST_F(PluginTest, InterfacesAreFoundAcrossTheBorderInBothDirections) {
  const CreatorPtr creator = makeCreator();
  const StrongPtr<Station, Ostrel::InterfaceBase> station = Ostrel::findInterface<Station>(*creator);
  ASSERT_TRUE(station);
  EXPECT_EQ(station->name(), "lighthouse");

  EXPECT_EQ(creator->create(false)->getElementString(3), "3 east -3 north");
  creator->release();
  creator->addInterface(StrongPtr<Strength, Ostrel::InterfaceBase>(new Gale));
  EXPECT_EQ(creator->create(false)->getElementString(3), "30 east -3 north");
}

TEST_F(PluginTest, CreatorsOfThePluginLiveInAFieldOfTheProgramUnderItsCache) {
  constexpr unsigned int nFragments = 20;
  cache->setLimit(atStart.nHeldBytes + 3 * nElements * 16);
  {
    const FieldPtr field(new Tresk::Field);
    for (unsigned int i = 0; i < nFragments; ++i)
      field->setCreator(makeCreator(), field->makeFragmentID("station " + std::to_string(i)));
    EXPECT_EQ(plugin().nCreators(), static_cast<int>(nFragments));
    EXPECT_EQ(plugin().sumOf(field), nFragments * (0 + 1 + 2 + 3 + 4));
    EXPECT_EQ(counts().nEvicted, nFragments - 3) << "the cache asked creators whose class it does not know";
    EXPECT_EQ(field->getCreatorByName("station 7")->create(false)->getElementString(4), "4 east -4 north");
  }
  EXPECT_EQ(plugin().nCreators(), 0);
}

TEST_F(PluginTest, ThePluginIsNotUnloadedWhileItsElementTypeIsRegistered) {
  plugin();
  void* const again = dlopen(TRESK_TEST_PLUGIN, RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(again, nullptr);
  dlclose(again);
  EXPECT_TRUE(makeCreator()->create(false));
}

}  // namespace
