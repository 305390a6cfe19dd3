#pragma once

// The registry of pools, one in the process (g_pGlobal): made when the library is loaded, deleted when it is
// unloaded. Owns the pools, finds them by name, and deletes destroyed ones from its own timer, so that a pool
// is never deleted while a call of its own is running. On the host's thread.

#include <vector>

#include "common/zep/ZEPTimer.h"
#include "httpPool/NamedList.h"
#include "httpPool/Pool.h"
#include "httpPool/ZEP_HttpPool.h"
#include "support/BasicString.h"

class CGlobal : public ZEPTimer, public IZEPTimer_Callback {
 public:
  CGlobal();
  CGlobal(const CGlobal&) = delete;
  CGlobal& operator=(const CGlobal&) = delete;
  /// Leaves the pools that are left to the process's end, on purpose.
  ~CGlobal() override;

  /// Deletes the destroyed pools; stops the timer when no pool is left.
  void OnTimer(unsigned int id) override;

  /// Adds a pool, also beside one of the same name. Nothing for a null name.
  long CreatePool(const char* name);
  /// Takes the first pool of that name out; it is deleted at a later beat.
  long DestroyPool(const char* name);
  /// The first pool of that name, or null.
  CPool* GetPool(const char* name) { return m_pools.Find(name); }

  // Each finds the pool and forwards; 0, also without such a pool.
  long SetPoolProc(const char* pool, ZEP_HttpPool_NotifyProc notify);
  long AddTask(const char* pool, const char* task);
  long RemoveTask(const char* pool, const char* task);
  long ClearTask(const char* pool);
  long GetTaskStatus(const char* pool, const char* task, ZEP_HTTP_TASK_STATUS* status);
  long TaskRun(const char* pool, const char* task, ZEP_HTTP_TASK_STATUS* status);
  long TaskReset(const char* pool, const char* task);
  long SetTaskProperty(const char* pool, const char* task, ZEP_HTTP_TASK_PROPERTY property,
                       const char* value);
  long SetTaskDataProperty(const char* pool, const char* task, const unsigned char* data, int size);
  /// The value's length.
  long GetTaskProperty(const char* pool, const char* task, ZEP_HTTP_TASK_PROPERTY property, char* buffer,
                       const long* size);

  // `*size` becomes the text's length plus 1, whatever it was; `buffer` must have room for that.
  long GetTaskList(const char* pool, char* buffer, long* size);
  long GetSnapshot(char* buffer, long* size);

 private:
  BasicString SnapshotText() const;

  NamedList<CPool> m_pools;
  std::vector<CPool*> m_pendingPools;
};

/// Null before the library's initializer and after its finalizer. Exported.
extern __attribute__((visibility("default"))) CGlobal* g_pGlobal;
