#include "httpPool/ZEP_HttpPool.h"

#include <new>

#include "httpPool/Global.h"
#include "support/CFuncTrace.h"

namespace {

constexpr long kNoRegistry = -1;
/// No exception gets into a host's C code: a call that finds no memory does nothing, or only a part.
constexpr long kNothingDone = 0;

}  // namespace

long ZEP_HttpPool_Create(const char* poolName) try {
  const CFuncTrace trace("ZEP_HttpPool_Create");
  return g_pGlobal ? g_pGlobal->CreatePool(poolName) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_SetPoolProc(const char* poolName, ZEP_HttpPool_NotifyProc proc) try {
  const CFuncTrace trace("ZEP_HttpPool_SetPoolProc");
  return g_pGlobal ? g_pGlobal->SetPoolProc(poolName, proc) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_Destroy(const char* poolName) try {
  const CFuncTrace trace("ZEP_HttpPool_Destroy");
  return g_pGlobal ? g_pGlobal->DestroyPool(poolName) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_Init(void* /*first*/, void* /*second*/) {
  return 0;
}

long ZEP_HttpPool_AddTask(const char* poolName, const char* taskName) try {
  const CFuncTrace trace("ZEP_HttpPool_AddTask");
  return g_pGlobal ? g_pGlobal->AddTask(poolName, taskName) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_RemoveTask(const char* poolName, const char* taskName) try {
  const CFuncTrace trace("ZEP_HttpPool_RemoveTask");
  return g_pGlobal ? g_pGlobal->RemoveTask(poolName, taskName) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_ClearTask(const char* poolName) try {
  const CFuncTrace trace("ZEP_HttpPool_ClearTask");
  return g_pGlobal ? g_pGlobal->ClearTask(poolName) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_GetTaskList(const char* poolName, char* buffer, long* size) try {
  const CFuncTrace trace("ZEP_HttpPool_GetTaskList");
  return g_pGlobal ? g_pGlobal->GetTaskList(poolName, buffer, size) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_GetSnapshot(char* buffer, long* size) try {
  const CFuncTrace trace("ZEP_HttpPool_GetSnapshot");
  return g_pGlobal ? g_pGlobal->GetSnapshot(buffer, size) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

// Not traced, on purpose: the host asks for every task on every beat.
long ZEP_HttpPool_GetTaskStatus(const char* poolName, const char* taskName,
                                ZEP_HTTP_TASK_STATUS* status) try {
  return g_pGlobal ? g_pGlobal->GetTaskStatus(poolName, taskName, status) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_TaskRun(const char* poolName, const char* taskName, ZEP_HTTP_TASK_STATUS* status) try {
  const CFuncTrace trace("ZEP_HttpPool_TaskRun");
  return g_pGlobal ? g_pGlobal->TaskRun(poolName, taskName, status) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_TaskReset(const char* poolName, const char* taskName) try {
  const CFuncTrace trace("ZEP_HttpPool_TaskReset");
  return g_pGlobal ? g_pGlobal->TaskReset(poolName, taskName) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_SetTaskProperty(const char* poolName, const char* taskName, ZEP_HTTP_TASK_PROPERTY property,
                                  const char* value) try {
  const CFuncTrace trace("ZEP_HttpPool_SetTaskProperty");
  return g_pGlobal ? g_pGlobal->SetTaskProperty(poolName, taskName, property, value) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_SetTaskDataProperty(const char* poolName, const char* taskName, const unsigned char* data,
                                      int size) try {
  const CFuncTrace trace("ZEP_HttpPool_SetTaskDataProperty");
  return g_pGlobal ? g_pGlobal->SetTaskDataProperty(poolName, taskName, data, size) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}

long ZEP_HttpPool_GetTaskProperty(const char* poolName, const char* taskName, ZEP_HTTP_TASK_PROPERTY property,
                                  char* buffer, long* size) try {
  const CFuncTrace trace("ZEP_HttpPool_GetTaskProperty");
  return g_pGlobal ? g_pGlobal->GetTaskProperty(poolName, taskName, property, buffer, size) : kNoRegistry;
} catch (const std::bad_alloc&) {
  return kNothingDone;
}
