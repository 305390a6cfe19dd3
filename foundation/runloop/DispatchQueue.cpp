#include "foundation/runloop/DispatchQueue.h"

#include <glib.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "foundation/runloop/RunLoop.h"

namespace foundation {
namespace {

/// Waits for the end of a block that runs elsewhere.
void runThereAndWait(DispatchQueue& queue, const std::function<void()>& block) {
  std::mutex mutex;
  std::condition_variable changed;
  bool done = false;
  queue.async([&] {
    block();
    // Notified under the lock: the waiter's stack is gone once it sees `done`.
    const std::lock_guard lock(mutex);
    done = true;
    changed.notify_one();
  });
  std::unique_lock lock(mutex);
  changed.wait(lock, [&] { return done; });
}

/// The blocks wait in a queue of our own; GLib's pool decides how many threads serve it.
class GlobalQueue final : public DispatchQueue {
 public:
  GlobalQueue() {
    constexpr gint kMostThreads = 8;
    pool_ = g_thread_pool_new(&GlobalQueue::serve, this, kMostThreads, FALSE, nullptr);
  }

  void async(std::function<void()> block) override {
    {
      const std::lock_guard lock(mutex_);
      blocks_.push_back(std::move(block));
    }
    g_thread_pool_push(pool_, this, nullptr);
  }

  void sync(const std::function<void()>& block) override { runThereAndWait(*this, block); }

 private:
  static void serve(gpointer, gpointer queue) { static_cast<GlobalQueue*>(queue)->runOne(); }

  void runOne() {
    std::function<void()> block;
    {
      const std::lock_guard lock(mutex_);
      block = std::move(blocks_.front());
      blocks_.pop_front();
    }
    block();
  }

  GThreadPool* pool_ = nullptr;
  std::mutex mutex_;
  std::deque<std::function<void()>> blocks_;
};

class MainQueue final : public DispatchQueue {
 public:
  void async(std::function<void()> block) override { RunLoop::main()->perform(std::move(block)); }

  void sync(const std::function<void()>& block) override {
    if (isMainThread()) {
      block();
    } else {
      runThereAndWait(*this, block);
    }
  }

 private:
  /// The thread that turns the default context now, or the one that started the program and may turn it
  /// later.
  static bool isMainThread() {
    return g_main_context_is_owner(g_main_context_default()) || gettid() == getpid();
  }
};

}  // namespace

DispatchQueue::~DispatchQueue() = default;

// Neither is ever destroyed: threads may still send blocks while the process exits.

DispatchQueue& DispatchQueue::global() {
  static GlobalQueue* const queue = new GlobalQueue;
  return *queue;
}

DispatchQueue& DispatchQueue::main() {
  static MainQueue* const queue = new MainQueue;
  return *queue;
}

}  // namespace foundation
