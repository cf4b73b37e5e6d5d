// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/SaveRegistry.hpp>

#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <utility>
#include <vector>

namespace {

using Ostrel::SaveInterfaceCreator;
using Ostrel::SaveInterfaceCreatorBase;
using Ostrel::SaveRegistry;
using Ostrel::SaveRegistryBase;
using Ostrel::StrongPtr;

using FormatPtr = StrongPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>;

struct Document {
  int nOffers = 0;
};
struct Picture {};

template <class T>
class Format : public SaveInterfaceCreator<T> {
 public:
  using Answer = std::function<long long(T*)>;
  explicit Format(Answer answer) : answer_(std::move(answer)) {}
  long long createInterface(T* object) override { return answer_(object); }

 private:
  Answer answer_;
};

FormatPtr makeFormat(Format<Document>::Answer answer) { return FormatPtr(new Format<Document>(std::move(answer))); }

/// Registers a format for the time of a scope.
class Registration {
 public:
  Registration(const std::type_info& type, FormatPtr format) : type_(type), format_(std::move(format)) {
    isEntered = SaveRegistryBase::registerCreator(type_, format_);
  }
  ~Registration() { SaveRegistryBase::unregisterCreator(type_, format_); }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  bool isEntered = false;

 private:
  const std::type_info& type_;
  FormatPtr format_;
};

using SaveRegistryTest = TreskTest::RecordBalanceTest;

TEST_F(SaveRegistryTest, AppliesAFormatToItsObject) {
  Document document;
  SaveRegistry<Document> registry(&document);
  Document* seen = nullptr;
  EXPECT_EQ(registry.apply(makeFormat([&](Document* d) {
    seen = d;
    return 17;
  })),
            17);
  EXPECT_EQ(seen, &document);
}

TEST_F(SaveRegistryTest, FormatForAnotherClassAnswersZero) {
  Document document;
  SaveRegistry<Document> registry(&document);
  bool wasCalled = false;
  const FormatPtr other(new Format<Picture>([&](Picture*) {
    wasCalled = true;
    return 5;
  }));
  EXPECT_EQ(registry.apply(other), 0);
  EXPECT_FALSE(wasCalled);
  EXPECT_EQ(registry.apply(FormatPtr()), 0);
}

TEST_F(SaveRegistryTest, ResultIsCutToThirtyTwoBits) {
  Document document;
  SaveRegistry<Document> registry(&document);
  EXPECT_EQ(registry.apply(makeFormat([](Document*) { return 0x100000002LL; })), 2);
  EXPECT_EQ(registry.apply(makeFormat([](Document*) { return -1LL; })), -1);
  EXPECT_EQ(registry.apply(makeFormat([](Document*) { return 0xFFFFFFFFLL; })), -1);
  EXPECT_EQ(registry.apply(makeFormat([](Document*) { return 0x700000000LL; })), 0);
}

TEST_F(SaveRegistryTest, TraversalOffersTheObjectToTheFormatsOfTheTypeInOrder) {
  std::vector<int> order;
  const Registration first(typeid(Document), makeFormat([&](Document*) {
                             order.push_back(1);
                             return 0;
                           }));
  const Registration second(typeid(Document), makeFormat([&](Document*) {
                              order.push_back(2);
                              return 0;
                            }));
  const Registration elsewhere(typeid(Picture), makeFormat([&](Document*) {
                                 order.push_back(3);
                                 return 0;
                               }));
  Document document;
  SaveRegistry<Document> registry(&document);
  registry.traverseCreators(typeid(Document));
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  registry.traverseCreators(typeid(Picture));
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3})) << "the type of the traversal is the caller's";
  registry.traverseCreators(typeid(int));
  EXPECT_EQ(order.size(), 3U);
}

TEST_F(SaveRegistryTest, FormatRegisteredLaterDoesNotReachEarlierObjects) {
  Document early;
  SaveRegistry<Document>(&early).traverseCreators(typeid(Document));
  const Registration format(typeid(Document), makeFormat([](Document* d) { return ++d->nOffers; }));
  Document late;
  SaveRegistry<Document>(&late).traverseCreators(typeid(Document));
  EXPECT_EQ(early.nOffers, 0);
  EXPECT_EQ(late.nOffers, 1);
}

TEST_F(SaveRegistryTest, FormatIsEnteredOnceAndLeavesOnce) {
  const FormatPtr format = makeFormat([](Document*) { return 0; });
  EXPECT_TRUE(SaveRegistryBase::registerCreator(typeid(Document), format));
  EXPECT_FALSE(SaveRegistryBase::registerCreator(typeid(Document), format));
  EXPECT_EQ(format.strongCount(), 2);
  EXPECT_TRUE(SaveRegistryBase::registerCreator(typeid(Picture), format)) << "once for each type";
  EXPECT_TRUE(SaveRegistryBase::unregisterCreator(typeid(Picture), format));
  EXPECT_TRUE(SaveRegistryBase::unregisterCreator(typeid(Document), format));
  EXPECT_FALSE(SaveRegistryBase::unregisterCreator(typeid(Document), format));
  EXPECT_FALSE(SaveRegistryBase::unregisterCreator(typeid(long), format));
  EXPECT_EQ(format.strongCount(), 1);
  EXPECT_FALSE(SaveRegistryBase::registerCreator(typeid(Document), FormatPtr()));
}

TEST_F(SaveRegistryTest, RegistrationWithinATraversalWaitsForTheNextOne) {
  std::vector<FormatPtr> added;
  int nLate = 0;
  const Registration format(typeid(Document), makeFormat([&](Document*) {
                              added.push_back(makeFormat([&](Document*) { return ++nLate; }));
                              SaveRegistryBase::registerCreator(typeid(Document), added.back());
                              return 0;
                            }));
  Document document;
  SaveRegistry<Document> registry(&document);
  registry.traverseCreators(typeid(Document));
  EXPECT_EQ(nLate, 0);
  registry.traverseCreators(typeid(Document));
  EXPECT_EQ(nLate, 1);
  for (const FormatPtr& one : added) SaveRegistryBase::unregisterCreator(typeid(Document), one);
}

TEST_F(SaveRegistryTest, TraversalWithinATraversalWorks) {
  int nOffers = 0;
  const Registration format(typeid(Document), makeFormat([&](Document* d) {
                              if (++nOffers < 4) SaveRegistry<Document>(d).traverseCreators(typeid(Document));
                              return 0;
                            }));
  Document document;
  SaveRegistry<Document>(&document).traverseCreators(typeid(Document));
  EXPECT_EQ(nOffers, 4);
}

TEST_F(SaveRegistryTest, FormatThatLeavesWithinATraversalIsStillAlive) {
  int nOffers = 0;
  FormatPtr format;
  format = makeFormat([&](Document*) {
    SaveRegistryBase::unregisterCreator(typeid(Document), format);
    format.reset();
    return ++nOffers;
  });
  SaveRegistryBase::registerCreator(typeid(Document), format);
  Document document;
  SaveRegistry<Document> registry(&document);
  registry.traverseCreators(typeid(Document));
  registry.traverseCreators(typeid(Document));
  EXPECT_EQ(nOffers, 1);
}

TEST_F(SaveRegistryTest, TableStandsConcurrentUse) {
  std::vector<int> nOffers(3, 0);
  const Registration format(typeid(Document), makeFormat([](Document* d) { return ++d->nOffers; }));
  TreskTest::RaceRunner race;
  race.add(2, [&](int thread) {
    Document document;
    for (int i = 0; i < 300; ++i) SaveRegistry<Document>(&document).traverseCreators(typeid(Document));
    nOffers[static_cast<std::size_t>(thread)] = document.nOffers;
  });
  race.add([&](int) {
    for (int i = 0; i < 300; ++i) const Registration passing(typeid(Document), makeFormat([](Document*) { return 0; }));
  });
  race.run();
  EXPECT_EQ(nOffers[0], 300);
  EXPECT_EQ(nOffers[1], 300);
}

}  // namespace
