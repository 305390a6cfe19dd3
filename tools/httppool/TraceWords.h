// Durations and counts in words. Any thread; values only.
#pragma once

#include <cstdint>
#include <string>

namespace httppool {

// Microseconds as milliseconds with one decimal, at least `width` characters.
std::string aligned(std::int64_t microseconds, int width = 0);
// "52.4 ms", "2.003 s"
std::string duration(std::int64_t microseconds);
// "1 request", "2 requests"; `several` is the plural of what does not end in "s".
std::string counted(std::uint64_t count, const std::string& what, const std::string& several = {});

}  // namespace httppool
