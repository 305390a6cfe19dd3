#include "foundation/files/FileHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace foundation {

std::optional<FileHandle> FileHandle::forAppendingAtPath(const std::string& path) {
  // Not blocking: a pipe without a reader, or a device, must not hold the thread.
  Descriptor descriptor(open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!descriptor.isOpen() || fstat(descriptor.number(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  return FileHandle(std::move(descriptor));
}

bool FileHandle::writeData(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor_.number(), bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool createFileAtPath(const std::string& path) {
  constexpr mode_t kReadableAndWritable = 0666;
  const Descriptor descriptor(
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, kReadableAndWritable));
  return descriptor.isOpen();
}

}  // namespace foundation
