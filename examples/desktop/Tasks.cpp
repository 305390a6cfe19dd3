#include "Tasks.h"

#include <algorithm>
#include <utility>

#include "Json.h"

namespace example {
namespace {

constexpr const char* kPool = "example";

Tasks* theTasks = nullptr;

std::string property(const std::string& name, ZEP_HTTP_TASK_PROPERTY property, long limit) {
  long size = std::min(limit, ZEP_HttpPool_GetTaskProperty(kPool, name.c_str(), property, nullptr, nullptr));
  std::string value(static_cast<std::size_t>(size), '\0');
  ZEP_HttpPool_GetTaskProperty(kPool, name.c_str(), property, value.data(), &size);
  return value;
}

}  // namespace

Tasks::Tasks(std::function<void(const Task&)> changed) : changed_(std::move(changed)) {
  theTasks = this;
  ZEP_HttpPool_Create(kPool);
  ZEP_HttpPool_SetPoolProc(kPool, &Tasks::notified);
}

Tasks::~Tasks() {
  clear();
  ZEP_HttpPool_SetPoolProc(kPool, nullptr);
  ZEP_HttpPool_Destroy(kPool);
  theTasks = nullptr;
}

const Task* Tasks::find(const std::string& name) const {
  const auto at = std::ranges::find(tasks_, name, &Task::name);
  return at == tasks_.end() ? nullptr : &*at;
}

std::string Tasks::add(const std::string& url) {
  std::string name = "task " + std::to_string(++added_);
  ZEP_HttpPool_AddTask(kPool, name.c_str());
  ZEP_HttpPool_SetTaskProperty(kPool, name.c_str(), ZEP_HTTP_TASK_PROP_URL, url.c_str());
  ZEP_HttpPool_SetTaskProperty(kPool, name.c_str(), ZEP_HTTP_TASK_PROP_HEADER_FIELDS,
                               R"({"HttpMethod":"GET"})");
  tasks_.push_back({.name = name, .url = url});
  return name;
}

void Tasks::run(const std::string& name) {
  Task* const task = known(name);
  if (task == nullptr || task->status == ZEP_HTTP_TASK_REQUESTING) {
    return;
  }
  *task = {.name = task->name, .url = task->url, .start = std::chrono::steady_clock::now()};
  ZEP_HttpPool_TaskRun(kPool, name.c_str(), &task->status);
  changed_(*task);
}

void Tasks::pause(const std::string& name) {
  Task* const task = known(name);
  if (task == nullptr || task->status != ZEP_HTTP_TASK_REQUESTING) {
    return;
  }
  task->elapsed = elapsed(*task);
  ZEP_HttpPool_TaskReset(kPool, name.c_str());
  ZEP_HttpPool_GetTaskStatus(kPool, name.c_str(), &task->status);
  task->isPaused = true;
  changed_(*task);
}

void Tasks::remove(const std::string& name) {
  ZEP_HttpPool_RemoveTask(kPool, name.c_str());
  if (const auto at = std::ranges::find(tasks_, name, &Task::name); at != tasks_.end()) {
    tasks_.erase(at);
  }
}

void Tasks::clear() {
  ZEP_HttpPool_ClearTask(kPool);
  tasks_.clear();
}

std::chrono::milliseconds Tasks::elapsed(const Task& task) {
  return task.status == ZEP_HTTP_TASK_REQUESTING ? std::chrono::duration_cast<std::chrono::milliseconds>(
                                                       std::chrono::steady_clock::now() - task.start)
                                                 : task.elapsed;
}

std::string Tasks::result(const Task& task, long limit) {
  return property(task.name, ZEP_HTTP_TASK_PROP_RESULT, limit);
}

std::string Tasks::redirect(const Task& task) {
  constexpr long kLongestUrl = 8000;
  return property(task.name, ZEP_HTTP_TASK_PROP_REDIRECT_URL, kLongestUrl);
}

std::string Tasks::snapshot() {
  long size = 0;
  ZEP_HttpPool_GetSnapshot(nullptr, &size);
  std::string text(static_cast<std::size_t>(size), '\0');
  ZEP_HttpPool_GetSnapshot(text.data(), &size);
  text.resize(text.find('\0'));
  return indentedJson(text);
}

// Called for every task every 10 ms, so it looks at the status and does nothing else unless that has changed.
void Tasks::notified(ZEP_HTTP_POOL_TASK_NOTIFY /*code*/, const char* /*pool*/, const char* task,
                     const char* /*data*/) {
  if (theTasks != nullptr) {
    theTasks->look(task);
  }
}

void Tasks::look(const char* name) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_NOT_EXIST;
  ZEP_HttpPool_GetTaskStatus(kPool, name, &status);
  Task* const task = known(name);
  if (task == nullptr || task->status == status) {
    return;
  }
  task->elapsed = elapsed(*task);
  task->status = status;
  task->resultSize = ZEP_HttpPool_GetTaskProperty(kPool, name, ZEP_HTTP_TASK_PROP_RESULT, nullptr, nullptr);
  changed_(*task);
}

Task* Tasks::known(const std::string& name) {
  return const_cast<Task*>(find(name));
}

}  // namespace example
