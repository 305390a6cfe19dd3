#pragma once

// What the calling process holds.

#include <cstddef>
#include <string>
#include <vector>

namespace test {

struct ProcessState {
  /// What each is, and where a socket leads; sorted.
  std::vector<std::string> descriptors = {};
  /// Beside these, connections that their peers have ended.
  std::size_t deadConnections = 0;
  std::size_t threads = 0;
  /// Bytes that are allocated and not freed; 0 under a sanitizer, which has an allocator of its own.
  std::size_t allocated = 0;

  static ProcessState now();
};

/// The last of these alone.
std::size_t allocatedBytes();

/// How many threads of requests there are, running or kept for the next one.
std::size_t requestThreads();

}  // namespace test
