// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/ReferenceRecord.hpp>

#include <array>

namespace Ostrel::Detail {

/// Uses of data that one thread has noted and not yet handed in (Note [Uses are noted without a count] in
/// CacheBooks.hpp).
struct UseBatch {
  static constexpr unsigned Size = 64;

  /// Uses of the same data, one after the other.
  struct Noted {
    ReferenceRecord* record;
    long long serialNumber;
    long long nUses;
  };

  void note(ReferenceRecord* record, long long serialNumber) noexcept {
    if (last->record == record && last->serialNumber == serialNumber) {
      ++last->nUses;
    } else {
      if (record->tag.load(std::memory_order_relaxed) == 0) record->tag.store(serialNumber, std::memory_order_relaxed);
      *++last = {record, serialNumber, 1};
    }
    if (--nLeft == 0) [[unlikely]]
      handIn();
  }
  /// Hands the batch in and empties it.
  TRESK_EXPORT void handIn() noexcept;
  void clear() noexcept {
    last = noted.data();
    nLeft = Size;
  }
  bool isEmpty() const noexcept { return nLeft == Size; }

  std::array<Noted, Size + 1> noted{};  ///< the first place stands for none
  Noted* last = noted.data();           ///< the newest
  unsigned nLeft = Size;                ///< uses until the next handing in
};

/// That of this thread; null before its first use, and where there is no memory for it. Found by one load.
extern TRESK_EXPORT thread_local constinit UseBatch* useBatch __attribute__((tls_model("initial-exec")));

/// Notes a use by a thread that has no batch.
TRESK_EXPORT void noteFirstUse(ReferenceRecord* record, long long serialNumber) noexcept;

}  // namespace Ostrel::Detail
