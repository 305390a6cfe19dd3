#pragma once

#include <memory>

#include "common/zep/IZEPTimer_Callback.h"
#include "foundation/runloop/Timer.h"

/// One timer on the run loop of the thread that schedules it. Held by whoever made it and, while it is
/// scheduled, by the run loop's timer. One thread.
class CocoaTimerImpl : public std::enable_shared_from_this<CocoaTimerImpl> {
 public:
  static std::shared_ptr<CocoaTimerImpl> initWithTimerID(TimerID id);
  CocoaTimerImpl(const CocoaTimerImpl&) = delete;
  CocoaTimerImpl& operator=(const CocoaTimerImpl&) = delete;

  /// Ticks every `milliseconds` (or once) in the default and the event-tracking mode, not while a modal panel
  /// runs.
  void scheduleTimerWithInterval(unsigned long milliseconds, IZEPTimer_Callback* callbackImpl, bool repeats);
  /// The same, then fire().
  void createTimerWithInterval(unsigned long milliseconds, IZEPTimer_Callback* callbackImpl, bool repeats);
  /// Deliberately empty, so createTimerWithInterval() brings no tick at once.
  void fire();
  /// Deliberately empty.
  void stopTimer();
  /// No tick reaches the callback after this.
  void invalidate();
  /// The interval cut to whole seconds, in milliseconds: 0 for 300 ms, 1000 for 1.5 s. Deliberately cut
  /// first.
  unsigned long getInterval() const;
  bool isValid() const;

 private:
  explicit CocoaTimerImpl(TimerID id) : m_nID(id) {}
  void onTimer(foundation::Timer& timer);

  const TimerID m_nID;
  std::shared_ptr<foundation::Timer> mTimer;
  IZEPTimer_Callback* m_callBackImpl = nullptr;
};
