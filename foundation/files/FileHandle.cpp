#include "foundation/files/FileHandle.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "foundation/base/Descriptor.h"

namespace foundation {

std::optional<FileHandle> FileHandle::forAppendingAtPath(const std::string& path) {
  RegularFile file(path, RegularFile::Access::Appending);
  if (!file.isOpen()) {
    return std::nullopt;
  }
  return FileHandle(std::move(file));
}

bool FileHandle::writeData(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(file_.descriptor(), bytes.data(), bytes.size());
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
