#include "TaskTable.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "TextWidth.h"

namespace httppool {

TaskTable::TaskTable(const std::vector<std::string>& names, Colours colours) : colours_(colours) {
  for (const std::string& name : names) {
    tasks_.emplace_back().name = name;
  }
}

void TaskTable::start(std::size_t index, TimePoint time) {
  tasks_[index].state = State::Running;
  tasks_[index].start = time;
}

void TaskTable::end(const TaskOutcome& outcome) {
  Task& task = tasks_[outcome.index];
  task.state = isDone(outcome) ? State::Done : State::NotDone;
  task.word = statusWord(outcome.status);
  task.elapsed = outcome.elapsed;
  task.size = bodySize(outcome);
}

std::vector<LiveRow> TaskTable::rows(std::size_t most, std::size_t columns, TimePoint now) const {
  if (most == 0) {
    return {};
  }
  const bool doAllFit = tasks_.size() <= most;
  const std::vector<bool> shown = chosen(doAllFit ? most : most - 1);
  std::vector<LiveRow> result;
  for (std::size_t index = 0; index < tasks_.size(); ++index) {
    if (shown[index]) {
      result.push_back(rowOf(tasks_[index], columns, now));
    }
  }
  if (!doAllFit) {
    result.push_back(rest(shown, columns));
  }
  return result;
}

std::vector<bool> TaskTable::chosen(std::size_t most) const {
  std::vector<bool> shown(tasks_.size(), false);
  for (const State state : {State::Running, State::NotDone, State::Waiting, State::Done}) {
    for (std::size_t index = 0; index < tasks_.size() && most > 0; ++index) {
      if (tasks_[index].state == state) {
        shown[index] = true;
        --most;
      }
    }
  }
  return shown;
}

LiveRow TaskTable::rowOf(const Task& task, std::size_t columns, TimePoint now) const {
  const bool isRunning = task.state == State::Running;
  const bool isWaiting = task.state == State::Waiting;
  const std::string word = isRunning   ? statusWord(ZEP_HTTP_TASK_REQUESTING)
                           : isWaiting ? "waiting"
                                       : task.word;
  const double elapsed =
      isRunning ? std::chrono::duration<double>(now - task.start).count() : task.elapsed.count();
  char time[32] = "";
  if (!isWaiting) {
    std::snprintf(time, sizeof(time), "%.1f s", elapsed);
  }
  char text[96];
  std::snprintf(text, sizeof(text), "%-17s %9s %8s  ", word.c_str(), time,
                task.size ? shortSize(*task.size).c_str() : "");
  LiveRow row{fitted(text + task.name, columns)};
  if (colours_ == Colours::Yes && !isRunning && !isWaiting) {
    row.colour = task.state == State::Done ? LiveRow::Colour::Green : LiveRow::Colour::Red;
    row.colouredBytes = std::min(word.size(), columns);
  }
  return row;
}

LiveRow TaskTable::rest(const std::vector<bool>& shown, std::size_t columns) const {
  std::array<std::size_t, kStates> counts{};
  std::size_t all = 0;
  for (std::size_t index = 0; index < tasks_.size(); ++index) {
    if (!shown[index]) {
      ++counts[static_cast<std::size_t>(tasks_[index].state)];
      ++all;
    }
  }
  std::string text = "… " + std::to_string(all) + " more";
  const char* separator = ": ";
  const std::array<std::pair<State, const char*>, kStates> words{{{State::Done, " done"},
                                                                  {State::NotDone, " not done"},
                                                                  {State::Running, " running"},
                                                                  {State::Waiting, " waiting"}}};
  for (const auto& [state, word] : words) {
    const std::size_t count = counts[static_cast<std::size_t>(state)];
    if (count > 0) {
      text += separator + std::to_string(count) + word;
      separator = ", ";
    }
  }
  return {fitted(text, columns)};
}

std::string shortSize(std::uintmax_t bytes) {
  char text[32];
  if (bytes < 1000) {
    std::snprintf(text, sizeof(text), "%ju B", bytes);
    return text;
  }
  constexpr std::array kUnits{"kB", "MB", "GB", "TB", "PB", "EB"};
  double value = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  while (value >= 999.95 && unit + 1 < kUnits.size()) {
    value /= 1000;
    ++unit;
  }
  std::snprintf(text, sizeof(text), "%.1f %s", value, kUnits[unit]);
  return text;
}

}  // namespace httppool
