// Work that is handed to another thread by way of its run loop: how long one piece is on its way, and how many pieces
// get through.

#include <benchmark/benchmark.h>
#include <glib.h>
#include <sys/prctl.h>

#include <chrono>
#include <future>
#include <memory>
#include <semaphore>
#include <thread>

#include "foundation/runloop/RunLoop.h"
#include "foundation/runloop/Thread.h"
#include "foundation/runloop/ThreadRunLoop.h"

namespace {

using Clock = std::chrono::steady_clock;
using foundation::Thread;
using foundation::ThreadRunLoop;

/// A thread that turns a GLib main context of its own.
class ContextThread {
 public:
  ContextThread() {
    std::promise<Thread> started;
    auto future = started.get_future();
    thread_ = std::thread([this, &started] {
      g_main_context_push_thread_default(context_);
      started.set_value(Thread::current());
      g_main_loop_run(loop_);
      g_main_context_pop_thread_default(context_);
    });
    target_ = future.get();
  }
  ~ContextThread() {
    target_.perform([this] { g_main_loop_quit(loop_); });
    thread_.join();
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
  }
  ContextThread(const ContextThread&) = delete;
  ContextThread& operator=(const ContextThread&) = delete;

  const Thread& target() const { return target_; }

 private:
  GMainContext* const context_ = g_main_context_new();
  GMainLoop* const loop_ = g_main_loop_new(context_, FALSE);
  Thread target_;
  std::thread thread_;
};

/// A thread that turns a private loop, on a grid so fine that it does not count. A downloader's is one of 50 ms, which
/// is then most of the way.
class PrivateThread {
 public:
  PrivateThread() {
    std::promise<Thread> started;
    auto future = started.get_future();
    thread_ = std::thread([this, &started] {
      // The kernel would make the grid one of 50 us.
      prctl(PR_SET_TIMERSLACK, 1UL);
      const ThreadRunLoop::Scope scope;
      const auto isStopped = [this] { return isStopped_; };
      const auto epoch = Clock::now();
      started.set_value(Thread::current());
      while (!isStopped_) {
        scope.loop()->waitForTurn(epoch, std::chrono::nanoseconds(1), isStopped);
        scope.loop()->runPass(isStopped);
      }
    });
    target_ = future.get();
  }
  ~PrivateThread() {
    target_.perform([this] { isStopped_ = true; });
    thread_.join();
  }
  PrivateThread(const PrivateThread&) = delete;
  PrivateThread& operator=(const PrivateThread&) = delete;

  const Thread& target() const { return target_; }

 private:
  bool isStopped_ = false;  // that thread's own
  Thread target_;
  std::thread thread_;
};

/// The other thread sleeps when the work comes: the time to wake it is in it.
template <typename Target>
void HandOverOneWay(benchmark::State& state) {
  const Target target;
  std::binary_semaphore arrived(0);
  Clock::time_point at;
  for ([[maybe_unused]] const auto _ : state) {
    const auto sent = Clock::now();
    target.target().perform([&] {
      at = Clock::now();
      arrived.release();
    });
    arrived.acquire();
    state.SetIterationTime(std::chrono::duration<double>(at - sent).count());
  }
}
BENCHMARK_TEMPLATE(HandOverOneWay, ContextThread)->UseManualTime();
BENCHMARK_TEMPLATE(HandOverOneWay, PrivateThread)->UseManualTime();

template <typename Target>
void HandOverMany(benchmark::State& state) {
  constexpr int kPieces = 1'000;
  const Target target;
  std::binary_semaphore done(0);
  int count = 0;
  for ([[maybe_unused]] const auto _ : state) {
    for (int i = 0; i < kPieces; ++i) {
      target.target().perform([&] {
        if (++count % kPieces == 0) {
          done.release();
        }
      });
    }
    done.acquire();
  }
  state.SetItemsProcessed(state.iterations() * kPieces);
}
BENCHMARK_TEMPLATE(HandOverMany, ContextThread)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(HandOverMany, PrivateThread)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
