#include "TraceLog.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "TraceLine.h"

namespace httppool {

bool TraceLog::read(std::FILE* file) {
  std::vector<char> buffer(1U << 16U);
  std::size_t count = 0;
  while ((count = std::fread(buffer.data(), 1, buffer.size(), file)) > 0) {
    std::string_view rest(buffer.data(), count);
    for (std::size_t end = 0; (end = rest.find('\n')) != rest.npos; rest.remove_prefix(end + 1)) {
      take(rest.substr(0, end));
      takeLine();
    }
    take(rest);
  }
  if (!line_.empty() || isTooLong_) {
    ++tornLines_;
    line_.clear();
    isTooLong_ = false;
  }
  return std::ferror(file) == 0;
}

void TraceLog::finish() {
  for (auto& [key, thread] : threads_) {
    if (thread.mayBeWhole) {
      dropLineEnd(thread);
    }
    if (thread.isJoining) {
      passOn(thread);
    }
  }
  threads_.clear();
}

void TraceLog::take(std::string_view part) {
  if (line_.size() + part.size() > kLongestLine) {
    isTooLong_ = true;
    line_.clear();
  }
  if (!isTooLong_) {
    line_ += part;
  }
}

void TraceLog::takeLine() {
  if (line_.empty() && !isTooLong_) {
    return;  // what parts a record from a torn one before it
  }
  auto record = isTooLong_ ? std::nullopt : readTraceRecord(line_);
  line_.clear();
  isTooLong_ = false;
  if (!record) {
    ++foreignLines_;
    return;
  }
  ++records_;
  takeRecord(std::move(*record));
}

void TraceLog::takeRecord(TraceRecord&& record) {
  if (threads_.size() >= kMostThreads) {
    finish();
  }
  Thread& thread = threads_[record.thread];
  noteTime(thread, record.time);
  if (thread.mayBeWhole && readTraceLine(record.text).kind != TraceLine::Kind::Other) {
    dropLineEnd(thread);
    passOn(thread);
  }
  const std::size_t length = record.length;
  const bool hasLostItsEnd = length + 1 == kPiece;
  const bool goesOn = length == kPiece || hasLostItsEnd;
  if (!thread.isJoining && !goesOn) {
    sink_(record);
    return;
  }
  thread.mayBeWhole = !thread.isJoining && hasLostItsEnd;
  const bool hadLostItsEnd = std::exchange(thread.hasLostItsEnd, hasLostItsEnd);
  if (thread.isJoining) {
    append(thread, record.text, length);
  } else {
    thread.isJoining = true;
    thread.joined = std::move(record);
  }
  if (!goesOn) {
    if (hadLostItsEnd && length == 0) {
      dropLineEnd(thread);  // a line of whole pieces ends with an empty one
    }
    passOn(thread);
  } else if (hasLostItsEnd) {
    append(thread, "\n", 1);
  }
}

void TraceLog::append(Thread& thread, std::string_view text, std::size_t length) {
  TraceRecord& joined = thread.joined;
  joined.length += length;
  joined.text += text.substr(0, kLongestText - std::min(kLongestText, joined.text.size()));
}

// It was the line's own, and belongs to no text.
void TraceLog::dropLineEnd(Thread& thread) {
  TraceRecord& joined = thread.joined;
  if (joined.text.size() == joined.length && joined.text.ends_with('\n')) {
    joined.text.pop_back();
  }
  --joined.length;
}

void TraceLog::passOn(Thread& thread) {
  thread.isJoining = false;
  thread.mayBeWhole = false;
  sink_(std::exchange(thread.joined, {}));
}

void TraceLog::noteTime(Thread& thread, std::int64_t time) {
  if (thread.latest > time) {
    ++stepsBack_;
    longestStepBack_ = std::max(longestStepBack_, thread.latest - time);
  }
  thread.latest = time;
}

}  // namespace httppool
