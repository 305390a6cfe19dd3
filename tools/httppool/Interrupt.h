// SIGINT and SIGTERM as a wish that the run loop's callbacks look at. Main thread; process-wide.
#pragma once

namespace httppool {

// The first of the two signals is noted, a second one ends the process at once.
void catchInterrupts();

// The number of the signal that was caught, 0 for none.
int caughtInterrupt();

}  // namespace httppool
