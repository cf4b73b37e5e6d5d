// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Step 5 of the tutorial: data are made on threads of their own while the program goes on.
#include "Bar.hpp"

#include <tresk/field/AsynchronCreator.hpp>

#include <latch>

int main() {
  // Stands for a slow source: nothing arrives before it opens. It outlives the field, whose functions refer to it.
  std::latch isOpen(1);
  const FieldPtr field(new Field);
  // [bind]
  for (int hour = 0; hour < 10; ++hour) {
    const auto read = [hour, &isOpen](const std::atomic<bool>& isDiscarded) {
      isOpen.wait();
      return isDiscarded ? MemBasePtr() : computeBar(hour, 80);
    };
    const Ostrel::RefPtr<AsynchronCreator> creator(new AsynchronCreator(read, Ostrel::Cache::MemCache()));
    creator->setup(DynamicSize{nPoints}, getTreskType<double>());
    field->setCreator(creator, field->makeFragmentID("hour " + std::to_string(hour)));
  }
  // [bind]
  // [request]
  for (const char* hour : {"hour 1", "hour 2", "hour 2"}) {
    const bool isAccepted = field->getCreatorByName(hour)->request({});
    std::cout << hour << (isAccepted ? " is on its way\n" : " was asked for before\n");
  }
  const CreatorPtr creator = field->getCreatorByName("hour 1");
  std::cout << "hour 1 is " << (creator->isUnderCreation() ? "being made" : "idle") << ", and "
            << (creator->hasData() ? "there" : "not there yet") << "\n";
  // [request]
  isOpen.count_down();
  // [collect]
  for (const char* hour : {"hour 1", "hour 2"}) {
    const MemBasePtr data = field->getData(field->getFragmentID(hour));  // waits for the thread
    std::cout << hour << ": " << data->getElementString(500) << "\n";
  }
  std::cout << "hour 1 is " << (creator->isUnderCreation() ? "being made" : "idle") << ", and "
            << (creator->hasData() ? "there" : "not there yet") << "\n";
  // [collect]
}
