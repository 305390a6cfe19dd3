// The demo: what the library does with the usual answers of a server, shown and checked.
// Main thread.
#pragma once

namespace httppool {

// Returns whether everything came out as the library promises. Ends early when the user stops the program.
bool runDemo();

}  // namespace httppool
