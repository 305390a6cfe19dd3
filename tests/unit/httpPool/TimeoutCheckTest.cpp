#include <gtest/gtest.h>

#include <limits>

#include "MonitorFolder.h"
#include "httpPool/InitFeatureFlag.h"
#include "httpPool/TimeoutCheck.h"

namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

struct Watched : CTimeoutCheck {
  BasicString GetSelfIdentity() override {
    ++identityReads;
    return identity;
  }
  std::uint64_t AbsoluteTime() const override {
    ++clockReads;
    return now;
  }
  Timebase TimebaseInfo() const override { return timebase; }

  std::uint64_t now = 1000 * kSecond;
  Timebase timebase{1, 1};
  mutable int clockReads = 0;
  BasicString identity = "pool task";
  int identityReads = 0;
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

TEST_F(TimeoutCheckTest, ExitIfTimeoutRecordsNothingBeforeTheLimitOrWhileTheMonitorIsOff) {
  const MonitorFolder folder;
  watched.now += 300 * kSecond;
  watched.ExitIfTimeout();
  watched.now += 1000 * kSecond;
  IS_MONITOR_POOL = false;
  watched.ExitIfTimeout();
  EXPECT_EQ(watched.identityReads, 0);
  EXPECT_EQ(folder.record(), "");
}

TEST_F(TimeoutCheckTest, ExitIfTimeoutHandsTheOwnerToTheRecordAtEveryCall) {
  const MonitorFolder folder;
  watched.identity = "timed-out owner";
  watched.now += 301 * kSecond;
  watched.ExitIfTimeout();
  EXPECT_EQ(folder.recordedNames(), std::vector<std::string>{"timed-out owner"});
  watched.identity = "another name of it";
  watched.ExitIfTimeout();
  watched.ExitIfTimeout();
  EXPECT_EQ(watched.identityReads, 3);
  EXPECT_EQ(folder.recordedNames(), (std::vector<std::string>{"timed-out owner", "another name of it"}));
}

TEST_F(TimeoutCheckTest, AMultiplicationThatOverflowsWraps) {
  watched.timebase = {125, 3};
  constexpr std::uint64_t kLargestThatFits = std::numeric_limits<std::uint64_t>::max() / 125;
  const std::uint64_t start = watched.now;
  watched.now = start + kLargestThatFits;
  EXPECT_TRUE(watched.IsTimeOut());
  // 125 times one more is 2^64 + 9: 9 / 3 nanoseconds.
  watched.now = start + kLargestThatFits + 1;
  EXPECT_FALSE(watched.IsTimeOut());
  watched.SetTimeout(0);
  EXPECT_TRUE(watched.IsTimeOut());
}

TEST_F(TimeoutCheckTest, TheTicksMayWrapAroundMeanwhile) {
  watched.now = std::numeric_limits<std::uint64_t>::max() - 99 * kSecond;
  watched.InitTimeoutCheck();
  watched.now += 300 * kSecond;
  EXPECT_FALSE(watched.IsTimeOut());
  watched.now += kSecond;
  EXPECT_TRUE(watched.IsTimeOut());
}

TEST_F(TimeoutCheckTest, AnUptimeOfFiveHundredYearsIsATimeout) {
  watched.now = 0;
  watched.InitTimeoutCheck();
  watched.now = std::uint64_t{500} * 365 * 86'400 * kSecond;
  EXPECT_TRUE(watched.IsTimeOut());
  watched.SetTimeout(std::numeric_limits<unsigned int>::max());
  EXPECT_TRUE(watched.IsTimeOut());
  watched.now = std::uint64_t{4'294'967'294} * kSecond;
  EXPECT_FALSE(watched.IsTimeOut());
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

}  // namespace
