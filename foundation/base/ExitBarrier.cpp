#include "foundation/base/ExitBarrier.h"

#include <unistd.h>

#include <cstdlib>

namespace foundation {

ExitBarrier::ExitBarrier(std::optional<std::chrono::milliseconds> longest)
    : longest_(longest), process_(getpid()) {
  const auto exiting = [](int /*status*/, void* barrier) {
    static_cast<ExitBarrier*>(barrier)->processExits();
  };
  // An exit that cannot be told of must find no use.
  isClosed_ = on_exit(exiting, this) != 0;
}

void ExitBarrier::close() {
  std::unique_lock lock(mutex_);
  isClosed_ = true;
  const auto isUnused = [&] { return running_ == 0; };
  if (longest_) {
    changed_.wait_for(lock, *longest_, isUnused);
  } else {
    changed_.wait(lock, isUnused);
  }
}

void ExitBarrier::processExits() {
  // Nobody in the child of a fork finishes its parent's uses, or lets go of the mutex.
  if (getpid() == process_) {
    close();
  }
}

bool ExitBarrier::begin() {
  const std::lock_guard lock(mutex_);
  running_ += isClosed_ ? 0 : 1;
  return !isClosed_;
}

void ExitBarrier::finish() {
  const std::lock_guard lock(mutex_);
  --running_;
  changed_.notify_all();
}

}  // namespace foundation
