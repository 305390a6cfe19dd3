#include "QuietReport.h"

#include <cstdio>

#include "BodyOutput.h"

namespace httppool {

void QuietReport::taskEnded(const TaskOutcome& outcome) {
  if (!isDone(outcome)) {
    std::fprintf(stderr, "%s\n", summary(outcome, shownName(naming_, outcome.pool, outcome.task)).c_str());
  }
  const bool hasBody = outcome.status == ZEP_HTTP_TASK_DONE && !isDownload(outcome);
  bodies_.emplace(outcome.index, hasBody ? outcome.result : std::string());
  for (auto body = bodies_.find(next_); body != bodies_.end(); body = bodies_.find(++next_)) {
    showBody(body->second);
    bodies_.erase(body);
  }
}

void QuietReport::showSnapshot(const std::string& text) {
  std::fprintf(stderr, "%s\n", text.c_str());
}

}  // namespace httppool
