#include "foundation/runloop/ThreadRunLoop.h"

#include <cassert>
#include <utility>

#include "foundation/runloop/CurrentThread.h"

namespace foundation {

ThreadRunLoop::Scope::Scope() : Scope(std::make_shared<ThreadRunLoop>()) {
}

ThreadRunLoop::Scope::Scope(std::shared_ptr<ThreadRunLoop> loop) : loop_(std::move(loop)) {
  assert(privateLoopOfThisThread() == nullptr);
  setPrivateLoopOfThisThread(&loop_);
}

ThreadRunLoop::Scope::~Scope() {
  // What is released with the loop may belong to it and ask for it.
  loop_->close();
  setPrivateLoopOfThisThread(nullptr);
}

ThreadRunLoop::ThreadRunLoop() = default;
ThreadRunLoop::~ThreadRunLoop() = default;

void ThreadRunLoop::perform(std::function<void()>&& block) {
  bool wasDormant = false;
  {
    const std::lock_guard lock(mutex_);
    if (closed_) {
      return;
    }
    queue_.push_back(std::move(block));
    wasDormant = std::exchange(isDormant_, false);
  }
  if (wasDormant) {
    changed_.notify_one();
  }
}

bool ThreadRunLoop::isCurrent() const {
  return privateLoopOfThisThread().get() == this;
}

void ThreadRunLoop::waitForTurn(Clock::time_point epoch, Clock::duration period,
                                const std::function<bool()>& isStopped, Clock::duration patience) {
  assert(isCurrent());
  const auto nextPoint = [&] { return epoch + ((Clock::now() - epoch) / period + 1) * period; };
  std::unique_lock lock(mutex_);
  Clock::time_point point = nextPoint();
  while (queue_.empty() && point <= epoch + patience && !isStopped()) {
    changed_.wait_until(lock, point, isStopped);
    if (!queue_.empty()) {
      return;
    }
    point = nextPoint();
  }
  isDormant_ = queue_.empty();
  changed_.wait(lock, [&] { return isStopped() || !queue_.empty(); });
  isDormant_ = false;
  changed_.wait_until(lock, nextPoint(), isStopped);
}

void ThreadRunLoop::wake() {
  // Under the lock, so that it cannot fall between the waiter's look at `isStopped` and its sleep.
  const std::lock_guard lock(mutex_);
  changed_.notify_one();
}

void ThreadRunLoop::runPass(const std::function<bool()>& isStopped) {
  assert(isCurrent());
  std::list<std::function<void()>> blocks;
  {
    const std::lock_guard lock(mutex_);
    blocks.swap(queue_);
  }
  while (!blocks.empty() && !isStopped()) {
    const std::function<void()> block = std::move(blocks.front());
    blocks.pop_front();
    block();
  }
  if (!blocks.empty()) {
    // Stopped: what did not get its turn stays queued, before what came meanwhile.
    const std::lock_guard lock(mutex_);
    queue_.splice(queue_.begin(), blocks);
  }
}

void ThreadRunLoop::close() {
  std::list<std::function<void()>> dropped;
  const std::lock_guard lock(mutex_);
  closed_ = true;
  dropped.swap(queue_);
}

}  // namespace foundation
