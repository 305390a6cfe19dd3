// The summary of commands and options: a screen of 80 columns and 24 lines. Any thread.
#pragma once

namespace httppool {

// What --help prints.
const char* usage();

}  // namespace httppool
