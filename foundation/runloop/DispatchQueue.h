#pragma once

#include <functional>

#include "foundation/base/Export.h"

namespace foundation {

/// Where blocks are sent to run. Used from any thread; lives as long as the process. An exception that
/// escapes a block ends the process. The child of a fork(2) has none of its parent's blocks.
class FOUNDATION_EXPORT DispatchQueue {
 public:
  /// Worker threads, made as needed and few; blocks run side by side in no fixed order.
  static DispatchQueue& global();
  /// Worker threads of their own for the foundation's short jobs: whatever waits in global(), for a person
  /// perhaps, does not hold these up.
  static DispatchQueue& workers();
  /// The default main context: blocks run one after another on the application's main thread. A block that turns
  /// the main run loop itself does not let another in: the next one begins when it has ended.
  static DispatchQueue& main();

  virtual ~DispatchQueue();
  DispatchQueue(const DispatchQueue&) = delete;
  DispatchQueue& operator=(const DispatchQueue&) = delete;

  /// Runs `block` later; does not wait. False: it is released without having been run, because the system refuses a
  /// thread and the queue has none. Never so for main(). Throws std::bad_alloc, and then it is not run either.
  [[nodiscard]] virtual bool async(std::function<void()> block) = 0;
  /// Runs `block` and waits for its end; without a thread for it, on the calling one. On the main thread, main().sync()
  /// runs it at once instead of waiting for itself; a wait for it ends when the process does, whether the block has run
  /// or not.
  virtual void sync(const std::function<void()>& block) = 0;

 protected:
  DispatchQueue() = default;
};

}  // namespace foundation
