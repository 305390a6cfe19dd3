#pragma once

// What the exit of the process waits for although it runs on other threads, because it uses something that is taken
// down at the exit. Any thread. Made with new and never destroyed: threads may still ask while the process exits.

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>

namespace foundation {

class ExitBarrier {
 public:
  /// A use, as long as the object lives. Uses may nest.
  class Use {
   public:
    explicit Use(ExitBarrier& barrier) : barrier_(barrier), isAllowed_(barrier.begin()) {}
    ~Use() {
      if (isAllowed_) {
        barrier_.finish();
      }
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    /// False: it is too late, and what the barrier stands for must not be used any more.
    bool isAllowed() const { return isAllowed_; }

   private:
    ExitBarrier& barrier_;
    const bool isAllowed_;
  };

  /// Exit handlers run in the reverse order, and this registers one: what registered its own before is taken down after
  /// the wait. Without `longest` the exit waits for as long as it takes. In a child of fork(2), which has not got the
  /// threads of its parent's uses, nothing is waited for.
  explicit ExitBarrier(std::optional<std::chrono::milliseconds> longest = std::nullopt);
  ~ExitBarrier() = delete;
  ExitBarrier(const ExitBarrier&) = delete;
  ExitBarrier& operator=(const ExitBarrier&) = delete;

  /// What the exit does: denies the uses that begin from now on, and waits for the others.
  void close();

 private:
  void processExits();
  bool begin();
  void finish();

  const std::optional<std::chrono::milliseconds> longest_;
  const pid_t process_;
  std::mutex mutex_;
  std::condition_variable changed_;
  int running_ = 0;
  bool isClosed_ = false;
};

}  // namespace foundation
