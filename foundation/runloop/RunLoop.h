#pragma once

#include <functional>
#include <memory>

#include "foundation/base/Export.h"

namespace foundation {

/// The mode a thread's run loop is being turned in.
enum class RunLoopMode : unsigned { Default = 1, EventTracking = 2, ModalPanel = 4 };

/// A set of modes.
using RunLoopModes = unsigned;

/// A thread's queue of work. There are two kinds: the loop of a GLib main context, which the host's toolkit
/// turns (ContextRunLoop), and the private loop of a thread that this library made, which that thread turns
/// itself and which needs no descriptor (ThreadRunLoop).
///
/// A loop is shared by everyone who may still post to it. perform() may be called on any thread; everything
/// else belongs to the loop's own thread.
class FOUNDATION_EXPORT RunLoop {
 public:
  virtual ~RunLoop();

  /// The calling thread's loop: its ThreadRunLoop if it has one, else the loop of its thread-default main
  /// context (g_main_context_get_thread_default(3)), else that of the default context.
  static std::shared_ptr<RunLoop> current();
  /// The loop of the default main context: the application's main thread.
  static std::shared_ptr<RunLoop> main();

  /// Queues `block` to run on the loop's thread, first in first out, never on the calling thread's stack.
  /// Whatever the block captures is released on the loop's thread after it ran, or when the loop ends.
  /// An exception that escapes the block ends the process. Throws std::bad_alloc, and then
  /// nothing is queued and the block is still the caller's.
  virtual void perform(std::function<void()>&& block) = 0;

  /// True on the thread that turns this loop (for a main context: the thread that would find it as current()
  /// and may turn it).
  virtual bool isCurrent() const = 0;

  /// The mode the calling thread turns its loop in; Default when nothing else was pushed.
  static RunLoopMode currentMode();

  /// While it lives, the calling thread's mode is `mode`.
  class FOUNDATION_EXPORT ModeScope {
   public:
    explicit ModeScope(RunLoopMode mode);
    ~ModeScope();
    ModeScope(const ModeScope&) = delete;
    ModeScope& operator=(const ModeScope&) = delete;

   private:
    const RunLoopMode outer_;
  };

 protected:
  RunLoop() = default;
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;
};

}  // namespace foundation
