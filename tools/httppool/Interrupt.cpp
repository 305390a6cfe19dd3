#include "Interrupt.h"

#include <atomic>
#include <csignal>

namespace httppool {
namespace {

std::atomic<int> caught = 0;
static_assert(std::atomic<int>::is_always_lock_free, "set inside a signal handler");

void note(int signal) {
  caught = signal;
}

}  // namespace

void catchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = &note;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

int caughtInterrupt() {
  return caught;
}

}  // namespace httppool
