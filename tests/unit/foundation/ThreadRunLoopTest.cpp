#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "foundation/runloop/ThreadRunLoop.h"

using foundation::RunLoop;
using foundation::ThreadRunLoop;
using namespace std::chrono_literals;

namespace {

const auto never = [] { return false; };

TEST(ThreadRunLoop, IsTheThreadsOwnWhileItsScopeLives) {
  {
    const ThreadRunLoop::Scope scope;
    EXPECT_EQ(RunLoop::current(), scope.loop());
    EXPECT_TRUE(scope.loop()->isCurrent());
    std::thread([&] {
      EXPECT_NE(RunLoop::current(), scope.loop());
      EXPECT_FALSE(scope.loop()->isCurrent());
    }).join();
  }
  EXPECT_EQ(RunLoop::current(), RunLoop::main());
}

TEST(ThreadRunLoop, APassRunsWhatWasQueuedAndNoMore) {
  const ThreadRunLoop::Scope scope;
  std::vector<int> order;
  scope.loop()->perform([&] {
    order.push_back(1);
    scope.loop()->perform([&] { order.push_back(3); });
  });
  scope.loop()->perform([&] { order.push_back(2); });
  EXPECT_TRUE(order.empty()) << "ran on the caller's stack";
  scope.loop()->runPass(never);
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  scope.loop()->runPass(never);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(ThreadRunLoop, APassEndsWhenStopped) {
  const ThreadRunLoop::Scope scope;
  int ran = 0;
  for (int i = 0; i < 5; ++i) {
    scope.loop()->perform([&] { ++ran; });
  }
  scope.loop()->runPass([&] { return ran == 2; });
  EXPECT_EQ(ran, 2);
}

TEST(ThreadRunLoop, TurnsLieOnTheGrid) {
  const ThreadRunLoop::Scope scope;
  const auto epoch = ThreadRunLoop::Clock::now();
  for (int turn = 1; turn <= 3; ++turn) {
    scope.loop()->perform([] {});
    const auto before = ThreadRunLoop::Clock::now();
    scope.loop()->waitForTurn(epoch, 40ms, never);
    const auto next = epoch + ((before - epoch) / 40ms + 1) * 40ms;
    EXPECT_GE(ThreadRunLoop::Clock::now(), next);
    scope.loop()->runPass(never);
  }
}

TEST(ThreadRunLoop, AStopEndsTheWaitForWork) {
  std::atomic<bool> stopped{false};
  std::shared_ptr<ThreadRunLoop> loop = std::make_shared<ThreadRunLoop>();
  std::thread thread([&] {
    const ThreadRunLoop::Scope scope(loop);
    scope.loop()->waitForTurn(ThreadRunLoop::Clock::now(), 1h, [&] { return stopped.load(); });
  });
  stopped = true;
  loop->wake();
  thread.join();
}

TEST(ThreadRunLoop, AStopEndsTheWaitForTheGrid) {
  std::atomic<bool> stopped{false};
  std::shared_ptr<ThreadRunLoop> loop = std::make_shared<ThreadRunLoop>();
  std::thread thread([&] {
    const ThreadRunLoop::Scope scope(loop);
    scope.loop()->waitForTurn(ThreadRunLoop::Clock::now(), 1h, [&] { return stopped.load(); });
  });
  loop->perform([] {});
  stopped = true;
  loop->wake();
  thread.join();
}

TEST(ThreadRunLoop, LosesNothingUnderManyPosters) {
  constexpr int kPosters = 4, kEach = 2500;
  std::shared_ptr<ThreadRunLoop> loop = std::make_shared<ThreadRunLoop>();
  std::atomic<bool> stopped{false};
  std::vector<int> last(kPosters, -1);
  int ran = 0;
  std::thread thread([&] {
    const ThreadRunLoop::Scope scope(loop);
    const auto isStopped = [&] { return stopped.load(); };
    while (ran < kPosters * kEach) {
      loop->waitForTurn(ThreadRunLoop::Clock::now(), 1us, isStopped);
      loop->runPass(isStopped);
    }
  });
  std::vector<std::thread> posters;
  for (int poster = 0; poster < kPosters; ++poster) {
    posters.emplace_back([&, poster] {
      for (int i = 0; i < kEach; ++i) {
        loop->perform([&, poster, i] {
          EXPECT_EQ(last[static_cast<std::size_t>(poster)], i - 1);
          last[static_cast<std::size_t>(poster)] = i;
          ++ran;
        });
      }
    });
  }
  for (auto& poster : posters) {
    poster.join();
  }
  thread.join();
  EXPECT_EQ(ran, kPosters * kEach);
}

TEST(ThreadRunLoop, WhatIsLeftIsReleasedAndWhatComesLaterDropped) {
  const auto token = std::make_shared<int>(0);
  std::shared_ptr<ThreadRunLoop> loop;
  {
    const ThreadRunLoop::Scope scope;
    loop = scope.loop();
    loop->perform([token] { FAIL() << "ran after the end"; });
    EXPECT_EQ(token.use_count(), 2);
  }
  EXPECT_EQ(token.use_count(), 1);
  loop->perform([token] { FAIL() << "ran after the end"; });
  EXPECT_EQ(token.use_count(), 1);
}
TEST(ThreadRunLoop, WhatAStoppedPassLeavesStaysQueuedInOrder) {
  const ThreadRunLoop::Scope scope;
  const auto token = std::make_shared<int>(0);
  std::vector<int> order;
  for (int i = 0; i < 4; ++i) {
    scope.loop()->perform([&, i, token] {
      order.push_back(i);
      if (i == 0) {
        scope.loop()->perform([&] { order.push_back(9); });
      }
    });
  }
  scope.loop()->runPass([&] { return order.size() == 2; });
  EXPECT_EQ(order, (std::vector<int>{0, 1}));
  EXPECT_EQ(token.use_count(), 3);
  scope.loop()->runPass(never);
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 9}));
}

TEST(ThreadRunLoop, WhatItsEndReleasesStillFindsIt) {
  struct Asker {
    const RunLoop* loop;
    bool* found;
    ~Asker() { *found = RunLoop::current().get() == loop && loop->isCurrent(); }
  };
  bool found = false;
  {
    const ThreadRunLoop::Scope scope;
    auto asker = std::make_shared<Asker>(Asker{scope.loop().get(), &found});
    scope.loop()->perform([asker] {});
    asker.reset();
    found = false;
  }
  EXPECT_TRUE(found);
  EXPECT_EQ(RunLoop::current(), RunLoop::main());
}

/// Each post finds the thread on its way to sleep: one wake-up that is lost ends the round for good.
void expectThatEveryPostWakes(ThreadRunLoop::Clock::duration patience) {
  constexpr int kMostPosts = 10'000;
  const auto loop = std::make_shared<ThreadRunLoop>();
  std::atomic<bool> stopped{false};
  std::atomic<int> ran{0};
  std::thread thread([&] {
    const ThreadRunLoop::Scope scope(loop);
    const auto isStopped = [&] { return stopped.load(); };
    while (!stopped) {
      loop->waitForTurn(ThreadRunLoop::Clock::now(), 1us, isStopped, patience);
      loop->runPass(isStopped);
    }
  });
  const auto enough = ThreadRunLoop::Clock::now() + 20s;
  int posts = 0;
  while (ran == posts && posts < kMostPosts && ThreadRunLoop::Clock::now() < enough) {
    loop->perform([&] { ++ran; });
    ++posts;
    const auto end = ThreadRunLoop::Clock::now() + 60s;
    while (ran != posts && ThreadRunLoop::Clock::now() < end) {
      std::this_thread::yield();
    }
  }
  EXPECT_EQ(ran, posts) << "before the end wakes it";
  stopped = true;
  loop->wake();
  thread.join();
}

TEST(ThreadRunLoop, EveryPostWakesAThreadThatSleeps) {
  expectThatEveryPostWakes({});
}

TEST(ThreadRunLoop, WakesForWorkAroundTheEndOfItsPatience) {
  expectThatEveryPostWakes(50us);
}

TEST(ThreadRunLoop, LooksByItselfAsLongAsItIsPatient) {
  std::atomic<int> looks{0};
  std::atomic<bool> stopped{false};
  const auto loop = std::make_shared<ThreadRunLoop>();
  std::atomic<bool> done{false};
  const auto isStopped = [&] {
    ++looks;
    return stopped.load();
  };
  std::thread thread([&] {
    const ThreadRunLoop::Scope scope(loop);
    loop->waitForTurn(ThreadRunLoop::Clock::now(), 10ms, isStopped, 1s);
    done = true;
  });
  while (looks < 3) {
    std::this_thread::yield();  // it looks at points of the grid, though nobody wakes it
  }
  const auto begin = ThreadRunLoop::Clock::now();
  while (ThreadRunLoop::Clock::now() < begin + 1200ms) {
    std::this_thread::yield();
  }
  EXPECT_FALSE(done);
  const int looksOfPatience = looks;
  while (ThreadRunLoop::Clock::now() < begin + 1400ms) {
    std::this_thread::yield();
  }
  EXPECT_LE(looks, looksOfPatience + 5) << "and then no more";
  loop->perform([] {});
  thread.join();
  EXPECT_TRUE(done);
}

TEST(ThreadRunLoop, WorkOfItsPatienceIsThereAtTheNextPoint) {
  const ThreadRunLoop::Scope scope;
  const auto epoch = ThreadRunLoop::Clock::now();
  std::thread poster([loop = scope.loop()] { loop->perform([] {}); });
  scope.loop()->waitForTurn(epoch, 40ms, never, 1h);
  poster.join();
  EXPECT_GE(ThreadRunLoop::Clock::now(), epoch + 40ms);
  int ran = 0;
  scope.loop()->perform([&] { ++ran; });
  scope.loop()->runPass(never);
  EXPECT_EQ(ran, 1);
}

TEST(ThreadRunLoop, WithNothingQueuedItDoesNotWake) {
  std::atomic<int> looks{0};
  std::atomic<bool> stopped{false};
  const auto loop = std::make_shared<ThreadRunLoop>();
  std::atomic<bool> done{false};
  std::thread thread([&] {
    const ThreadRunLoop::Scope scope(loop);
    loop->waitForTurn(ThreadRunLoop::Clock::now(), 1ms, [&] {
      ++looks;
      return stopped.load();
    });
    done = true;
  });
  while (looks == 0) {
    std::this_thread::yield();
  }
  // Many grid points pass; a turn on each of them would look as often.
  const auto end = ThreadRunLoop::Clock::now() + 100ms;
  while (ThreadRunLoop::Clock::now() < end) {
    std::this_thread::yield();
  }
  EXPECT_FALSE(done);
  EXPECT_LT(looks, 20);
  stopped = true;
  loop->wake();
  thread.join();
}

}  // namespace
