#pragma once

// The process's monotonic clock, for a program that exports its symbols: its own clock_gettime(2) is then what the
// libraries use, too. Belongs to such programs alone, so it is not among the fixtures. Any thread may set it.

namespace test {

/// How far the clock is ahead of the system's from now on.
void setClockAhead(long seconds);

}  // namespace test
