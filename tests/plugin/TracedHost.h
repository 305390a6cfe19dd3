#pragma once

// A folder shaped like a bundle, with a program as the host and the reference trace plug-in where the library looks for
// it; and the lines of a trace, taken apart. For the tests of one program; any thread.

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

/// A line of the trace. `time` is in UTC, the offset as written ("+01:00").
struct TracedLine {
  std::chrono::sys_time<std::chrono::microseconds> time;
  std::string offset;
  char letter = 0;
  int process = 0;
  int thread = 0;
  std::string name;
  std::string text;
};

/// The lines; one that has not the form of a line, or no end, is a failure of the test.
std::vector<TracedLine> tracedLines(const std::string& trace);
std::vector<std::string> textsOf(const std::vector<TracedLine>& lines);

class TracedHost {
 public:
  using Environment = std::map<std::string, std::optional<std::string>>;

  /// The program is copied into the bundle.
  explicit TracedHost(const std::string& program);

  /// The options to run the host; the trace goes to file(), unless the environment says otherwise. Nothing of this
  /// process's own settings counts.
  ChildProcess::Options options(std::vector<std::string> arguments, Environment environment = {}) const;
  /// Runs it to its end, which has to be a good one; what it printed, standard error included.
  std::string run(std::vector<std::string> arguments, Environment environment = {}) const;

  std::string path(const std::string& name) const { return folder_.file(name); }
  std::string file() const { return path("trace"); }
  /// The lines of the file; none when there is no file.
  std::vector<TracedLine> lines() const;
  std::vector<std::string> texts() const { return textsOf(lines()); }

 private:
  TemporaryFolder folder_;
};

}  // namespace test
