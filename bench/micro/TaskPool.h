#pragma once

// A pool with tasks in it, made through the library's functions; gone, with all its tasks, with the object. For
// the thread that benchmarks run on.

#include <cstddef>
#include <string>
#include <vector>

class TaskPool {
 public:
  explicit TaskPool(std::size_t tasks, std::string name = "pool");
  ~TaskPool();
  TaskPool(const TaskPool&) = delete;
  TaskPool& operator=(const TaskPool&) = delete;

  const char* name() const { return name_.c_str(); }
  const char* task(std::size_t index) const { return tasks_[index].c_str(); }
  const std::vector<std::string>& tasks() const { return tasks_; }

  /// Names such as a host gives: with a counter in them.
  static std::vector<std::string> names(const char* prefix, std::size_t count);
  /// Deletes what was destroyed, as the registry's timer does.
  static void deleteDestroyed();

 private:
  const std::string name_;
  const std::vector<std::string> tasks_;
};
