#include "foundation/runloop/ContextRunLoop.h"

#include <map>
#include <utility>

#include "foundation/runloop/CurrentThread.h"

namespace foundation {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<GMainContext*, std::shared_ptr<ContextRunLoop>> loops;
};

Registry& registry() {
  // Never destroyed: threads that are still running while the process exits may hand work over.
  static Registry* const all = new Registry;
  return *all;
}

}  // namespace

struct ContextRunLoop::Source {
  GSource base;
  ContextRunLoop* loop;

  // What posted it wakes the loop by the ready time; what was taken over but not run yet keeps it going.
  static gboolean prepare(GSource* source, gint* timeout) {
    *timeout = -1;
    return check(source);
  }
  static gboolean check(GSource* source) {
    return reinterpret_cast<Source*>(source)->loop->ready_.empty() ? FALSE : TRUE;
  }
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
      .prepare = &Source::prepare,
      .check = &Source::check,
      .dispatch = &Source::dispatch,
      .finalize = nullptr,
      .closure_callback = nullptr,
      .closure_marshal = nullptr,
  };
  source_ = g_source_new(&functions, sizeof(Source));
  reinterpret_cast<Source*>(source_)->loop = this;
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

void ContextRunLoop::perform(std::function<void()> block) {
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
  if (privateLoopOfThisThread() != nullptr) {
    return false;
  }
  GMainContext* own = g_main_context_get_thread_default();
  return context_ == (own != nullptr ? own : g_main_context_default());
}

void ContextRunLoop::runQueued() {
  const std::shared_ptr<ContextRunLoop> self = shared_from_this();
  std::deque<std::function<void()>> arrived;
  {
    const std::lock_guard lock(mutex_);
    g_source_set_ready_time(source_, -1);
    arrived.swap(incoming_);
  }
  for (auto& block : arrived) {
    ready_.push_back(std::move(block));
  }
  // What the blocks post comes in a later turn, so that the host's own sources get theirs.
  for (std::size_t left = ready_.size(); left > 0 && !ready_.empty(); --left) {
    const std::function<void()> block = std::move(ready_.front());
    ready_.pop_front();
    block();
  }
}

void ContextRunLoop::contextEnded() {
  std::deque<std::function<void()>> dropped;
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    dropped.swap(incoming_);
  }
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
