// The objects that --json writes. Any thread; values only.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace tooltest {

// One for each line; a line that is no JSON object of one line fails the test.
std::vector<Json::Value> jsonLines(const std::string& text);

}  // namespace tooltest
