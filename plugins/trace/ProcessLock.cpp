#include "plugins/trace/ProcessLock.h"

#include <unistd.h>

namespace traceplugin {

bool ProcessLock::tryLock() {
  const pid_t self = getpid();
  pid_t holder = holder_.load(std::memory_order_relaxed);
  return holder != self && holder_.compare_exchange_strong(holder, self, std::memory_order_acquire);
}

}  // namespace traceplugin
