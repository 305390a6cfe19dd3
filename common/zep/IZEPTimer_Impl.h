#pragma once

#include "common/zep/commondefine.h"

/// What a platform offers to ZEPTimer. Intervals are milliseconds. One thread.
class IZEPTimer_Impl {
 public:
  virtual ~IZEPTimer_Impl() = default;
  /// Starts a repeating timer, unless one with this id is running; returns the id.
  virtual unsigned int SetTimer(TimerID id, unsigned int interval) = 0;
  /// Stops it, if it is running.
  virtual void KillTimer(TimerID id) = 0;
};
