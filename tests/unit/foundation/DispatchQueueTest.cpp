#include <glib.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/runloop/DispatchQueue.h"
#include "foundation/runloop/RunLoop.h"

using foundation::DispatchQueue;

namespace {

TEST(DispatchQueue, TheGlobalOneRunsEverythingElsewhere) {
  constexpr int kBlocks = 200;
  std::mutex mutex;
  std::condition_variable changed;
  int ran = 0;
  for (int i = 0; i < kBlocks; ++i) {
    DispatchQueue::global().async([&] {
      const std::lock_guard lock(mutex);
      ++ran;
      changed.notify_one();
    });
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
    DispatchQueue::main().async([&] { order.push_back(1); });
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
  DispatchQueue::main().async([&] {
    order.emplace_back("first begins");
    DispatchQueue::main().async([&] { order.emplace_back("third"); });
    foundation::RunLoop::main()->perform([&] { turned = true; });
    while (!turned) {
      g_main_context_iteration(nullptr, TRUE);
    }
    order.emplace_back("first ends");
  });
  DispatchQueue::main().async([&] { order.emplace_back("second"); });
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
    DispatchQueue::global().async([gate] {
      const std::lock_guard wait(gate->mutex);
      ++gate->passed;
    });
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
