// Weeks of beats in seconds: the program's own clock(3) stands still and is moved on by the test.

#include <glib.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "httpPool/ZEP_HttpPool.h"
#include "tests/host/HostPool.h"
#include "tests/lifetime/Stations.h"
#include "tests/support/TemporaryFolder.h"

namespace {

constexpr std::int64_t kNanoseconds = 1'000'000'000;

/// The clock in nanoseconds; 0: it runs by itself.
std::atomic<std::int64_t> now = 0;

std::int64_t realTime() {
  timespec time{};
  syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &time);
  return time.tv_sec * kNanoseconds + time.tv_nsec;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* time) {
  const std::int64_t set = now;
  if (clock == CLOCK_MONOTONIC && set != 0) {
    time->tv_sec = set / kNanoseconds;
    time->tv_nsec = set % kNanoseconds;
    return 0;
  }
  return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

namespace test {
namespace {

constexpr std::int64_t kBeat = 10'000'000;
constexpr const char* kRunning = "running";
constexpr const char* kOver = "a task whose name does not fit into a small string";
constexpr const char* kTasks[] = {"a", kRunning, kOver};

long notifications = 0;

ZEP_HTTP_TASK_STATUS expected(const std::string& task) {
  if (task == kRunning) {
    return ZEP_HTTP_TASK_REQUESTING;
  }
  return task == kOver ? ZEP_HTTP_TASK_DONE : ZEP_HTTP_TASK_UNINITIALIZED;
}

ZEP_HTTP_TASK_STATUS statusOf(const char* task) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  ZEP_HttpPool_GetTaskStatus("pool", task, &status);
  return status;
}

void notified(ZEP_HTTP_POOL_TASK_NOTIFY, const char* pool, const char* task, const char*) {
  ++notifications;
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  ZEP_HttpPool_GetTaskStatus(pool, task, &status);
  EXPECT_EQ(status, expected(task)) << task;
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
  /// The clock stands still only when the requests stand, too.
  Ticks() : stations_("", folder_.path()) {
    ZEP_HttpPool_Create("pool");
    for (const char* task : kTasks) {
      ZEP_HttpPool_AddTask("pool", task);
    }
    // From a file: a server that sends nothing for a century has been given up by then.
    run(kRunning, "file");
    run(kOver, "over");
    EXPECT_TRUE(turnUntil([&] {
      return stations_.standing("file") == 1 && statusOf(kOver) == ZEP_HTTP_TASK_DONE &&
             statusOf(kRunning) == ZEP_HTTP_TASK_REQUESTING;
    }));
    ZEP_HttpPool_SetPoolProc("pool", &notified);
    now = realTime();
  }
  ~Ticks() override {
    ZEP_HttpPool_SetPoolProc("pool", nullptr);
    ZEP_HttpPool_Destroy("pool");
    beatsIn(100, kBeat);
    now = 0;
  }
  void run(const char* task, const char* station) {
    ZEP_HttpPool_SetTaskProperty("pool", task, ZEP_HTTP_TASK_PROP_URL, stations_.url(station).c_str());
    ZEP_HttpPool_TaskRun("pool", task, nullptr);
  }

  TemporaryFolder folder_;
  Stations stations_;
};

TEST_F(Ticks, MillionsNeitherDriftNorGrow) {
  EXPECT_EQ(beatsIn(1000, kBeat), 1000);
  const std::size_t before = mallinfo2().uordblks;
  EXPECT_EQ(beatsIn(LIFETIME_TICKS, kBeat), LIFETIME_TICKS);
  // A thread that was kept for further requests may have ended meanwhile.
  EXPECT_LE(mallinfo2().uordblks, before);
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
