#include "tests/package/Command.h"

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <utility>

#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace test {

Finished run(std::vector<std::string> arguments, const Environment& environment) {
  constexpr std::chrono::minutes kLimit(4);
  if (arguments.front().find('/') == std::string::npos) {
    arguments.insert(arguments.begin(), "/usr/bin/env");
  }
  const TemporaryFolder folder;
  const std::string output = folder.file("output");
  writeFile(output, "");
  ChildProcess process({.arguments = std::move(arguments), .environment = environment, .outputFile = output});
  const auto end = process.wait(kLimit);
  return {end ? end->exitStatus : -1, readFile(output)};
}

std::string outputOf(std::vector<std::string> arguments, const Environment& environment) {
  const std::string program = arguments.front();
  Finished finished = run(std::move(arguments), environment);
  EXPECT_EQ(finished.status, 0) << program << ": " << finished.output;
  return std::move(finished.output);
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

}  // namespace test
