// The run loop of a main context, and the modes.

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "foundation/runloop/RunLoop.h"
#include "foundation/runloop/Thread.h"
#include "foundation/runloop/ThreadRunLoop.h"
#include "tests/unit/foundation/MainContext.h"

using foundation::RunLoop;
using foundation::RunLoopMode;

namespace {

TEST(RunLoop, IsTheThreadDefaultContextsOrTheMainOne) {
  EXPECT_EQ(RunLoop::current(), RunLoop::main());
  std::shared_ptr<RunLoop> own;
  {
    MainContext context;
    own = RunLoop::current();
    EXPECT_NE(own, RunLoop::main());
    EXPECT_EQ(RunLoop::current(), own);
    EXPECT_TRUE(own->isCurrent());
    std::thread([&] { EXPECT_FALSE(own->isCurrent()); }).join();
  }
  EXPECT_EQ(RunLoop::current(), RunLoop::main());
  EXPECT_FALSE(own->isCurrent());
}

TEST(RunLoop, PerformsInOrderAndNeverOnTheCallersStack) {
  MainContext context;
  std::vector<int> order;
  for (int i = 0; i < 100; ++i) {
    RunLoop::current()->perform([&order, i] { order.push_back(i); });
  }
  EXPECT_TRUE(order.empty());
  EXPECT_TRUE(context.turnUntil([&] { return order.size() == 100; }));
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
  }
}

TEST(RunLoop, WhatABlockPostsComesInALaterTurn) {
  MainContext context;
  int turns = 0;
  std::function<void()> again = [&] {
    ++turns;
    RunLoop::current()->perform(again);
  };
  RunLoop::current()->perform(again);
  ASSERT_TRUE(context.turnOnce());
  EXPECT_EQ(turns, 1);
  ASSERT_TRUE(context.turnOnce());
  EXPECT_EQ(turns, 2);
}

TEST(RunLoop, ANestedLoopGoesOnWithTheRest) {
  MainContext context;
  std::vector<int> order;
  bool nestedSawRest = false;
  RunLoop::current()->perform([&] {
    order.push_back(1);
    nestedSawRest = context.turnUntil([&] { return order.size() == 3; });
  });
  RunLoop::current()->perform([&] { order.push_back(2); });
  RunLoop::current()->perform([&] { order.push_back(3); });
  EXPECT_TRUE(context.turnUntil([&] { return order.size() == 3; }));
  EXPECT_TRUE(nestedSawRest);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(RunLoop, TakesWorkFromManyThreads) {
  constexpr int kPosters = 4, kEach = 10'000;
  MainContext context;
  const auto loop = RunLoop::current();
  std::vector<int> last(kPosters, -1);
  int ran = 0;
  std::vector<std::thread> posters;
  for (int poster = 0; poster < kPosters; ++poster) {
    posters.emplace_back([&, poster] {
      for (int i = 0; i < kEach; ++i) {
        loop->perform([&, poster, i] {
          ASSERT_EQ(last[static_cast<std::size_t>(poster)], i - 1);
          last[static_cast<std::size_t>(poster)] = i;
          ++ran;
        });
      }
    });
  }
  EXPECT_TRUE(context.turnUntil([&] { return ran == kPosters * kEach; }));
  for (auto& poster : posters) {
    poster.join();
  }
}

TEST(RunLoop, EndsWithItsContext) {
  const auto token = std::make_shared<int>(0);
  std::shared_ptr<RunLoop> loop;
  {
    MainContext context;
    loop = RunLoop::current();
    loop->perform([token] { FAIL() << "ran after the end"; });
  }
  EXPECT_EQ(token.use_count(), 1) << "what was queued is not released";
  loop->perform([token] { FAIL() << "ran after the end"; });
  EXPECT_EQ(token.use_count(), 1);
  // A context at the same address is another loop.
  for (int i = 0; i < 50; ++i) {
    MainContext context;
    bool ran = false;
    RunLoop::current()->perform([&] { ran = true; });
    EXPECT_TRUE(context.turnUntil([&] { return ran; }));
  }
}

TEST(RunLoop, ModesNest) {
  EXPECT_EQ(RunLoop::currentMode(), RunLoopMode::Default);
  {
    const RunLoop::ModeScope panel(RunLoopMode::ModalPanel);
    EXPECT_EQ(RunLoop::currentMode(), RunLoopMode::ModalPanel);
    {
      const RunLoop::ModeScope tracking(RunLoopMode::EventTracking);
      EXPECT_EQ(RunLoop::currentMode(), RunLoopMode::EventTracking);
      std::thread([] { EXPECT_EQ(RunLoop::currentMode(), RunLoopMode::Default); }).join();
    }
    EXPECT_EQ(RunLoop::currentMode(), RunLoopMode::ModalPanel);
  }
  EXPECT_EQ(RunLoop::currentMode(), RunLoopMode::Default);
}

TEST(RunLoop, PerformsRunInEveryMode) {
  MainContext context;
  const RunLoop::ModeScope panel(RunLoopMode::ModalPanel);
  bool ran = false;
  RunLoop::current()->perform([&] { ran = true; });
  EXPECT_TRUE(context.turnUntil([&] { return ran; }));
}

TEST(Thread, HandsWorkToItsLoop) {
  MainContext context;
  const foundation::Thread here = foundation::Thread::current();
  EXPECT_TRUE(here.isValid());
  EXPECT_TRUE(here.isCurrent());
  std::thread::id ranOn;
  std::thread([&] { here.perform([&] { ranOn = std::this_thread::get_id(); }); }).join();
  EXPECT_TRUE(context.turnUntil([&] { return ranOn == std::this_thread::get_id(); }));
  const foundation::Thread nowhere;
  EXPECT_FALSE(nowhere.isValid());
  nowhere.perform([] { FAIL() << "ran nowhere"; });
}

}  // namespace
