#include <gtest/gtest.h>

#include <memory>

#include "common/zep/mac/CocoaTimerImpl.h"
#include "foundation/runloop/RunLoop.h"
#include "tests/unit/foundation/MainContext.h"
#include "tests/unit/zep/TickRecorder.h"

using foundation::RunLoop;
using foundation::RunLoopMode;

namespace {

TEST(CocoaTimerImpl, ItsIntervalIsCutToWholeSecondsFirst) {
  MainContext context;
  TickRecorder recorder;
  const auto intervalOf = [&](unsigned long milliseconds) {
    const auto timer = CocoaTimerImpl::initWithTimerID(1);
    timer->scheduleTimerWithInterval(milliseconds, &recorder, true);
    const unsigned long interval = timer->getInterval();
    timer->invalidate();
    return interval;
  };
  EXPECT_EQ(intervalOf(300), 0u);
  EXPECT_EQ(intervalOf(999), 0u);
  EXPECT_EQ(intervalOf(1000), 1000u);
  EXPECT_EQ(intervalOf(1500), 1000u);
  EXPECT_EQ(intervalOf(0), 0u);
  EXPECT_EQ(intervalOf(3'600'000), 3'600'000u);
}

TEST(CocoaTimerImpl, TicksOnceWhenItDoesNotRepeat) {
  MainContext context;
  TickRecorder recorder;
  const auto timer = CocoaTimerImpl::initWithTimerID(9);
  EXPECT_FALSE(timer->isValid());
  timer->scheduleTimerWithInterval(1, &recorder, false);
  EXPECT_TRUE(timer->isValid());
  EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(9) == 1; }));
  EXPECT_FALSE(timer->isValid());
}

TEST(CocoaTimerImpl, CreateBringsNoTickAtOnce) {
  MainContext context;
  TickRecorder recorder;
  const auto timer = CocoaTimerImpl::initWithTimerID(9);
  timer->createTimerWithInterval(60'000, &recorder, true);
  timer->fire();
  timer->stopTimer();
  context.turnOnce();
  EXPECT_TRUE(recorder.ticks.empty());
  EXPECT_TRUE(timer->isValid()) << "stopTimer() stops nothing";
  timer->invalidate();
}

TEST(CocoaTimerImpl, TheLoopKeepsItUntilInvalidated) {
  MainContext context;
  TickRecorder recorder;
  std::weak_ptr<CocoaTimerImpl> seen;
  {
    const auto timer = CocoaTimerImpl::initWithTimerID(9);
    timer->scheduleTimerWithInterval(1, &recorder, true);
    seen = timer;
  }
  EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(9) > 2; }));
  seen.lock()->invalidate();
  EXPECT_TRUE(seen.expired());
}

TEST(CocoaTimerImpl, OutlivesItsOwnTick) {
  MainContext context;
  TickRecorder recorder;
  auto timer = CocoaTimerImpl::initWithTimerID(9);
  const std::weak_ptr<CocoaTimerImpl> seen = timer;
  recorder.onTick = [&](TimerID) {
    timer->invalidate();
    timer.reset();
    EXPECT_FALSE(seen.expired());
  };
  timer->scheduleTimerWithInterval(1, &recorder, true);
  EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(9) == 1; }));
  EXPECT_TRUE(seen.expired());
}

TEST(CocoaTimerImpl, TicksWhileTrackingAndNotUnderAPanel) {
  MainContext context;
  TickRecorder recorder;
  const auto timer = CocoaTimerImpl::initWithTimerID(9);
  timer->scheduleTimerWithInterval(1, &recorder, true);
  {
    const RunLoop::ModeScope panel(RunLoopMode::ModalPanel);
    const gint64 end = g_get_monotonic_time() + 30'000;
    EXPECT_TRUE(context.turnUntil([&] { return g_get_monotonic_time() > end; }));
    EXPECT_TRUE(recorder.ticks.empty());
  }
  {
    const RunLoop::ModeScope tracking(RunLoopMode::EventTracking);
    EXPECT_TRUE(context.turnUntil([&] { return recorder.countOf(9) > 3; }));
  }
  timer->invalidate();
}
TEST(CocoaTimerImpl, EndsWithItsLoop) {
  TickRecorder recorder;
  std::weak_ptr<CocoaTimerImpl> seen;
  {
    MainContext context;
    const auto timer = CocoaTimerImpl::initWithTimerID(9);
    timer->scheduleTimerWithInterval(1, &recorder, true);
    seen = timer;
  }
  EXPECT_TRUE(seen.expired());
}

TEST(CocoaTimerImpl, HasNoTimerOnceInvalidated) {
  MainContext context;
  TickRecorder recorder;
  const auto timer = CocoaTimerImpl::initWithTimerID(9);
  timer->invalidate();
  EXPECT_EQ(timer->getInterval(), 0u);
  timer->scheduleTimerWithInterval(2000, &recorder, true);
  EXPECT_EQ(timer->getInterval(), 2000u);
  timer->invalidate();
  EXPECT_EQ(timer->getInterval(), 0u);
  EXPECT_FALSE(timer->isValid());
  timer->invalidate();
}

}  // namespace
