// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Objects of known contents, for the printers of the debugger to show.
#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/UniformCartesianArray.hpp>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <future>
#include <iostream>

using namespace Tresk;
using MatrixPtr = Ostrel::StrongPtr<MemArray<2, double>, Ostrel::Cacheable>;
using Points = MemArray<1, Quorvel::FixedArray<double, 3>>;

namespace {

/// Memory that no object was made in.
template <class T>
class Garbage {
 public:
  explicit Garbage(int byte) { std::memset(memory_.data(), byte, memory_.size()); }
  const T& look() const { return *reinterpret_cast<const T*>(memory_.data()); }

 private:
  alignas(64) std::array<std::byte, sizeof(T)> memory_;
};

CreatorPtr makeCreator(double value) {
  return CreatorPtr(new FunctionalCreator(
      [value] {
        const MatrixPtr array(new MemArray<2, double>({3, 2}, CreatorWeakPtr()));
        for (unsigned long long j = 0; j < 2; ++j)
          for (unsigned long long i = 0; i < 3; ++i) (*array)(i, j) = value + static_cast<double>(10 * j + i);
        return MemBasePtr(array);
      },
      false, Ostrel::Cache::MemCache()));
}

}  // namespace

/// The debugger stops here and looks at the caller.
extern "C" __attribute__((noinline)) void stopHere() { std::cout << "all objects are there\n"; }

int main() {
  const CreatorPtr creator = makeCreator(0);
  [[maybe_unused]] const CreatorPtr second = creator;
  const Ostrel::WeakPtr<CreativeArrayBase, Ostrel::Creature> weak(creator);
  [[maybe_unused]] const Ostrel::StrongPtr<CreativeArray, Ostrel::Creature> another(weak);
  const CreatorPtr empty;
  const Ostrel::WeakPtr<CreativeArrayBase, Ostrel::Creature> expired(makeCreator(1));
  FunctionalCreator ownedByNobody({}, false, Ostrel::Cache::MemCache());
  const Ostrel::WeakPtr<CreativeArrayBase, Ostrel::Creature> onStack(&ownedByNobody);
  const Garbage<CreatorPtr> zeros(0);
  const Garbage<CreatorPtr> odd(0x5a);
  const Garbage<CreatorPtr> wild(0x40);
  [[maybe_unused]] const CreatorPtr& nothing = zeros.look();
  [[maybe_unused]] const CreatorPtr& oddPointer = odd.look();
  [[maybe_unused]] const CreatorPtr& wildPointer = wild.look();

  const DynamicSize size{128, 64, 3};
  const DynamicSize noSize;
  const Garbage<DynamicSize> garbageSize(0x5a);
  [[maybe_unused]] const DynamicSize& wildSize = garbageSize.look();
  [[maybe_unused]] const MultiIndex<3> index(7, 5, 1);

  const MemBasePtr data = makeCreator(0.5)->create(false);
  const MatrixPtr matrix(data);
  const MemArray<2, double>& array = *matrix;
  [[maybe_unused]] const MemBase& base = array;
  [[maybe_unused]] const MemArrayBase<2>& ranked = array;
  const MemBasePtr slicePtr = matrix->getSlice(1, CreatorWeakPtr());
  [[maybe_unused]] const MemBase& slice = *slicePtr;
  const Ostrel::RefPtr<Points> points(new Points(2, CreatorWeakPtr()));
  points->setElement(0, Quorvel::FixedArray<double, 3>(1, 2, 3));
  points->setElement(1, Quorvel::FixedArray<double, 3>(4, 5, 6));
  [[maybe_unused]] const Points& vectors = *points;
  const MemBasePtr componentPtr = points->getComponent(1, CreatorWeakPtr());
  [[maybe_unused]] const MemBase& component = *componentPtr;
  const MemArray<1, double> row(1, CreatorWeakPtr());
  const MemArray<1, unsigned int> large(1000, CreatorWeakPtr());
  using Quorvel::PhysicalSpace;
  const Ostrel::RefPtr<UniformCartesianArray> regularPtr(
      new UniformCartesianArray(MultiIndex<3>(2, 2, 2), PhysicalSpace::point(0.0, 0.0, 0.0),
                                PhysicalSpace::vector(1.0, 1.0, 1.0), CreatorWeakPtr()));
  [[maybe_unused]] const MemBase& regular = *regularPtr;
  const Garbage<MemArray<2, double>> garbageArray(0x5a);
  [[maybe_unused]] const MemArray<2, double>& wildArray = garbageArray.look();

  const FieldPtr fieldPtr(new Field);
  Field& field = *fieldPtr;
  field.setCreator(makeCreator(1), field.makeFragmentID("day \"1\""));
  field.setCreator(makeCreator(2), field.makeFragmentID("day 2"));
  field.makeFragmentID("never bound");
  field.setCreator(makeCreator(3), field.makeFragmentID("Tag f\xc3\xbcnf"));
  field.setCreator(CreatorPtr(), field.makeFragmentID("no creator"));
  field.setCreator(CreatorPtr(new CreativeArray(MemBasePtr(new MemArray<1, unsigned int>(5, CreatorWeakPtr())),
                                                Ostrel::Cache::MemCache())),
                   field.makeFragmentID("kept"));
  std::promise<void> isSeen;
  const Ostrel::RefPtr<AsynchronCreator> running(new AsynchronCreator(
      [seen = isSeen.get_future().share()](const std::atomic<bool>&) {
        seen.wait();
        return MemBasePtr();
      },
      Ostrel::Cache::MemCache()));
  field.setCreator(running, field.makeFragmentID("running"));
  running->request({});
  field.getData(field.getFragmentID("day 2"));
  const FragmentIDPtr fragmentPtr = field.getFragmentID("Tag f\xc3\xbcnf");
  [[maybe_unused]] const FragmentID& fragment = *fragmentPtr;
  Field unnamed{FragmentIDCollectionPtr()};
  unnamed.setCreator(makeCreator(5), FragmentIDPtr());
  const Garbage<Field> garbageField(0x5a);
  [[maybe_unused]] const Field& wildField = garbageField.look();

  stopHere();
  isSeen.set_value();
}
