// The offset from UTC, which is looked up now and then only.

#include <gtest/gtest.h>

#include <cstdlib>

#include "plugins/trace/LocalTime.h"

namespace {

using traceplugin::LocalTime;

class TraceTime : public testing::Test {
 protected:
  static LocalTime at(std::time_t seconds,
                      LocalTime::OffsetLookUp lookUp = LocalTime::OffsetLookUp::Allowed) {
    return LocalTime::at({.tv_sec = seconds, .tv_nsec = 123'456'789}, lookUp);
  }

  static void SetUpTestSuite() {
    // One hour east of Greenwich; summer time from the last Sunday of March to that of October.
    setenv("TZ", "WST-1SST-2,M3.5.0/2,M10.5.0/3", 1);
    tzset();
  }
};

constexpr std::time_t kSummer2026 = 1774746000;  // 2026-03-29 01:00 UTC

TEST_F(TraceTime, IsTheCLibrarysAroundEveryTurnOfYearMonthAndClock) {
  for (const std::time_t turn :
       {std::time_t{946681200}, std::time_t{951778800}, std::time_t{1772319600}, kSummer2026,
        std::time_t{1792890000}, std::time_t{1798758000}, std::time_t{2147483647}, std::time_t{4107538800}}) {
    for (const std::time_t seconds : {turn - 900, turn - 1, turn, turn + 1, turn + 899, turn + 86400}) {
      std::tm expected{};
      localtime_r(&seconds, &expected);
      const LocalTime time = at(seconds);
      EXPECT_EQ(time.year, expected.tm_year + 1900) << seconds;
      EXPECT_EQ(time.month, static_cast<unsigned>(expected.tm_mon + 1)) << seconds;
      EXPECT_EQ(time.day, static_cast<unsigned>(expected.tm_mday)) << seconds;
      EXPECT_EQ(time.hour, static_cast<unsigned>(expected.tm_hour)) << seconds;
      EXPECT_EQ(time.minute, static_cast<unsigned>(expected.tm_min)) << seconds;
      EXPECT_EQ(time.second, static_cast<unsigned>(expected.tm_sec)) << seconds;
      EXPECT_EQ(time.microsecond, 123'456U);
      EXPECT_EQ(time.offsetMinutes, expected.tm_gmtoff / 60) << seconds;
    }
  }
}

TEST_F(TraceTime, ChangesItsOffsetWithTheClocks) {
  EXPECT_EQ(at(kSummer2026 - 1).offsetMinutes, 60);
  EXPECT_EQ(at(kSummer2026).offsetMinutes, 120);
}

// The hour goes with the offset, so the time is right all the same.
TEST_F(TraceTime, KeepsTheLastOffsetWhereItMayNotLookUp) {
  EXPECT_EQ(at(kSummer2026 - 1).hour, 1U);
  const LocalTime time = at(kSummer2026, LocalTime::OffsetLookUp::Avoided);
  EXPECT_EQ(time.offsetMinutes, 60);
  EXPECT_EQ(time.hour, 2U);
}

}  // namespace
