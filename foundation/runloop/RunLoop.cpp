#include "foundation/runloop/RunLoop.h"

#include <cassert>
#include <vector>

#include "foundation/runloop/ContextRunLoop.h"
#include "foundation/runloop/CurrentThread.h"
#include "foundation/runloop/ThreadRunLoop.h"

namespace foundation {
namespace {

thread_local std::shared_ptr<ThreadRunLoop> privateLoop;
thread_local std::vector<RunLoopMode> modes;

}  // namespace

const std::shared_ptr<ThreadRunLoop>& privateLoopOfThisThread() {
  return privateLoop;
}

void setPrivateLoopOfThisThread(std::shared_ptr<ThreadRunLoop> loop) {
  privateLoop = std::move(loop);
}

RunLoop::~RunLoop() = default;

std::shared_ptr<RunLoop> RunLoop::current() {
  if (privateLoop) {
    return privateLoop;
  }
  return ContextRunLoop::of(g_main_context_get_thread_default());
}

std::shared_ptr<RunLoop> RunLoop::main() {
  return ContextRunLoop::of(nullptr);
}

RunLoopMode RunLoop::currentMode() {
  return modes.empty() ? RunLoopMode::Default : modes.back();
}

RunLoop::ModeScope::ModeScope(RunLoopMode mode) {
  modes.push_back(mode);
}

RunLoop::ModeScope::~ModeScope() {
  assert(!modes.empty());
  modes.pop_back();
}

}  // namespace foundation
