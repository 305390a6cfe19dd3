// Nothing but the bodies on stdout, in the order of the tasks, and a line on stderr for each task that was not done.
// Main thread.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "LineReport.h"
#include "Report.h"

namespace httppool {

class QuietReport : public Report {
 public:
  explicit QuietReport(Naming naming) : naming_(naming) {}

  void taskEnded(const TaskOutcome& outcome) override;
  void showSnapshot(const std::string& text) override;

 private:
  const Naming naming_;
  std::size_t next_ = 0;                       // the task whose body is next
  std::map<std::size_t, std::string> bodies_;  // of later tasks that have ended before it
};

}  // namespace httppool
