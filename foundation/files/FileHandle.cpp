#include "foundation/files/FileHandle.h"

#include <fcntl.h>
#include <unistd.h>

#include "foundation/base/Descriptor.h"
#include "foundation/files/WholeWrite.h"

namespace foundation {

std::optional<FileHandle> FileHandle::forAppendingAtPath(const std::string& path) {
  RegularFile file(path, RegularFile::Access::Appending);
  if (!file.isOpen()) {
    return std::nullopt;
  }
  return FileHandle(std::move(file));
}

bool FileHandle::writeData(std::string_view bytes) {
  return writeWhole(file_.descriptor(), bytes);
}

bool createFileAtPath(const std::string& path) {
  constexpr mode_t kReadableAndWritable = 0666;
  const Descriptor descriptor(
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, kReadableAndWritable));
  return descriptor.isOpen();
}

}  // namespace foundation
