#pragma once

// A comparison as tables for a terminal, and as JSON. Any thread.

#include <json/value.h>

#include <string>
#include <vector>

#include "bench/compare/Budgets.h"
#include "bench/compare/Comparison.h"

namespace bench {

std::string tablesOf(const Comparison& comparison);
std::string tableOf(const std::vector<Budget>& budgets);
Json::Value jsonOf(const Comparison& comparison, const std::vector<Budget>& budgets);

}  // namespace bench
