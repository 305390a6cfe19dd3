#include "foundation/files/FileHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>

#include "foundation/base/Descriptor.h"
#include "foundation/files/WholeWrite.h"

namespace foundation {
namespace {

/// The size of an open file, below 0 when it is not told.
off_t sizeOf(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 ? status.st_size : -1;
}

}  // namespace

std::optional<FileHandle> FileHandle::forAppendingAtPath(const std::string& path) {
  RegularFile file(path, RegularFile::Access::Appending);
  if (!file.isOpen()) {
    return std::nullopt;
  }
  return FileHandle(std::move(file));
}

bool FileHandle::writeData(std::string_view bytes) {
  const int descriptor = file_.descriptor();
  const off_t before = sizeOf(descriptor);
  const std::size_t written = writeWhatFits(descriptor, bytes);
  if (written == bytes.size()) {
    return true;
  }
  // The disk is full, or the file as large as it may become: half of what belongs together would spoil what is appended
  // when there is room again.
  if (written > 0 && before >= 0 && sizeOf(descriptor) == before + static_cast<off_t>(written)) {
    [[maybe_unused]] const int ignored = ftruncate(descriptor, before);
  }
  return false;
}

bool createFileAtPath(const std::string& path) {
  constexpr mode_t kReadableAndWritable = 0666;
  const Descriptor descriptor(
      open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, kReadableAndWritable));
  return descriptor.isOpen();
}

}  // namespace foundation
