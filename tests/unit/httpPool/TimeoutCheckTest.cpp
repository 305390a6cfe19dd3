#include <gtest/gtest.h>

#include "TraceLog.h"
#include "httpPool/InitFeatureFlag.h"
#include "httpPool/TimeoutCheck.h"

namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

struct Watched : CTimeoutCheck {
  BasicString GetSelfIdentity() override { return "pool task"; }
  std::uint64_t AbsoluteTime() const override {
    ++clockReads;
    return now;
  }
  Timebase TimebaseInfo() const override { return timebase; }

  std::uint64_t now = 1000 * kSecond;
  Timebase timebase{1, 1};
  mutable int clockReads = 0;
};

class TimeoutCheckTest : public testing::Test {
 protected:
  TimeoutCheckTest() {
    IS_MONITOR_POOL = true;
    watched.InitTimeoutCheck();
  }
  ~TimeoutCheckTest() override { IS_MONITOR_POOL = false; }

  Watched watched;
};

TEST_F(TimeoutCheckTest, MonitorOffNeverTimesOutAndReadsNoClock) {
  IS_MONITOR_POOL = false;
  watched.now += 100'000 * kSecond;
  watched.clockReads = 0;
  EXPECT_FALSE(watched.IsTimeOut());
  EXPECT_EQ(watched.clockReads, 0);
}

TEST_F(TimeoutCheckTest, TimesOutAfterMoreThan300Seconds) {
  const std::uint64_t start = watched.now;
  watched.now = start + 299 * kSecond;
  EXPECT_FALSE(watched.IsTimeOut());
  watched.now = start + 300 * kSecond;
  EXPECT_FALSE(watched.IsTimeOut()) << "exactly 300 s is not yet a time-out";
  watched.now = start + 300 * kSecond + 1000;
  EXPECT_TRUE(watched.IsTimeOut());
  watched.now = start + 301 * kSecond;
  EXPECT_TRUE(watched.IsTimeOut());
}

TEST_F(TimeoutCheckTest, TakesAnotherTimeout) {
  watched.SetTimeout(5);
  watched.now += 5 * kSecond;
  EXPECT_FALSE(watched.IsTimeOut());
  watched.now += kSecond;
  EXPECT_TRUE(watched.IsTimeOut());
}

TEST_F(TimeoutCheckTest, NoTicksAreNoTimeout) {
  watched.SetTimeout(0);
  EXPECT_FALSE(watched.IsTimeOut());
  watched.now += 1;
  EXPECT_TRUE(watched.IsTimeOut());
}

TEST_F(TimeoutCheckTest, TurnsTicksIntoNanosecondsByMultiplyingFirst) {
  watched.timebase = {125, 3};
  const std::uint64_t start = watched.now;
  watched.now = start + 7'200'000'000;
  EXPECT_FALSE(watched.IsTimeOut());
  watched.now = start + 7'200'000'100;
  EXPECT_TRUE(watched.IsTimeOut());
}

TEST_F(TimeoutCheckTest, DividesTruncating) {
  watched.SetTimeout(0);
  watched.timebase = {1, 3};
  watched.now += 2;
  EXPECT_FALSE(watched.IsTimeOut()) << "two thirds of a nanosecond are none";
  watched.now += 1;
  EXPECT_TRUE(watched.IsTimeOut());
}

TEST_F(TimeoutCheckTest, RestartsWithInit) {
  watched.SetTimeout(1);
  watched.now += 400 * kSecond;
  watched.InitTimeoutCheck();
  watched.now += 300 * kSecond;
  EXPECT_FALSE(watched.IsTimeOut());
}

TEST_F(TimeoutCheckTest, ExitIfTimeoutRecordsNothingWhileTheMonitorIsOff) {
  IS_MONITOR_POOL = false;
  watched.now += 1000 * kSecond;
  takeTrace();
  watched.ExitIfTimeout();
  EXPECT_TRUE(takeTrace().empty());
}

TEST(TimeoutCheckClockTest, TheClockIsMonotonicAndInNanoseconds) {
  struct OnTheRealClock : CTimeoutCheck {
    BasicString GetSelfIdentity() override { return ""; }
    using CTimeoutCheck::AbsoluteTime;
    using CTimeoutCheck::TimebaseInfo;
  };
  OnTheRealClock check;
  const std::uint64_t first = check.AbsoluteTime();
  EXPECT_GE(check.AbsoluteTime(), first);
  EXPECT_EQ(check.TimebaseInfo().numer, check.TimebaseInfo().denom);
}

TEST(FeatureFlagTest, TheMonitorIsOff) {
  InitFeatureFlag();
  EXPECT_FALSE(IS_MONITOR_POOL);
}

}  // namespace
