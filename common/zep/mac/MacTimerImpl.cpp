#include "common/zep/mac/MacTimerImpl.h"

#include <new>
#include <utility>

ZEPMacTimer::~ZEPMacTimer() = default;

unsigned int ZEPMacTimer::SetTimer(TimerID id, unsigned int interval) {
  // Deliberately no restart: a timer that is running keeps its interval.
  if (timerForID(id) != nullptr) {
    return id;
  }
  try {
    // The entry comes first: a timer that has begun to tick can always be killed.
    m_timers[id] = nullptr;
    m_timers[id] = scheduleTimer(id, interval, m_pCallback, true);
  } catch (const std::bad_alloc&) {
    // The id stays absent; there is no error to report it by.
    m_timers.erase(id);
  }
  return id;
}

void ZEPMacTimer::KillTimer(TimerID id) {
  invalidate(id);
}

std::shared_ptr<CocoaTimerImpl> ZEPMacTimer::timerForID(TimerID id) const {
  const auto found = m_timers.find(id);
  return found == m_timers.end() ? nullptr : found->second;
}

std::shared_ptr<CocoaTimerImpl> ZEPMacTimer::scheduleTimer(TimerID id, unsigned long interval,
                                                           IZEPTimer_Callback* callback, bool repeats) {
  auto timer = CocoaTimerImpl::initWithTimerID(id);
  timer->scheduleTimerWithInterval(interval, callback, repeats);
  return timer;
}

void ZEPMacTimer::invalidate(TimerID id) {
  // Inside a tick of this very timer the run loop's hold keeps it alive until the tick is over.
  if (const auto timer = timerForID(id)) {
    timer->invalidate();
    m_timers.erase(id);
  }
}

void ZEPMacTimer::fire(TimerID) {
}
