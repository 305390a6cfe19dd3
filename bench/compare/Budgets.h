#pragma once

// What the pool allows itself, each measured in the same run as the rest and told as a part of what is allowed. Not a
// test: machines differ, and other work disturbs. Belongs to one thread.

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

#include "bench/compare/Comparison.h"

namespace bench {

enum class Bound { AtMost, AtLeast };

struct Budget {
  std::string figure;
  std::string unit;
  Bound bound = Bound::AtMost;
  double allowed = 0;
  std::optional<double> measured;

  Json::Value toJson() const;
};

/// What has to be compared for measureBudgets().
std::vector<Work> worksOfBudgets();
std::vector<const ContenderProgram*> contendersOfBudgets();

/// After run().
std::vector<Budget> measureBudgets(Comparison& comparison);

}  // namespace bench
