#include "fuzz/operations/PoolModel.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "fuzz/Require.h"

namespace operations {

TaskModel* PoolModel::find(const char* task) {
  const auto found = std::find_if(tasks_.begin(), tasks_.end(), [&](const TaskModel& other) {
    return task != nullptr && other.name() == task;
  });
  return found == tasks_.end() ? nullptr : &*found;
}

void PoolModel::remove(const TaskModel& task) {
  tasks_.erase(tasks_.begin() + (&task - tasks_.data()));
}

void PoolModel::checkList(const Json::Value& list) const {
  constexpr std::array<std::string_view, 5> kWords = {"uninitialized", "requesting", "successfully done",
                                                      "task failed", ""};
  require(list.isArray() && list.size() == tasks_.size());
  for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
    const TaskModel& task = tasks_[i];
    const std::string word = list[i]["taskStatus"].asString();
    require(list[i]["taskName"].asString() == task.name() && list[i].size() == 2);
    require(std::find(kWords.begin(), kWords.end(), word) != kWords.end());
    require((word == kWords[0]) == !task.hasRun());
  }
}

}  // namespace operations
