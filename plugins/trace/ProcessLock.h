#pragma once

// A lock between the threads of one process. What a thread of the parent holds at a fork is free in the child, where
// that thread is not; so the lock may guard only what may be begun again. Any thread; one thread holds it.

#include <sys/types.h>

#include <atomic>

namespace traceplugin {

class ProcessLock {
 public:
  /// Does not wait.
  bool tryLock();
  void unlock() { holder_.store(0, std::memory_order_release); }

 private:
  std::atomic<pid_t> holder_{0};
};

}  // namespace traceplugin
