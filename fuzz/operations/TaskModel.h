#pragma once

// What the library has to hold of a task, by what the host has done with it so far.

#include <array>
#include <string>
#include <utility>

#include "fuzz/operations/Path.h"
#include "httpPool/ZEP_HttpPool.h"

namespace operations {

class TaskModel {
 public:
  explicit TaskModel(std::string name) : name_(std::move(name)) {}

  const std::string& name() const { return name_; }
  /// Since it was added or reset.
  bool hasRun() const { return runs_ > 0; }
  /// What it was run with, when it is clear what has to come of it; else null.
  const Path* path() const { return path_; }

  void setText(int property, const std::string& text);
  /// `status` is what the run has told, or 8 when it was not asked.
  void run(ZEP_HTTP_TASK_STATUS status);
  void reset();
  /// It was given a body of bytes, which goes before a download.
  void setData() { hadData_ = true; }
  /// The file that it was run for; empty: none.
  const std::string& file() const { return file_; }

  bool mayHave(ZEP_HTTP_TASK_STATUS status) const;
  bool mayHave(int property, const std::string& text) const;

 private:
  std::string name_;
  std::array<std::string, 11> properties_;
  int runs_ = 0;
  bool hadData_ = false;
  std::string file_;
  const Path* path_ = nullptr;
};

}  // namespace operations
