// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/ReferenceRecord.hpp>

#include <tresk/foundation/Mutex.hpp>

#include <type_traits>

namespace Ostrel {

namespace {

/// The records that one thread keeps at hand. Trivial, so that access to the thread-local object needs no guard.
struct LocalRecords {
  enum State : int { Unregistered, Active, Finished };

  ReferenceRecord* head;
  int nRecords;
  State state;
  /// Records taken less records given back on this thread; read by `nLive` from other threads.
  std::atomic<long long> balance;
  LocalRecords* next;  ///< list of the active threads, guarded by the mutex of the pool

  void addToBalance(long long difference) noexcept {
    balance.store(balance.load(std::memory_order_relaxed) + difference, std::memory_order_relaxed);
  }
};

// The general model of thread-local access would cost a function call per record. These few bytes fit the room that
// the dynamic loader keeps for libraries loaded late.
#define TRESK_FAST_THREAD_LOCAL __attribute__((tls_model("initial-exec")))

TRESK_FAST_THREAD_LOCAL constinit thread_local LocalRecords local = {
    nullptr, 0, LocalRecords::Unregistered, {0}, nullptr};
TRESK_FAST_THREAD_LOCAL constinit thread_local UnctionScope* innermostUnction = nullptr;

}  // namespace

/// The store of free records. Never destroyed: objects may live until the very end of the process, and records must
/// stay records (Note [Records are type-stable]).
class RecordPool {
 public:
  /// The one pool, initialised before any code runs.
  static RecordPool& instance() noexcept;

#if defined(TRESK_PLAIN_RECORDS)
  ReferenceRecord* take() TRESK_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    auto* const record = new ReferenceRecord;
    ++sharedBalance_;
    return record;
  }
  void give(ReferenceRecord* record) noexcept TRESK_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    --sharedBalance_;
    delete record;
  }
#else
  ReferenceRecord* take() {
    if (local.head == nullptr) refill();
    if (local.head == nullptr) return takeShared();
    ReferenceRecord* const record = local.head;
    local.head = record->next_;
    --local.nRecords;
    local.addToBalance(1);
    return record;
  }

  void give(ReferenceRecord* record) noexcept {
    if (local.state != LocalRecords::Active) {
      giveShared(record);
      return;
    }
    record->next_ = local.head;
    local.head = record;
    local.addToBalance(-1);
    if (++local.nRecords >= MaxLocal) spill();
  }
#endif

  long long nLive() TRESK_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    long long sum = sharedBalance_;
    for (const LocalRecords* t = threads_; t != nullptr; t = t->next) sum += t->balance.load(std::memory_order_relaxed);
    return sum;
  }

  void finishThread() noexcept TRESK_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    sharedBalance_ += local.balance.load(std::memory_order_relaxed);
    while (local.head != nullptr) {
      ReferenceRecord* const record = local.head;
      local.head = record->next_;
      record->next_ = free_;
      free_ = record;
    }
    local.nRecords = 0;
    local.state = LocalRecords::Finished;
    for (LocalRecords** t = &threads_; *t != nullptr; t = &(*t)->next) {
      if (*t == &local) {
        *t = local.next;
        break;
      }
    }
  }

 private:
  static constexpr int MaxLocal = 128;
  static constexpr int BatchSize = 64;
  static constexpr int BlockSize = 255;

  struct Block {
    Block* next;
    ReferenceRecord records[BlockSize];
  };

  void addThread() TRESK_REQUIRES(mutex_) {
    local.state = LocalRecords::Active;
    local.next = threads_;
    threads_ = &local;
  }

  /// Gives this thread a batch of records. A thread that is past its thread-local objects gets none.
  void refill() TRESK_EXCLUDES(mutex_);

  ReferenceRecord* takeShared() TRESK_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    grow();
    ReferenceRecord* const record = free_;
    free_ = record->next_;
    ++sharedBalance_;
    return record;
  }

  void giveShared(ReferenceRecord* record) noexcept TRESK_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    record->next_ = free_;
    free_ = record;
    --sharedBalance_;
  }

  void spill() noexcept TRESK_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    for (int i = 0; i < BatchSize; ++i) {
      ReferenceRecord* const record = local.head;
      local.head = record->next_;
      record->next_ = free_;
      free_ = record;
    }
    local.nRecords -= BatchSize;
  }

  void grow() TRESK_REQUIRES(mutex_) {
    if (free_ != nullptr) return;
    Block* const block = new Block;
    block->next = blocks_;
    blocks_ = block;
    for (ReferenceRecord& record : block->records) {
      record.next_ = free_;
      free_ = &record;
    }
  }

  Mutex mutex_;
  ReferenceRecord* free_ TRESK_GUARDED_BY(mutex_) = nullptr;
  Block* blocks_ TRESK_GUARDED_BY(mutex_) = nullptr;  ///< keeps every block reachable
  LocalRecords* threads_ TRESK_GUARDED_BY(mutex_) = nullptr;
  long long sharedBalance_ TRESK_GUARDED_BY(mutex_) = 0;
};

namespace {

constinit RecordPool pool;
static_assert(std::is_trivially_destructible_v<RecordPool>, "the pool must outlive every object");

/// Its destructor hands the records of an ending thread back to the pool.
struct ThreadFinisher {
  bool isArmed = false;
  ~ThreadFinisher() {
    if (isArmed) RecordPool::instance().finishThread();
  }
};
thread_local ThreadFinisher finisher;

}  // namespace

RecordPool& RecordPool::instance() noexcept { return pool; }

#if !defined(TRESK_PLAIN_RECORDS)
void RecordPool::refill() {
  if (local.state == LocalRecords::Finished) return;
  finisher.isArmed = true;
  const MutexLock lock(mutex_);
  if (local.state == LocalRecords::Unregistered) addThread();
  grow();
  while (local.nRecords < BatchSize && free_ != nullptr) {
    ReferenceRecord* const record = free_;
    free_ = record->next_;
    record->next_ = local.head;
    local.head = record;
    ++local.nRecords;
  }
}
#endif

ReferenceRecord* ReferenceRecord::allocate(void* object, std::int32_t nWeak) {
  ReferenceRecord* const record = RecordPool::instance().take();
  record->deferred.store(0, std::memory_order_relaxed);
  record->object.store(object, std::memory_order_relaxed);
  record->strong.store(1, std::memory_order_relaxed);
  // Last, and with release: from here on a reader that still knows the record's former life can raise `weak`, and
  // must then see the fields of this life.
  record->weak.store(nWeak, std::memory_order_release);
  return record;
}

long long ReferenceRecord::nLive() { return RecordPool::instance().nLive(); }

void ReferenceRecord::retire() noexcept { RecordPool::instance().give(this); }

void ReferenceRecord::noteOwnRaise(int difference) noexcept {
  for (UnctionScope* scope = innermostUnction; scope != nullptr; scope = scope->outer_) {
    if (scope->record_ == this) {
      scope->nOwnRaises_ += difference;
      return;
    }
  }
}

UnctionScope::UnctionScope(ReferenceRecord* record) noexcept : record_(record), outer_(innermostUnction) {
  innermostUnction = this;
  record_->underUnction.store(1, std::memory_order_relaxed);
}

UnctionScope::~UnctionScope() {
  record_->underUnction.store(0, std::memory_order_relaxed);
  innermostUnction = outer_;
}

}  // namespace Ostrel
