// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <exception>
#include <typeinfo>

namespace Ostrel {

/// Thrown when a counted object is constructed without a pointer to itself. Carries no text of its own.
class TRESK_EXPORT MemoryException : public std::exception {
 public:
  MemoryException() = default;
  /// Copied as it is thrown and caught.
  MemoryException(const MemoryException&) = default;
  /// Without effect: all are the same.
  MemoryException& operator=(const MemoryException&) = default;
  ~MemoryException() override;
};

/// The voice of the pointer scheme: reports faults in the use of counted pointers.
///
/// Each report returns, and the operation that made it goes on. The default object writes one line to standard
/// error. A program that wants the reports elsewhere derives from this class and installs its object with
/// `setSpeaker`.
/// Threads: reports come from any thread, several at a time; the installed object must stand that.
class TRESK_EXPORT SpeakPtr {
 public:
  SpeakPtr() = default;
  SpeakPtr(const SpeakPtr&) = delete;
  SpeakPtr& operator=(const SpeakPtr&) = delete;
  virtual ~SpeakPtr();

  /// The object that receives the reports; never null.
  static SpeakPtr* theSpeaker() noexcept;

  /// Installs `speaker`, or the default one if it is null, and returns the former one. The caller keeps the object
  /// alive until it is replaced and no report is on its way.
  static SpeakPtr* setSpeaker(SpeakPtr* speaker) noexcept;

  /// A weak count cannot be decremented, as it is below 1 already.
  /// \param target type of the target (the pointers pass `void`)
  /// \param base counted class of the object
  /// \param pointer type of the pointer
  /// \param dynamicType dynamic type of the object, or `void` when it is gone
  /// \param strong, weak the counts found
  /// \param record address of the record; \param object the object, or null; \param id serial number of the pointer
  virtual void InvalidWeakPtr(const std::type_info& target, const std::type_info& base, const std::type_info& pointer,
                              const std::type_info& dynamicType, int strong, int weak, const void* record,
                              const void* object, long long id);

  /// A pointer object is being constructed from itself. The new pointer is empty.
  virtual void SelfConstruction(const std::type_info& pointer, const void* self, const void* sourceRecord);

  /// `extremeUnction` raised the strong count and kept the reference: the object lives on, for good. Hands over to
  /// `unctionChanged` of the present speaker.
  static void WarningUnctionChange(int strong, int weak, const std::type_info& base);

 protected:
  /// Receives `WarningUnctionChange`.
  virtual void unctionChanged(int strong, int weak, const std::type_info& base);
};

}  // namespace Ostrel
