#pragma once

#include <glib.h>

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>

#include "foundation/base/Export.h"
#include "foundation/runloop/RunLoop.h"

namespace foundation {

/// The run loop of a GLib main context, which whoever owns the thread turns: the host's toolkit, or
/// ZEP_RunLoop_Run. One source on the context serves all performs. There is one loop for each context; it
/// does not keep the context alive, and ends with it: what is queued then is released, what is posted later
/// dropped. What is queued at a fork(2) is not the child's.
class ContextRunLoop final : public RunLoop, public std::enable_shared_from_this<ContextRunLoop> {
 public:
  /// The loop of `context`, null for the default context. Any thread.
  static std::shared_ptr<ContextRunLoop> of(GMainContext* context);

  ~ContextRunLoop() override;

  void perform(std::function<void()>&& block) override;
  bool isCurrent() const override;

  /// The calling thread's own context. Never null.
  GMainContext* context() const { return context_; }

 private:
  struct Source;
  struct Registry;
  static Registry& registry();
  [[gnu::constructor]] static void handleForks();

  explicit ContextRunLoop(GMainContext* context);
  void attach();
  void runQueued() noexcept;
  std::function<void()> takeReady();
  void contextEnded();
  void forgetInChild();

  /// Compared, and used on the loop's own thread; it may be gone on others.
  GMainContext* const context_;
  /// Due while anything is queued in either queue, and only then. Its ready time is set under the lock.
  GSource* source_ = nullptr;

  std::mutex mutex_;
  std::list<std::function<void()>> incoming_;
  /// Written under the lock.
  std::atomic<bool> ended_{false};

  /// The loop's thread only.
  std::list<std::function<void()>> ready_;
};

}  // namespace foundation
