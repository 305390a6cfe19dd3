#include "httpPool/Pool.h"

#include <new>

#include "support/JsonValueT.h"

namespace {

constexpr unsigned int kPollTimerId = 10001;
constexpr unsigned int kPollIntervalMs = 10;

/// Statuses 1, 8 and 9 have no word, on purpose.
const char* StatusWord(ZEP_HTTP_TASK_STATUS status) {
  switch (status) {
    case ZEP_HTTP_TASK_UNINITIALIZED:
      return "uninitialized";
    case ZEP_HTTP_TASK_REQUESTING:
      return "requesting";
    case ZEP_HTTP_TASK_DONE:
      return "successfully done";
    case ZEP_HTTP_TASK_NOT_EXIST:
      return "not exist";
    case ZEP_HTTP_TASK_FAILED:
      return "task failed";
    case ZEP_HTTP_TASK_TIMEOUT:
      return "time out";
    case ZEP_HTTP_TASK_API_ERROR:
      return "api returned error";
    default:
      return "";
  }
}

/// Counts up while it lives, also when the host's function throws.
class DepthScope {
 public:
  explicit DepthScope(int& depth) : m_depth(depth) { ++m_depth; }
  ~DepthScope() { --m_depth; }
  DepthScope(const DepthScope&) = delete;
  DepthScope& operator=(const DepthScope&) = delete;

 private:
  int& m_depth;
};

/// In the image, not on the heap: an unload takes it along.
alignas(CReport) unsigned char reportStorage[sizeof(CReport)];

}  // namespace

CReport& CPool::m_sReport = *new (reportStorage) CReport;

CPool::CPool(const char* name) : ZEPTimer(this), m_name(name) {
  m_sReport.UpdateStatus(m_name.c_str(), nullptr, POOL_EVENT_POOL_CREATED);
  InitTimeoutCheck();
}

CPool::~CPool() {
  ClearTask();
  m_sReport.UpdateStatus(m_name.c_str(), nullptr, POOL_EVENT_POOL_DESTROYED);
}

void CPool::SetName(const char* name) {
  m_name = name;
  NamedListBase::NoteRename();
}

BasicString CPool::GetSelfIdentity() {
  return m_name;
}

void CPool::AddTask(const char* taskName) {
  if (!taskName || GetTask(taskName)) {
    return;
  }
  AdoptTask(std::make_unique<CTask>(taskName, m_name.c_str()));
  m_sReport.UpdateStatus(m_name.c_str(), taskName, POOL_EVENT_TASK_CREATED);
}

void CPool::AdoptTask(std::unique_ptr<CTask> task) {
  m_tasks.Add(task.get());
  try {
    if (m_tasks.size() == 1) {
      SetTimer(kPollTimerId, kPollIntervalMs);
    }
  } catch (...) {
    m_tasks.Remove(task.get());
    throw;
  }
  // From here on the list stands for the ownership.
  static_cast<void>(task.release());
}

void CPool::RemoveTask(const char* taskName) {
  if (CTask* task = GetTask(taskName)) {
    m_tasks.Remove(task);
    delete task;
  }
  if (m_tasks.empty()) {
    KillTimer(kPollTimerId);
  }
}

void CPool::ClearTask() {
  KillTimer(kPollTimerId);
  for (CTask* task : m_tasks.TakeAll()) {
    delete task;
  }
}

void CPool::GetTaskStatus(const char* taskName, ZEP_HTTP_TASK_STATUS* status) {
  if (CTask* task = GetTask(taskName)) {
    task->GetStatus(status);
    task->ExitIfTimeout();
  } else if (status) {
    *status = ZEP_HTTP_TASK_NOT_EXIST;
  }
}

void CPool::TaskRun(const char* taskName, ZEP_HTTP_TASK_STATUS* status) {
  if (CTask* task = GetTask(taskName)) {
    m_sReport.UpdateStatus(m_name.c_str(), taskName, POOL_EVENT_TASK_SUBMIT);
    task->Run(status);
  }
}

void CPool::TaskReset(const char* taskName) {
  if (CTask* task = GetTask(taskName)) {
    task->Reset();
  }
}

void CPool::SetTaskProperty(const char* taskName, ZEP_HTTP_TASK_PROPERTY property, const char* value) {
  if (CTask* task = GetTask(taskName)) {
    task->SetProperty(property, value);
  }
}

void CPool::SetTaskDataProperty(const char* taskName, const unsigned char* data, int size) {
  if (CTask* task = GetTask(taskName)) {
    task->SetDataProperty(data, size);
  }
}

long CPool::GetTaskProperty(const char* taskName, ZEP_HTTP_TASK_PROPERTY property, char* buffer,
                            const long* size) {
  CTask* task = GetTask(taskName);
  if (!task) {
    return 0;
  }
  if (property == ZEP_HTTP_TASK_PROP_RESULT) {
    m_sReport.UpdateStatus(m_name.c_str(), taskName, POOL_EVENT_TASK_GOT_RESP);
  }
  return task->GetProperty(property, buffer, size);
}

BasicString CPool::GetTaskList() const {
  return TaskListValue().valueToString();
}

JsonValueT CPool::TaskListValue() const {
  JsonValueT list(JsonValueT::ValueType::Array);
  list.reserve(m_tasks.size());
  for (const CTask* task : m_tasks) {
    ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
    task->GetStatus(&status);
    JsonValueT entry(JsonValueT::ValueType::Object);
    entry.addMember("taskName", JsonValueT(std::string(task->GetNameText())));
    entry.addMember("taskStatus", StatusWord(status));
    list.append(std::move(entry));
  }
  return list;
}

void CPool::OnTimer(unsigned int /*id*/) {
  const DepthScope notifying(m_notifyDepth);
  // Copies, because the host may remove the task from inside its notification; one buffer each for the whole
  // walk.
  const std::string poolName = m_name;
  std::string taskName;
  for (std::size_t position = 0; m_notify && position < m_tasks.size(); ++position) {
    taskName = m_tasks[position]->GetNameText();
    m_notify(ZEP_HTTP_POOL_TASK_NOTIFY_POLL, poolName.c_str(), taskName.c_str(), nullptr);
  }
}
