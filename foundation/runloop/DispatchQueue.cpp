#include "foundation/runloop/DispatchQueue.h"

#include <glib.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <string>
#include <system_error>
#include <utility>

#include "foundation/base/Trace.h"
#include "foundation/runloop/RunLoop.h"
#include "foundation/runloop/Timer.h"
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
  void async(std::function<void()> block) override {
    {
      const std::lock_guard lock(workerQueuesMutex);
      blocks_.push_back(std::move(block));
    }
    callThread();
  }

  void sync(const std::function<void()>& block) override {
    const auto awaited = std::make_shared<AwaitedBlock>(block);
    async([awaited] { awaited->run(); });
    if (!isServed()) {
      // The caller has nothing to do but to wait, so it does not wait for a thread that there may never be.
      awaited->run();
    }
    awaited->wait();
  }

  /// In the child of a fork, under the lock: the threads are the parent's, and so are the blocks. What these hold
  /// may be locked for ever, so the list is begun anew without releasing them.
  void forgetInChild() {
    threads_ = 0;
    isCallDue_ = false;
    new (&blocks_) std::deque<std::function<void()>>;
  }

 private:
  static constexpr int kMostThreads = 8;
  static constexpr std::chrono::milliseconds kNextCall{100};

  bool isServed() {
    const std::lock_guard lock(workerQueuesMutex);
    return threads_ > 0;
  }

  void callThread() {
    {
      const std::lock_guard lock(workerQueuesMutex);
      if (blocks_.empty() || threads_ == kMostThreads) {
        return;
      }
      ++threads_;
    }
    if (const int error = WorkerThreads::shared().run("zep.worker", [this] { serve(); })) {
      refused(error);
    }
  }

  /// A block must not be lost because there is no thread now. Whoever serves the queue comes to it; when nobody
  /// does, the main thread asks again.
  void refused(int error) {
    {
      const std::lock_guard lock(workerQueuesMutex);
      --threads_;
      if (threads_ > 0 || std::exchange(isCallDue_, true)) {
        return;
      }
    }
    trace(TraceLevel::Warning,
          "no thread for a worker queue, asking again: " + std::system_category().message(error));
    RunLoop::main()->perform([this] {
      Timer::scheduled(kNextCall, Timer::Repeats::No, [this](Timer&) {
        {
          const std::lock_guard lock(workerQueuesMutex);
          isCallDue_ = false;
        }
        callThread();
      });
    });
  }

  void serve() {
    while (const std::function<void()> block = takeBlock()) {
      block();
    }
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

  std::deque<std::function<void()>> blocks_;
  /// Those that serve it, or have been asked to.
  int threads_ = 0;
  bool isCallDue_ = false;
};

class MainQueue final : public DispatchQueue {
 public:
  // The main thread serves no blocks while it ends the process, but it may join threads that wait for it.
  MainQueue() {
    std::atexit([] { static_cast<MainQueue&>(DispatchQueue::main()).processEnds(); });
  }

  void async(std::function<void()> block) override {
    {
      const std::lock_guard lock(mutex_);
      blocks_.push_back(std::move(block));
    }
    RunLoop::main()->perform([this] { runNext(); });
  }

  void sync(const std::function<void()>& block) override {
    if (isMainThread()) {
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
    async([awaited] { awaited->run(); });
    awaited->wait();
    const std::lock_guard lock(mutex_);
    awaited_.erase(awaited);
  }

 private:
  void runNext() {
    std::function<void()> block;
    {
      const std::lock_guard lock(mutex_);
      // Inside a block that turns the loop: its end asks again.
      if (isRunning_ || blocks_.empty()) {
        return;
      }
      isRunning_ = true;
      block = std::move(blocks_.front());
      blocks_.pop_front();
    }
    block();
    bool hasMore = false;
    {
      const std::lock_guard lock(mutex_);
      isRunning_ = false;
      hasMore = !blocks_.empty();
    }
    if (hasMore) {
      RunLoop::main()->perform([this] { runNext(); });
    }
  }

  void processEnds() {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
    for (const auto& awaited : awaited_) {
      awaited->abandon(isMainThread());
    }
  }

  /// The thread that turns the default context now, or the one that started the program and may turn it
  /// later.
  static bool isMainThread() {
    return g_main_context_is_owner(g_main_context_default()) || gettid() == getpid();
  }

  std::mutex mutex_;
  std::deque<std::function<void()>> blocks_;
  bool isRunning_ = false;
  std::set<std::shared_ptr<AwaitedBlock>> awaited_;
  bool isEnding_ = false;
};

struct WorkerQueues {
  WorkerQueue global;
  WorkerQueue workers;
};

WorkerQueues& workerQueues() {
  static WorkerQueues* const queues = [] {
    pthread_atfork([] { workerQueuesMutex.lock(); }, [] { workerQueuesMutex.unlock(); },
                   [] {
                     workerQueues().global.forgetInChild();
                     workerQueues().workers.forgetInChild();
                     workerQueuesMutex.unlock();
                   });
    return new WorkerQueues;
  }();
  return *queues;
}

/// Made as the library is loaded: what a thread is still making while another one forks stays half made in the child.
[[gnu::constructor]] void makeWorkerQueues() {
  workerQueues();
}

}  // namespace

DispatchQueue::~DispatchQueue() = default;

// Neither is ever destroyed: threads may still send blocks while the process exits.

DispatchQueue& DispatchQueue::global() {
  return workerQueues().global;
}

DispatchQueue& DispatchQueue::workers() {
  return workerQueues().workers;
}

DispatchQueue& DispatchQueue::main() {
  static MainQueue* const queue = new MainQueue;
  return *queue;
}

}  // namespace foundation
