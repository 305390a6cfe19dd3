#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

#include "foundation/base/Descriptor.h"

namespace foundation {

/// A regular file that is open, and closed with its owner. What is no regular file is not opened, and looking at it
/// waits for nobody. Any thread, one at a time.
class RegularFile {
 public:
  enum class Access { Reading, Appending };

  explicit RegularFile(const std::string& path, Access access = Access::Reading);

  bool isOpen() const { return descriptor_.isOpen(); }
  int descriptor() const { return descriptor_.number(); }
  /// Why it is not open: an errno, or 0 when there is something, but no regular file.
  int error() const { return error_; }
  /// How many bytes it had when it was opened.
  std::size_t size() const { return size_; }
  /// read(2) that goes on after a signal.
  ssize_t read(char* bytes, std::size_t most) const;
  /// The bytes that have not been read yet; nothing when they cannot be read or there are more.
  std::optional<std::string> readAll(std::size_t most) const;

 private:
  Descriptor descriptor_;
  int error_ = 0;
  std::size_t size_ = 0;
};

}  // namespace foundation
