#include "Interrupt.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

namespace httppool {
namespace {

constexpr int kNone = -1;

std::atomic<int> caught = 0;
std::atomic<int> descriptor = kNone;
std::atomic<int> terminal = kNone;
termios terminalSettings;  // written while `terminal` is none
static_assert(std::atomic<int>::is_always_lock_free, "used inside a signal handler");

void setHandler(void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaddset(&action.sa_mask, SIGINT);
  sigaddset(&action.sa_mask, SIGTERM);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

void note(int signal) {
  const int error = errno;
  setHandler(SIG_DFL);  // of both: a second one ends the process, whichever it is
  caught = signal;
  const std::uint64_t once = 1;
  [[maybe_unused]] const ssize_t count = write(descriptor, &once, sizeof(once));
  if (const int open = terminal.exchange(kNone); open != kNone) {
    tcsetattr(open, TCSANOW, &terminalSettings);
  }
  errno = error;
}

}  // namespace

void catchInterrupts() {
  if (descriptor == kNone) {
    descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);  // never closed: a signal may come at any time
  }
  setHandler(&note);
}

int caughtInterrupt() {
  return caught;
}

int interruptDescriptor() {
  return descriptor;
}

void restoreWhenInterrupted(int openTerminal, const termios& settings) {
  terminalSettings = settings;
  terminal = openTerminal;
}

void restoreNothingWhenInterrupted() {
  terminal = kNone;
}

}  // namespace httppool
