#include "Suspension.h"

#include <atomic>
#include <csignal>

namespace httppool {
namespace {

std::atomic<bool> hasContinued = false;
static_assert(std::atomic<bool>::is_always_lock_free, "used inside a signal handler");

void note(int /*signal*/) {
  hasContinued = true;
}

}  // namespace

void watchSuspension() {
  struct sigaction action = {};
  action.sa_handler = &note;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGCONT, &action, nullptr);
}

bool takeContinuation() {
  return hasContinued.exchange(false);
}

}  // namespace httppool
