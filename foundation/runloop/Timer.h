#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

#include "foundation/base/Export.h"
#include "foundation/runloop/RunLoop.h"

namespace foundation {

/// A timer on the run loop of the thread that schedules it. Beats lie on a fixed grid: the next one is due
/// one interval after the last one was due, and beats that were missed are skipped, so it does not drift.
///
/// The run loop holds the timer, and the timer its callback, until invalidate() or the end of the loop. All
/// of it happens on the scheduling thread. Only the loop of a GLib main context serves timers. An exception
/// that escapes the callback ends the process.
class FOUNDATION_EXPORT Timer {
 public:
  enum class Repeats { No, Yes };
  using Callback = std::function<void(Timer&)>;

  /// Schedules in the default mode. An interval of 0 or less becomes 0.1 ms, one of more than 200 years that.
  /// On a thread with a private loop the timer is not valid.
  static std::shared_ptr<Timer> scheduled(std::chrono::microseconds interval, Repeats repeats,
                                          Callback callback);

  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  /// Lets the timer fire while the loop is turned in `mode` as well.
  void addToMode(RunLoopMode mode);
  /// After this the callback is never called again, also when a beat was already due. May be called from
  /// inside the callback. The callback is released once it is not running.
  void invalidate();
  bool isValid() const;
  /// In microseconds.
  std::chrono::microseconds interval() const { return interval_; }

 private:
  struct Source;
  Timer(std::chrono::microseconds interval, Repeats repeats, Callback callback);
  void schedule(const std::shared_ptr<Timer>& self);
  void beat() noexcept;

  const std::chrono::microseconds interval_;
  const Repeats repeats_;
  /// Shared with a beat that is running, so that invalidate() inside it does not pull it away.
  std::shared_ptr<Callback> callback_;
  RunLoopModes modes_ = static_cast<unsigned>(RunLoopMode::Default);
  /// On the monotonic clock of GLib.
  std::int64_t due_ = 0;
  /// Owned by the context; null when the timer is not scheduled.
  Source* source_ = nullptr;
};

}  // namespace foundation
