#pragma once

// What the environment says about tracing, read once. A value that cannot be used is named on standard error, and the
// default counts. Nothing is read in a program that runs with more rights than its caller.

#include <cstdint>

namespace traceplugin {

struct Configuration {
  unsigned long level;     ///< QLX_TRACE_LEVEL; the lowest level that is traced
  const char* file;        ///< QLX_TRACE_FILE; null for standard error. Belongs to the environment
  std::uint64_t maxBytes;  ///< QLX_TRACE_MAX_BYTES; 0 for no bound

  static Configuration fromEnvironment();
};

}  // namespace traceplugin
