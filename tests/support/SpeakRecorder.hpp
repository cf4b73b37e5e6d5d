// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/SpeakPtr.hpp>

#include <mutex>
#include <typeinfo>
#include <vector>

namespace TreskTest {

/// Listens to the reports of the pointer scheme for the time of a scope.
class SpeakRecorder : public Ostrel::SpeakPtr {
 public:
  struct InvalidWeak {
    const std::type_info* target;
    const std::type_info* base;
    const std::type_info* pointer;
    const std::type_info* dynamicType;
    int strong;
    int weak;
    const void* record;
    const void* object;
    long long id;
  };
  struct SelfCopy {
    const std::type_info* pointer;
    const void* self;
    const void* sourceRecord;
  };
  struct UnctionChange {
    int strong;
    int weak;
    const std::type_info* base;
  };

  SpeakRecorder() { former_ = setSpeaker(this); }
  ~SpeakRecorder() override { setSpeaker(former_); }

  std::vector<InvalidWeak> invalidWeaks() const { return read(invalidWeaks_); }
  std::vector<SelfCopy> selfCopies() const { return read(selfCopies_); }
  std::vector<UnctionChange> unctionChanges() const { return read(unctionChanges_); }

  void InvalidWeakPtr(const std::type_info& target, const std::type_info& base, const std::type_info& pointer,
                      const std::type_info& dynamicType, int strong, int weak, const void* record, const void* object,
                      long long id) override {
    const std::lock_guard lock(mutex_);
    invalidWeaks_.push_back({&target, &base, &pointer, &dynamicType, strong, weak, record, object, id});
  }
  void SelfConstruction(const std::type_info& pointer, const void* self, const void* sourceRecord) override {
    const std::lock_guard lock(mutex_);
    selfCopies_.push_back({&pointer, self, sourceRecord});
  }

 protected:
  void unctionChanged(int strong, int weak, const std::type_info& base) override {
    const std::lock_guard lock(mutex_);
    unctionChanges_.push_back({strong, weak, &base});
  }

 private:
  template <class Report>
  std::vector<Report> read(const std::vector<Report>& reports) const {
    const std::lock_guard lock(mutex_);
    return reports;
  }

  mutable std::mutex mutex_;
  std::vector<InvalidWeak> invalidWeaks_;
  std::vector<SelfCopy> selfCopies_;
  std::vector<UnctionChange> unctionChanges_;
  Ostrel::SpeakPtr* former_ = nullptr;
};

}  // namespace TreskTest
