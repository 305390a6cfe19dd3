#pragma once

#include <limits>

namespace test {

/// While it lives the system refuses threads to everybody in this process: pthread_create fails with `error`, for
/// `most` requests from the one numbered `first` (from 0) on. One at a time.
class ThreadRefusal {
 public:
  explicit ThreadRefusal(int error, int first = 0, int most = std::numeric_limits<int>::max());
  ~ThreadRefusal();
  ThreadRefusal(const ThreadRefusal&) = delete;
  ThreadRefusal& operator=(const ThreadRefusal&) = delete;

  /// How many threads have been asked for since it was made.
  static int count();
};

}  // namespace test
