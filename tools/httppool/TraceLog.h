// Reads trace logs, one after another, and passes on the lines of the library, in the order of the logs. The
// plug-in is handed a long line in pieces of 2046 characters, each of which is a record; the pieces of a thread's
// line are joined here. The plug-in takes a line end away from a piece's end. Every long line ends with one, so a
// first piece without it may have been all of the line: what follows on its thread decides.
//
// One thread. Memory is bounded, whatever the log: a physical line by kLongestLine, a joined text by kLongestText,
// the lines that are being joined by kMostThreads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "TraceRecord.h"

namespace httppool {

class TraceLog {
 public:
  using Sink = std::function<void(const TraceRecord&)>;

  static constexpr std::size_t kPiece = 2046;
  static constexpr std::size_t kLongestLine = 1U << 20U;
  // What is longer keeps its beginning, and its length.
  static constexpr std::size_t kLongestText = 16U << 10U;
  static constexpr std::size_t kMostThreads = 10'000;

  explicit TraceLog(Sink sink) : sink_(std::move(sink)) {}

  // Reads to the end. False when that was an error, of which errno tells.
  bool read(std::FILE* file);
  // No more is to come: passes on what is not joined to its end.
  void finish();

  std::uint64_t records() const { return records_; }
  // Lines that are no records.
  std::uint64_t foreignLines() const { return foreignLines_; }
  // Logs whose last line had no line end; such a line is not used.
  std::uint64_t tornLines() const { return tornLines_; }
  // Records that are older than an earlier one of their thread: the clock was set back. And the longest way back,
  // in microseconds.
  std::uint64_t stepsBack() const { return stepsBack_; }
  std::int64_t longestStepBack() const { return longestStepBack_; }

 private:
  // What is known of a thread. When there are too many of them, all are forgotten.
  struct Thread {
    std::int64_t latest = 0;
    bool isJoining = false;
    bool mayBeWhole = false;     // what is joined
    bool hasLostItsEnd = false;  // the latest piece
    TraceRecord joined;
  };

  void take(std::string_view part);
  void takeLine();
  void takeRecord(TraceRecord&& record);
  void append(Thread& thread, std::string_view text, std::size_t length);
  void dropLineEnd(Thread& thread);
  void passOn(Thread& thread);
  void noteTime(Thread& thread, std::int64_t time);

  Sink sink_;
  std::string line_;
  bool isTooLong_ = false;
  std::map<TraceThread, Thread> threads_;
  std::uint64_t records_ = 0;
  std::uint64_t foreignLines_ = 0;
  std::uint64_t tornLines_ = 0;
  std::uint64_t stepsBack_ = 0;
  std::int64_t longestStepBack_ = 0;
};

}  // namespace httppool
