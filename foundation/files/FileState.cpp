#include "foundation/files/FileState.h"

#include <ctime>

namespace foundation {

FileState::FileState(const struct stat& status)
    : device_(status.st_dev),
      inode_(status.st_ino),
      size_(status.st_size),
      seconds_(status.st_ctim.tv_sec),
      nanoseconds_(status.st_ctim.tv_nsec) {
}

bool FileState::isSettled() const {
  constexpr time_t kSeconds = 1;
  timespec now = {};
  return clock_gettime(CLOCK_REALTIME, &now) == 0 && now.tv_sec > seconds_ + kSeconds;
}

}  // namespace foundation
