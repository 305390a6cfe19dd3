#pragma once

#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>

#include "foundation/base/Export.h"
#include "foundation/runloop/RunLoop.h"

namespace foundation {

/// The private loop of a thread that this library made. Needs no descriptor, so thousands of them fit under
/// an ordinary descriptor limit. Made on, and turned by, its own thread; perform() and wake() from any
/// thread.
///
/// The thread turns it in two steps: waitForTurn() sleeps until there is work and the next point of a time
/// grid has come; runPass() then runs what has been queued, without waiting.
class FOUNDATION_EXPORT ThreadRunLoop final : public RunLoop {
 public:
  using Clock = std::chrono::steady_clock;

  /// Installs a loop, a new one or the one given, as the calling thread's current() for as long as the Scope
  /// lives. With the Scope the loop ends: what is queued is released, what is posted later dropped.
  class FOUNDATION_EXPORT Scope {
   public:
    Scope();
    explicit Scope(std::shared_ptr<ThreadRunLoop> loop);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    const std::shared_ptr<ThreadRunLoop>& loop() const { return loop_; }

   private:
    std::shared_ptr<ThreadRunLoop> loop_;
  };

  ThreadRunLoop();
  ~ThreadRunLoop() override;

  void perform(std::function<void()>&& block) override;
  bool isCurrent() const override;

  /// Sleeps on to the next point of the grid `epoch + k * period` (k >= 1) at which there is something to run. Until
  /// `patience` after the epoch it looks at every point by itself, so that nobody has to wake it for what comes soon;
  /// from then on the thread does not wake at all while there is nothing. Returns at once when `isStopped` is true;
  /// whoever changes what it reads calls wake().
  void waitForTurn(Clock::time_point epoch, Clock::duration period, const std::function<bool()>& isStopped,
                   Clock::duration patience = {});

  /// Makes waitForTurn() look at its `isStopped` again. Any thread.
  void wake();

  /// Runs what is queued now, oldest first, and nothing that is queued meanwhile. Ends early when
  /// `isStopped`; what is left then stays queued.
  void runPass(const std::function<bool()>& isStopped);

 private:
  void close();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::list<std::function<void()>> queue_;
  /// The thread sleeps until it is woken.
  bool isDormant_ = false;
  bool closed_ = false;
};

}  // namespace foundation
