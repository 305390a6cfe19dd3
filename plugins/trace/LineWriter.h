#pragma once

// Writes records to a descriptor, each with one write(2) to a file opened for appending: lines of several threads and
// processes do not mix, and what is written outlives a crash. Any thread. Part of the plug-in's one state, which is
// never destroyed.

#include <atomic>

#include "plugins/trace/Record.h"

namespace traceplugin {

class LineWriter {
 public:
  /// False when the record, or the end of it, could not be written: the disk is full, the pipe is closed. A part of a
  /// line that got into the file stays there; the next record begins on a line of its own.
  bool write(int descriptor, const Record& record);

  /// The descriptor leads to a file that does not end in the middle of a line.
  void beginFile() { hasFragment_.store(false, std::memory_order_relaxed); }

 private:
  std::atomic<bool> hasFragment_{false};
};

}  // namespace traceplugin
