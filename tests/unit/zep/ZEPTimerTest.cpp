// The timer facade and the timers behind it.

#include <gtest/gtest.h>

#include <memory>

#include "common/zep/ZEPTimer.h"
#include "common/zep/mac/MacTimerImpl.h"
#include "tests/unit/foundation/MainContext.h"
#include "tests/unit/zep/Allocations.h"
#include "tests/unit/zep/TickRecorder.h"

namespace {

/// Turns the loop for so long that every running timer of these tests would have ticked.
void turnForAWhile(MainContext& context) {
  const gint64 end = g_get_monotonic_time() + 30'000;
  EXPECT_TRUE(context.turnUntil([&] { return g_get_monotonic_time() > end; }));
}

TEST(ZEPTimer, WithoutACallbackDoesNothing) {
  MainContext context;
  ZEPTimer timer;
  timer.SetTimer(1, 1);
  timer.KillTimer(1);
  timer.SetTimerCallback(nullptr);
  timer.SetTimer(1, 1);
  EXPECT_FALSE(context.turnOnce());
}

TEST(ZEPTimer, TicksWithTheIdsOfItsTimers) {
  MainContext context;
  TickRecorder recorder;
  ZEPTimer timer(&recorder);
  timer.SetTimer(7, 1);
  timer.SetTimer(8, 2);
  EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(7) > 3 && recorder.countOf(8) > 3; }));
  timer.KillTimer(7);
  const long sevens = recorder.countOf(7);
  const long eights = recorder.countOf(8);
  EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(8) > eights + 3; }));
  EXPECT_EQ(recorder.countOf(7), sevens);
  timer.KillTimer(8);
}

TEST(ZEPTimer, ARunningTimerKeepsItsInterval) {
  MainContext context;
  TickRecorder recorder;
  ZEPTimer timer(&recorder);
  timer.SetTimer(7, 10);
  timer.SetTimer(7, 5'000'000);
  EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(7) > 3; }));
  timer.KillTimer(7);
}

TEST(ZEPTimer, KillingWhatDoesNotRunDoesNothing) {
  MainContext context;
  TickRecorder recorder;
  ZEPTimer timer(&recorder);
  timer.KillTimer(7);
  timer.SetTimer(7, 1);
  timer.KillTimer(7);
  timer.KillTimer(7);
  turnForAWhile(context);
  EXPECT_TRUE(recorder.ticks.empty());
}

TEST(ZEPTimer, AKilledTimerDoesNotTickEvenWhenDue) {
  MainContext context;
  TickRecorder recorder;
  ZEPTimer timer(&recorder);
  timer.SetTimer(7, 1);
  g_usleep(5'000);  // the tick is due
  timer.KillTimer(7);
  turnForAWhile(context);
  EXPECT_TRUE(recorder.ticks.empty());
}

TEST(ZEPTimer, MayBeKilledAndSetAgainInsideItsTick) {
  MainContext context;
  TickRecorder recorder;
  ZEPTimer timer(&recorder);
  recorder.onTick = [&](TimerID id) {
    timer.KillTimer(id);
    if (recorder.ticks.size() < 3) {
      timer.SetTimer(id, 1);
    }
  };
  timer.SetTimer(7, 1);
  EXPECT_TRUE(context.turnUntil([&] { return recorder.ticks.size() == 3; }));
  turnForAWhile(context);
  EXPECT_EQ(recorder.ticks.size(), 3u);
}

TEST(ZEPTimer, ANullCallbackChangesNothing) {
  MainContext context;
  TickRecorder recorder;
  ZEPTimer timer(&recorder);
  timer.SetTimer(7, 1);
  timer.SetTimerCallback(nullptr);
  EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(7) > 0; }));
  timer.KillTimer(7);
  recorder.ticks.clear();
  turnForAWhile(context);
  EXPECT_TRUE(recorder.ticks.empty()) << "the implementation was replaced, and with it the way to the timer";
}

TEST(ZEPTimer, ATimerKeepsTheCallbackItWasStartedWith) {
  MainContext context;
  TickRecorder first, second;
  ZEPTimer timer(&first);
  timer.SetTimer(7, 1);
  timer.SetTimerCallback(&second);
  timer.SetTimer(8, 1);
  EXPECT_TRUE(context.turnUntil([&] { return first.countOf(7) > 3 && second.countOf(8) > 3; }));
  EXPECT_EQ(second.countOf(7), 0);
  // The new implementation does not know the old timer; it goes on to the end of its loop.
  timer.KillTimer(7);
  const long before = first.countOf(7);
  EXPECT_TRUE(context.turnUntil([&] { return first.countOf(7) > before; }));
  timer.KillTimer(8);
}

TEST(ZEPTimer, DestroyingItLeavesItsTimersRunning) {
  MainContext context;
  TickRecorder recorder;
  {
    ZEPTimer timer(&recorder);
    timer.SetTimer(7, 1);
  }
  EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(7) > 3; }));
}

TEST(ZEPTimer, TwoMayUseTheSameId) {
  MainContext context;
  TickRecorder first, second;
  ZEPTimer one(&first), other(&second);
  one.SetTimer(7, 1);
  other.SetTimer(7, 1);
  one.KillTimer(7);
  EXPECT_TRUE(context.turnUntil([&] { return second.countOf(7) > 3; }));
  EXPECT_TRUE(first.ticks.empty());
  other.KillTimer(7);
}

TEST(ZEPMacTimer, KnowsItsTimersById) {
  MainContext context;
  TickRecorder recorder;
  ZEPMacTimer timers(&recorder);
  EXPECT_EQ(timers.timerForID(7), nullptr);
  EXPECT_EQ(timers.SetTimer(7, 300), 7u);
  const auto timer = timers.timerForID(7);
  ASSERT_NE(timer, nullptr);
  EXPECT_EQ(timers.SetTimer(7, 1), 7u);
  EXPECT_EQ(timers.timerForID(7), timer);
  timers.fire(7);
  EXPECT_TRUE(recorder.ticks.empty());
  timers.invalidate(7);
  EXPECT_EQ(timers.timerForID(7), nullptr);
  EXPECT_FALSE(timer->isValid());
}

TEST(ZEPMacTimer, WithoutACallbackTicksIntoNothing) {
  MainContext context;
  ZEPMacTimer timers;
  timers.SetTimer(7, 1);
  turnForAWhile(context);
  timers.KillTimer(7);
}
TEST(ZEPMacTimer, WithoutMemoryTheIdStaysAbsent) {
  MainContext context;
  TickRecorder recorder;
  ZEPMacTimer timers(&recorder);
  int failures = 0;
  for (bool hasFailed = true; hasFailed; ++failures) {
    {
      const FailingAllocation failing(failures);
      EXPECT_EQ(timers.SetTimer(7, 1), 7u);
      hasFailed = failing.hasFailed();
    }
    EXPECT_EQ(timers.timerForID(7) == nullptr, hasFailed) << failures;
  }
  EXPECT_GT(failures, 3) << "there was nothing to fail";
  EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(7) > 0; }));
  timers.KillTimer(7);
  recorder.ticks.clear();
  turnForAWhile(context);
  EXPECT_TRUE(recorder.ticks.empty()) << "a timer that could not be kept ticks";
}

TEST(ZEPMacTimer, TheShortestIntervalTicks) {
  MainContext context;
  TickRecorder recorder;
  ZEPMacTimer timers(&recorder);
  timers.SetTimer(7, 0);
  EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(7) > 3; }));
  timers.KillTimer(7);
}

TEST(ZEPMacTimer, AKilledTimersObjectIsFreed) {
  MainContext context;
  TickRecorder recorder;
  ZEPMacTimer timers(&recorder);
  timers.SetTimer(7, 1);
  const std::weak_ptr<CocoaTimerImpl> seen = timers.timerForID(7);
  bool livedInItsTick = false;
  recorder.onTick = [&](TimerID id) {
    timers.KillTimer(id);
    livedInItsTick = !seen.expired();
  };
  EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(7) == 1; }));
  EXPECT_TRUE(livedInItsTick);
  EXPECT_TRUE(seen.expired());
}

TEST(ZEPTimer, MayBeDestroyedInsideItsTick) {
  MainContext context;
  TickRecorder recorder;
  auto timer = std::make_unique<ZEPTimer>(&recorder);
  recorder.onTick = [&](TimerID id) {
    timer->KillTimer(id);
    timer.reset();
  };
  timer->SetTimer(7, 1);
  EXPECT_TRUE(context.turnUntil([&] { return timer == nullptr; }));
  turnForAWhile(context);
  EXPECT_EQ(recorder.ticks.size(), 1u);
}

}  // namespace
