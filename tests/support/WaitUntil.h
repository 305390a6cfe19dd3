#pragma once

// Waits for something that another process or thread brings about. The limit is generous on purpose: it only
// decides how long a broken test takes, never whether a slow machine passes.

#include <chrono>
#include <thread>

namespace test {

inline constexpr std::chrono::milliseconds kDefaultLimit{20'000};

/// True as soon as the predicate is; false when it still is not at the limit.
template <typename Predicate>
bool waitUntil(Predicate predicate, std::chrono::milliseconds limit = kDefaultLimit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!predicate()) {
    if (std::chrono::steady_clock::now() >= end) {
      return predicate();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace test
