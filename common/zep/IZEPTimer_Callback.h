#pragma once

#include "common/zep/commondefine.h"

/// Receives the ticks of a ZEPTimer, on the thread that set the timer. Implemented by the timer's owner and
/// never deleted through this interface.
class IZEPTimer_Callback {
 public:
  virtual void OnTimer(TimerID id) = 0;

 protected:
  ~IZEPTimer_Callback() = default;
};
