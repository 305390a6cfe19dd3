#include "foundation/runloop/ContextRunLoop.h"

#include <pthread.h>

#include <map>
#include <new>
#include <utility>

#include "foundation/runloop/CurrentThread.h"

namespace foundation {

struct ContextRunLoop::Registry {
  std::mutex mutex;
  std::map<GMainContext*, std::shared_ptr<ContextRunLoop>> loops;
};

ContextRunLoop::Registry& ContextRunLoop::registry() {
  // Never destroyed: threads that are still running while the process exits may hand work over.
  static Registry* const all = new Registry;
  return *all;
}

/// Called as the library is loaded: what a thread is still making while another one forks stays half made in the child.
/// All locks are taken around a fork. Other threads call GLib for a loop under its lock only, so GLib's own lock of the
/// context is free in the child, too.
void ContextRunLoop::handleForks() {
  registry();
  pthread_atfork(
      [] {
        registry().mutex.lock();
        for (const auto& [context, loop] : registry().loops) {
          loop->mutex_.lock();
        }
      },
      [] {
        for (const auto& [context, loop] : registry().loops) {
          loop->mutex_.unlock();
        }
        registry().mutex.unlock();
      },
      [] {
        for (const auto& [context, loop] : registry().loops) {
          loop->forgetInChild();
          loop->mutex_.unlock();
        }
        registry().mutex.unlock();
      });
}

/// Under the lock. What the parent's threads have handed over concerns what the child has not got, and may hold what is
/// locked for ever, so it is not released.
void ContextRunLoop::forgetInChild() {
  new (&incoming_) decltype(incoming_);
  new (&ready_) decltype(ready_);
}

struct ContextRunLoop::Source {
  static gboolean dispatch(GSource*, GSourceFunc, gpointer loop) {
    static_cast<ContextRunLoop*>(loop)->runQueued();
    return G_SOURCE_CONTINUE;
  }
  static gboolean nothing(gpointer) { return G_SOURCE_CONTINUE; }
  static void contextEnded(gpointer loop) { static_cast<ContextRunLoop*>(loop)->contextEnded(); }
};

std::shared_ptr<ContextRunLoop> ContextRunLoop::of(GMainContext* context) {
  GMainContext* const key = context != nullptr ? context : g_main_context_default();
  Registry& all = registry();
  const std::lock_guard lock(all.mutex);
  std::shared_ptr<ContextRunLoop>& loop = all.loops[key];
  if (!loop) {
    loop.reset(new ContextRunLoop(key));
    loop->attach();
  }
  return loop;
}

ContextRunLoop::ContextRunLoop(GMainContext* context) : context_(context) {
}

void ContextRunLoop::attach() {
  static GSourceFuncs functions = {
      .prepare = nullptr,
      .check = nullptr,
      .dispatch = &Source::dispatch,
      .finalize = nullptr,
      .closure_callback = nullptr,
      .closure_marshal = nullptr,
  };
  source_ = g_source_new(&functions, sizeof(GSource));
  g_source_set_name(source_, "zep.performs");
  // A block may turn the loop; what is queued behind it must go on then.
  g_source_set_can_recurse(source_, TRUE);
  // The registry keeps the loop until this source goes, and the source goes with its context.
  g_source_set_callback(source_, &Source::nothing, this, &Source::contextEnded);
  g_source_attach(source_, context_);
}

ContextRunLoop::~ContextRunLoop() {
  g_source_unref(source_);
}

void ContextRunLoop::perform(std::function<void()>&& block) {
  const std::lock_guard lock(mutex_);
  if (ended_) {
    return;
  }
  incoming_.push_back(std::move(block));
  if (incoming_.size() == 1) {
    g_source_set_ready_time(source_, 0);
  }
}

bool ContextRunLoop::isCurrent() const {
  // A context that has ended may have left its address to another one.
  if (privateLoopOfThisThread() != nullptr || ended_) {
    return false;
  }
  GMainContext* own = g_main_context_get_thread_default();
  if (context_ != (own != nullptr ? own : g_main_context_default())) {
    return false;
  }
  if (g_main_context_is_owner(context_)) {
    return true;
  }
  // Every thread without a context of its own finds the default one, but only one can turn it. GLib tells who
  // does only by an attempt to hold it.
  if (!g_main_context_acquire(context_)) {
    return false;
  }
  g_main_context_release(context_);
  return true;
}

void ContextRunLoop::runQueued() noexcept {
  std::shared_ptr<ContextRunLoop> self;
  {
    const std::lock_guard lock(mutex_);
    self = shared_from_this();
    ready_.splice(ready_.end(), incoming_);
    if (ready_.empty()) {
      g_source_set_ready_time(source_, -1);  // a fork has dropped what it was due for
    }
  }
  // What the blocks post comes in a later turn, so that the host's own sources get theirs.
  for (std::size_t left = ready_.size(); left > 0 && !ready_.empty(); --left) {
    const std::function<void()> block = takeReady();
    block();
  }
}

std::function<void()> ContextRunLoop::takeReady() {
  std::function<void()> block = std::move(ready_.front());
  ready_.pop_front();
  const std::lock_guard lock(mutex_);
  if (ready_.empty() && incoming_.empty()) {
    g_source_set_ready_time(source_, -1);
  }
  return block;
}

void ContextRunLoop::contextEnded() {
  std::list<std::function<void()>> dropped;
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    dropped.swap(incoming_);
  }
  // Nobody turns the loop any more; these would stay for as long as somebody holds it.
  const std::list<std::function<void()>> notRun = std::exchange(ready_, {});
  std::shared_ptr<ContextRunLoop> self;
  {
    Registry& all = registry();
    const std::lock_guard lock(all.mutex);
    const auto found = all.loops.find(context_);
    if (found != all.loops.end() && found->second.get() == this) {
      self = std::move(found->second);
      all.loops.erase(found);
    }
  }
}

}  // namespace foundation
