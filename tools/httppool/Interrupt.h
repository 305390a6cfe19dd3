// SIGINT and SIGTERM as a wish that the run loop's callbacks and whoever waits look at. Process-wide.
#pragma once

#include <termios.h>

namespace httppool {

// The first of the two signals is noted, a second one ends the process at once. Main thread.
void catchInterrupts();

// The number of the signal that was caught, 0 for none. Any thread.
int caughtInterrupt();

// A descriptor that is readable from the first signal on, for poll(2); -1 before catchInterrupts. Any thread.
int interruptDescriptor();

// A terminal's settings that the first signal puts back by itself: a second one leaves no time for it. One terminal
// at a time; any thread.
void restoreWhenInterrupted(int terminal, const termios& settings);
void restoreNothingWhenInterrupted();

}  // namespace httppool
