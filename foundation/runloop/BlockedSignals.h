#pragma once

#include <signal.h>

#include "foundation/base/Export.h"

namespace foundation {

/// While it lives, the calling thread takes no signal but those that its own faults raise. A thread that is
/// started meanwhile inherits this: signals that are sent to the process keep going to the host's threads,
/// where their handlers are expected to run.
class FOUNDATION_EXPORT BlockedSignals {
 public:
  BlockedSignals();
  ~BlockedSignals();
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t before_;
};

}  // namespace foundation
