#include "foundation/runloop/WorkerThreads.h"

#include <pthread.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <new>
#include <utility>

#include "foundation/base/LibraryThread.h"
#include "foundation/runloop/BlockedSignals.h"

namespace foundation {
namespace {

/// Longer than the gaps in a host's work, short enough for a burst's memory.
constexpr std::chrono::seconds kIdleTime{5};

/// Nobody joins the thread. 0 or an error number.
int createDetached(void* (*entry)(void*), void* argument) {
  pthread_attr_t attributes;
  if (const int error = pthread_attr_init(&attributes)) {
    return error;
  }
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread = {};
  const int error = pthread_create(&thread, &attributes, entry, argument);
  pthread_attr_destroy(&attributes);
  return error;
}

/// Made as the library is loaded: what a thread is still making while another one forks stays half made in the child.
[[gnu::constructor]] void makeSharedThreads() {
  WorkerThreads::shared();
}

}  // namespace

/// A thread and what it is to run next. Shared by the thread and by whoever wakes it, because a thread may run its
/// block and end while it is still being woken.
struct WorkerThreads::Worker {
  Worker(WorkerThreads& its, const char* firstName, std::function<void()> firstBlock)
      : threads(its), name(firstName), block(std::move(firstBlock)) {}

  WorkerThreads& threads;
  /// Both set before the thread is woken: under the lock, or before there is a thread.
  const char* name;
  std::function<void()> block;
  std::condition_variable given;
};

WorkerThreads& WorkerThreads::shared() {
  static WorkerThreads* const threads = [] {
    handleForks();
    return new WorkerThreads(kIdleTime);
  }();
  return *threads;
}

/// The lock is taken around a fork, so that it is free in the child. What is parked there are the parent's threads;
/// the list is begun anew without destroying them, since a condition variable would wait for those who sleep on it.
void WorkerThreads::handleForks() {
  pthread_atfork([] { shared().mutex_.lock(); }, [] { shared().mutex_.unlock(); },
                 [] {
                   WorkerThreads& threads = shared();
                   new (&threads.parked_) std::vector<std::shared_ptr<Worker>>;
                   threads.count_ = isLibraryThread() ? 1 : 0;
                   threads.mutex_.unlock();
                 });
}

WorkerThreads::WorkerThreads(std::chrono::milliseconds idleTime) : idleTime_(idleTime) {
}

WorkerThreads::~WorkerThreads() {
  std::unique_lock lock(mutex_);
  isEnding_ = true;
  for (const auto& worker : parked_) {
    worker->given.notify_one();
  }
  ended_.wait(lock, [&] { return count_ == 0; });
}

int WorkerThreads::run(const char* name, std::function<void()> block) {
  assert(block);
  if (giveToParked(name, block)) {
    return 0;
  }
  try {
    return runOnNewThread(std::make_shared<Worker>(*this, name, std::move(block)));
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

/// False, and the block still there, when none is parked.
bool WorkerThreads::giveToParked(const char* name, std::function<void()>& block) {
  std::shared_ptr<Worker> worker;
  {
    const std::lock_guard lock(mutex_);
    if (parked_.empty()) {
      return false;
    }
    worker = std::move(parked_.back());
    parked_.pop_back();
    worker->name = name;
    worker->block = std::move(block);
  }
  worker->given.notify_one();
  return true;
}

int WorkerThreads::runOnNewThread(const std::shared_ptr<Worker>& worker) {
  auto own = std::make_unique<std::shared_ptr<Worker>>(worker);
  {
    const std::lock_guard lock(mutex_);
    if (parked_.capacity() <= count_) {
      parked_.reserve(std::max<std::size_t>(16, 2 * count_));
    }
    ++count_;
  }
  const auto entry = [](void* argument) -> void* {
    const std::unique_ptr<std::shared_ptr<Worker>> self(static_cast<std::shared_ptr<Worker>*>(argument));
    (*self)->threads.serve(*self);
    return nullptr;
  };
  const BlockedSignals blocked;
  const int error = createDetached(entry, own.get());
  if (error == 0) {
    [[maybe_unused]] const auto* owned = own.release();
    return 0;
  }
  const std::lock_guard lock(mutex_);
  --count_;
  ended_.notify_all();
  return error;
}

void WorkerThreads::serve(const std::shared_ptr<Worker>& worker) noexcept {
  markLibraryThread();
  do {
    pthread_setname_np(pthread_self(), worker->name);
    worker->block();
    worker->block = nullptr;
    pthread_setname_np(pthread_self(), "zep.parked");
  } while (park(worker));
}

/// True with a further block, false when the thread is to end.
bool WorkerThreads::park(const std::shared_ptr<Worker>& worker) {
  std::unique_lock lock(mutex_);
  if (!isEnding_) {
    parked_.push_back(worker);
    const auto end = std::chrono::steady_clock::now() + idleTime_;
    worker->given.wait_until(lock, end, [&] { return worker->block != nullptr || isEnding_; });
    if (worker->block) {
      return true;
    }
    std::erase(parked_, worker);
  }
  --count_;
  ended_.notify_all();
  return false;
}

std::size_t WorkerThreads::count() const {
  const std::lock_guard lock(mutex_);
  return count_;
}

std::size_t WorkerThreads::parkedCount() const {
  const std::lock_guard lock(mutex_);
  return parked_.size();
}

}  // namespace foundation
