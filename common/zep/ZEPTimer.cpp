#include "common/zep/ZEPTimer.h"

#include "common/zep/mac/MacTimerImpl.h"

ZEPTimer::ZEPTimer(IZEPTimer_Callback* callback) {
  SetTimerCallback(callback);
}

ZEPTimer::~ZEPTimer() = default;

void ZEPTimer::SetTimerCallback(IZEPTimer_Callback* callback) {
  if (callback == nullptr) {
    return;
  }
  m_pCallback = callback;
  m_pImpl.reset();
  m_pImpl = std::make_unique<ZEPMacTimer>(m_pCallback);
}

void ZEPTimer::SetTimer(TimerID id, unsigned int interval) {
  if (m_pImpl) {
    m_pImpl->SetTimer(id, interval);
  }
}

void ZEPTimer::KillTimer(TimerID id) {
  if (m_pImpl) {
    m_pImpl->KillTimer(id);
  }
}
