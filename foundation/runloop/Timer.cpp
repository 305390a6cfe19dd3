#include "foundation/runloop/Timer.h"

#include <glib.h>

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "foundation/runloop/CurrentThread.h"

namespace foundation {

/// The GLib side. It holds the timer as long as it is scheduled.
struct Timer::Source {
  GSource base;
  std::shared_ptr<Timer> timer;

  static gboolean dispatch(GSource* source, GSourceFunc, gpointer) {
    // The beat may invalidate the timer; it has to outlive it.
    const std::shared_ptr<Timer> timer = reinterpret_cast<Source*>(source)->timer;
    timer->beat();
    return timer->isValid() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
  }
  static void finalize(GSource* source) {
    std::shared_ptr<Timer>& held = reinterpret_cast<Source*>(source)->timer;
    const std::shared_ptr<Timer> timer = std::move(held);
    std::destroy_at(&held);
    // The context may have ended before the timer; the callback may be what holds the timer.
    timer->source_ = nullptr;
    const std::shared_ptr<Callback> callback = std::move(timer->callback_);
  }
};

std::shared_ptr<Timer> Timer::scheduled(std::chrono::microseconds interval, Repeats repeats,
                                        Callback callback) {
  constexpr std::chrono::microseconds kShortest{100};
  constexpr std::chrono::microseconds kLongest = std::chrono::years(200);
  std::shared_ptr<Timer> timer(
      new Timer(std::clamp(interval, kShortest, kLongest), repeats, std::move(callback)));
  if (privateLoopOfThisThread() == nullptr) {
    timer->schedule(timer);
  } else {
    timer->invalidate();
  }
  return timer;
}

Timer::Timer(std::chrono::microseconds interval, Repeats repeats, Callback callback)
    : interval_(interval), repeats_(repeats), callback_(std::make_shared<Callback>(std::move(callback))) {
}

Timer::~Timer() = default;

void Timer::schedule(const std::shared_ptr<Timer>& self) {
  static GSourceFuncs functions = {
      .prepare = nullptr,
      .check = nullptr,
      .dispatch = &Source::dispatch,
      .finalize = &Source::finalize,
      .closure_callback = nullptr,
      .closure_marshal = nullptr,
  };
  GSource* source = g_source_new(&functions, sizeof(Source));
  source_ = reinterpret_cast<Source*>(source);
  new (&source_->timer) std::shared_ptr<Timer>(self);
  g_source_set_name(source, "zep.timer");
  due_ = g_get_monotonic_time() + interval_.count();
  g_source_set_ready_time(source, due_);
  g_source_attach(source, g_main_context_get_thread_default());
  g_source_unref(source);
}

void Timer::beat() noexcept {
  if (source_ == nullptr) {
    return;
  }
  const bool served = (modes_ & static_cast<unsigned>(RunLoop::currentMode())) != 0;
  // The grid stays; beats that were missed are not made up for.
  const std::int64_t interval = interval_.count();
  due_ += interval * (std::max<std::int64_t>(g_get_monotonic_time() - due_, 0) / interval + 1);
  g_source_set_ready_time(&source_->base, due_);
  if (!served) {
    return;
  }
  const std::shared_ptr<Callback> callback = callback_;
  if (repeats_ == Repeats::No) {
    invalidate();
  }
  (*callback)(*this);
}

void Timer::addToMode(RunLoopMode mode) {
  modes_ |= static_cast<unsigned>(mode);
}

void Timer::invalidate() {
  // Let go of last: releasing it may come back here, and it may be what holds this timer.
  const std::shared_ptr<Callback> callback = std::move(callback_);
  if (Source* source = std::exchange(source_, nullptr)) {
    g_source_destroy(&source->base);
  }
}

bool Timer::isValid() const {
  return source_ != nullptr;
}

}  // namespace foundation
