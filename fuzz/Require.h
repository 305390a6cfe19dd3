#pragma once

// What a fuzz target holds true. When it is not, the process ends and the engine keeps the input. Any thread.

#include <cstdio>
#include <cstdlib>

inline void require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (!holds) {
    std::fprintf(stderr, "%s:%d: what has to hold does not\n", file, line);
    std::abort();
  }
}
