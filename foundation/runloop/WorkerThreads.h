#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "foundation/base/Export.h"

namespace foundation {

/// The library's own threads, which are used again. A block has its thread to itself while it runs: the thread that
/// was parked last, or else a new one. They take no signals that are sent to the process.
///
/// A parked thread sleeps. When the idle time has passed and nobody has taken it, it ends, so that its memory goes
/// back after a burst. How many are parked has no bound of its own: they are never more than were busy at once, and
/// a lower bound would have every burst make and end its threads anew.
///
/// Used from any thread. A child of fork(2) has none of its parent's threads and starts without any.
class FOUNDATION_EXPORT WorkerThreads {
 public:
  /// The process's. Never destroyed: threads may be parked, or run, while the process exits.
  static WorkerThreads& shared();

  explicit WorkerThreads(std::chrono::milliseconds idleTime);
  /// Ends the parked threads, and waits for the ends of the others' blocks.
  ~WorkerThreads();
  WorkerThreads(const WorkerThreads&) = delete;
  WorkerThreads& operator=(const WorkerThreads&) = delete;

  /// Runs `block` on a thread; does not wait for it. 0, or, when the system refuses a thread, the error number
  /// (pthread_create(3)): then the block is released without having run. The thread is called `name`, a literal of
  /// at most 15 characters, until the block and what it holds are gone. An exception that escapes the block ends
  /// the process.
  [[nodiscard]] int run(const char* name, std::function<void()> block);

  /// How many threads there are, busy or parked.
  std::size_t count() const;
  std::size_t parkedCount() const;

 private:
  struct Worker;

  bool giveToParked(const char* name, std::function<void()>& block);
  int runOnNewThread(const std::shared_ptr<Worker>& worker);
  void serve(const std::shared_ptr<Worker>& worker) noexcept;
  bool park(const std::shared_ptr<Worker>& worker);
  static void handleForks();

  const std::chrono::milliseconds idleTime_;
  mutable std::mutex mutex_;
  std::condition_variable ended_;
  bool isEnding_ = false;
  std::size_t count_ = 0;
  /// The last one is taken first. Has room for all.
  std::vector<std::shared_ptr<Worker>> parked_;
};

}  // namespace foundation
