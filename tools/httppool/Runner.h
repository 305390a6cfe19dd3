// Runs pools of tasks through the library and turns the run loop until every task has ended.
// Main thread. One Runner at a time: the library's notify function carries no context. Owns the pools that it
// made and destroys them.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Job.h"
#include "Report.h"
#include "TaskOutcome.h"
#include "httpPool/ZEP_HttpPool.h"

namespace httppool {

struct RunLimits {
  std::optional<std::chrono::milliseconds> time;  // of each task, from its own run; none: no limit
  std::size_t concurrency = std::numeric_limits<std::size_t>::max();  // how many run at once
};

// Called around the reset of tasks that may still run: the reset waits for their threads, which may be asking
// the user. Questions are open at first; they may be closed and not opened again.
struct RunQuestions {
  std::function<void()> close = [] {};
  std::function<void()> open = [] {};
};

class Runner {
 public:
  using Clock = std::chrono::steady_clock;

  enum class Stop { AllEnded, Interrupted, Broken };

  // `jobs` and `report` must outlive the runner.
  Runner(const std::vector<PoolJob>& jobs, Report& report, RunLimits limits = {},
         RunQuestions questions = {});
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  // Until every task has ended or the user stops the program.
  Stop run();

  bool isEveryTaskDone() const { return isEveryTaskDone_; }

  // When the last of the running tasks comes to its limit. None: there is no limit.
  std::optional<Clock::time_point> lastDeadline() const;

 private:
  struct Task {
    const PoolJob* pool = nullptr;
    const TaskJob* job = nullptr;
    Clock::time_point start{};
    bool isRunning = false;
  };
  using Indices = std::unordered_map<std::string, std::size_t>;

  static void notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data);

  void launchWhatMayRun();
  void launch(std::size_t index);
  void look(const std::string& pool, const std::string& task);
  bool isOverdue(const Task& task) const;
  ZEP_HTTP_TASK_STATUS reset(std::size_t index);
  void end(std::size_t index, ZEP_HTTP_TASK_STATUS status, TaskOutcome::Ending ending);
  void endAll();

  static Runner* current_;

  const std::vector<PoolJob>& jobs_;
  Report& report_;
  const RunLimits limits_;
  const RunQuestions questions_;
  std::vector<Task> tasks_;                         // in their order
  std::unordered_map<std::string, Indices> index_;  // by pool, then by task
  std::size_t next_ = 0;                            // the first that has not been launched
  std::size_t runningCount_ = 0;
  bool isEveryTaskDone_ = true;
};

// The library's snapshot of all pools.
std::string snapshot();

}  // namespace httppool
