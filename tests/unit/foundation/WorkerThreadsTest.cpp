#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "foundation/runloop/DispatchQueue.h"
#include "foundation/runloop/WorkerThreads.h"
#include "tests/support/ThreadRefusal.h"
#include "tests/support/WaitUntil.h"

using foundation::DispatchQueue;
using foundation::WorkerThreads;
using namespace std::chrono_literals;

namespace {

constexpr auto kLimit = 20s;
/// Longer than any test.
constexpr auto kLong = std::chrono::hours(1);

std::string ownName() {
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());
  return name.data();
}

/// What the kernel calls the thread, empty when it is gone.
std::string nameOf(pid_t thread) {
  std::string name;
  std::getline(std::ifstream("/proc/self/task/" + std::to_string(thread) + "/comm"), name);
  return name;
}

/// Runs a block that tells its thread's number, and waits until the thread is parked again.
pid_t threadThatRuns(WorkerThreads& threads) {
  const std::size_t parked = threads.parkedCount();
  const auto number = std::make_shared<std::promise<pid_t>>();
  EXPECT_EQ(threads.run("test", [number] { number->set_value(gettid()); }), 0);
  const pid_t thread = number->get_future().get();
  EXPECT_TRUE(test::waitUntil([&] { return threads.parkedCount() >= std::max<std::size_t>(parked, 1); }));
  return thread;
}

/// Blocks that wait until they are let go.
class Gate {
 public:
  auto block() {
    return [this, open = open_] {
      ++waiting_;
      open.wait();
      --waiting_;
    };
  }
  std::size_t waiting() const { return waiting_; }
  void open() { promise_.set_value(); }

 private:
  std::promise<void> promise_;
  std::shared_future<void> open_ = promise_.get_future().share();
  std::atomic<std::size_t> waiting_ = 0;
};

TEST(WorkerThreads, ABlockRunsOnAThreadOfItsName) {
  WorkerThreads threads(kLong);
  std::promise<std::string> name;
  ASSERT_EQ(threads.run("one.name", [&] { name.set_value(ownName()); }), 0);
  EXPECT_EQ(name.get_future().get(), "one.name");
}

TEST(WorkerThreads, AParkedThreadIsCalledSoUntilItIsUsedAgain) {
  WorkerThreads threads(kLong);
  const pid_t thread = threadThatRuns(threads);
  EXPECT_EQ(nameOf(thread), "zep.parked");
  std::promise<std::string> name;
  ASSERT_EQ(threads.run("another.name", [&] { name.set_value(ownName()); }), 0);
  EXPECT_EQ(name.get_future().get(), "another.name");
}

TEST(WorkerThreads, AThreadIsUsedAgain) {
  WorkerThreads threads(kLong);
  const pid_t first = threadThatRuns(threads);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(threadThatRuns(threads), first);
  }
  EXPECT_EQ(threads.count(), 1U);
}

TEST(WorkerThreads, TheLastParkedIsUsedFirst) {
  WorkerThreads threads(kLong);
  Gate early;
  Gate late;
  pid_t lateThread = 0;
  ASSERT_EQ(threads.run("early", early.block()), 0);
  ASSERT_EQ(threads.run("late",
                        [&, wait = late.block()] {
                          lateThread = gettid();
                          wait();
                        }),
            0);
  early.open();
  ASSERT_TRUE(test::waitUntil([&] { return threads.parkedCount() == 1; }));
  late.open();
  ASSERT_TRUE(test::waitUntil([&] { return threads.parkedCount() == 2; }));
  EXPECT_EQ(threadThatRuns(threads), lateThread);
}

TEST(WorkerThreads, ABlockHasItsThreadToItself) {
  WorkerThreads threads(kLong);
  threadThatRuns(threads);
  Gate gate;
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(threads.run("test", gate.block()), 0);
  }
  EXPECT_TRUE(test::waitUntil([&] { return gate.waiting() == 20; }));
  EXPECT_EQ(threads.count(), 20U);
  gate.open();
  EXPECT_TRUE(test::waitUntil([&] { return threads.parkedCount() == 20; }));
}

TEST(WorkerThreads, AfterABurstTheThreadsGo) {
  constexpr std::size_t kBurst = 500;
  WorkerThreads threads(50ms);
  Gate gate;
  std::mutex mutex;
  std::vector<pid_t> numbers;
  for (std::size_t i = 0; i < kBurst; ++i) {
    ASSERT_EQ(threads.run("test",
                          [&, wait = gate.block()] {
                            {
                              const std::lock_guard lock(mutex);
                              numbers.push_back(gettid());
                            }
                            wait();
                          }),
              0);
  }
  ASSERT_TRUE(test::waitUntil([&] { return gate.waiting() == kBurst; }));
  EXPECT_EQ(threads.count(), kBurst);
  gate.open();
  EXPECT_TRUE(test::waitUntil([&] { return threads.count() == 0; }));
  EXPECT_EQ(threads.parkedCount(), 0U);
  for (const pid_t number : numbers) {
    EXPECT_TRUE(test::waitUntil([&] { return nameOf(number).empty(); }));
  }
}

TEST(WorkerThreads, WhatABlockHoldsIsReleasedBeforeItsThreadIsParked) {
  WorkerThreads threads(kLong);
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = held;
  ASSERT_EQ(threads.run("test", [held = std::move(held)] { EXPECT_EQ(*held, 1); }), 0);
  ASSERT_TRUE(test::waitUntil([&] { return threads.parkedCount() == 1; }));
  EXPECT_TRUE(watched.expired());
}

TEST(WorkerThreads, ABlockMayRunOthers) {
  WorkerThreads threads(kLong);
  std::promise<pid_t> inner;
  std::promise<pid_t> outer;
  ASSERT_EQ(threads.run("outer",
                        [&] {
                          // Waited for inside the outer one, so it has a thread of its own.
                          EXPECT_EQ(threads.run("inner", [&] { inner.set_value(gettid()); }), 0);
                          EXPECT_NE(inner.get_future().get(), gettid());
                          outer.set_value(gettid());
                        }),
            0);
  outer.get_future().get();
}

TEST(WorkerThreads, SignalsOfTheProcessAreNotTaken) {
  WorkerThreads threads(kLong);
  std::promise<sigset_t> mask;
  ASSERT_EQ(threads.run("test",
                        [&] {
                          sigset_t own;
                          pthread_sigmask(SIG_SETMASK, nullptr, &own);
                          mask.set_value(own);
                        }),
            0);
  const sigset_t blocked = mask.get_future().get();
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGUSR1, SIGPIPE, SIGALRM}) {
    EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
  }
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
    EXPECT_EQ(sigismember(&blocked, fault), 0) << fault;
  }
}

TEST(WorkerThreads, ARefusedThreadIsReportedAndTheBlockReleasedUnrun) {
  WorkerThreads threads(kLong);
  auto held = std::make_shared<std::atomic<bool>>(false);
  const std::weak_ptr<std::atomic<bool>> watched = held;
  {
    const test::ThreadRefusal refusal(EAGAIN);
    EXPECT_EQ(threads.run("test", [held = std::move(held)] { *held = true; }), EAGAIN);
    EXPECT_EQ(test::ThreadRefusal::count(), 1);
  }
  EXPECT_TRUE(watched.expired());
  EXPECT_EQ(threads.count(), 0U);
  threadThatRuns(threads);
  EXPECT_EQ(threads.count(), 1U);
}

TEST(WorkerThreads, AParkedThreadNeedsNothingOfTheSystem) {
  WorkerThreads threads(kLong);
  const pid_t thread = threadThatRuns(threads);
  const test::ThreadRefusal refusal(EAGAIN);
  EXPECT_EQ(threadThatRuns(threads), thread);
  EXPECT_EQ(test::ThreadRefusal::count(), 0);
}

TEST(WorkerThreads, TheirEndWaitsForTheBlocks) {
  std::atomic<int> ended = 0;
  Gate gate;
  std::thread opener;
  {
    WorkerThreads threads(kLong);
    for (int i = 0; i < 5; ++i) {
      ASSERT_EQ(threads.run("test",
                            [&, wait = gate.block()] {
                              wait();
                              ++ended;
                            }),
                0);
    }
    ASSERT_TRUE(test::waitUntil([&] { return gate.waiting() == 5; }));
    opener = std::thread([&] { gate.open(); });
  }
  EXPECT_EQ(ended, 5);
  opener.join();
}

TEST(WorkerThreads, ManyTakeAndParkAtOnce) {
  WorkerThreads threads(1ms);
  std::atomic<int> ran = 0;
  std::vector<std::thread> takers;
  constexpr int kTakers = 4;
  constexpr int kBlocks = 500;
  takers.reserve(kTakers);
  for (int taker = 0; taker < kTakers; ++taker) {
    takers.emplace_back([&] {
      for (int i = 0; i < kBlocks; ++i) {
        EXPECT_EQ(threads.run("test", [&] { ++ran; }), 0);
        if (i % 50 == 0) {
          // Now and then long enough for the idle time to end beside a taking.
          std::this_thread::sleep_for(1ms);
        }
      }
    });
  }
  for (std::thread& taker : takers) {
    taker.join();
  }
  EXPECT_TRUE(test::waitUntil([&] { return threads.count() == 0; }));
  EXPECT_EQ(ran, kTakers * kBlocks);
}

[[noreturn]] void throwInABlock() {
  WorkerThreads threads(kLong);
  if (threads.run("test", [] { throw std::runtime_error("escaped"); }) == 0) {
    while (true) {
      pause();
    }
  }
  std::exit(1);
}

[[noreturn]] void exitWithThreads() {
  threadThatRuns(WorkerThreads::shared());
  std::promise<void> isRunning;
  const int error = WorkerThreads::shared().run("test", [&] {
    isRunning.set_value();
    while (true) {
      pause();
    }
  });
  isRunning.get_future().get();
  threadThatRuns(WorkerThreads::shared());
  std::exit(error == 0 ? 3 : 4);
}

TEST(WorkerThreadsDeathTest, AnExceptionThatEscapesABlockEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(throwInABlock(), testing::KilledBySignal(SIGABRT), "escaped");
}

TEST(WorkerThreadsDeathTest, TheProcessMayEndWhileThreadsAreParkedOrBusy) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitWithThreads(), testing::ExitedWithCode(3), "");
}

/// Whether a child of fork ends by itself, with success.
template <typename Body>
testing::AssertionResult succeedsInAChild(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);  // what hangs ends as killed
    body();
    _exit(0);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child) {
    return testing::AssertionFailure() << "no child";
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    return testing::AssertionFailure() << "wait status " << status;
  }
  return testing::AssertionSuccess();
}

TEST(WorkerThreadsFork, AChildHasThreadsOfItsOwn) {
  WorkerThreads& threads = WorkerThreads::shared();
  threadThatRuns(threads);
  EXPECT_TRUE(succeedsInAChild([&] {
    if (threads.count() != 0 || threads.parkedCount() != 0) {
      _exit(2);
    }
    std::promise<void> ran;
    if (threads.run("test", [&] { ran.set_value(); }) != 0 ||
        ran.get_future().wait_for(kLimit) != std::future_status::ready) {
      _exit(3);
    }
  }));
  EXPECT_EQ(threads.parkedCount(), 1U);
}

TEST(WorkerThreadsFork, WhateverOtherThreadsAreDoingAtThatMoment) {
  std::atomic<bool> isOver = false;
  std::thread busy([&] {
    while (!isOver) {
      EXPECT_EQ(WorkerThreads::shared().run("test", [] {}), 0);
      EXPECT_TRUE(DispatchQueue::workers().async([] {}));
    }
  });
  for (int i = 0; i < 50; ++i) {
    EXPECT_TRUE(succeedsInAChild([] {
      int ran = 0;
      DispatchQueue::workers().sync([&] { ++ran; });
      DispatchQueue::global().sync([&] { ++ran; });
      if (ran != 2) {
        _exit(2);
      }
    }));
  }
  isOver = true;
  busy.join();
}

TEST(WorkerThreadsFork, AThreadOfItsOwnMayFork) {
  std::promise<int> answer;
  ASSERT_EQ(WorkerThreads::shared().run("test",
                                        [&] {
                                          const pid_t child = fork();
                                          if (child == 0) {
                                            alarm(60);
                                            _exit(WorkerThreads::shared().count() == 1 ? 5 : 6);
                                          }
                                          int status = 0;
                                          waitpid(child, &status, 0);
                                          answer.set_value(status);
                                        }),
            0);
  const int status = answer.get_future().get();
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 5);
}

}  // namespace
