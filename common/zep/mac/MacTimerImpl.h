#pragma once

#include <map>
#include <memory>

#include "common/zep/IZEPTimer_Callback.h"
#include "common/zep/IZEPTimer_Impl.h"
#include "common/zep/mac/CocoaTimerImpl.h"

/// The timers of one ZEPTimer on the run loop of the calling thread, one CocoaTimerImpl for each id. One
/// thread; the callback is not owned.
///
/// Destroying it lets go of the timers without stopping them: they keep ticking into their callback.
class ZEPMacTimer : public IZEPTimer_Impl {
 public:
  ZEPMacTimer() = default;
  explicit ZEPMacTimer(IZEPTimer_Callback* callback) : m_pCallback(callback) {}
  ~ZEPMacTimer() override;
  ZEPMacTimer(const ZEPMacTimer&) = delete;
  ZEPMacTimer& operator=(const ZEPMacTimer&) = delete;

  unsigned int SetTimer(TimerID id, unsigned int interval) override;
  void KillTimer(TimerID id) override;

  /// The running timer with this id, or null.
  std::shared_ptr<CocoaTimerImpl> timerForID(TimerID id) const;
  /// Throws std::bad_alloc; nothing is scheduled then.
  std::shared_ptr<CocoaTimerImpl> scheduleTimer(TimerID id, unsigned long interval,
                                                IZEPTimer_Callback* callback, bool repeats);
  void invalidate(TimerID id);
  /// Deliberately empty.
  void fire(TimerID id);

 private:
  std::map<TimerID, std::shared_ptr<CocoaTimerImpl>> m_timers;
  IZEPTimer_Callback* m_pCallback = nullptr;
};
