#include "foundation/runloop/DispatchQueue.h"

#include <glib.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

#include "foundation/runloop/RunLoop.h"

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

void runThereAndWait(DispatchQueue& queue, const std::shared_ptr<AwaitedBlock>& block) {
  queue.async([block] { block->run(); });
  block->wait();
}

/// Guards the blocks of every worker queue. Constant-initialized: GLib may serve a new queue with a thread of an
/// older one, and what hands the queue over to it is nothing that a thread sanitizer can see.
constinit std::mutex workerQueuesMutex;

/// A set of worker threads. The blocks wait in a queue of our own; GLib's pool decides how many threads serve it.
class WorkerQueue final : public DispatchQueue {
 public:
  WorkerQueue() {
    constexpr gint kMostThreads = 8;
    pool_ = g_thread_pool_new(&WorkerQueue::serve, this, kMostThreads, FALSE, nullptr);
  }

  void async(std::function<void()> block) override {
    {
      const std::lock_guard lock(workerQueuesMutex);
      blocks_.push_back(std::move(block));
    }
    g_thread_pool_push(pool_, this, nullptr);
  }

  void sync(const std::function<void()>& block) override {
    runThereAndWait(*this, std::make_shared<AwaitedBlock>(block));
  }

 private:
  static void serve(gpointer, gpointer queue) { static_cast<WorkerQueue*>(queue)->runOne(); }

  void runOne() noexcept {
    std::function<void()> block;
    {
      const std::lock_guard lock(workerQueuesMutex);
      block = std::move(blocks_.front());
      blocks_.pop_front();
    }
    block();
  }

  GThreadPool* pool_ = nullptr;
  std::deque<std::function<void()>> blocks_;
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
    runThereAndWait(*this, awaited);
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

}  // namespace

DispatchQueue::~DispatchQueue() = default;

// Neither is ever destroyed: threads may still send blocks while the process exits.

DispatchQueue& DispatchQueue::global() {
  static WorkerQueue* const queue = new WorkerQueue;
  return *queue;
}

DispatchQueue& DispatchQueue::workers() {
  static WorkerQueue* const queue = new WorkerQueue;
  return *queue;
}

DispatchQueue& DispatchQueue::main() {
  static MainQueue* const queue = new MainQueue;
  return *queue;
}

}  // namespace foundation
