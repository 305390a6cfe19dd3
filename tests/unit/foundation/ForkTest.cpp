// What the child of a fork finds of the process's objects while other threads use them.

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/notification/NotificationCenter.h"
#include "foundation/panel/TrustPanelRunner.h"
#include "foundation/runloop/DispatchQueue.h"
#include "foundation/runloop/RunLoop.h"

namespace {

using foundation::DispatchQueue;
using foundation::NotificationCenter;
using foundation::RunLoop;

/// What a child does; one that hangs ends by SIGALRM.
int statusOfChild(const std::function<void()>& work) {
  constexpr unsigned kLimitSeconds = 30;
  const pid_t child = fork();
  if (child == 0) {
    alarm(kLimitSeconds);
    work();
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

/// Keeps four threads in what a child uses, too.
class Noise {
 public:
  ~Noise() {
    isOver_ = true;
    for (std::thread& thread : threads_) {
      thread.join();
    }
    while (queued_ > 0) {
      g_main_context_iteration(nullptr, TRUE);
    }
  }
  Noise() = default;
  Noise(const Noise&) = delete;
  Noise& operator=(const Noise&) = delete;

  /// So that there is something to hand over for a while.
  void makeRoom() const {
    while (queued_ > kMostQueued / 2) {
      g_main_context_iteration(nullptr, TRUE);
    }
  }

 private:
  static constexpr int kMostQueued = 1000;

  std::thread busyWith(const std::function<void()>& work) {
    return std::thread([this, work] {
      while (!isOver_) {
        work();
      }
    });
  }

  static void notify() {
    NotificationCenter& center = NotificationCenter::defaultCenter();
    const auto token = center.addObserver(nullptr, "noise", [](const auto&) {});
    center.post("noise", nullptr, nullptr);
    center.removeObserver(token);
  }

  /// Hands a block over, unless many wait.
  void handOver(const std::function<void(std::function<void()>)>& how) {
    if (queued_ < kMostQueued) {
      ++queued_;
      how([this] { --queued_; });
    }
  }

  std::atomic<bool> isOver_ = false;
  std::atomic<int> queued_ = 0;
  std::thread threads_[4] = {
      busyWith(&notify),
      busyWith([] { foundation::setPanelRunner(nullptr, nullptr); }),
      busyWith([this] { handOver([](auto block) { RunLoop::main()->perform(std::move(block)); }); }),
      busyWith([this] {
        handOver([](auto block) { EXPECT_TRUE(DispatchQueue::main().async(std::move(block))); });
      }),
  };
};

/// In a child.
void useEverything() {
  int ran = 0;
  NotificationCenter& center = NotificationCenter::defaultCenter();
  center.addObserver(nullptr, "child's", [&](const auto&) { ++ran; });
  center.post("child's", nullptr, nullptr);
  foundation::setPanelRunner(nullptr, nullptr);
  RunLoop::main()->perform([&] { ++ran; });
  static_cast<void>(DispatchQueue::main().async([&] { ++ran; }));
  while (ran < 3) {
    g_main_context_iteration(nullptr, TRUE);
  }
}

TEST(FoundationFork, LeavesEveryLockFreeWhateverOtherThreadsAreDoing) {
  constexpr int kForks = 200;
  g_main_context_default();  // made by the main thread, as by any host
  const Noise noise;
  for (int i = 0; i < kForks && !HasFailure(); ++i) {
    noise.makeRoom();
    EXPECT_EQ(statusOfChild(&useEverything), 0) << "of the " << i << "th";
  }
}

TEST(FoundationFork, LeavesWhatWasQueuedToTheParent) {
  int ran = 0;
  RunLoop::main()->perform([&] { ++ran; });
  EXPECT_TRUE(DispatchQueue::main().async([&] { ++ran; }));
  EXPECT_EQ(statusOfChild([&] {
              bool isOver = false;
              static_cast<void>(DispatchQueue::main().async([&] { isOver = true; }));
              while (!isOver || g_main_context_pending(nullptr)) {
                g_main_context_iteration(nullptr, FALSE);
              }
              _exit(ran == 0 ? 0 : 1);
            }),
            0);
  while (ran < 2) {
    g_main_context_iteration(nullptr, TRUE);
  }
}

}  // namespace
