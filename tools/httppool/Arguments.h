// The command line, read and checked. Main thread; values only.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "Credentials.h"
#include "Job.h"
#include "TraceCommand.h"
#include "TrustPrompt.h"

namespace httppool {

struct Arguments {
  enum class Command { Get, Run, Demo, Trace, Help, Version };

  Command command = Command::Help;
  std::vector<PoolJob> pools;  // get: one pool, a task for each URL
  std::string jobFile;         // run
  TraceArguments trace;        // trace
  std::optional<std::chrono::milliseconds> limit;
  bool showSnapshot = false;
  Trust trust = Trust::Ask;                // get and run
  std::optional<Credentials> credentials;  // get and run; none: the terminal is asked
  std::string error;                       // not empty: the arguments cannot be used, and this says why
};

Arguments readArguments(int count, char* const* values);

// What --help prints.
const char* usage();

}  // namespace httppool
