// The command `trace`: reads trace logs and writes their requests as text, or as a picture. Main thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace httppool {

struct TraceArguments {
  std::vector<std::string> files;        // "-" is stdin
  std::optional<std::uint64_t> request;  // none: all of them
  std::string picture;                   // not empty: where it goes, "-" is stdout, in place of the text
};

// Returns the exit status: 0, 1 without such a request, 2 when a file cannot be read or written.
int showTrace(const TraceArguments& arguments);

}  // namespace httppool
