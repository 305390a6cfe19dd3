#include "bench/compare/Budgets.h"

#include "bench/compare/Numbers.h"

namespace bench {
namespace {

using Measured = std::optional<double>;

std::optional<Figures> figuresOf(const Comparison& comparison, const char* work, const char* contender) {
  const Cell* cell = comparison.cell(work, contender);
  return cell != nullptr && cell->isMeasured() ? std::optional(cell->figures()) : std::nullopt;
}

Measured quotient(const Measured& dividend, const Measured& divisor) {
  return dividend && divisor && *divisor > 0 ? Measured(*dividend / *divisor) : std::nullopt;
}

Measured number(const Json::Value& answer, const char* name) {
  return answer.isObject() && answer.isMember(name) ? Measured(answer[name].asDouble()) : std::nullopt;
}

Measured rateOf(const std::optional<Figures>& figures) {
  return figures ? Measured(figures->perSecond()) : std::nullopt;
}

void addRequests(const Comparison& comparison, std::vector<Budget>& rows) {
  const auto one = figuresOf(comparison, "h1-1", "pool");
  const auto many = figuresOf(comparison, "h1-1000", "pool");
  const auto bare = figuresOf(comparison, "h1-1000", kBareLoop);
  rows.push_back({"one warm request, run to seen done, median", "ms", Bound::AtMost, 62,
                  one ? one->medianMs : Measured()});
  rows.push_back({"one warm request, run to seen done, 99 of 100", "ms", Bound::AtMost, 75,
                  one ? one->p99Ms : Measured()});
  rows.push_back({"tasks finished with 1,000 in flight", "1/s", Bound::AtLeast, 8000, rateOf(many)});
  rows.push_back({"the same, beside the bare curl loop", "times", Bound::AtLeast, 0.5,
                  quotient(rateOf(many), rateOf(bare))});
}

void addPolls(Comparison& comparison, std::vector<Budget>& rows) {
  for (const int tasks : {10, 10'000}) {
    rows.push_back({"notify and status query, for each of " + grouped(tasks) + " tasks", "µs", Bound::AtMost,
                    0.2, number(comparison.ask("poll", tasks), "microsecondsPerTask")});
  }
}

void addDownload(const Comparison& comparison, std::vector<Budget>& rows) {
  const auto pool = figuresOf(comparison, "download", "pool");
  const auto curl = figuresOf(comparison, "download", "curl");
  const double kilobytes = static_cast<double>(comparison.settings().downloadBytes) / 1024;
  rows.push_back({"download to a file, beside the curl command", "times", Bound::AtLeast, 0.8,
                  quotient(rateOf(pool), rateOf(curl))});
  rows.push_back({"peak memory of a download, beside its body", "times", Bound::AtMost, 1.1,
                  pool ? Measured(static_cast<double>(pool->peakKilobytes) / kilobytes) : std::nullopt});
}

void addWaiting(Comparison& comparison, std::vector<Budget>& rows) {
  const Json::Value waiting = comparison.ask("wait", 1000);
  rows.push_back({"private memory of a request that waits", "KB", Bound::AtMost, 64,
                  number(waiting, "kilobytesPerRequest")});
  rows.push_back({"wake-ups of a request that waits", "1/s", Bound::AtMost, 0,
                  number(waiting, "wakeUpsPerRequestAndSecond")});
}

void addStandStill(Comparison& comparison, std::vector<Budget>& rows) {
  rows.push_back({"host's thread blocked for each finished request, 1 in flight", "ms", Bound::AtMost, 1,
                  number(comparison.ask("finish", 1), "blockedMsPerRequest")});
  rows.push_back({"host's thread blocked for each finished request, 1,000 in flight", "ms", Bound::AtMost, 1,
                  number(comparison.ask("finish", 1000), "blockedMsPerRequest")});
}

}  // namespace

Json::Value Budget::toJson() const {
  Json::Value json;
  json["figure"] = figure;
  json["unit"] = unit;
  json["bound"] = bound == Bound::AtMost ? "at most" : "at least";
  json["allowed"] = allowed;
  json["measured"] = measured ? Json::Value(*measured) : Json::Value();
  json["partOfAllowed"] = measured && allowed > 0 ? Json::Value(*measured / allowed) : Json::Value();
  return json;
}

std::vector<Work> worksOfBudgets() {
  std::vector<Work> works;
  for (const char* name : {"h1-1", "h1-1000", "download"}) {
    works.push_back(workNamed(name).value());
  }
  return works;
}

std::vector<const ContenderProgram*> contendersOfBudgets() {
  return {contenderNamed("pool"), contenderNamed(kBareLoop), contenderNamed("curl")};
}

std::vector<Budget> measureBudgets(Comparison& comparison) {
  std::vector<Budget> rows;
  addRequests(comparison, rows);
  addPolls(comparison, rows);
  addDownload(comparison, rows);
  addWaiting(comparison, rows);
  addStandStill(comparison, rows);
  return rows;
}

}  // namespace bench
