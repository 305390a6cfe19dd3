// Whether the program was stopped by its user and has gone on (SIGCONT). Process-wide.
#pragma once

namespace httppool {

// Main thread.
void watchSuspension();

// Whether it has gone on since the last time this was asked. Any thread.
bool takeContinuation();

}  // namespace httppool
