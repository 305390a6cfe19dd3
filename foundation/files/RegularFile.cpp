#include "foundation/files/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace foundation {

RegularFile::RegularFile(const std::string& path, Access access)
    // Not blocking: a pipe without somebody at its other end, or a device, must not hold the thread.
    : descriptor_(open(path.c_str(), (access == Access::Reading ? O_RDONLY : O_WRONLY | O_APPEND) |
                                         O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
  if (!isOpen()) {
    error_ = errno;
    return;
  }
  struct stat status {};
  if (fstat(descriptor_.number(), &status) != 0) {
    error_ = errno;
    descriptor_.reset();
    return;
  }
  if (!S_ISREG(status.st_mode)) {
    descriptor_.reset();
    return;
  }
  size_ = static_cast<std::size_t>(status.st_size);
}

ssize_t RegularFile::read(char* bytes, std::size_t most) const {
  ssize_t got = 0;
  do {
    got = ::read(descriptor_.number(), bytes, most);
  } while (got < 0 && errno == EINTR);
  return got;
}

std::optional<std::string> RegularFile::readAll(std::size_t most) const {
  constexpr std::size_t kPiece = 64 << 10;
  std::string bytes;
  while (bytes.size() <= most) {
    const std::size_t length = bytes.size();
    bytes.resize(length + kPiece);
    const ssize_t got = read(bytes.data() + length, kPiece);
    if (got < 0) {
      return std::nullopt;
    }
    bytes.resize(length + static_cast<std::size_t>(got));
    if (got == 0) {
      return bytes;
    }
  }
  return std::nullopt;
}

}  // namespace foundation
