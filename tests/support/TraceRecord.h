#pragma once

// What the recording trace plug-in (tests/unit/support/TraceRecorder.cpp) has written down.

#include <string>
#include <vector>

namespace test {

/// One call of a writer of the plug-in.
struct TracePiece {
  std::string writer;
  std::string text;
};

/// The pieces of a record so far; none when there is no such file yet.
std::vector<TracePiece> readTraceRecord(const std::string& file);

}  // namespace test
