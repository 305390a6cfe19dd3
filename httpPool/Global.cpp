#include "httpPool/Global.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "httpPool/InitFeatureFlag.h"
#include "httpPool/dllmain.h"
#include "support/AnnexK.h"
#include "support/JsonValueT.h"

namespace {

constexpr unsigned int kRegistryTimerId = 10002;
constexpr unsigned int kRegistryIntervalMs = 300;

/// What the caller had in `*size` is not read: it is not a capacity.
void HandOver(const BasicString& text, char* buffer, long* size) {
  if (!size) {
    return;
  }
  *size = static_cast<long>(text.length()) + 1;
  if (buffer) {
    support::strcpy_s(buffer, static_cast<std::size_t>(*size), text.c_str());
  }
}

/// Pools that are left at the end are deliberately not deleted: their timers and requests may still be running. They
/// stay known, so that no leak checker takes them for lost; without memory for that they are just left.
template <typename Pools>
void LeaveToTheProcess(const Pools& pools) {
  if (pools.empty()) {
    return;
  }
  try {
    static std::vector<CPool*>& left = *new std::vector<CPool*>;
    left.insert(left.end(), pools.begin(), pools.end());
  } catch (const std::bad_alloc&) {
    return;
  }
}

}  // namespace

CGlobal::CGlobal() : ZEPTimer(this) {
  InitFeatureFlag();
}

CGlobal::~CGlobal() {
  KillTimer(kRegistryTimerId);
  LeaveToTheProcess(m_pools);
  LeaveToTheProcess(m_pendingPools);
}

void CGlobal::OnTimer(unsigned int id) {
  if (id != kRegistryTimerId) {
    return;
  }
  // A pool that is notifying is further up on the stack: the host turns a loop of its own inside the
  // notification. That pool waits for a later beat.
  const auto firstToDelete = std::stable_partition(m_pendingPools.begin(), m_pendingPools.end(),
                                                   [](const CPool* pool) { return pool->IsNotifying(); });
  const std::vector<CPool*> toDelete(firstToDelete, m_pendingPools.end());
  m_pendingPools.erase(firstToDelete, m_pendingPools.end());
  for (CPool* pool : toDelete) {
    delete pool;
  }
  if (m_pools.empty() && m_pendingPools.empty()) {
    KillTimer(kRegistryTimerId);
  }
}

long CGlobal::CreatePool(const char* name) {
  if (!name) {
    return 0;
  }
  auto pool = std::make_unique<CPool>(name);
  m_pools.Add(pool.get());
  try {
    if (m_pools.size() == 1) {
      PinImage();
      SetTimer(kRegistryTimerId, kRegistryIntervalMs);
    }
  } catch (...) {
    m_pools.Remove(pool.get());
    throw;
  }
  // From here on the list stands for the ownership.
  static_cast<void>(pool.release());
  return 0;
}

long CGlobal::DestroyPool(const char* name) {
  if (CPool* pool = GetPool(name)) {
    m_pendingPools.push_back(pool);
    m_pools.Remove(pool);
  }
  return 0;
}

long CGlobal::SetPoolProc(const char* pool, ZEP_HttpPool_NotifyProc notify) {
  if (CPool* found = GetPool(pool)) {
    found->SetPoolProc(notify);
  }
  return 0;
}

long CGlobal::AddTask(const char* pool, const char* task) {
  if (CPool* found = GetPool(pool)) {
    found->AddTask(task);
  }
  return 0;
}

long CGlobal::RemoveTask(const char* pool, const char* task) {
  if (CPool* found = GetPool(pool)) {
    found->RemoveTask(task);
  }
  return 0;
}

long CGlobal::ClearTask(const char* pool) {
  if (CPool* found = GetPool(pool)) {
    found->ClearTask();
  }
  return 0;
}

long CGlobal::GetTaskStatus(const char* pool, const char* task, ZEP_HTTP_TASK_STATUS* status) {
  if (CPool* found = GetPool(pool)) {
    found->GetTaskStatus(task, status);
  }
  return 0;
}

long CGlobal::TaskRun(const char* pool, const char* task, ZEP_HTTP_TASK_STATUS* status) {
  if (CPool* found = GetPool(pool)) {
    found->TaskRun(task, status);
  }
  return 0;
}

long CGlobal::TaskReset(const char* pool, const char* task) {
  if (CPool* found = GetPool(pool)) {
    found->TaskReset(task);
  }
  return 0;
}

long CGlobal::SetTaskProperty(const char* pool, const char* task, ZEP_HTTP_TASK_PROPERTY property,
                              const char* value) {
  if (CPool* found = GetPool(pool)) {
    found->SetTaskProperty(task, property, value);
  }
  return 0;
}

long CGlobal::SetTaskDataProperty(const char* pool, const char* task, const unsigned char* data, int size) {
  if (CPool* found = GetPool(pool)) {
    found->SetTaskDataProperty(task, data, size);
  }
  return 0;
}

long CGlobal::GetTaskProperty(const char* pool, const char* task, ZEP_HTTP_TASK_PROPERTY property,
                              char* buffer, const long* size) {
  CPool* found = GetPool(pool);
  return found ? found->GetTaskProperty(task, property, buffer, size) : 0;
}

long CGlobal::GetTaskList(const char* pool, char* buffer, long* size) {
  if (CPool* found = GetPool(pool)) {
    HandOver(found->GetTaskList(), buffer, size);
  }
  return 0;
}

long CGlobal::GetSnapshot(char* buffer, long* size) {
  HandOver(SnapshotText(), buffer, size);
  return 0;
}

BasicString CGlobal::SnapshotText() const {
  JsonValueT snapshot(JsonValueT::ValueType::Array);
  snapshot.reserve(m_pools.size());
  for (const CPool* pool : m_pools) {
    JsonValueT entry(JsonValueT::ValueType::Object);
    entry.addMember("poolName", JsonValueT(std::string(pool->GetNameText())));
    entry.addMember("taskList", pool->TaskListValue());
    snapshot.append(std::move(entry));
  }
  return snapshot.valueToString();
}
