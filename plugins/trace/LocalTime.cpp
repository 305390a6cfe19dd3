#include "plugins/trace/LocalTime.h"

#include <atomic>
#include <chrono>
#include <cstdint>

namespace traceplugin {
namespace {

/// Clocks are changed at full quarters of an hour.
constexpr std::int64_t kQuarter = 900;
constexpr std::int64_t kOffsets = 4096;  ///< more than there are minutes of offset, to both sides
constexpr std::int64_t kNever = 0;

/// The quarter of an hour and the offset in it, in one word: quarter * kOffsets + kOffsets / 2 + minutes.
constinit std::atomic<std::int64_t> known{kNever};

std::int64_t floorQuarter(std::int64_t seconds) {
  return (seconds - (seconds % kQuarter + kQuarter) % kQuarter) / kQuarter;
}

int minutesOfOffset(std::time_t seconds, LocalTime::OffsetLookUp lookUp) {
  const std::int64_t quarter = floorQuarter(seconds);
  std::int64_t last = known.load(std::memory_order_relaxed);
  const bool isCurrent = last / kOffsets == quarter;
  if (last == kNever || (!isCurrent && lookUp == LocalTime::OffsetLookUp::Allowed)) {
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) {
      return 0;
    }
    last = quarter * kOffsets + kOffsets / 2 + local.tm_gmtoff / 60;
    known.store(last, std::memory_order_relaxed);
  }
  return static_cast<int>(last % kOffsets - kOffsets / 2);
}

}  // namespace

LocalTime LocalTime::now(OffsetLookUp lookUp) {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return at(time, lookUp);
}

LocalTime LocalTime::at(const timespec& time, OffsetLookUp lookUp) {
  using std::chrono::days;
  const int offset = minutesOfOffset(time.tv_sec, lookUp);
  const std::chrono::sys_seconds local{std::chrono::seconds(time.tv_sec + std::int64_t{60} * offset)};
  const auto midnight = std::chrono::floor<days>(local);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss clock(local - midnight);
  return {.year = static_cast<int>(date.year()),
          .month = static_cast<unsigned>(date.month()),
          .day = static_cast<unsigned>(date.day()),
          .hour = static_cast<unsigned>(clock.hours().count()),
          .minute = static_cast<unsigned>(clock.minutes().count()),
          .second = static_cast<unsigned>(clock.seconds().count()),
          .microsecond = static_cast<unsigned>(time.tv_nsec / 1000),
          .offsetMinutes = offset};
}

}  // namespace traceplugin
