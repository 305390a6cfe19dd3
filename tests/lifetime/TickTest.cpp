// Weeks of beats in seconds: the program's own clock(3) stands still and is moved on by the test.

#include <glib.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>

#include "httpPool/ZEP_HttpPool.h"

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;

/// The clock in nanoseconds; 0: it runs by itself.
std::int64_t now = 0;

std::int64_t realTime() {
  timespec time{};
  syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &time);
  return time.tv_sec * kNanoseconds + time.tv_nsec;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* time) {
  if (clock == CLOCK_MONOTONIC && now != 0) {
    time->tv_sec = now / kNanoseconds;
    time->tv_nsec = now % kNanoseconds;
    return 0;
  }
  return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

namespace test {
namespace {

constexpr std::int64_t kBeat = 10'000'000;
constexpr const char* kTasks[] = {"a", "b", "a task whose name does not fit into a small string"};

long notifications = 0;

void notified(ZEP_HTTP_POOL_TASK_NOTIFY, const char* pool, const char* task, const char*) {
  ++notifications;
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  ZEP_HttpPool_GetTaskStatus(pool, task, &status);
  EXPECT_EQ(status, ZEP_HTTP_TASK_UNINITIALIZED);
}

/// How many beats so many steps of the clock have brought.
long beatsIn(long steps, std::int64_t step) {
  notifications = 0;
  for (long i = 0; i < steps; ++i) {
    now += step;
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
  }
  EXPECT_EQ(notifications % static_cast<long>(std::size(kTasks)), 0);
  return notifications / static_cast<long>(std::size(kTasks));
}

class Ticks : public testing::Test {
 protected:
  Ticks() {
    now = realTime();
    ZEP_HttpPool_Create("pool");
    ZEP_HttpPool_SetPoolProc("pool", &notified);
    for (const char* task : kTasks) {
      ZEP_HttpPool_AddTask("pool", task);
    }
  }
  ~Ticks() override {
    ZEP_HttpPool_SetPoolProc("pool", nullptr);
    ZEP_HttpPool_Destroy("pool");
    beatsIn(100, kBeat);
    now = 0;
  }
};

TEST_F(Ticks, MillionsNeitherDriftNorGrow) {
  EXPECT_EQ(beatsIn(1000, kBeat), 1000);
  const std::size_t before = mallinfo2().uordblks;
  EXPECT_EQ(beatsIn(LIFETIME_TICKS, kBeat), LIFETIME_TICKS);
  EXPECT_EQ(mallinfo2().uordblks, before);
}

TEST_F(Ticks, StayOnTheirGridWhenTheHostIsLate) {
  // 25 ms apart: beats at 10, 20, 30, ... of which each look sees one, and none is made up for.
  EXPECT_EQ(beatsIn(1000, kBeat * 5 / 2), 1000);
  // 4 ms apart: some are seen late, the next one is due when it was before.
  EXPECT_EQ(beatsIn(1000, kBeat * 2 / 5), 400);
  // 1 ms apart they come once in ten looks again.
  EXPECT_EQ(beatsIn(1000, kBeat / 10), 100);
}

TEST_F(Ticks, GoOnAfterACentury) {
  constexpr std::int64_t kCentury = std::int64_t{100} * 365 * 24 * 3600 * kNanoseconds;
  EXPECT_EQ(beatsIn(1, kCentury), 1);
  EXPECT_EQ(beatsIn(1000, kBeat), 1000);
}

}  // namespace
}  // namespace test
