// The tasks as rows of a table, no more than a terminal has room for. Main thread; values only.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "LiveArea.h"
#include "TaskOutcome.h"

namespace httppool {

class TaskTable {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  enum class Colours { No, Yes };

  // The names as they are shown, in the order of the tasks.
  TaskTable(const std::vector<std::string>& names, Colours colours);

  void start(std::size_t index, TimePoint time);
  void end(const TaskOutcome& outcome);

  // At most so many rows. When not all tasks fit, those that run come first, then what was not done, what waits and
  // what is done; the last row sums up the others.
  std::vector<LiveRow> rows(std::size_t most, std::size_t columns, TimePoint now) const;

 private:
  enum class State { Running, NotDone, Waiting, Done };  // in the order in which they get a row
  static constexpr std::size_t kStates = 4;

  struct Task {
    std::string name;
    State state = State::Waiting;
    TimePoint start{};
    std::string word;
    std::chrono::duration<double> elapsed{};
    std::optional<std::uintmax_t> size;
  };

  std::vector<bool> chosen(std::size_t most) const;
  LiveRow rowOf(const Task& task, std::size_t columns, TimePoint now) const;
  LiveRow rest(const std::vector<bool>& shown, std::size_t columns) const;

  std::vector<Task> tasks_;
  const Colours colours_;
};

// "512 B", "1.2 kB": at most four digits.
std::string shortSize(std::uintmax_t bytes);

}  // namespace httppool
