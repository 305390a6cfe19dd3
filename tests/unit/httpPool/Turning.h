#pragma once

// Turns the calling thread's run loop until something has happened.

#include <chrono>

#include "foundation/ZEP_Foundation.h"

/// True as soon as the predicate is; false when it still is not at the (generous) limit.
template <typename Predicate>
bool turnUntil(Predicate predicate, std::chrono::seconds limit = std::chrono::seconds(30)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!predicate()) {
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    ZEP_RunLoop_Run(5);
  }
  return true;
}

/// Runs what is due now.
inline void turnOnce() {
  ZEP_RunLoop_Run(0);
}
