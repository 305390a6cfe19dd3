// The tasks of a desktop application: a pool of the library's and, beside it, what a window shows of each task.
// Knows no toolkit. Main thread. One object at a time, since the library calls a function without a context.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "httpPool/ZEP_HttpPool.h"

namespace example {

struct Task {
  std::string name;
  std::string url;
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  bool isPaused = false;
  std::chrono::steady_clock::time_point start = {};
  std::chrono::milliseconds elapsed{0};  // from its start to its end
  long resultSize = 0;                   // bytes
};

class Tasks {
 public:
  // `changed` is called when a task has begun, has ended, or has been paused.
  explicit Tasks(std::function<void(const Task&)> changed);
  // Stops whatever is running.
  ~Tasks();
  Tasks(const Tasks&) = delete;
  Tasks& operator=(const Tasks&) = delete;

  const std::vector<Task>& all() const { return tasks_; }
  // NULL when there is none of that name.
  const Task* find(const std::string& name) const;

  // A new task, not running yet; its name.
  std::string add(const std::string& url);
  void run(const std::string& name);

  // These wait for the request to stop. A request that is being asked about stops when it has its answer: see
  // SignIn::skipDuring.
  void pause(const std::string& name);
  void remove(const std::string& name);
  void clear();

  // The time since the task's start, also while it is running.
  static std::chrono::milliseconds elapsed(const Task& task);
  // The first bytes of the task's result, or of its error, up to the limit.
  static std::string result(const Task& task, long limit);
  static std::string redirect(const Task& task);
  // All pools as the library tells them, indented.
  static std::string snapshot();

 private:
  static void notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data);

  Task* known(const std::string& name);
  void look(const char* name);

  const std::function<void(const Task&)> changed_;
  std::vector<Task> tasks_;
  int added_ = 0;
};

}  // namespace example
