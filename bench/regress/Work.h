#pragma once

// The fixed works whose instructions are counted. Each is prepared, then done once while nothing counts, so that what
// happens the first time only is over, and then once more to be counted. On one thread.

#include <functional>
#include <string_view>
#include <vector>

struct Work {
  std::string_view name;
  /// Everything that the work needs. What it returns is the work; that returns whether all went as it should.
  std::function<bool()> (*prepare)();
};

const std::vector<Work>& allWorks();
