#pragma once

// A trace log written line by line, and what the reader makes of it. One thread.

#include <cstdint>
#include <string>
#include <vector>

#include "tools/httppool/TraceLog.h"
#include "tools/httppool/TraceRoad.h"

/// Where a line comes from.
struct Source {
  std::uint32_t process = 100;
  std::uint32_t thread = 100;
  std::string name = "host";
};

Source host(std::uint32_t process = 100);
Source downloader(std::uint32_t thread, std::uint32_t process = 100);

class WrittenLog {
 public:
  /// Time in milliseconds since the log's beginning, which is 14:00:00 in a zone one hour ahead of UTC.
  WrittenLog& line(double time, const Source& source, const std::string& text, char level = 'D');
  /// Anything, without a line end of its own.
  WrittenLog& raw(const std::string& text);
  /// A request of the downloader 0xd0 plus its number is launched, and its thread, 200 plus its number, begins.
  WrittenLog& launch(double time, unsigned number, const std::string& url, std::uint32_t process = 100);
  /// It is over in that state; the task is told, if the final state comes from the downloader.
  WrittenLog& end(double time, unsigned number, const std::string& url, int state,
                  std::uint32_t process = 100);
  /// The task is reset while its request is in that state.
  WrittenLog& reset(double time, unsigned number, const std::string& url, int state);

  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

struct ReadLog {
  std::vector<httppool::TraceRecord> records;
  std::vector<httppool::TraceRequest> requests;  // in the order in which they ended
  httppool::TraceOthers others;
  std::uint64_t recordCount = 0;
  std::uint64_t foreignLines = 0;
  std::uint64_t tornLines = 0;
  std::uint64_t givenUp = 0;
  std::uint64_t stepsBack = 0;
  std::int64_t longestStepBack = 0;

  /// The request of that number, which must be there.
  const httppool::TraceRequest& request(std::uint64_t number) const;
};

ReadLog readLog(const std::vector<std::string>& logs);
ReadLog readLog(const WrittenLog& log);

/// The texts of the steps, with "h" or "d" for the thread: "d response: HTTP 200".
std::vector<std::string> stepsOf(const httppool::TraceRequest& request);
