#pragma once

// A GLib main context that is the thread-default one of the test's thread, so that each test has a run loop
// of its own.

#include <glib.h>

#include <chrono>

class MainContext {
 public:
  MainContext() : context_(g_main_context_new()) { g_main_context_push_thread_default(context_); }
  ~MainContext() {
    g_main_context_pop_thread_default(context_);
    g_main_context_unref(context_);
  }
  MainContext(const MainContext&) = delete;
  MainContext& operator=(const MainContext&) = delete;

  GMainContext* get() const { return context_; }
  /// What is ready now, without waiting.
  bool turnOnce() { return g_main_context_iteration(context_, FALSE); }

  /// Turns until `done`; false when it is not after 20 s.
  template <typename Predicate>
  bool turnUntil(Predicate done) {
    const gint64 end = g_get_monotonic_time() + 20 * G_USEC_PER_SEC;
    GSource* wakeUp = g_timeout_source_new(5);
    g_source_set_callback(
        wakeUp, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
    g_source_attach(wakeUp, context_);
    while (!done() && g_get_monotonic_time() < end) {
      g_main_context_iteration(context_, TRUE);
    }
    g_source_destroy(wakeUp);
    g_source_unref(wakeUp);
    return done();
  }

 private:
  GMainContext* context_;
};
