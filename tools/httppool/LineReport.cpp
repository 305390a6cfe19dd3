#include "LineReport.h"

#include <cstdio>

#include "BodyOutput.h"
#include "TerminalText.h"

namespace httppool {

std::string shownName(Naming naming, const std::string& pool, const std::string& task) {
  return (naming == Naming::PoolAndTask ? escaped(pool) + "/" : "") + escaped(task);
}

void LineReport::taskEnded(const TaskOutcome& outcome) {
  if (shape_ == Shape::Lines || outcome.status != ZEP_HTTP_TASK_DONE) {
    showLine(line(outcome));
    return;
  }
  showLine(summaryWithSize(outcome, shownName(naming_, outcome.pool, outcome.task)));
  showBody(outcome.result);
}

std::string LineReport::line(const TaskOutcome& outcome) const {
  return summary(outcome, shownName(naming_, outcome.pool, outcome.task));
}

void LineReport::showLine(const std::string& line) const {
  std::FILE* const stream = shape_ == Shape::SingleBody ? stderr : stdout;
  std::fprintf(stream, "%s\n", line.c_str());
  std::fflush(stream);
}

}  // namespace httppool
