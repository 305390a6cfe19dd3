// The tasks as a table on the terminal that is stdout, drawn again in its place while they run; when they have ended
// it gives way to the lines of a LineReport. It also gives way to a question at the terminal, and is back after the
// answer. Main thread, but for the giving way.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "Job.h"
#include "LineReport.h"
#include "LiveArea.h"
#include "Report.h"
#include "TaskTable.h"

namespace httppool {

class TableReport : public Report {
 public:
  // Whether stdout is a terminal on which something can be drawn.
  static bool isPossible();

  TableReport(LineReport::Shape shape, Naming naming, const std::vector<PoolJob>& jobs);
  ~TableReport() override;

  void taskStarted(std::size_t index) override;
  void taskEnded(const TaskOutcome& outcome) override;
  void beat() override;
  void finish() override;
  void showSnapshot(const std::string& text) override { lines_.showSnapshot(text); }

 private:
  using Clock = std::chrono::steady_clock;

  void draw();
  void erase();

  const LineReport::Shape shape_;
  LineReport lines_;
  TaskTable table_;
  LiveArea area_;                   // its use needs the terminal's turn
  std::vector<std::string> ended_;  // the lines so far, in the order in which the tasks have ended
  Clock::time_point lastDraw_ = Clock::now();
  bool isFinished_ = false;
};

}  // namespace httppool
