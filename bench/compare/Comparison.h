#pragma once

// Gives the same works to every contender in turn, each in a process of its own, against one server, and keeps what was
// measured. The order of the contenders is turned on from work to work and from repetition to repetition. Belongs to
// one thread.

#include <json/value.h>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bench/compare/Figures.h"
#include "bench/compare/Server.h"
#include "bench/compare/Work.h"
#include "tests/support/TemporaryFolder.h"

namespace bench {

struct ContenderProgram {
  const char* name;
  const char* title;
  const char* program;
  const char* command;  ///< for the contender that runs commands; else null
};

const std::vector<ContenderProgram>& contenderPrograms();
/// Null when there is none of that name.
const ContenderProgram* contenderNamed(const std::string& name);

/// What the other contenders are compared with.
inline constexpr const char* kBareLoop = "curl-multi";

struct Cell {
  std::vector<Figures> runs;
  long seenByServer = 0;  ///< requests of all runs
  std::string failure;    ///< why there are no figures

  bool isMeasured() const { return failure.empty() && !runs.empty(); }
  Figures figures() const { return Figures::medianOf(runs); }
};

class Comparison {
 public:
  struct Settings {
    std::vector<Work> works;
    std::vector<const ContenderProgram*> contenders;
    double seconds = 3;
    int repetitions = 1;
    long downloadBytes = 1'000'000'000;
  };

  explicit Comparison(const Settings& settings);

  /// Tells standard error what it is at.
  void run();
  /// What bench_pool_probe answers; null and a line on standard error when it fails.
  Json::Value ask(const std::string& question, int tasks);

  const Settings& settings() const { return settings_; }
  /// Null when it was not asked for.
  const Cell* cell(const std::string& work, const std::string& contender) const;

 private:
  void runCell(const Work& work, const ContenderProgram& contender);
  std::optional<Json::Value> runProgram(const std::vector<std::string>& arguments, double limitSeconds,
                                        int& threads);
  std::string whatItSaid() const;

  Settings settings_;
  Server server_;
  test::TemporaryFolder folder_;
  std::map<std::pair<std::string, std::string>, Cell> cells_;
};

}  // namespace bench
