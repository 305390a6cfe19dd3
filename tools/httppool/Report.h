// Shows what became of the tasks, one line each, and the body of a single one.
// Main thread. Does not own its streams.
#pragma once

#include <cstdio>
#include <string>

#include "Runner.h"

namespace httppool {

// The library's word for a status, as its task list has it; "redirected" where the list has none.
std::string statusWord(ZEP_HTTP_TASK_STATUS status);

// Status word, elapsed time and result on one line, fit for a terminal, without a line break.
std::string summary(const TaskOutcome& outcome);

class Report {
 public:
  enum class Shape {
    Lines,      // everything on stdout, the result in the line
    SingleBody  // the line on stderr, the body as it is on stdout
  };
  enum class Naming { Task, PoolAndTask };

  Report(Shape shape, Naming naming);

  void show(const TaskOutcome& outcome);
  void showLine(const std::string& line);

  bool isEveryTaskDone() const { return isEveryTaskDone_; }

 private:
  void showBody(const std::string& body);

  Shape shape_;
  Naming naming_;
  std::FILE* lines_;
  bool isEveryTaskDone_ = true;
};

}  // namespace httppool
