// What is told about the tasks while they run and when they have ended. Main thread.
#pragma once

#include <cstddef>
#include <string>

#include "TaskOutcome.h"

namespace httppool {

class Report {
 public:
  Report() = default;
  virtual ~Report() = default;
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;

  // A task is launched; its place among all tasks.
  virtual void taskStarted(std::size_t /*index*/) {}
  // Once for each task, also for one that was never launched.
  virtual void taskEnded(const TaskOutcome& outcome) = 0;
  // Every few milliseconds while tasks run.
  virtual void beat() {}
  // All tasks have ended.
  virtual void finish() {}
  // After all of them; the text is the library's.
  virtual void showSnapshot(const std::string& text) = 0;
};

}  // namespace httppool
