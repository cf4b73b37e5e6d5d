// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/AsynchronCreator.hpp>

#include <tresk/field/AsynchronHooks.hpp>
#include <tresk/field/ThreadReaper.hpp>
#include <tresk/foundation/NeverDestroyed.hpp>

#include <utility>

namespace Tresk {

namespace Detail {

AsynchronHooks& asynchronHooks() {
  static Ostrel::Detail::NeverDestroyed<AsynchronHooks> hooks;  // threads may still come by at exit
  return *hooks;
}

void CreationMutex::cancel() {
  --expected_;
  changed_.notify_all();
}

void CreationMutex::announce(unsigned long long thread) {
  if (thread != expected_) return;
  announced_ = thread;
  changed_.notify_all();
}

}  // namespace Detail

namespace {

using SelfPtr = Ostrel::StrongPtr<AsynchronCreator, Ostrel::Creature>;
using SelfWeakPtr = Ostrel::WeakPtr<AsynchronCreator, Ostrel::Creature>;

void callHook(std::function<void()> Detail::AsynchronHooks::*hook) {
  if (const std::function<void()>& f = Detail::asynchronHooks().*hook) f();
}

/// Says of this thread that it is one of a creator, and which. The creator is only compared, as it may be gone.
class BodyMark {
 public:
  BodyMark(const AsynchronCreator* creator, unsigned long long thread) noexcept {
    current = creator;
    number = thread;
  }
  BodyMark(const BodyMark&) = delete;
  BodyMark& operator=(const BodyMark&) = delete;
  ~BodyMark() { current = nullptr; }

  /// The number of this thread among those of a creator; 0 if it is none of them.
  static unsigned long long numberFor(const AsynchronCreator* creator) noexcept {
    return current == creator ? number : 0;
  }

 private:
  static thread_local const AsynchronCreator* current;
  static thread_local unsigned long long number;
};

thread_local const AsynchronCreator* BodyMark::current = nullptr;
thread_local unsigned long long BodyMark::number = 0;

/// Whether the future of a creator, which is that of its newest thread, stands for this thread.
bool isOwn(const AsynchronCreator* creator, const Detail::CreationMutex& creation) {
  const unsigned long long number = BodyMark::numberFor(creator);
  return number != 0 && number == creation.newest();
}

/// For a future whose thread is this one, which cannot be waited for here.
void leaveToReaper(std::future<bool>& future) {
  if (future.valid()) Detail::reapLater(std::move(future));
}

}  // namespace

AsynchronCreator::AsynchronCreator(const Function& function, const CachePtr& cache)
    : Ostrel::AlzheimerCreator<MemBase, CreativeArrayBase>(cache), function_(function) {}

AsynchronCreator::~AsynchronCreator() TRESK_NO_THREAD_SAFETY_ANALYSIS {
  // The future goes first, and waits for its thread. On that very thread it would wait for itself.
  if (isOwn(this, creation_)) leaveToReaper(future_);
}

void AsynchronCreator::setup(const DynamicSize& size, const TreskTypePtr& type) {
  if (type) addMetaInfo(size, type);
}

MemBasePtr AsynchronCreator::create_data() const { return function_ ? function_(isDiscarded_) : MemBasePtr(); }

bool AsynchronCreator::createData(const SelfWeakPtr& self, const Callback&) {
  callHook(&Detail::AsynchronHooks::beforeUpgrade);
  // In this order they end in reverse: the lock first, then the data, then, perhaps, the creator.
  const SelfPtr creator(self);
  if (!creator) return false;
  // Ends after the lock, as data are let go then, and before the creator: of two threads that let go the last pointers
  // to each other's creators, neither would end before the other.
  const Ostrel::Detail::CacheOperation operation;
  callHook(&Detail::AsynchronHooks::beforeLock);

  MemBasePtr made;
  MemBasePtr former;
  const Ostrel::MutexLock lock(creator->creation_.mutex);
  creator->creation_.announce(BodyMark::numberFor(creator.get()));  // other callers cannot speak for the thread
  creator->nCreations_.fetch_add(1, std::memory_order_relaxed);
  Ostrel::Detail::CacheProduction production(*creator);
  // An exception leaves the under-creation flag set, deliberately.
  try {
    made = creator->create_data();
  } catch (...) {
    creator->hasFailed_.store(true, std::memory_order_release);
    throw;
  }
  production.finish(made.isValid());
  if (made) {
    former = creator->data.exchangeFor(made);
    made->setCreator(creator->getSelf());
    creator->enableCaching(false);
    made->markAsUsed();
    Ostrel::Detail::handInUses();
    made.resetUnlessLast();  // whoever sees that the work is done finds the data held by the creator alone
  }
  const Ostrel::MutexLock status(creator->statusMutex_);
  creator->isUnderCreation_.store(false);
  return true;
}

MemBasePtr AsynchronCreator::produce() {
  if (MemBasePtr held = data) {
    held->markAsUsed();
    return held;
  }
  const Ostrel::Detail::CacheOperation operation;
  std::shared_future<bool> finished;  // its state, with what the caller of `request` gave, goes after the lock
  const Ostrel::MutexLock lock(creation_.mutex);
  if (MemBasePtr held = data) {
    held->markAsUsed();
    return held;
  }
  callHook(&Detail::AsynchronHooks::beforeWait);
  creation_.waitForAnnouncement([this]() TRESK_NO_THREAD_SAFETY_ANALYSIS { return !future_.valid(); });
  if (isOwn(this, creation_)) leaveToReaper(future_);  // called by an object that the thread lets go at its end
  if (future_.valid()) {
    finished = future_.share();
    finished.get();
  }
  if (MemBasePtr held = data) return held;
  return create_data();
}

bool AsynchronCreator::request(const Callback& callback) {
  if (data) return false;
  const Ostrel::Detail::CacheOperation operation;
  Detail::joinFinishedThreads();
  {
    const Ostrel::MutexLock status(statusMutex_);
    if (isUnderCreation_.load()) return false;
    isUnderCreation_.store(true);
  }
  // Clears the flag again if no thread comes to be, as nobody else ever would.
  struct Claim {
    AsynchronCreator* creator;
    ~Claim() {
      if (creator == nullptr) return;
      const Ostrel::MutexLock status(creator->statusMutex_);
      creator->isUnderCreation_.store(false);
    }
  } claim{this};
  auto body = [running = Detail::RunningThread(), marked = this, self = SelfWeakPtr(this),
               given = Callback(callback)](unsigned long long thread) mutable {
    // The future, with all that it keeps, is a member of the creator. So nothing stays in it that may hold the creator;
    // here it ends in reverse order.
    Detail::RunningThread untilTheEnd = std::move(running);
    untilTheEnd.begin();
    Ostrel::Detail::markThreadAsAwaited();
    const BodyMark mark(marked, thread);
    const Callback ownCallback = std::move(given);
    const SelfWeakPtr creator(self);
    self.reset();
    return createData(creator, ownCallback);
  };
  std::future<bool> former;  // waits for an earlier thread, after the lock
  const Ostrel::MutexLock lock(creation_.mutex);
  const bool formerIsOwn = isOwn(this, creation_);
  const unsigned long long thread = creation_.expect();
  try {
    former = std::exchange(future_, std::async(std::launch::async, std::move(body), thread));
  } catch (...) {
    creation_.cancel();
    throw;
  }
  claim.creator = nullptr;
  if (formerIsOwn) leaveToReaper(former);
  const auto producer = Ostrel::findInterface<Producer>(*this);
  return producer ? producer->request(callback) : true;
}

Ostrel::Creature::ReasonForReleasal AsynchronCreator::release() TRESK_NO_THREAD_SAFETY_ANALYSIS {
  if (isUnderCreation()) return StillInUse;
  if (!data) return Released;  // without the lock: a production on a caller's thread holds it, and may trim the cache
  MemBasePtr former;           // dies after the lock
  if (!Ostrel::Detail::isAskedByCache())
    creation_.mutex.lock();
  else if (!creation_.mutex.try_lock())
    return StillInUse;  // a production may wait for this very thread
  const Ostrel::Forgetting forgetting = data.forgetIfSole(former);
  creation_.mutex.unlock();
  return forgetting == Ostrel::Forgetting::IsShared ? StillInUse : Released;
}

bool AsynchronCreator::discardCreation() {
  isDiscarded_.exchange(true);
  return false;
}

const std::type_info& AsynchronCreator::getType() {
  if (const MemBasePtr held = data) return held->getElementType();
  const TreskTypePtr type = getTreskType();
  return type ? type->getType() : typeid(void);
}

bool AsynchronCreator::isUnderCreation() const { return isUnderCreation_.load(); }

}  // namespace Tresk
