#pragma once

namespace test {

/// While it lives the system has no threads for anybody in this process: pthread_create fails with `error`.
/// One at a time.
class ThreadRefusal {
 public:
  explicit ThreadRefusal(int error);
  ~ThreadRefusal();
  ThreadRefusal(const ThreadRefusal&) = delete;
  ThreadRefusal& operator=(const ThreadRefusal&) = delete;

  /// How many threads have been asked for since it was made.
  static int count();
};

}  // namespace test
