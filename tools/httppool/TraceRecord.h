// One line of a trace log: `2026-11-21T14:31:53.123456+01:00 I 4711/4713 zep.downloader | text`, with the text's
// control characters escaped. Any thread; values only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace httppool {

struct TraceThread {
  std::uint32_t process = 0;
  std::uint32_t thread = 0;

  auto operator<=>(const TraceThread&) const = default;
};

struct TraceRecord {
  std::int64_t time = 0;  // microseconds since 1970, UTC
  int offsetMinutes = 0;  // of the local time that the line shows
  char level = 'D';       // D, I, W, E
  TraceThread thread;
  std::string threadName;
  std::string text;        // as the library wrote it, but for its line end; may be cut, see TraceLog
  std::size_t length = 0;  // of the whole text
};

// Nothing for a line that is not of the format. `line` is without its line end.
std::optional<TraceRecord> readTraceRecord(std::string_view line);

// "2026-11-21 14:31:53.123456 +01:00", and without the day and the offset "14:31:53.123456".
std::string dayAndTime(std::int64_t time, int offsetMinutes);
std::string timeOfDay(std::int64_t time, int offsetMinutes);

}  // namespace httppool
