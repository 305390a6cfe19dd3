#pragma once

#include <sys/stat.h>

namespace foundation {

/// What tells one state of a file from another: device, inode, size, and the change that nobody can date back. A value.
class FileState {
 public:
  explicit FileState(const struct stat& status);

  /// Whether a further change could not have the same date: those of a file are as coarse as the kernel's ticks.
  bool isSettled() const;

  bool operator==(const FileState&) const = default;

 private:
  dev_t device_;
  ino_t inode_;
  off_t size_;
  time_t seconds_;
  long nanoseconds_;
};

}  // namespace foundation
