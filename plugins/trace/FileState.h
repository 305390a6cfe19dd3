#pragma once

// Which file something is, and how large: what a trace line has to know each time. Asks for the times of a file no more
// than they are needed, because a file system notes who has asked and makes the next write dearer. A plain value.

#include <cstdint>

namespace traceplugin {

struct FileState {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t size = 0;
  bool isRegular = false;
  bool isDevice = false;  ///< a character device

  /// False when the descriptor is not open.
  bool readOf(int descriptor);
  /// False when there is no file of that name. A symbolic link is a file of its own.
  bool readNamed(const char* path);

  bool isSameFile(const FileState& other) const { return device == other.device && inode == other.inode; }
  /// One word for the file, so that threads read it whole.
  std::uint64_t identity() const;

 private:
  bool read(int folder, const char* path, int flags);
};

}  // namespace traceplugin
