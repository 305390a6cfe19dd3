#include "common/zep/mac/CocoaTimerImpl.h"

#include <algorithm>
#include <chrono>
#include <utility>

std::shared_ptr<CocoaTimerImpl> CocoaTimerImpl::initWithTimerID(TimerID id) {
  return std::shared_ptr<CocoaTimerImpl>(new CocoaTimerImpl(id));
}

void CocoaTimerImpl::scheduleTimerWithInterval(unsigned long milliseconds, IZEPTimer_Callback* callbackImpl,
                                               bool repeats) {
  constexpr unsigned long kLongest = 1UL << 42;  // more than a century, and no overflow in microseconds
  m_callBackImpl = callbackImpl;
  // The timer holds its target: this object lives until the timer is invalidated.
  mTimer = foundation::Timer::scheduled(
      std::chrono::milliseconds(std::min(milliseconds, kLongest)),
      repeats ? foundation::Timer::Repeats::Yes : foundation::Timer::Repeats::No,
      [self = shared_from_this()](foundation::Timer& timer) { self->onTimer(timer); });
  mTimer->addToMode(foundation::RunLoopMode::EventTracking);
}

void CocoaTimerImpl::createTimerWithInterval(unsigned long milliseconds, IZEPTimer_Callback* callbackImpl,
                                             bool repeats) {
  scheduleTimerWithInterval(milliseconds, callbackImpl, repeats);
  fire();
}

void CocoaTimerImpl::fire() {
}

void CocoaTimerImpl::stopTimer() {
}

void CocoaTimerImpl::onTimer(foundation::Timer&) {
  if (m_callBackImpl != nullptr) {
    m_callBackImpl->OnTimer(m_nID);
  }
}

void CocoaTimerImpl::invalidate() {
  // The callback goes first: whatever the run loop still holds finds nobody to tick.
  m_callBackImpl = nullptr;
  if (const auto timer = std::exchange(mTimer, nullptr)) {
    timer->invalidate();
  }
}

unsigned long CocoaTimerImpl::getInterval() const {
  if (mTimer == nullptr) {
    return 0;
  }
  return static_cast<unsigned long>(
             std::chrono::duration_cast<std::chrono::seconds>(mTimer->interval()).count()) *
         1000;
}

bool CocoaTimerImpl::isValid() const {
  return mTimer != nullptr && mTimer->isValid();
}
