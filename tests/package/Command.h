#pragma once

// A program run to its end, with what it says. Belongs to one thread.

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace test {

struct Finished {
  int status = -1;  ///< -1 when it did not end by itself
  std::string output;
};

/// Changes to the environment; no value: the variable is taken out.
using Environment = std::map<std::string, std::optional<std::string>>;

/// Runs a program, which is looked for in PATH when its name has no slash.
Finished run(std::vector<std::string> arguments, const Environment& environment = {});

/// The output of a program that must succeed; a failure of the test when it does not.
std::string outputOf(std::vector<std::string> arguments, const Environment& environment = {});

std::vector<std::string> linesOf(const std::string& text);

}  // namespace test
