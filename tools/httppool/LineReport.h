// A line for each task as it ends, and the body of a single one. Main thread.
#pragma once

#include <string>

#include "Report.h"

namespace httppool {

// How a task is called in what is shown.
enum class Naming { Task, PoolAndTask };
std::string shownName(Naming naming, const std::string& pool, const std::string& task);

class LineReport : public Report {
 public:
  enum class Shape {
    Lines,      // everything on stdout, the result in the line
    SingleBody  // the line on stderr, the body as it is on stdout
  };

  LineReport(Shape shape, Naming naming) : shape_(shape), naming_(naming) {}

  void taskEnded(const TaskOutcome& outcome) override;
  // The line of a task whose body is not shown apart.
  std::string line(const TaskOutcome& outcome) const;
  void showLine(const std::string& line) const;
  void showSnapshot(const std::string& text) override { showLine(text); }

 private:
  const Shape shape_;
  const Naming naming_;
};

}  // namespace httppool
