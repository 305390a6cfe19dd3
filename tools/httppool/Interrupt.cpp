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

void note(int signal) {
  const int error = errno;
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
