#pragma once

#include <memory>

#include "common/zep/IZEPTimer_Callback.h"
#include "common/zep/IZEPTimer_Impl.h"

/// Any number of periodic timers, each with a number of its owner's choice, that all tick into one callback.
/// The base of the pool registry and of each pool. Without a callback it does nothing.
///
/// One thread, the one whose run loop the timers use. Takes no lock. The callback is not owned. Destroying
/// the facade or changing its callback does not stop timers that are running: an owner kills its timers
/// first.
class ZEPTimer {
 public:
  ZEPTimer() = default;
  explicit ZEPTimer(IZEPTimer_Callback* callback);
  virtual ~ZEPTimer();
  ZEPTimer(const ZEPTimer&) = delete;
  ZEPTimer& operator=(const ZEPTimer&) = delete;

  /// From now on timers tick into `callback`; those that were started before keep theirs. Null is ignored.
  void SetTimerCallback(IZEPTimer_Callback* callback);
  /// `interval` in milliseconds. A timer that is running keeps its interval.
  void SetTimer(TimerID id, unsigned int interval);
  void KillTimer(TimerID id);

 private:
  IZEPTimer_Callback* m_pCallback = nullptr;
  std::unique_ptr<IZEPTimer_Impl> m_pImpl;
};
