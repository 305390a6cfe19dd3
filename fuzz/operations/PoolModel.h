#pragma once

// What the library has to hold of a pool, by what the host has done with it so far.

#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

#include "fuzz/operations/TaskModel.h"

namespace operations {

class PoolModel {
 public:
  explicit PoolModel(std::string name) : name_(std::move(name)) {}

  const std::string& name() const { return name_; }
  const std::vector<TaskModel>& tasks() const { return tasks_; }
  bool isNotified() const { return isNotified_; }
  void setNotified(bool isNotified) { isNotified_ = isNotified; }

  /// Null when there is none. Good until one is added or removed.
  TaskModel* find(const char* task);
  void add(const char* task) { tasks_.emplace_back(task); }
  void remove(const TaskModel& task);
  void clear() { tasks_.clear(); }

  /// Ends the process when the library's list of its tasks is another one.
  void checkList(const Json::Value& list) const;

 private:
  std::string name_;
  bool isNotified_ = false;
  std::vector<TaskModel> tasks_;
};

}  // namespace operations
