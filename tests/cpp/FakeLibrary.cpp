#include "tests/cpp/FakeLibrary.h"

#include <algorithm>
#include <cstring>

#include "foundation/ZEP_Foundation.h"

namespace test {

FakeLibrary& library() {
  static FakeLibrary fake;
  return fake;
}

FakePool* FakeLibrary::pool(const std::string& name) {
  const auto found =
      std::find_if(pools.begin(), pools.end(), [&](const auto& one) { return one.name == name; });
  return found != pools.end() ? &*found : nullptr;
}

FakeTask* FakeLibrary::task(const std::string& poolName, const std::string& name) {
  FakePool* const found = pool(poolName);
  if (found == nullptr) {
    return nullptr;
  }
  auto& tasks = found->tasks;
  const auto task =
      std::find_if(tasks.begin(), tasks.end(), [&](const auto& one) { return one.name == name; });
  return task != tasks.end() ? &*task : nullptr;
}

void FakeLibrary::beat(const std::string& name) {
  for (std::size_t at = 0; pool(name) != nullptr && at < pool(name)->tasks.size(); ++at) {
    const std::string task = pool(name)->tasks[at].name;
    if (pool(name)->proc != nullptr) {
      pool(name)->proc(ZEP_HTTP_POOL_TASK_NOTIFY_POLL, name.c_str(), task.c_str(), nullptr);
    }
  }
}

}  // namespace test

namespace {

long result() {
  return test::library().isLoaded ? 0 : -1;
}

test::FakePool* poolOf(const char* name) {
  return test::library().isLoaded ? test::library().pool(name) : nullptr;
}

test::FakeTask* taskOf(const char* pool, const char* task) {
  return test::library().isLoaded ? test::library().task(pool, task) : nullptr;
}

}  // namespace

long ZEP_HttpPool_Create(const char* poolName) {
  if (test::library().isLoaded) {
    test::library().pools.push_back({.name = poolName});
  }
  return result();
}

long ZEP_HttpPool_SetPoolProc(const char* poolName, ZEP_HttpPool_NotifyProc proc) {
  if (auto* pool = poolOf(poolName)) {
    pool->proc = proc;
  }
  return result();
}

long ZEP_HttpPool_Destroy(const char* poolName) {
  if (poolOf(poolName) != nullptr) {
    std::erase_if(test::library().pools, [&](const auto& pool) { return pool.name == poolName; });
  }
  return result();
}

long ZEP_HttpPool_AddTask(const char* poolName, const char* taskName) {
  if (auto* pool = poolOf(poolName); pool != nullptr && taskOf(poolName, taskName) == nullptr) {
    pool->tasks.push_back({.name = taskName});
  }
  return result();
}

long ZEP_HttpPool_RemoveTask(const char* poolName, const char* taskName) {
  if (auto* pool = poolOf(poolName)) {
    std::erase_if(pool->tasks, [&](const auto& task) { return task.name == taskName; });
  }
  return result();
}

long ZEP_HttpPool_ClearTask(const char* poolName) {
  if (auto* pool = poolOf(poolName)) {
    pool->tasks.clear();
  }
  return result();
}

long ZEP_HttpPool_GetTaskList(const char* poolName, char* buffer, long* size) {
  if (poolOf(poolName) != nullptr) {
    *size = 3;
    if (buffer != nullptr) {
      std::strcpy(buffer, "[]");
    }
  }
  return result();
}

long ZEP_HttpPool_GetSnapshot(char*, long*) {
  return result();
}

long ZEP_HttpPool_GetTaskStatus(const char* poolName, const char* taskName, ZEP_HTTP_TASK_STATUS* status) {
  if (poolOf(poolName) != nullptr) {
    const auto* task = taskOf(poolName, taskName);
    *status = task != nullptr ? task->status : ZEP_HTTP_TASK_NOT_EXIST;
  }
  return result();
}

long ZEP_HttpPool_TaskRun(const char* poolName, const char* taskName, ZEP_HTTP_TASK_STATUS* status) {
  if (auto* task = taskOf(poolName, taskName)) {
    *status = task->status = test::library().launchStatus;
  }
  return result();
}

long ZEP_HttpPool_SetTaskProperty(const char* poolName, const char* taskName, ZEP_HTTP_TASK_PROPERTY property,
                                  const char* value) {
  if (auto* task = taskOf(poolName, taskName)) {
    task->properties[property] = value;
  }
  return result();
}

long ZEP_HttpPool_SetTaskDataProperty(const char* poolName, const char* taskName, const unsigned char* data,
                                      int size) {
  if (auto* task = taskOf(poolName, taskName)) {
    task->data.assign(reinterpret_cast<const char*>(data), static_cast<std::size_t>(size));
  }
  return result();
}

long ZEP_HttpPool_GetTaskProperty(const char* poolName, const char* taskName, ZEP_HTTP_TASK_PROPERTY property,
                                  char* buffer, long* size) {
  auto* task = taskOf(poolName, taskName);
  if (task == nullptr) {
    return result();
  }
  const std::string& value = task->properties[property];
  if (buffer != nullptr && size != nullptr) {
    std::memcpy(buffer, value.data(), std::min(static_cast<std::size_t>(*size), value.size()));
  }
  return test::library().claimedLength != 0 ? test::library().claimedLength : static_cast<long>(value.size());
}

// No test here turns a loop.
long ZEP_RunLoop_Run(long) {
  return -1;
}
long ZEP_RunLoop_Stop() {
  return -1;
}
