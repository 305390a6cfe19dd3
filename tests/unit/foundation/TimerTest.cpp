#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "foundation/runloop/ThreadRunLoop.h"
#include "foundation/runloop/Timer.h"
#include "tests/unit/foundation/MainContext.h"

using foundation::RunLoop;
using foundation::RunLoopMode;
using foundation::Timer;
using namespace std::chrono_literals;

namespace {

/// The monotonic clock of GLib, in microseconds.
gint64 now() {
  return g_get_monotonic_time();
}

TEST(Timer, RepeatsUntilInvalidated) {
  MainContext context;
  int beats = 0;
  const auto timer = Timer::scheduled(1ms, Timer::Repeats::Yes, [&](Timer& self) {
    if (++beats == 5) {
      self.invalidate();
    }
  });
  EXPECT_TRUE(timer->isValid());
  EXPECT_TRUE(context.turnUntil([&] { return beats == 5; }));
  EXPECT_FALSE(timer->isValid());
  const gint64 end = now() + 20'000;
  EXPECT_TRUE(context.turnUntil([&] { return now() > end; }));
  EXPECT_EQ(beats, 5);
}

TEST(Timer, FiresOnceWhenItDoesNotRepeat) {
  MainContext context;
  int beats = 0;
  const auto timer = Timer::scheduled(1ms, Timer::Repeats::No, [&](Timer& self) {
    ++beats;
    EXPECT_FALSE(self.isValid());
  });
  EXPECT_TRUE(context.turnUntil([&] { return beats == 1; }));
  const gint64 end = now() + 20'000;
  EXPECT_TRUE(context.turnUntil([&] { return now() > end; }));
  EXPECT_EQ(beats, 1);
}

TEST(Timer, NeverBeatsMoreOftenThanItsGrid) {
  MainContext context;
  constexpr gint64 kInterval = 10'000;
  const gint64 start = now();
  std::vector<gint64> beats;
  const auto timer = Timer::scheduled(std::chrono::microseconds(kInterval), Timer::Repeats::Yes, [&](Timer&) {
    beats.push_back(now());
    if (beats.size() == 2) {
      g_usleep(kInterval * 5 + kInterval / 2);  // misses beats
    }
  });
  EXPECT_TRUE(context.turnUntil([&] { return beats.size() == 8; }));
  timer->invalidate();
  // The n-th beat is due n intervals after the start at the earliest; missed ones are skipped, not made up
  // for.
  for (std::size_t i = 0; i < beats.size(); ++i) {
    const gint64 missed = i < 3 ? 0 : 4;
    EXPECT_GE(beats[i] - start, (static_cast<gint64>(i) + 1 + missed) * kInterval);
  }
}

TEST(Timer, InvalidatedWhileDueDoesNotFire) {
  MainContext context;
  std::shared_ptr<Timer> second;
  int beatsOfSecond = 0;
  const auto first = Timer::scheduled(1ms, Timer::Repeats::Yes, [&](Timer& self) {
    second->invalidate();
    self.invalidate();
  });
  second = Timer::scheduled(1ms, Timer::Repeats::Yes, [&](Timer&) { ++beatsOfSecond; });
  g_usleep(5'000);  // both are due in the same turn
  EXPECT_TRUE(context.turnUntil([&] { return !first->isValid(); }));
  EXPECT_EQ(beatsOfSecond, 0);
}

TEST(Timer, TheLoopHoldsItAndInvalidateLetsGo) {
  MainContext context;
  const auto token = std::make_shared<int>(0);
  std::weak_ptr<Timer> timer =
      Timer::scheduled(1ms, Timer::Repeats::Yes, [token](Timer& self) { self.invalidate(); });
  EXPECT_FALSE(timer.expired());
  EXPECT_EQ(token.use_count(), 2);
  EXPECT_TRUE(context.turnUntil([&] { return timer.expired(); }));
  EXPECT_EQ(token.use_count(), 1);
}

TEST(Timer, EndsWithItsContext) {
  std::shared_ptr<Timer> timer;
  {
    MainContext context;
    timer = Timer::scheduled(1ms, Timer::Repeats::Yes, [](Timer&) {});
    EXPECT_TRUE(timer->isValid());
  }
  EXPECT_FALSE(timer->isValid());
  timer->invalidate();
}

TEST(Timer, PausesWhileItsModeIsNotTurned) {
  MainContext context;
  int beats = 0;
  int trackingBeats = 0;
  const auto timer = Timer::scheduled(1ms, Timer::Repeats::Yes, [&](Timer&) { ++beats; });
  const auto tracking = Timer::scheduled(1ms, Timer::Repeats::Yes, [&](Timer&) { ++trackingBeats; });
  tracking->addToMode(RunLoopMode::EventTracking);
  {
    const RunLoop::ModeScope panel(RunLoopMode::ModalPanel);
    const gint64 end = now() + 30'000;
    EXPECT_TRUE(context.turnUntil([&] { return now() > end; }));
    EXPECT_EQ(beats, 0);
    EXPECT_EQ(trackingBeats, 0);
  }
  {
    const RunLoop::ModeScope mode(RunLoopMode::EventTracking);
    EXPECT_TRUE(context.turnUntil([&] { return trackingBeats > 3; }));
    EXPECT_EQ(beats, 0);
  }
  EXPECT_TRUE(context.turnUntil([&] { return beats > 3; }));
  timer->invalidate();
  tracking->invalidate();
}

TEST(Timer, AnIntervalOfNothingIsTheShortest) {
  MainContext context;
  int beats = 0;
  const auto timer = Timer::scheduled(0us, Timer::Repeats::Yes, [&](Timer&) { ++beats; });
  EXPECT_EQ(timer->interval(), 100us);
  EXPECT_TRUE(context.turnUntil([&] { return beats > 3; }));
  timer->invalidate();
}

TEST(Timer, IsNotServedByAPrivateLoop) {
  const foundation::ThreadRunLoop::Scope scope;
  const auto timer = Timer::scheduled(1ms, Timer::Repeats::Yes, [](Timer&) { FAIL(); });
  EXPECT_FALSE(timer->isValid());
}
TEST(Timer, ManyRunSideBySide) {
  constexpr std::size_t kTimers = 500;
  MainContext context;
  std::vector<std::shared_ptr<Timer>> timers;
  std::vector<int> beats(kTimers, 0);
  std::size_t done = 0;
  for (std::size_t i = 0; i < kTimers; ++i) {
    timers.push_back(
        Timer::scheduled(std::chrono::milliseconds(1 + i % 7), Timer::Repeats::Yes, [&, i](Timer& self) {
          if (++beats[i] == 3) {
            self.invalidate();
            ++done;
          }
        }));
  }
  EXPECT_TRUE(context.turnUntil([&] { return done == kTimers; }));
  EXPECT_EQ(beats, std::vector<int>(kTimers, 3));
}

TEST(Timer, LetsItsCallbackGoWithItsContext) {
  // What a callback holds may hold the timer.
  struct Owner {
    std::shared_ptr<Timer> timer;
  };
  std::weak_ptr<Owner> seen;
  {
    MainContext context;
    const auto owner = std::make_shared<Owner>();
    owner->timer = Timer::scheduled(1ms, Timer::Repeats::Yes, [owner](Timer&) {});
    seen = owner;
  }
  EXPECT_TRUE(seen.expired());
}

TEST(Timer, LetsItsCallbackGoWhereNothingServesIt) {
  const foundation::ThreadRunLoop::Scope scope;
  const auto token = std::make_shared<int>(0);
  const auto timer = Timer::scheduled(1ms, Timer::Repeats::Yes, [token](Timer&) {});
  EXPECT_EQ(token.use_count(), 1);
}

TEST(Timer, MayBeInvalidatedByWhatItsCallbackHolds) {
  struct Owner {
    std::shared_ptr<Timer> timer;
    ~Owner() { timer->invalidate(); }
  };
  MainContext context;
  auto owner = std::make_shared<Owner>();
  const std::weak_ptr<Timer> seen = owner->timer =
      Timer::scheduled(1ms, Timer::Repeats::Yes, [owner](Timer&) {});
  Timer& timer = *owner->timer;
  owner.reset();
  timer.invalidate();
  EXPECT_TRUE(seen.expired());
}

TEST(Timer, KeepsItsCallbackUntilItReturns) {
  MainContext context;
  auto token = std::make_shared<int>(0);
  const std::weak_ptr<int> seen = token;
  bool heldInside = false;
  const auto timer = Timer::scheduled(1ms, Timer::Repeats::Yes, [&, token](Timer& self) {
    self.invalidate();
    heldInside = !seen.expired();
  });
  token.reset();
  EXPECT_TRUE(context.turnUntil([&] { return !timer->isValid(); }));
  EXPECT_TRUE(heldInside);
  EXPECT_TRUE(seen.expired());
}

TEST(Timer, TakesIntervalsOfAnyLength) {
  MainContext context;
  for (const auto interval : {std::chrono::microseconds::max(), std::chrono::microseconds::min()}) {
    const auto timer = Timer::scheduled(interval, Timer::Repeats::No, [](Timer&) {});
    EXPECT_TRUE(timer->isValid());
    timer->invalidate();
  }
}

TEST(Timer, BelongsToTheLoopOfItsThread) {
  MainContext context;
  std::thread([] {
    MainContext own;
    std::thread::id ranOn;
    const auto timer =
        Timer::scheduled(1ms, Timer::Repeats::No, [&](Timer&) { ranOn = std::this_thread::get_id(); });
    EXPECT_TRUE(own.turnUntil([&] { return ranOn == std::this_thread::get_id(); }));
  }).join();
  EXPECT_FALSE(context.turnOnce());
}

}  // namespace
