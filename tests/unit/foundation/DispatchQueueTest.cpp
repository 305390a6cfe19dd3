#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/runloop/DispatchQueue.h"
#include "foundation/runloop/RunLoop.h"
#include "foundation/runloop/WorkerThreads.h"
#include "tests/support/ThreadRefusal.h"
#include "tests/support/WaitUntil.h"

using foundation::DispatchQueue;

namespace {

TEST(DispatchQueue, TheGlobalOneRunsEverythingElsewhere) {
  constexpr int kBlocks = 200;
  std::mutex mutex;
  std::condition_variable changed;
  int ran = 0;
  for (int i = 0; i < kBlocks; ++i) {
    EXPECT_TRUE(DispatchQueue::global().async([&] {
      const std::lock_guard lock(mutex);
      ++ran;
      changed.notify_one();
    }));
  }
  std::unique_lock lock(mutex);
  EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(20), [&] { return ran == kBlocks; }));
}

TEST(DispatchQueue, SyncWaitsForItsBlock) {
  std::thread::id ranOn;
  DispatchQueue::global().sync([&] { ranOn = std::this_thread::get_id(); });
  EXPECT_NE(ranOn, std::thread::id());
  EXPECT_NE(ranOn, std::this_thread::get_id());
}

TEST(DispatchQueue, TheMainOneRunsOnTheMainThreadInOrder) {
  g_main_context_default();  // made by the main thread, as by any host
  std::vector<int> order;
  std::atomic<bool> done{false};
  const auto main = std::this_thread::get_id();
  std::thread worker([&] {
    EXPECT_TRUE(DispatchQueue::main().async([&] { order.push_back(1); }));
    DispatchQueue::main().sync([&] {
      EXPECT_EQ(std::this_thread::get_id(), main);
      order.push_back(2);
    });
    done = true;
    g_main_context_wakeup(nullptr);
  });
  while (!done) {
    g_main_context_iteration(nullptr, TRUE);
  }
  worker.join();
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(DispatchQueue, ABlockOfTheMainOneThatTurnsTheLoopLetsNoOtherIn) {
  g_main_context_default();
  std::vector<std::string> order;
  bool turned = false;
  EXPECT_TRUE(DispatchQueue::main().async([&] {
    order.emplace_back("first begins");
    EXPECT_TRUE(DispatchQueue::main().async([&] { order.emplace_back("third"); }));
    foundation::RunLoop::main()->perform([&] { turned = true; });
    while (!turned) {
      g_main_context_iteration(nullptr, TRUE);
    }
    order.emplace_back("first ends");
  }));
  EXPECT_TRUE(DispatchQueue::main().async([&] { order.emplace_back("second"); }));
  while (order.size() < 4) {
    g_main_context_iteration(nullptr, TRUE);
  }
  EXPECT_EQ(order, (std::vector<std::string>{"first begins", "first ends", "second", "third"}));
}

TEST(DispatchQueue, WorkersAreNotHeldUpByWhoeverWaitsInTheGlobalOne) {
  struct Gate {
    std::mutex mutex;
    std::atomic<int> passed = 0;
  };
  // Shared: the last block may still be leaving when the test is over.
  const auto gate = std::make_shared<Gate>();
  gate->mutex.lock();
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(DispatchQueue::global().async([gate] {
      const std::lock_guard wait(gate->mutex);
      ++gate->passed;
    }));
  }
  bool ran = false;
  DispatchQueue::workers().sync([&] { ran = true; });
  EXPECT_TRUE(ran);
  EXPECT_EQ(gate->passed, 0);
  gate->mutex.unlock();
  while (gate->passed < 100) {
    std::this_thread::yield();
  }
}

TEST(DispatchQueue, AtMostEightThreadsServeAQueue) {
  constexpr int kBlocks = 50;
  constexpr int kMostThreads = 8;
  const auto ran = std::make_shared<std::atomic<int>>(0);
  const auto running = std::make_shared<std::atomic<int>>(0);
  std::promise<void> open;
  const auto isOpen = open.get_future().share();
  for (int i = 0; i < kBlocks; ++i) {
    EXPECT_TRUE(DispatchQueue::global().async([=] {
      EXPECT_LE(++*running, kMostThreads);
      isOpen.wait();
      --*running;
      ++*ran;
    }));
  }
  EXPECT_TRUE(test::waitUntil([&] { return *running == kMostThreads; }));
  open.set_value();
  EXPECT_TRUE(test::waitUntil([&] { return *ran == kBlocks; }));
}

/// So that a refusal concerns everybody.
void waitUntilNoThreadIsParked() {
  ASSERT_TRUE(test::waitUntil([] { return foundation::WorkerThreads::shared().count() == 0; }));
}

TEST(DispatchQueue, ABlockWithoutAThreadIsReleasedAndSaidNoTo) {
  waitUntilNoThreadIsParked();
  const auto held = std::make_shared<int>(0);
  {
    const test::ThreadRefusal refusal(EAGAIN);
    EXPECT_FALSE(DispatchQueue::workers().async([held] { ++*held; }));
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(test::ThreadRefusal::count(), 1);
  }
  std::atomic<bool> ran = false;
  EXPECT_TRUE(DispatchQueue::workers().async([&] { ran = true; }));
  EXPECT_TRUE(test::waitUntil([&] { return ran.load(); }));
  EXPECT_EQ(*held, 0);
}

TEST(DispatchQueue, ABlockWithoutAThreadOfItsOwnWaitsForOneThatServesTheQueue) {
  waitUntilNoThreadIsParked();
  std::promise<void> open;
  std::atomic<int> ran = 0;
  EXPECT_TRUE(DispatchQueue::workers().async([&, isOpen = open.get_future().share()] {
    isOpen.wait();
    ++ran;
  }));
  {
    const test::ThreadRefusal refusal(EAGAIN);
    EXPECT_TRUE(DispatchQueue::workers().async([&] { ++ran; }));
    EXPECT_EQ(test::ThreadRefusal::count(), 1);
  }
  EXPECT_EQ(ran, 0);
  open.set_value();
  EXPECT_TRUE(test::waitUntil([&] { return ran == 2; }));
}

TEST(DispatchQueue, WhoWaitsRunsTheBlockHimselfWhenThereIsNoThread) {
  waitUntilNoThreadIsParked();
  std::thread::id ranOn;
  int ran = 0;
  {
    const test::ThreadRefusal refusal(EAGAIN);
    DispatchQueue::global().sync([&] {
      ++ran;
      ranOn = std::this_thread::get_id();
    });
  }
  EXPECT_EQ(ranOn, std::this_thread::get_id());
  EXPECT_EQ(ran, 1);
}

TEST(DispatchQueue, TheMainThreadDoesNotWaitForItself) {
  bool ran = false;
  DispatchQueue::main().sync([&] { ran = true; });
  EXPECT_TRUE(ran);
}
/// A host that joins its worker while the process ends; the worker waits for the main thread.
std::thread* worker;
std::atomic<int> ran{0};

void joinWorker() {
  worker->join();
  std::fprintf(stderr, "joined, ran %d", ran.load());
}

[[noreturn]] void endWhileAThreadWaits() {
  g_main_context_default();  // made by the main thread, as by any host
  std::atexit(joinWorker);
  DispatchQueue& main = DispatchQueue::main();
  worker = new std::thread([&main] { main.sync([] { ++ran; }); });
  while (!g_main_context_pending(nullptr)) {
    std::this_thread::yield();
  }
  std::exit(0);
}

[[noreturn]] void endInsideABlock() {
  g_main_context_default();  // made by the main thread, as by any host
  std::atexit(joinWorker);
  DispatchQueue& main = DispatchQueue::main();
  worker = new std::thread([&main] {
    main.sync([] {
      ++ran;
      std::exit(0);
    });
    main.sync([] { ++ran; });
  });
  while (true) {
    g_main_context_iteration(nullptr, TRUE);
  }
}

TEST(DispatchQueueDeathTest, TheProcessEndsThoughAThreadWaitsForTheMainOne) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(endWhileAThreadWaits(), testing::ExitedWithCode(0), "joined, ran 0");
}

TEST(DispatchQueueDeathTest, TheProcessMayEndInsideABlock) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(endInsideABlock(), testing::ExitedWithCode(0), "joined, ran 1");
}

}  // namespace
