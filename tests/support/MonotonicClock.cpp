#include "tests/support/MonotonicClock.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <ctime>

namespace test {
namespace {

std::atomic<long> secondsAhead = 0;

}  // namespace

void setClockAhead(long seconds) {
  secondsAhead = seconds;
}

}  // namespace test

// In place of the C library's, for the libraries, too.
extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock,
                                                                    timespec* time) noexcept {
  const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  if (result == 0 && clock == CLOCK_MONOTONIC) {
    time->tv_sec += test::secondsAhead;
  }
  return result;
}
