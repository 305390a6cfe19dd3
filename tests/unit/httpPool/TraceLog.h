#pragma once

// What the library has written to the trace plug-in beside this executable. Any thread.

#include <string>
#include <vector>

struct TraceLine {
  int level;
  std::string text;
  bool operator==(const TraceLine&) const = default;
};

void PrintTo(const TraceLine& line, std::ostream* out);

/// All lines since the last call, oldest first.
std::vector<TraceLine> takeTrace();

/// Those of them whose text contains `part`.
std::vector<TraceLine> takeTraceWith(const std::string& part);
