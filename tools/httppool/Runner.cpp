#include "Runner.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "Interrupt.h"
#include "RequestHeader.h"
#include "foundation/ZEP_Foundation.h"

namespace httppool {
namespace {

std::string property(const std::string& pool, const std::string& task, ZEP_HTTP_TASK_PROPERTY number) {
  long size = ZEP_HttpPool_GetTaskProperty(pool.c_str(), task.c_str(), number, nullptr, nullptr);
  if (size <= 0) {
    return {};
  }
  std::string value(static_cast<std::size_t>(size), '\0');
  ZEP_HttpPool_GetTaskProperty(pool.c_str(), task.c_str(), number, value.data(), &size);
  return value;
}

void setProperties(const std::string& pool, const TaskJob& job) {
  const auto set = [&](ZEP_HTTP_TASK_PROPERTY number, const std::string& value) {
    ZEP_HttpPool_SetTaskProperty(pool.c_str(), job.name.c_str(), number, value.c_str());
  };
  set(ZEP_HTTP_TASK_PROP_URL, job.url);
  set(ZEP_HTTP_TASK_PROP_HEADER_FIELDS, requestHeader(job));
  set(ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, job.download);
  set(ZEP_HTTP_TASK_PROP_POST_DATA, job.post.value_or(""));
  if (job.data) {
    ZEP_HttpPool_SetTaskDataProperty(pool.c_str(), job.name.c_str(),
                                     reinterpret_cast<const unsigned char*>(job.data->data()),
                                     static_cast<int>(job.data->size()));
  }
}

bool isFinal(ZEP_HTTP_TASK_STATUS status) {
  return status == ZEP_HTTP_TASK_DONE || status == ZEP_HTTP_TASK_FAILED || status == ZEP_HTTP_TASK_TIMEOUT ||
         status == ZEP_HTTP_TASK_REDIRECTED;
}

}  // namespace

Runner* Runner::current_ = nullptr;

Runner::Runner(const std::vector<PoolJob>& jobs, Report& report, RunLimits limits, RunQuestions questions)
    : jobs_(jobs), report_(report), limits_(limits), questions_(std::move(questions)) {
  assert(current_ == nullptr);
  current_ = this;
  for (const PoolJob& pool : jobs_) {
    ZEP_HttpPool_Create(pool.name.c_str());
    ZEP_HttpPool_SetPoolProc(pool.name.c_str(), &Runner::notified);
    for (const TaskJob& job : pool.tasks) {
      index_[pool.name].emplace(job.name, tasks_.size());
      tasks_.push_back({&pool, &job});
    }
  }
}

Runner::~Runner() {
  questions_.close();
  for (const PoolJob& pool : jobs_) {
    ZEP_HttpPool_ClearTask(pool.name.c_str());
    ZEP_HttpPool_Destroy(pool.name.c_str());
  }
  current_ = nullptr;
}

Runner::Stop Runner::run() {
  launchWhatMayRun();
  if (runningCount_ > 0) {
    ZEP_RunLoop_Run(-1);
  }
  const bool isComplete = runningCount_ == 0 && next_ == tasks_.size();
  if (!isComplete) {
    endAll();
  }
  report_.finish();
  if (isComplete) {
    return Stop::AllEnded;
  }
  return caughtInterrupt() != 0 ? Stop::Interrupted : Stop::Broken;
}

std::optional<Runner::Clock::time_point> Runner::lastDeadline() const {
  if (!limits_.time) {
    return std::nullopt;
  }
  Clock::time_point last{};
  for (const Task& task : tasks_) {
    if (task.isRunning) {
      last = std::max(last, task.start + *limits_.time);
    }
  }
  return last;
}

void Runner::launchWhatMayRun() {
  while (next_ < tasks_.size() && runningCount_ < limits_.concurrency && caughtInterrupt() == 0) {
    launch(next_++);
  }
}

void Runner::launch(std::size_t index) {
  Task& task = tasks_[index];
  const char* const pool = task.pool->name.c_str();
  const char* const name = task.job->name.c_str();
  ZEP_HttpPool_AddTask(pool, name);
  setProperties(task.pool->name, *task.job);
  task.start = Clock::now();
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  ZEP_HttpPool_TaskRun(pool, name, &status);
  if (status != ZEP_HTTP_TASK_REQUESTING) {
    end(index, status, TaskOutcome::Ending::Refused);
    return;
  }
  task.isRunning = true;
  ++runningCount_;
  report_.taskStarted(index);
}

void Runner::notified(ZEP_HTTP_POOL_TASK_NOTIFY, const char* pool, const char* task, const char*) {
  if (current_ != nullptr) {
    current_->look(pool, task);
  }
}

void Runner::look(const std::string& pool, const std::string& task) {
  if (caughtInterrupt() != 0) {
    ZEP_RunLoop_Stop();
    return;
  }
  report_.beat();
  const Indices& indices = index_[pool];
  const auto found = indices.find(task);
  if (found == indices.end() || !tasks_[found->second].isRunning) {
    return;
  }
  const std::size_t index = found->second;
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_NOT_EXIST;
  ZEP_HttpPool_GetTaskStatus(pool.c_str(), task.c_str(), &status);
  if (isFinal(status)) {
    end(index, status, TaskOutcome::Ending::Ended);
  } else if (isOverdue(tasks_[index])) {
    questions_.close();
    end(index, reset(index), TaskOutcome::Ending::TimedOut);
    questions_.open();
  } else {
    return;
  }
  launchWhatMayRun();
  if (runningCount_ == 0) {
    ZEP_RunLoop_Stop();
  }
}

bool Runner::isOverdue(const Task& task) const {
  return limits_.time && Clock::now() - task.start >= *limits_.time;
}

ZEP_HTTP_TASK_STATUS Runner::reset(std::size_t index) {
  const char* const pool = tasks_[index].pool->name.c_str();
  const char* const name = tasks_[index].job->name.c_str();
  ZEP_HttpPool_TaskReset(pool, name);
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  ZEP_HttpPool_GetTaskStatus(pool, name, &status);
  return status;
}

void Runner::end(std::size_t index, ZEP_HTTP_TASK_STATUS status, TaskOutcome::Ending ending) {
  Task& task = tasks_[index];
  if (task.isRunning) {
    task.isRunning = false;
    --runningCount_;
  }
  TaskOutcome outcome;
  outcome.index = index;
  outcome.pool = task.pool->name;
  outcome.task = task.job->name;
  outcome.url = task.job->url;
  outcome.download = task.job->download;
  outcome.status = status;
  outcome.ending = ending;
  if (ending != TaskOutcome::Ending::NotRun) {
    outcome.elapsed = Clock::now() - task.start;
  }
  if (ending == TaskOutcome::Ending::Ended) {
    outcome.result = property(outcome.pool, outcome.task, ZEP_HTTP_TASK_PROP_RESULT);
    outcome.redirect = property(outcome.pool, outcome.task, ZEP_HTTP_TASK_PROP_REDIRECT_URL);
  }
  isEveryTaskDone_ = isEveryTaskDone_ && isDone(outcome);
  report_.taskEnded(outcome);
}

// What runs is reset, what has not been launched never will be.
void Runner::endAll() {
  questions_.close();
  for (std::size_t index = 0; index < tasks_.size(); ++index) {
    if (tasks_[index].isRunning) {
      end(index, reset(index), TaskOutcome::Ending::Stopped);
    } else if (index >= next_) {
      end(index, ZEP_HTTP_TASK_UNINITIALIZED, TaskOutcome::Ending::NotRun);
    }
  }
  next_ = tasks_.size();
}

std::string snapshot() {
  long size = 0;
  ZEP_HttpPool_GetSnapshot(nullptr, &size);
  if (size <= 0) {
    return {};
  }
  std::string text(static_cast<std::size_t>(size), '\0');
  ZEP_HttpPool_GetSnapshot(text.data(), &size);
  text.resize(text.find('\0'));
  return text;
}

}  // namespace httppool
