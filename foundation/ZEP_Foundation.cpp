#include "foundation/ZEP_Foundation.h"

#include <glib.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/base/JsonText.h"
#include "foundation/notification/NotificationCenter.h"
#include "foundation/runloop/CurrentThread.h"

namespace {

using foundation::NotificationCenter;

template <auto Release>
struct Unref {
  template <typename T>
  void operator()(T* object) const {
    Release(object);
  }
};
using MainLoop = std::unique_ptr<GMainLoop, Unref<g_main_loop_unref>>;
using MainContext = std::unique_ptr<GMainContext, Unref<g_main_context_unref>>;

/// The runs of ZEP_RunLoop_Run on this thread, the innermost last.
struct RunningLoop {
  GMainLoop* loop;
  bool wasStopped;
};
thread_local std::vector<RunningLoop*> runningLoops;

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
  Deadline(GMainContext* context, GMainLoop* loop, long milliseconds) : source_(g_timeout_source_new(0)) {
    g_source_set_callback(source_, &Deadline::quit, loop, nullptr);
    g_source_set_ready_time(source_,
                            g_get_monotonic_time() + std::min<gint64>(milliseconds, kLongestMs) * 1000);
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
  const MainLoop loop(g_main_loop_new(context, FALSE));
  RunningLoop running{loop.get(), false};
  runningLoops.push_back(&running);
  {
    std::optional<Deadline> deadline;
    if (milliseconds >= 0) {
      deadline.emplace(context, loop.get(), milliseconds);
    }
    g_main_loop_run(loop.get());
  }
  runningLoops.pop_back();
  return running.wasStopped ? 1 : 0;
}

}  // namespace

long ZEP_Notification_AddObserver(const char* name, ZEP_NotificationObserver fn, void* context) {
  if (name == nullptr || fn == nullptr) {
    return -1;
  }
  return NotificationCenter::defaultCenter().addObserver(
      nullptr, name, [fn, context](const foundation::Notification& notification) {
        const std::string observedName(notification.name);
        const std::string userInfo =
            notification.userInfo ? foundation::jsonText(*notification.userInfo) : "";
        fn(observedName.c_str(), notification.object, notification.userInfo ? userInfo.c_str() : nullptr,
           context);
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

long ZEP_RunLoop_Run(long milliseconds) {
  if (foundation::privateLoopOfThisThread() != nullptr) {
    return -1;
  }
  const MainContext context(g_main_context_ref_thread_default());
  const Ownership ownership(context.get());
  return ownership.isHeld() ? runLoop(context.get(), milliseconds) : -1;
}

long ZEP_RunLoop_Stop(void) {
  if (runningLoops.empty()) {
    return -1;
  }
  runningLoops.back()->wasStopped = true;
  g_main_loop_quit(runningLoops.back()->loop);
  return 0;
}
