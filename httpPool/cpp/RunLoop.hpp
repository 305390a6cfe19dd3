#pragma once

// The calling thread's run loop, for hosts without one of their own: the library's timers, and with them every end of a
// request, need it turned. Hosts with GTK, Qt or another GLib based loop do not need this. Part of httpPool.hpp.

#include <algorithm>
#include <chrono>
#include <future>
#include <limits>

#include "foundation/ZEP_Foundation.h"

namespace httpPool {
inline namespace v1 {

/// Why turning the loop ended.
enum class LoopEnd {
  TimeIsOver,  ///< the time was over
  Stopped,     ///< by stop()
  NotPossible  ///< another thread is turning this loop, or the calling thread belongs to the library
};

namespace detail {
inline LoopEnd turn(long milliseconds) {
  const long end = ZEP_RunLoop_Run(milliseconds);
  return end == 0 ? LoopEnd::TimeIsOver : end == 1 ? LoopEnd::Stopped : LoopEnd::NotPossible;
}
}  // namespace detail

/// Turns the loop until stop(). Calls of all these functions may nest. A stop() before counts for nothing, and a request
/// that is refused has ended before the loop is turned: runUntil() is proof against that.
inline LoopEnd run() {
  return detail::turn(-1);
}

/// Turns the loop for that time; 0 or less: does what is due now, without waiting.
inline LoopEnd runFor(std::chrono::milliseconds time) {
  constexpr auto kLongest = static_cast<std::chrono::milliseconds::rep>(std::numeric_limits<long>::max());
  return detail::turn(
      static_cast<long>(std::clamp<std::chrono::milliseconds::rep>(time.count(), 0, kLongest)));
}

/// Ends the innermost of them on this thread as soon as the running callback returns; false when none is running.
inline bool stop() {
  return ZEP_RunLoop_Stop() == 0;
}

/// Turns the loop until the predicate holds, which is asked at least every 10 ms. False when it still does not at the
/// end: the limit came first, the loop was stopped, or cannot be turned here.
template <typename Predicate>
bool runUntil(const Predicate& predicate,
              std::chrono::milliseconds limit = std::chrono::milliseconds::max()) {
  constexpr std::chrono::milliseconds kTurn{10};
  const auto begin = std::chrono::steady_clock::now();
  while (!predicate()) {
    const auto spent =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    if (spent >= limit || runFor(kTurn) != LoopEnd::TimeIsOver) {
      return predicate();
    }
  }
  return true;
}

/// Turns the loop until the future is ready; for the host's thread, where get() would wait for ever. False as above.
template <typename Value>
bool runUntilReady(const std::future<Value>& future,
                   std::chrono::milliseconds limit = std::chrono::milliseconds::max()) {
  return runUntil([&] { return future.wait_for(std::chrono::seconds(0)) == std::future_status::ready; },
                  limit);
}

}  // namespace v1
}  // namespace httpPool
