#pragma once

// The file that is traced to, and its rotation. Several threads and several processes may write to one file at once,
// and nobody waits for anybody: a record goes to whatever the descriptor leads to, and a rotation puts the new file
// under the same descriptor. So a thread that is stopped in the middle, or forked off, holds nobody up.
//
// The file is followed by its name: when somebody has moved or removed it, it is begun anew. Part of the plug-in's one
// state, which is never destroyed.

#include <atomic>
#include <climits>
#include <cstdint>

#include "plugins/trace/FileState.h"
#include "plugins/trace/LineWriter.h"
#include "plugins/trace/ProcessLock.h"

namespace traceplugin {

class TraceFile {
 public:
  /// Opens the file, for its owner only if it is made. Null, or why it cannot be used. maxBytes of 0: no rotation.
  const char* open(const char* path, std::uint64_t maxBytes);

  /// Appends the record; when the file would get larger than the bound it is renamed to "PATH.1" before. What others
  /// write at that same moment may go beyond the bound.
  bool write(const Record& record);

 private:
  enum class Place {
    Named,   ///< the descriptor leads to the file of that name
    Moved,   ///< that file has another name now, or none
    Unknown  ///< the descriptor is not ours any more, or another thread has just changed it
  };

  int openNamed() const;
  int descriptorFor(std::size_t bytes);
  Place placeOf(int descriptor, FileState& opened) const;
  bool overflows(const FileState& file, std::size_t bytes) const;
  void rotate(std::size_t bytes);
  void renameIfFull(int lock, std::size_t bytes);
  void followName();
  void adopt(int opened);
  int replaceDescriptorLocked();
  void setDescriptor(int descriptor, std::uint64_t identity);

  char path_[PATH_MAX] = "";  ///< absolute, so that the host may change its folder
  char oldPath_[PATH_MAX] = "";
  std::uint64_t maxBytes_ = 0;
  std::atomic<bool> isRotated_{false};
  LineWriter lines_;

  ProcessLock change_;  ///< for the thread that changes what follows
  std::atomic<int> descriptor_{-1};
  // The descriptor leads to one of the two.
  std::atomic<std::uint64_t> identity_{0};
  std::atomic<std::uint64_t> nextIdentity_{0};
};

}  // namespace traceplugin
