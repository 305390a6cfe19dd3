#include "foundation/runloop/RunLoop.h"

#include <utility>

#include "foundation/runloop/ContextRunLoop.h"
#include "foundation/runloop/CurrentThread.h"
#include "foundation/runloop/ThreadRunLoop.h"

namespace foundation {
namespace {

// Without destructors: the main thread asks for them until the very end of the process.
thread_local const std::shared_ptr<ThreadRunLoop>* privateLoop = nullptr;
thread_local RunLoopMode mode = RunLoopMode::Default;

}  // namespace

const std::shared_ptr<ThreadRunLoop>& privateLoopOfThisThread() {
  static const auto* const none = new std::shared_ptr<ThreadRunLoop>;
  return privateLoop != nullptr ? *privateLoop : *none;
}

void setPrivateLoopOfThisThread(const std::shared_ptr<ThreadRunLoop>* loop) {
  privateLoop = loop;
}

RunLoop::~RunLoop() = default;

std::shared_ptr<RunLoop> RunLoop::current() {
  if (const auto& loop = privateLoopOfThisThread()) {
    return loop;
  }
  return ContextRunLoop::of(g_main_context_get_thread_default());
}

std::shared_ptr<RunLoop> RunLoop::main() {
  return ContextRunLoop::of(nullptr);
}

RunLoopMode RunLoop::currentMode() {
  return mode;
}

RunLoop::ModeScope::ModeScope(RunLoopMode inner) : outer_(std::exchange(mode, inner)) {
}

RunLoop::ModeScope::~ModeScope() {
  mode = outer_;
}

}  // namespace foundation
