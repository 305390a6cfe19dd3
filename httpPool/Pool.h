#pragma once

// A named set of named tasks, which it owns. While it holds tasks, a timer calls the host's notify function
// once for each of them. Owned by the registry; on the host's thread.

#include <memory>

#include "common/zep/ZEPTimer.h"
#include "httpPool/NamedList.h"
#include "httpPool/Report.h"
#include "httpPool/Task.h"
#include "httpPool/TimeoutCheck.h"
#include "httpPool/ZEP_HttpPool.h"
#include "support/BasicString.h"

class JsonValueT;

class CPool : public ZEPTimer, public IZEPTimer_Callback, public CTimeoutCheck {
 public:
  /// Never destroyed: the host's own exit handlers may still use pools.
  static CReport& m_sReport;

  explicit CPool(const char* name);
  CPool(const CPool&) = delete;
  CPool& operator=(const CPool&) = delete;
  ~CPool() override;

  /// Notifies the host of every task, whatever the id. The host may change the pool meanwhile: after a
  /// removal the walk goes on at the next position, and a task that is added is notified in the same beat.
  void OnTimer(unsigned int id) override;
  /// The pool's name.
  BasicString GetSelfIdentity() override;

  BasicString GetName() const { return m_name; }
  const BasicString& GetNameText() const { return m_name; }
  void SetName(const char* name);
  /// Null ends the notifications.
  void SetPoolProc(ZEP_HttpPool_NotifyProc notify) { m_notify = notify; }
  /// Whether the host is being notified: the pool must not be deleted now.
  bool IsNotifying() const { return m_notifyDepth > 0; }

  /// Nothing happens when the pool has a task of that name.
  void AddTask(const char* taskName);
  /// Adds a task that was made elsewhere; its name must be new to the pool.
  void AdoptTask(std::unique_ptr<CTask> task);
  CTask* GetTask(const char* taskName) { return m_tasks.Find(taskName); }
  void RemoveTask(const char* taskName);
  void ClearTask();
  /// Writes NOT_EXIST for an unknown task. Also runs the task's watchdog.
  void GetTaskStatus(const char* taskName, ZEP_HTTP_TASK_STATUS* status);
  void TaskRun(const char* taskName, ZEP_HTTP_TASK_STATUS* status);
  void TaskReset(const char* taskName);
  void SetTaskProperty(const char* taskName, ZEP_HTTP_TASK_PROPERTY property, const char* value);
  void SetTaskDataProperty(const char* taskName, const unsigned char* data, int size);
  /// The value's length; 0 for an unknown task.
  long GetTaskProperty(const char* taskName, ZEP_HTTP_TASK_PROPERTY property, char* buffer, const long* size);
  /// The JSON text of the tasks and their status words.
  BasicString GetTaskList() const;
  /// The same as a value.
  JsonValueT TaskListValue() const;

 private:
  BasicString m_name;
  NamedList<CTask> m_tasks;
  ZEP_HttpPool_NotifyProc m_notify = nullptr;
  int m_notifyDepth = 0;
};
