#include "foundation/ZEP_Foundation.h"

#include <glib.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "foundation/base/JsonText.h"
#include "foundation/base/Release.h"
#include "foundation/notification/NotificationCenter.h"
#include "foundation/panel/TrustPanelRunner.h"
#include "foundation/runloop/CurrentThread.h"

namespace {

using foundation::NotificationCenter;

using MainLoop = std::unique_ptr<GMainLoop, foundation::Release<g_main_loop_unref>>;
using MainContext = std::unique_ptr<GMainContext, foundation::Release<g_main_context_unref>>;

/// One ZEP_RunLoop_Run. Those of a thread are chained, so that a stop finds the innermost.
class Run {
 public:
  explicit Run(GMainContext* context)
      : loop_(g_main_loop_new(context, FALSE)), outer_(std::exchange(innermost_, this)) {}
  ~Run() { innermost_ = outer_; }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  /// The calling thread's, or null.
  static Run* innermost() { return innermost_; }
  GMainLoop* loop() const { return loop_.get(); }
  bool wasStopped() const { return wasStopped_; }
  void stop() {
    wasStopped_ = true;
    g_main_loop_quit(loop_.get());
  }

 private:
  static thread_local Run* innermost_;

  const MainLoop loop_;
  Run* const outer_;
  bool wasStopped_ = false;
};

thread_local Run* Run::innermost_ = nullptr;

/// Holds the context for this thread while it is turned.
class Ownership {
 public:
  explicit Ownership(GMainContext* context) : context_(g_main_context_acquire(context) ? context : nullptr) {}
  ~Ownership() {
    if (context_ != nullptr) {
      g_main_context_release(context_);
    }
  }
  Ownership(const Ownership&) = delete;
  Ownership& operator=(const Ownership&) = delete;
  bool isHeld() const { return context_ != nullptr; }

 private:
  GMainContext* context_;
};

constexpr gint64 kLongestMs = gint64{1000} * 60 * 60 * 24 * 365;

/// Ends a loop after a time; gone when the run is over.
class Deadline {
 public:
  Deadline(GMainContext* context, GMainLoop* loop, gint64 end) : source_(g_timeout_source_new(0)) {
    // Before everything else: sources that stay ready would keep it from its turn.
    g_source_set_priority(source_, G_MININT);
    g_source_set_callback(source_, &Deadline::quit, loop, nullptr);
    g_source_set_ready_time(source_, end);
    g_source_attach(source_, context);
  }
  ~Deadline() {
    g_source_destroy(source_);
    g_source_unref(source_);
  }
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

 private:
  static gboolean quit(gpointer loop) {
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_REMOVE;
  }
  GSource* source_;
};

long runLoop(GMainContext* context, long milliseconds) {
  // Sources that stay ready would keep a run that does not wait busy for ever.
  constexpr int kMostTurns = 100;
  const gint64 end = g_get_monotonic_time() + std::clamp<gint64>(milliseconds, 0, kLongestMs) * 1000;
  Run run(context);
  // A timed run gets one turn whatever its time: the shortest one brings the work forward.
  int turnsLeft = milliseconds == 0 ? kMostTurns : 1;
  while (turnsLeft-- > 0 && !run.wasStopped() && g_main_context_iteration(context, FALSE)) {
  }
  if (milliseconds != 0 && !run.wasStopped()) {
    std::optional<Deadline> deadline;
    if (milliseconds > 0) {
      deadline.emplace(context, run.loop(), end);
    }
    g_main_loop_run(run.loop());
  }
  return run.wasStopped() ? 1 : 0;
}

}  // namespace

long ZEP_Notification_AddObserver(const char* name, ZEP_NotificationObserver fn, void* context) {
  if (name == nullptr || fn == nullptr) {
    return -1;
  }
  return NotificationCenter::defaultCenter().addObserver(
      nullptr, name, [fn, context](const foundation::Notification& notification) {
        const std::string observedName(notification.name);
        fn(observedName.c_str(), notification.object, notification.userInfoText(), context);
      });
}

long ZEP_Notification_RemoveObserver(long token) {
  return NotificationCenter::defaultCenter().removeObserver(token) ? 0 : -1;
}

long ZEP_Notification_Post(const char* name, const void* object, const char* userInfo) {
  if (name == nullptr) {
    return -1;
  }
  if (userInfo == nullptr) {
    NotificationCenter::defaultCenter().post(name, object, nullptr);
    return 0;
  }
  const auto dictionary = foundation::dictionaryFromJsonText(userInfo);
  if (!dictionary) {
    return -2;
  }
  NotificationCenter::defaultCenter().post(name, object, &*dictionary);
  return 0;
}

long ZEP_TrustPanel_SetRunner(ZEP_TrustPanelRunner fn, void* context) {
  foundation::setPanelRunner(fn, context);
  return 0;
}

long ZEP_RunLoop_Run(long milliseconds) {
  if (foundation::privateLoopOfThisThread() != nullptr) {
    return -1;
  }
  const MainContext context(g_main_context_ref_thread_default());
  const Ownership ownership(context.get());
  return ownership.isHeld() ? runLoop(context.get(), milliseconds) : -1;
}

long ZEP_RunLoop_Stop(void) {
  Run* const run = Run::innermost();
  if (run == nullptr) {
    return -1;
  }
  run->stop();
  return 0;
}
