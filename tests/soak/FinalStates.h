#pragma once

// Counts what the library reports to its tasks, by the lines that it traces: the counting trace plug-in beside the
// program hands them in. Of each run one final state at most may be reported.

#include <cstddef>

namespace test {

/// Final states that were reported to a task, the first one of each run.
std::size_t reportedFinalStates();
/// Those that were reported to a task that was not running, or had been told before.
std::size_t surplusFinalStates();

}  // namespace test
