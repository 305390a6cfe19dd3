// The command line, read and checked. Main thread; values only.
#pragma once

#include <chrono>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "Credentials.h"
#include "Job.h"
#include "TraceCommand.h"
#include "TrustPrompt.h"

namespace httppool {

// What is shown: Usual is a table on a terminal and lines elsewhere.
enum class Output { Usual, Quiet, Json };

struct Arguments {
  enum class Command { Get, Run, Demo, Trace, Help, Version };

  Command command = Command::Help;
  std::vector<PoolJob> pools;  // get: one pool, a task for each URL
  std::string jobFile;         // run
  TraceArguments trace;        // trace
  std::optional<std::chrono::milliseconds> limit;
  std::size_t concurrency = std::numeric_limits<std::size_t>::max();
  Output output = Output::Usual;
  bool showSnapshot = false;
  Trust trust = Trust::Ask;                // get and run
  std::optional<Credentials> credentials;  // get and run; none: the terminal is asked
  std::string error;                       // not empty: the arguments cannot be used, and this says why
};

Arguments readArguments(int count, char* const* values);

}  // namespace httppool
