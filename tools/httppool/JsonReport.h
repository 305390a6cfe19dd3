// A JSON object for each task as it ends, one line each, in ASCII whatever the names and bodies are: fit for a
// program and for a terminal. Main thread.
#pragma once

#include <string>

#include "Report.h"

namespace httppool {

class JsonReport : public Report {
 public:
  void taskEnded(const TaskOutcome& outcome) override;
  void showSnapshot(const std::string& text) override;
};

}  // namespace httppool
