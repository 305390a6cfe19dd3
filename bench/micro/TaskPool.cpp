#include "TaskPool.h"

#include <utility>

#include "httpPool/Global.h"

namespace {

constexpr unsigned int kRegistryTimerId = 10002;

}  // namespace

TaskPool::TaskPool(std::size_t tasks, std::string name)
    : name_(std::move(name)), tasks_(names("task", tasks)) {
  ZEP_HttpPool_Create(name_.c_str());
  for (const std::string& task : tasks_) {
    ZEP_HttpPool_AddTask(name_.c_str(), task.c_str());
  }
}

TaskPool::~TaskPool() {
  ZEP_HttpPool_Destroy(name_.c_str());
  deleteDestroyed();
}

std::vector<std::string> TaskPool::names(const char* prefix, std::size_t count) {
  std::vector<std::string> names;
  names.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    names.push_back(prefix + std::to_string(i));
  }
  return names;
}

void TaskPool::deleteDestroyed() {
  g_pGlobal->OnTimer(kRegistryTimerId);
}
