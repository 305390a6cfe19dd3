#include "foundation/runloop/DispatchQueue.h"

#include <glib.h>
#include <pthread.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <list>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "foundation/base/Trace.h"
#include "foundation/runloop/RunLoop.h"
#include "foundation/runloop/WorkerThreads.h"

namespace foundation {
namespace {

/// A block that somebody waits for. The block is the waiter's; it is looked at only while he waits. Shared by
/// the waiter and the queue, so that neither has to be there for the other's end.
class AwaitedBlock {
 public:
  explicit AwaitedBlock(const std::function<void()>& block) : block_(block) {}

  void run() {
    if (enter(State::Waiting, State::Running)) {
      block_();
      enter(State::Running, State::Over);
    }
  }
  /// Lets the waiter go. A block that is running is let finish, unless its thread is not coming back to it.
  void abandon(bool alsoWhenRunning) {
    enter(State::Waiting, State::Over);
    if (alsoWhenRunning) {
      enter(State::Running, State::Over);
    }
  }
  void wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return state_ == State::Over; });
  }

 private:
  enum class State { Waiting, Running, Over };

  bool enter(State from, State to) {
    const std::lock_guard lock(mutex_);
    if (state_ != from) {
      return false;
    }
    state_ = to;
    changed_.notify_one();
    return true;
  }

  const std::function<void()>& block_;
  std::mutex mutex_;
  std::condition_variable changed_;
  State state_ = State::Waiting;
};

/// Guards every worker queue; free in the child of a fork.
constinit std::mutex workerQueuesMutex;

/// Blocks that wait for their turn, and a few threads that take one after another until none is left.
class WorkerQueue final : public DispatchQueue {
 public:
  bool async(std::function<void()> block) override {
    const int error = queue(block);
    if (error != 0) {
      trace(TraceLevel::Warning, "no thread for a worker queue: " + std::system_category().message(error));
    }
    return error == 0;
  }

  void sync(const std::function<void()>& block) override {
    const auto awaited = std::make_shared<AwaitedBlock>(block);
    if (!async([awaited] { awaited->run(); })) {
      awaited->run();  // the caller has nothing to do but to wait
    }
    awaited->wait();
  }

  /// In the child of a fork, under the lock: the other threads are the parent's, and so are the blocks. What these hold
  /// may be locked for ever, so the list is begun anew without releasing them.
  void forgetInChild() {
    threads_ = servedQueue == this ? 1 : 0;
    new (&blocks_) std::list<std::function<void()>>;
  }

 private:
  static constexpr int kMostThreads = 8;

  /// 0, or why there is nobody to run the block; then it is the caller's again.
  int queue(std::function<void()>& block) {
    // Held while the thread is made: a block is queued only if there is a thread that comes to it.
    const std::lock_guard lock(workerQueuesMutex);
    blocks_.push_back(std::move(block));
    const int error = threads_ < kMostThreads ? addThread() : 0;
    if (error == 0 || threads_ > 0) {
      return 0;
    }
    block = std::move(blocks_.back());
    blocks_.pop_back();
    return error;
  }

  int addThread() {
    const int error = WorkerThreads::shared().run("zep.worker", [this] { serve(); });
    threads_ += error == 0 ? 1 : 0;
    return error;
  }

  void serve() {
    servedQueue = this;
    while (const std::function<void()> block = takeBlock()) {
      block();
    }
    servedQueue = nullptr;
  }

  /// Empty when there is none, and then the calling thread does not count as one of the queue's any more.
  std::function<void()> takeBlock() {
    const std::lock_guard lock(workerQueuesMutex);
    if (blocks_.empty()) {
      --threads_;
      return nullptr;
    }
    std::function<void()> block = std::move(blocks_.front());
    blocks_.pop_front();
    return block;
  }

  /// The one that the calling thread serves.
  static thread_local const WorkerQueue* servedQueue;

  std::list<std::function<void()>> blocks_;
  int threads_ = 0;
};

thread_local const WorkerQueue* WorkerQueue::servedQueue = nullptr;

class MainQueue final : public DispatchQueue {
 public:
  bool async(std::function<void()> block) override {
    {
      const std::lock_guard lock(mutex_);
      blocks_.push_back(std::move(block));
    }
    RunLoop::main()->perform([this] { runNext(); });
    return true;
  }

  void sync(const std::function<void()>& block) override {
    if (isCalledOnMainThread()) {
      block();
      return;
    }
    const auto awaited = std::make_shared<AwaitedBlock>(block);
    {
      const std::lock_guard lock(mutex_);
      if (isEnding_) {
        return;
      }
      awaited_.insert(awaited);
    }
    static_cast<void>(async([awaited] { awaited->run(); }));
    awaited->wait();
    const std::lock_guard lock(mutex_);
    awaited_.erase(awaited);
  }

  /// The main thread serves no blocks while it ends the process, but it may join threads that wait for it.
  void processEnds() {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
    for (const auto& awaited : awaited_) {
      awaited->abandon(isMainThread());
    }
  }

  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }

  /// In the child of a fork, under the lock: nobody waits any more. As for the worker queues nothing is released.
  void forgetInChild() {
    new (&blocks_) std::list<std::function<void()>>;
    new (&awaited_) std::set<std::shared_ptr<AwaitedBlock>>;
    if (runner_ != std::this_thread::get_id()) {
      runner_ = {};
    }
  }

 private:
  void runNext() {
    std::function<void()> block;
    {
      const std::lock_guard lock(mutex_);
      // Inside a block that turns the loop: its end asks again.
      if (runner_ != std::thread::id() || blocks_.empty()) {
        return;
      }
      runner_ = std::this_thread::get_id();
      block = std::move(blocks_.front());
      blocks_.pop_front();
    }
    block();
    bool hasMore = false;
    {
      const std::lock_guard lock(mutex_);
      runner_ = {};
      hasMore = !blocks_.empty();
    }
    if (hasMore) {
      RunLoop::main()->perform([this] { runNext(); });
    }
  }

  /// Under the lock, because GLib has a lock of its own for that, which has to be free in the child of a fork.
  bool isCalledOnMainThread() {
    const std::lock_guard lock(mutex_);
    return isMainThread();
  }

  /// The thread that turns the default context now, or the one that started the program and may turn it
  /// later.
  static bool isMainThread() {
    return g_main_context_is_owner(g_main_context_default()) || gettid() == getpid();
  }

  std::mutex mutex_;
  std::list<std::function<void()>> blocks_;
  /// The thread that runs a block now.
  std::thread::id runner_;
  std::set<std::shared_ptr<AwaitedBlock>> awaited_;
  bool isEnding_ = false;
};

struct Queues {
  WorkerQueue global;
  WorkerQueue workers;
  MainQueue main;
};

Queues& queues() {
  static Queues* const all = [] {
    // Its lock is taken after that of the queues, so its handler has to be there first.
    WorkerThreads::shared();
    pthread_atfork(
        [] {
          workerQueuesMutex.lock();
          queues().main.lock();
        },
        [] {
          queues().main.unlock();
          workerQueuesMutex.unlock();
        },
        [] {
          queues().main.forgetInChild();
          queues().main.unlock();
          queues().global.forgetInChild();
          queues().workers.forgetInChild();
          workerQueuesMutex.unlock();
        });
    return new Queues;
  }();
  return *all;
}

/// Made as the library is loaded: what a thread is still making while another one forks stays half made in the child.
[[gnu::constructor]] void makeQueues() {
  queues();
}

}  // namespace

DispatchQueue::~DispatchQueue() = default;

// Neither is ever destroyed: threads may still send blocks while the process exits.

DispatchQueue& DispatchQueue::global() {
  return queues().global;
}

DispatchQueue& DispatchQueue::workers() {
  return queues().workers;
}

DispatchQueue& DispatchQueue::main() {
  [[maybe_unused]] static const int isRegistered = std::atexit([] { queues().main.processEnds(); });
  return queues().main;
}

}  // namespace foundation
