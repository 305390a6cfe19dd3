#pragma once

// The watchdog of a pool or task: remembers when its owner was made and tells, while the pool monitor is on,
// whether more than the time-out has passed since. It never ends anything. A base of its owner, on the host's
// thread.

#include <cstdint>

#include "support/BasicString.h"

class CTimeoutCheck {
 public:
  virtual ~CTimeoutCheck();

  /// What the owner is called in a record.
  virtual BasicString GetSelfIdentity() = 0;

  /// Starts the clock, with a time-out of 300 s. The owner's constructor calls it.
  void InitTimeoutCheck();
  void SetTimeout(unsigned int seconds);
  /// Whether more than the time-out has passed; always false while the monitor is off.
  bool IsTimeOut() const;
  /// Asked at every status query: hands the owner's identity to the monitor's record when it has timed out. It does so
  /// every time, on purpose; the record sees to it that a name is written once.
  void ExitIfTimeout();

 protected:
  /// Turns ticks into nanoseconds: ticks * numer / denom.
  struct Timebase {
    std::uint32_t numer;
    std::uint32_t denom;
  };

  CTimeoutCheck() = default;
  CTimeoutCheck(const CTimeoutCheck&) = delete;
  CTimeoutCheck& operator=(const CTimeoutCheck&) = delete;

  // Behind the operations above: those keep their places in the table of virtual functions.
  /// The monotonic clock in ticks, and what a tick is.
  virtual std::uint64_t AbsoluteTime() const;
  virtual Timebase TimebaseInfo() const;

 private:
  std::uint64_t m_start = 0;
  std::uint64_t m_timeout = 0;
  bool m_bDestroyed = false;
};
