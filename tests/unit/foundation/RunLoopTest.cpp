// The run loop of a main context, and the modes.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "foundation/runloop/RunLoop.h"
#include "foundation/runloop/Thread.h"
#include "foundation/runloop/ThreadRunLoop.h"
#include "foundation/runloop/Timer.h"
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
    RunLoop::current()->perform(std::function<void()>(again));
  };
  RunLoop::current()->perform(std::function<void()>(again));
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
TEST(RunLoop, OnlyTheThreadThatTurnsTheMainContextIsCurrent) {
  const auto loop = RunLoop::main();
  EXPECT_TRUE(loop->isCurrent());
  ASSERT_TRUE(g_main_context_acquire(nullptr));
  EXPECT_TRUE(loop->isCurrent());
  std::thread([&] { EXPECT_FALSE(loop->isCurrent()); }).join();
  g_main_context_release(nullptr);
  const foundation::ThreadRunLoop::Scope scope;
  EXPECT_FALSE(loop->isCurrent());
}

TEST(RunLoop, ALoopThatHasEndedIsNobodys) {
  GMainContext* address = nullptr;
  std::shared_ptr<RunLoop> ended;
  {
    MainContext context;
    address = context.get();
    ended = RunLoop::current();
  }
  EXPECT_FALSE(ended->isCurrent());
  // Contexts that follow are likely to get the address.
  for (int i = 0; i < 50; ++i) {
    MainContext context;
    EXPECT_NE(RunLoop::current(), ended) << (context.get() == address);
    EXPECT_FALSE(ended->isCurrent()) << (context.get() == address);
  }
}

TEST(RunLoop, ReleasesWhatABlockHoldsOnceItRan) {
  MainContext context;
  const auto token = std::make_shared<int>(0);
  bool ran = false;
  RunLoop::current()->perform([&ran, token] { ran = true; });
  EXPECT_EQ(token.use_count(), 2);
  EXPECT_TRUE(context.turnUntil([&] { return ran; }));
  EXPECT_EQ(token.use_count(), 1);
}

TEST(RunLoop, KeepsTheOrderAcrossNestedTurns) {
  MainContext context;
  const auto loop = RunLoop::current();
  std::vector<int> order;
  const auto push = [&](int number) { return [&order, number] { order.push_back(number); }; };
  loop->perform([&] {
    order.push_back(1);
    loop->perform(push(4));
    context.turnOnce();  // goes on with 2, which nests itself
    loop->perform(push(6));
  });
  loop->perform([&] {
    order.push_back(2);
    loop->perform(push(5));
    context.turnOnce();
  });
  loop->perform(push(3));
  EXPECT_TRUE(context.turnUntil([&] { return order.size() == 6; }));
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4, 5, 6}));
}

TEST(RunLoop, PerformsGoOnInANestedPanelWhileTimersPause) {
  MainContext context;
  const auto loop = RunLoop::current();
  int beats = 0, performed = 0;
  const auto timer = foundation::Timer::scheduled(
      std::chrono::milliseconds(1), foundation::Timer::Repeats::Yes, [&](foundation::Timer&) { ++beats; });
  std::function<void()> again = [&] {
    ++performed;
    loop->perform(std::function<void()>(again));
  };
  loop->perform([&] {
    const RunLoop::ModeScope panel(RunLoopMode::ModalPanel);
    const int before = beats;
    const gint64 end = g_get_monotonic_time() + 20'000;
    loop->perform(std::function<void()>(again));
    EXPECT_TRUE(context.turnUntil([&] { return performed > 10 && g_get_monotonic_time() > end; }));
    EXPECT_EQ(beats, before);
  });
  EXPECT_TRUE(context.turnUntil([&] { return performed > 10 && beats > 3; }));
  timer->invalidate();
}

TEST(RunLoop, TakesPostsWhileItsContextEnds) {
  const auto token = std::make_shared<int>(0);
  for (int i = 0; i < 200; ++i) {
    std::atomic<bool> stop{false};
    std::atomic<bool> hasPosted{false};
    std::thread poster;
    {
      MainContext context;
      poster = std::thread([loop = RunLoop::current(), &token, &stop, &hasPosted] {
        while (!stop) {
          loop->perform([token] {});
          hasPosted = true;
        }
      });
      while (!hasPosted) {
        std::this_thread::yield();
      }
      context.turnOnce();
    }
    stop = true;
    poster.join();
    ASSERT_EQ(token.use_count(), 1) << "blocks are left in a loop that has ended";
  }
}

}  // namespace
