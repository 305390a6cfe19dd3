#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "foundation/base/Export.h"
#include "foundation/files/RegularFile.h"

namespace foundation {

/// A regular file that is open for appending, closed with its owner. Any thread, one at a time.
class FOUNDATION_EXPORT FileHandle {
 public:
  /// Nothing when there is no such file, when it must not be written, or when it is no regular file; a pipe or a
  /// device is not waited for. Links are followed.
  static std::optional<FileHandle> forAppendingAtPath(const std::string& path);

  /// Adds the bytes behind all that the file holds by then. They stay together: what others append meanwhile lands
  /// before or behind them, unless the file system takes only a part at once. False when it does not take them all;
  /// what it took is taken back then, unless others have appended something meanwhile.
  bool writeData(std::string_view bytes);

 private:
  explicit FileHandle(RegularFile file) : file_(std::move(file)) {}

  RegularFile file_;
};

/// Makes an empty file. False when it cannot be made or when there is something of that name, be it a link to nowhere;
/// that is left as it is. Any thread.
FOUNDATION_EXPORT bool createFileAtPath(const std::string& path);

}  // namespace foundation
