#include "httpPool/TimeoutCheck.h"

#include <ctime>
#include <string>

#include "httpPool/InitFeatureFlag.h"

namespace {

constexpr unsigned int kTimeoutSeconds = 300;
constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;

}  // namespace

CTimeoutCheck::~CTimeoutCheck() {
  m_bDestroyed = true;
}

void CTimeoutCheck::InitTimeoutCheck() {
  m_start = AbsoluteTime();
  m_timeout = kTimeoutSeconds;
  m_bDestroyed = false;
}

void CTimeoutCheck::SetTimeout(unsigned int seconds) {
  m_timeout = seconds;
}

bool CTimeoutCheck::IsTimeOut() const {
  if (!IS_MONITOR_POOL) {
    return false;
  }
  const std::uint64_t elapsed = AbsoluteTime() - m_start;
  if (elapsed == 0) {
    return false;
  }
  const Timebase timebase = TimebaseInfo();
  const std::uint64_t nanoseconds = elapsed * timebase.numer / timebase.denom;
  const double seconds = static_cast<double>(nanoseconds) * 1e-9;
  return seconds > static_cast<double>(m_timeout);
}

void CTimeoutCheck::ExitIfTimeout() {
  if (!IS_MONITOR_POOL || !IsTimeOut()) {
    return;
  }
  const std::string identity = GetSelfIdentity();
  RecordTimeoutPoolTask(identity.c_str());
}

std::uint64_t CTimeoutCheck::AbsoluteTime() const {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * kNanosecondsPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec);
}

CTimeoutCheck::Timebase CTimeoutCheck::TimebaseInfo() const {
  return {1, 1};
}
