#pragma once

#include <cerrno>

namespace foundation {

/// Whether the error, an errno, says that the process or the system has no descriptor left.
inline bool isDescriptorShortage(int error) {
  return error == EMFILE || error == ENFILE;
}

/// Whether the error, an errno, says that the system has no descriptor or no memory left. It may have some later, so
/// nothing follows from it about what was asked for.
inline bool isShortage(int error) {
  return isDescriptorShortage(error) || error == ENOMEM;
}

}  // namespace foundation
