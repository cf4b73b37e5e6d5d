// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/SpeakPtr.hpp>

#include <tresk/foundation/Diagnostics.hpp>
#include <tresk/foundation/NeverDestroyed.hpp>

#include <atomic>
#include <cstdio>
#include <new>
#include <string>

namespace Ostrel {

namespace {

/// The default speaker. Never destroyed, as pointers may be released at any time during the exit of the process.
SpeakPtr* defaultSpeaker() noexcept {
  static Detail::NeverDestroyed<SpeakPtr> speaker;
  return &*speaker;
}

constinit std::atomic<SpeakPtr*> installed{nullptr};

/// The name of a type for a report. Reports are made in destructors, and so do without memory if there is none.
class NameForReport {
 public:
  explicit NameForReport(const std::type_info& type) noexcept : mangled_(type.name()) {
    try {
      readable_ = Typename(type);
    } catch (const std::bad_alloc&) {
      readable_.clear();
    }
  }
  const char* c_str() const noexcept { return readable_.empty() ? mangled_ : readable_.c_str(); }

 private:
  const char* mangled_;
  std::string readable_;
};

}  // namespace

MemoryException::~MemoryException() = default;

SpeakPtr::~SpeakPtr() = default;

SpeakPtr* SpeakPtr::theSpeaker() noexcept {
  SpeakPtr* const speaker = installed.load(std::memory_order_acquire);
  return speaker != nullptr ? speaker : defaultSpeaker();
}

SpeakPtr* SpeakPtr::setSpeaker(SpeakPtr* speaker) noexcept {
  SpeakPtr* const former = installed.exchange(speaker, std::memory_order_acq_rel);
  return former != nullptr ? former : defaultSpeaker();
}

void SpeakPtr::InvalidWeakPtr(const std::type_info& target, const std::type_info& base, const std::type_info& pointer,
                              const std::type_info& dynamicType, int strong, int weak, const void* record,
                              const void* object, long long id) {
  std::fprintf(stderr,
               "Ostrel: weak count cannot be lowered: pointer %lld of type %s to %s (counted as %s, target %s), "
               "strong %d, weak %d, record %p, object %p\n",
               id, NameForReport(pointer).c_str(), NameForReport(dynamicType).c_str(), NameForReport(base).c_str(),
               NameForReport(target).c_str(), strong, weak, record, object);
}

void SpeakPtr::SelfConstruction(const std::type_info& pointer, const void* self, const void* sourceRecord) {
  std::fprintf(stderr, "Ostrel: a pointer of type %s at %p is constructed from itself, record %p\n",
               NameForReport(pointer).c_str(), self, sourceRecord);
}

void SpeakPtr::WarningUnctionChange(int strong, int weak, const std::type_info& base) {
  theSpeaker()->unctionChanged(strong, weak, base);
}

void SpeakPtr::unctionChanged(int strong, int weak, const std::type_info& base) {
  std::fprintf(stderr, "Ostrel: extremeUnction kept a reference to an object counted as %s: strong %d, weak %d\n",
               NameForReport(base).c_str(), strong, weak);
}

}  // namespace Ostrel
