#pragma once

// The stream that a trace statement composes its line with; the line is written when the statement ends:
//
//   logstream(QLX_LEVEL_INFO, "Unknown").l_value() << "-[MacDownloader Start]" << ", URL:" << url <<
//   std::endl;
//
// A stream whose level has no writer stays in a failed state from the start, so nothing is formatted or
// copied. Owned and used by the thread that runs the statement.

#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>

#include "support/QlxTrace.h"

class logstream : public std::ostream {
 public:
  /// module is kept as a pointer and handed to the raw writer.
  logstream(unsigned long level, const char* module);
  logstream(const logstream&) = delete;
  logstream& operator=(const logstream&) = delete;

  /// Writes the line. An exception on the way ends the program.
  ~logstream() override;

  /// The stream itself, so that a temporary can be written to.
  logstream& l_value() { return *this; }

  /// Whether the level passes the plug-in's threshold.
  bool IsCanLog() const { return ::IsCanLog(m_level); }

  /// A copy of the collected text.
  std::string str() const { return m_buffer.str(); }

  /// Whether anything inserted now can reach a writer.
  bool isWanted() const { return m_hasWriter && IsCanLog(); }

 private:
  std::stringbuf m_buffer;
  unsigned long m_level;
  const char* m_module;
  bool m_hasWriter;
};

/// A null pointer adds nothing.
logstream& operator<<(logstream& stream, const char* text);
logstream& operator<<(logstream& stream, const std::string& text);
logstream& operator<<(logstream& stream, int& value);

/// Other numbers are formatted as any ostream does it; the statement goes on with the trace stream's own
/// inserters, so a null pointer behind a number adds nothing either.
template <typename Number>
requires std::is_arithmetic_v<Number> logstream& operator<<(logstream& stream, Number value) {
  static_cast<std::ostream&>(stream) << value;
  return stream;
}
