#include "fuzz/operations/Host.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "foundation/ZEP_Foundation.h"
#include "fuzz/Require.h"
#include "fuzz/operations/Answers.h"
#include "httpPool/Global.h"

namespace operations {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{60};

ZEP_HTTP_TASK_STATUS endOf(const char* pool, const char* task) {
  for (const auto deadline = Clock::now() + kPatience; isRunning(pool, task); ZEP_RunLoop_Run(5)) {
    require(Clock::now() < deadline);
  }
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_REQUESTING;
  require(ZEP_HttpPool_GetTaskStatus(pool, task, &status) == 0);
  require(status == ZEP_HTTP_TASK_DONE || status == ZEP_HTTP_TASK_FAILED);
  return status;
}

/// A quick server's silence is tried again: it is not for ever.
void waitFor(const PoolModel& pool, const TaskModel& task) {
  constexpr int kMostAttempts = 50;
  const char* const poolName = pool.name().c_str();
  const char* const name = task.name().c_str();
  for (int attempt = 0;; ++attempt) {
    const ZEP_HTTP_TASK_STATUS status = endOf(poolName, name);
    if (task.path() == nullptr) {
      return;
    }
    const std::string result = propertyOf(poolName, name, ZEP_HTTP_TASK_PROP_RESULT);
    if (!task.path()->isTooLate(result)) {
      task.path()->check(status, result, task.file());
      return;
    }
    require(attempt < kMostAttempts);
    require(ZEP_HttpPool_TaskReset(poolName, name) == 0 &&
            ZEP_HttpPool_TaskRun(poolName, name, nullptr) == 0);
  }
}

std::size_t downloaderThreads() {
  std::size_t count = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    count += name == "zep.downloader" ? 1 : 0;
  }
  return count;
}

}  // namespace

Host* Host::current_ = nullptr;

Host::Host(std::string_view bytes, const DownloadFolder& folder)
    : script_(bytes), operations_(script_, model_, folder, &Host::notified) {
  current_ = this;
}

Host::~Host() {
  current_ = nullptr;
}

void Host::run() {
  const bool waits = script_.below(16) == 0;
  while (!script_.isOver()) {
    operations_.next();
  }
  operations_.endReentries();
  if (waits) {
    waitForAll();
  }
  leave();
}

void Host::notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data) {
  require(current_ != nullptr && code == ZEP_HTTP_POOL_TASK_NOTIFY_POLL && data == nullptr);
  require(current_->model_.mayNotify(pool, task));
  current_->operations_.reenter();
}

void Host::waitForAll() {
  for (const auto& pool : model_.pools()) {
    if (model_.find(pool->name().c_str()) != pool.get()) {
      continue;  // nobody finds it
    }
    for (const TaskModel& task : pool->tasks()) {
      if (task.hasRun()) {
        waitFor(*pool, task);
      }
    }
  }
}

/// Nothing is left of an input: no pool, no thread of a request.
void Host::leave() {
  constexpr unsigned kRegistryBeat = 10002;
  while (!model_.pools().empty()) {
    const std::unique_ptr<PoolModel> pool = model_.takeFirst();
    require(ZEP_HttpPool_Destroy(pool->name().c_str()) == 0);
  }
  model_.forgetDestroyed();
  // Without waiting for it: what has been destroyed is deleted, and notifies nobody any more.
  g_pGlobal->OnTimer(kRegistryBeat);
  // A thread is told that it is not needed any more before it is called otherwise.
  for (const auto deadline = Clock::now() + kPatience; downloaderThreads() != 0; std::this_thread::yield()) {
    require(Clock::now() < deadline);
  }
  model_.checkSnapshot(snapshot());
  ZEP_RunLoop_Run(0);
}

}  // namespace operations
