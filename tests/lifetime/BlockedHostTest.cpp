// A host that blocks its thread for seconds, inside its notify function or between two turns of its run loop: no
// outcome is lost, no beat is made up for, and what arrives meanwhile takes the memory of the bodies and not more.

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "tests/host/HostPool.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

/// The most memory that this process has had, in bytes.
long peakOfMemory() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word) {
    if (word == "VmHWM:") {
      long kilobytes = 0;
      status >> kilobytes;
      return kilobytes * 1024;
    }
  }
  return 0;
}

enum class Where { InANotification, BetweenTurns };

class BlockedHost : public testing::TestWithParam<Where> {
 protected:
  /// Blocks the calling thread until the server has sent everything, and for seconds at least.
  void block() {
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    EXPECT_TRUE(server_.waitForAccesses("/big", 1));
    EXPECT_TRUE(server_.waitForAccesses("/text", 1));
    EXPECT_TRUE(server_.waitForAccesses("/status/500", 1));
    EXPECT_TRUE(server_.waitForAccesses("/cut", 1));
    blockedUntil_ = Clock::now();
    peakWhileBlocked_ = peakOfMemory();
    notificationsBefore_ = pool_.notifications("idle");
  }
  void launchAll() {
    for (const char* target : {"/text", "/status/500", "/cut", "/silent"}) {
      pool_.add(target, {.url = server_.url(target)});
      pool_.launch(target);
    }
    pool_.add("/big", {.url = server_.url("/big?bytes=" + std::to_string(LIFETIME_BODY_BYTES))});
    pool_.launch("/big");
  }

  NginxServer server_;
  HostPool pool_;
  Clock::time_point blockedUntil_;
  long notificationsBefore_ = 0;
  long peakWhileBlocked_ = 0;
};

TEST_P(BlockedHost, LosesNothing) {
  pool_.add("idle", {.url = ""});
  const long before = peakOfMemory();
  bool isBlocked = false;
  bool hasBlocked = false;
  if (GetParam() == Where::InANotification) {
    pool_.onNotify([&](const std::string& task) {
      if (task == "idle" && !isBlocked) {
        isBlocked = true;
        launchAll();
        block();
        hasBlocked = true;
      }
    });
    ASSERT_TRUE(turnUntil([&] { return hasBlocked; }));
  } else {
    ASSERT_TRUE(turnUntil([&] { return pool_.notifications("idle") > 0; }));
    launchAll();
    block();
  }

  // The next beats come on their grid of 10 ms, however many were due meanwhile.
  ASSERT_TRUE(turnUntil([&] { return pool_.notifications("idle") >= notificationsBefore_ + 10; }));
  const auto beats = pool_.notifications("idle") - notificationsBefore_;
  EXPECT_LE(beats, (Clock::now() - blockedUntil_) / std::chrono::milliseconds(10) + 2);

  const auto hasEnded = [&](const char* task) {
    const auto status = pool_.status(task);
    return status == ZEP_HTTP_TASK_DONE || status == ZEP_HTTP_TASK_FAILED;
  };
  for (const char* task : {"/text", "/status/500", "/cut", "/big"}) {
    ASSERT_TRUE(turnUntil([&] { return hasEnded(task) && !pool_.outcome(task).result.empty(); })) << task;
  }
  // Before this test makes copies of its own.
  [[maybe_unused]] const long peak = peakOfMemory();
  EXPECT_EQ(pool_.outcome("/text"), done("Hello, pool!"));
  EXPECT_EQ(pool_.outcome("/status/500"), failed(2));
  EXPECT_EQ(pool_.outcome("/cut"), failed(1));
  EXPECT_EQ(pool_.status("/silent"), ZEP_HTTP_TASK_REQUESTING);
  EXPECT_TRUE(pool_.outcome("/big") == done(NginxServer::bigBody(LIFETIME_BODY_BYTES)));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  // The body as it arrived; later its text, what the host has read, and the copy by which it was seen above.
  constexpr long kRoom = 30'000'000;
  EXPECT_LT(peakWhileBlocked_ - before, LIFETIME_BODY_BYTES + kRoom);
  EXPECT_LT(peak - before, LIFETIME_BODY_BYTES * 4L + kRoom);
#else
  static_cast<void>(before);
#endif
}

INSTANTIATE_TEST_SUITE_P(All, BlockedHost, testing::Values(Where::InANotification, Where::BetweenTurns),
                         [](const auto& info) {
                           return info.param == Where::InANotification ? "InANotification" : "BetweenTurns";
                         });

}  // namespace
}  // namespace test
