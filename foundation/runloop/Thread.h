#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "foundation/base/Export.h"
#include "foundation/runloop/RunLoop.h"

namespace foundation {

/// A thread that work can be handed to, by way of its run loop. A small value, copied freely, used from any
/// thread. It refers to the loop, not to the system's thread: work handed to a loop that nobody turns waits.
class FOUNDATION_EXPORT Thread {
 public:
  /// No thread: hand-overs to it are dropped.
  Thread() = default;

  static Thread current() { return Thread(RunLoop::current()); }
  static Thread main() { return Thread(RunLoop::main()); }

  bool isValid() const { return loop_ != nullptr; }
  bool isCurrent() const { return loop_ && loop_->isCurrent(); }

  /// Runs `block` later on this thread without waiting for it, in all modes. The block holds strong references
  /// to what it works on.
  void perform(std::function<void()>&& block) const {
    if (loop_) {
      loop_->perform(std::move(block));
    }
  }

 private:
  explicit Thread(std::shared_ptr<RunLoop> loop) : loop_(std::move(loop)) {}

  std::shared_ptr<RunLoop> loop_;
};

}  // namespace foundation
