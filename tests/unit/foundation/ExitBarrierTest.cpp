#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "foundation/base/ExitBarrier.h"
#include "tests/support/WaitUntil.h"

using foundation::ExitBarrier;
using namespace std::chrono_literals;

namespace {

/// Never destroyed, which the leak sanitizer takes for a leak unless somebody holds it.
ExitBarrier& newBarrier(std::optional<std::chrono::milliseconds> longest = std::nullopt) {
  static auto& all = *new std::vector<ExitBarrier*>;
  return *all.emplace_back(new ExitBarrier(longest));
}

/// A use on a thread of its own, which goes on for a while after it is too late for others.
class LongUse {
 public:
  explicit LongUse(ExitBarrier& barrier) : barrier_(barrier) {
    test::waitUntil([this] { return hasBegun_.load(); });
  }
  ~LongUse() { thread_.join(); }
  LongUse(const LongUse&) = delete;
  LongUse& operator=(const LongUse&) = delete;

  bool wasWaitedFor() {
    const bool wasOver = isOver_;
    isAsked_ = true;
    return wasOver;
  }

 private:
  void use() {
    const ExitBarrier::Use use(barrier_);
    hasBegun_ = true;
    test::waitUntil([this] { return !ExitBarrier::Use(barrier_).isAllowed(); });
    // Whoever does not wait has asked by then.
    test::waitUntil([this] { return isAsked_.load(); }, 100ms);
    isOver_ = true;
  }

  ExitBarrier& barrier_;
  std::atomic<bool> hasBegun_ = false;
  std::atomic<bool> isAsked_ = false;
  std::atomic<bool> isOver_ = false;
  std::thread thread_{[this] { use(); }};
};

TEST(ExitBarrier, AllowsUsesUntilItIsClosed) {
  ExitBarrier& barrier = newBarrier();
  {
    const ExitBarrier::Use outer(barrier);
    const ExitBarrier::Use inner(barrier);
    EXPECT_TRUE(outer.isAllowed());
    EXPECT_TRUE(inner.isAllowed());
  }
  EXPECT_TRUE(ExitBarrier::Use(barrier).isAllowed());
  barrier.close();
  EXPECT_FALSE(ExitBarrier::Use(barrier).isAllowed());
  barrier.close();
}

TEST(ExitBarrier, ClosingWaitsForTheUses) {
  ExitBarrier& barrier = newBarrier();
  LongUse use(barrier);
  barrier.close();
  EXPECT_TRUE(use.wasWaitedFor());
}

TEST(ExitBarrier, ClosingWaitsNoLongerThanItIsTold) {
  ExitBarrier& barrier = newBarrier(1ms);
  const ExitBarrier::Use use(barrier);
  barrier.close();
  EXPECT_FALSE(ExitBarrier::Use(barrier).isAllowed());
}

TEST(ExitBarrier, AnExceptionEndsTheUse) {
  ExitBarrier& barrier = newBarrier();
  const auto failing = [&] {
    const ExitBarrier::Use use(barrier);
    throw std::runtime_error("in a use");
  };
  EXPECT_THROW(failing(), std::runtime_error);
  barrier.close();
}

ExitBarrier* barrierOfTheExit = nullptr;
LongUse* useAtTheExit = nullptr;

[[noreturn]] void exitDuringAUse() {
  // Exit handlers run in the reverse order: this one after the barrier's.
  std::atexit([] {
    const ExitBarrier::Use late(*barrierOfTheExit);
    _exit(useAtTheExit->wasWaitedFor() && !late.isAllowed() ? 3 : 4);
  });
  barrierOfTheExit = &newBarrier();
  useAtTheExit = new LongUse(*barrierOfTheExit);
  std::exit(5);
}

[[noreturn]] void exitDuringAUseThatDoesNotEnd() {
  alarm(60);  // an exit that waits for it ends as killed
  const ExitBarrier::Use use(newBarrier(1ms));
  std::exit(3);
}

[[noreturn]] void exitInAChild() {
  // After the barrier's, and before a leak sanitizer looks at what a child leaves its parent.
  std::atexit([] { _exit(3); });
  const ExitBarrier::Use use(newBarrier());
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    std::exit(5);
  }
  int status = 0;
  waitpid(child, &status, 0);
  _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 4);
}

TEST(ExitBarrierDeathTest, WhatWasRegisteredEarlierIsTakenDownAfterTheWait) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitDuringAUse(), testing::ExitedWithCode(3), "");
}

TEST(ExitBarrierDeathTest, TheExitWaitsNoLongerThanItIsTold) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitDuringAUseThatDoesNotEnd(), testing::ExitedWithCode(3), "");
}

TEST(ExitBarrierDeathTest, TheExitOfAForkedChildWaitsForNothing) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitInAChild(), testing::ExitedWithCode(3), "");
}

}  // namespace
