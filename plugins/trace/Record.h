#pragma once

// One line of the trace, as it is written:
//   2026-11-21T14:31:53.123456+01:00 I 4711/4713 zep.downloader | text
// The time, the level's letter, process and thread, the thread's name, the text. Lives on the stack of the thread that
// traces; only texts that are longer than the library's own need memory.

#include <cstddef>
#include <string_view>

#include "plugins/trace/LineText.h"
#include "plugins/trace/LocalTime.h"

namespace traceplugin {

class Record {
 public:
  /// What is longer is cut, with a mark.
  static constexpr std::size_t kMostTextBytes = 65536;

  Record(char letter, std::string_view text, LocalTime::OffsetLookUp lookUp);
  ~Record();
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

  /// With the line end.
  std::string_view line() const { return {memory_ + 1, size_ - 1}; }
  /// The same behind a line end, for a file that ends in the middle of a line.
  std::string_view lineAfterFragment() const { return {memory_, size_}; }

 private:
  static constexpr std::size_t kLibrarysTextBytes = 2046;
  /// Line ends, the fields before the text, and the mark.
  static constexpr std::size_t kFrameBytes = 256;

  char ownMemory_[kFrameBytes + LineText::kEscapedBytes * kLibrarysTextBytes];
  char* memory_ = ownMemory_;
  std::size_t size_ = 0;
};

}  // namespace traceplugin
