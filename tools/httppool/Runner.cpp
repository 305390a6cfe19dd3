#include "Runner.h"

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

Runner::Runner(const std::vector<PoolJob>& jobs, Listener listener, Closing closing)
    : jobs_(jobs), listener_(std::move(listener)), closing_(std::move(closing)) {
  assert(current_ == nullptr);
  current_ = this;
  for (const PoolJob& pool : jobs_) {
    ZEP_HttpPool_Create(pool.name.c_str());
    ZEP_HttpPool_SetPoolProc(pool.name.c_str(), &Runner::notified);
  }
}

Runner::~Runner() {
  closing_();
  for (const PoolJob& pool : jobs_) {
    ZEP_HttpPool_ClearTask(pool.name.c_str());
    ZEP_HttpPool_Destroy(pool.name.c_str());
  }
  current_ = nullptr;
}

Runner::Stop Runner::run(std::optional<std::chrono::milliseconds> limit) {
  for (const PoolJob& pool : jobs_) {
    for (const TaskJob& job : pool.tasks) {
      launch(pool.name, job);
    }
  }
  if (runningCount_ == 0) {
    return Stop::AllEnded;
  }
  const long turned = ZEP_RunLoop_Run(limit ? static_cast<long>(limit->count()) : -1);
  if (runningCount_ == 0) {
    return Stop::AllEnded;
  }
  if (caughtInterrupt() != 0) {
    resetRunning(TaskOutcome::Ending::Stopped);
    return Stop::Interrupted;
  }
  resetRunning(TaskOutcome::Ending::TimedOut);
  return turned == 0 ? Stop::TimedOut : Stop::Broken;
}

void Runner::launch(const std::string& pool, const TaskJob& job) {
  ZEP_HttpPool_AddTask(pool.c_str(), job.name.c_str());
  setProperties(pool, job);
  const Running task{&job, std::chrono::steady_clock::now()};
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  ZEP_HttpPool_TaskRun(pool.c_str(), job.name.c_str(), &status);
  if (status != ZEP_HTTP_TASK_REQUESTING) {
    report(pool, task, status, TaskOutcome::Ending::Refused);
    return;
  }
  running_[pool].emplace(job.name, task);
  ++runningCount_;
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
  Tasks& tasks = running_[pool];
  const auto found = tasks.find(task);
  if (found == tasks.end()) {
    return;
  }
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_NOT_EXIST;
  ZEP_HttpPool_GetTaskStatus(pool.c_str(), task.c_str(), &status);
  if (!isFinal(status)) {
    return;
  }
  const Running ended = found->second;
  tasks.erase(found);
  --runningCount_;
  report(pool, ended, status, TaskOutcome::Ending::Ended);
  if (runningCount_ == 0) {
    ZEP_RunLoop_Stop();
  }
}

void Runner::report(const std::string& pool, const Running& task, ZEP_HTTP_TASK_STATUS status,
                    TaskOutcome::Ending ending) {
  TaskOutcome outcome;
  outcome.pool = pool;
  outcome.task = task.job->name;
  outcome.download = task.job->download;
  outcome.status = status;
  outcome.ending = ending;
  outcome.elapsed = std::chrono::steady_clock::now() - task.start;
  if (ending == TaskOutcome::Ending::Ended) {
    outcome.result = property(pool, outcome.task, ZEP_HTTP_TASK_PROP_RESULT);
    outcome.redirect = property(pool, outcome.task, ZEP_HTTP_TASK_PROP_REDIRECT_URL);
  }
  listener_(outcome);
}

void Runner::resetRunning(TaskOutcome::Ending ending) {
  closing_();
  for (const PoolJob& pool : jobs_) {
    for (const TaskJob& job : pool.tasks) {
      const auto found = running_[pool.name].find(job.name);
      if (found == running_[pool.name].end()) {
        continue;
      }
      ZEP_HttpPool_TaskReset(pool.name.c_str(), job.name.c_str());
      ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
      ZEP_HttpPool_GetTaskStatus(pool.name.c_str(), job.name.c_str(), &status);
      report(pool.name, found->second, status, ending);
    }
  }
  running_.clear();
  runningCount_ = 0;
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
