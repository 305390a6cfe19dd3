// Runs pools of tasks through the library and turns the run loop until every task has ended.
// Main thread. One Runner at a time: the library's notify function carries no context. Owns the pools that it
// made and destroys them.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Job.h"
#include "httpPool/ZEP_HttpPool.h"

namespace httppool {

struct TaskOutcome {
  enum class Ending {
    Refused,   // the library did not launch the request
    Ended,     // the request ended by itself
    TimedOut,  // still running at the limit, and reset
    Stopped    // still running when the user stopped the program, and reset
  };

  std::string pool;
  std::string task;
  std::string download;  // the file that was asked for
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  Ending ending = Ending::Ended;
  std::chrono::duration<double> elapsed{};
  std::string result;    // property 7
  std::string redirect;  // property 10
};

class Runner {
 public:
  enum class Stop { AllEnded, TimedOut, Interrupted, Broken };
  using Listener = std::function<void(const TaskOutcome&)>;
  using Closing = std::function<void()>;

  // `jobs` must outlive the runner. `listener` is called once per task, in the order in which they end. `closing`
  // is called, maybe more than once, before tasks that may still run are reset: the reset waits for their threads.
  Runner(
      const std::vector<PoolJob>& jobs, Listener listener, Closing closing = [] {});
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  // No limit: until every task has ended or the user stops the program.
  Stop run(std::optional<std::chrono::milliseconds> limit);

 private:
  struct Running {
    const TaskJob* job = nullptr;
    std::chrono::steady_clock::time_point start;
  };
  using Tasks = std::unordered_map<std::string, Running>;

  static void notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data);

  void launch(const std::string& pool, const TaskJob& job);
  void look(const std::string& pool, const std::string& task);
  void report(const std::string& pool, const Running& task, ZEP_HTTP_TASK_STATUS status,
              TaskOutcome::Ending ending);
  void resetRunning(TaskOutcome::Ending ending);

  static Runner* current_;

  const std::vector<PoolJob>& jobs_;
  Listener listener_;
  Closing closing_;
  std::unordered_map<std::string, Tasks> running_;  // by pool, then by task
  std::size_t runningCount_ = 0;
};

// The library's snapshot of all pools.
std::string snapshot();

}  // namespace httppool
