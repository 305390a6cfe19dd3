#include "httpPool/Report.h"

#include <json/writer.h>

#include <array>
#include <ctime>
#include <string>
#include <utility>

#include "support/logstream.h"

namespace {

constexpr int kNone = -1;

/// ctime_r(3) writes no more.
constexpr std::size_t kTimeTextBytes = 26;

bool IsIndexOf(const Json::Value& list, int index) {
  return index >= 0 && static_cast<Json::ArrayIndex>(index) < list.size();
}

/// The first element that has that text as its member.
int FindIndex(const Json::Value& list, const char* member, const char* text) {
  if (!text) {
    return kNone;
  }
  for (Json::ArrayIndex index = 0; index < list.size(); ++index) {
    const Json::Value& element = list[index];
    if (!element.isNull() && BasicString(element[member].asString()).compareNoCase(text) == 0) {
      return static_cast<int>(index);
    }
  }
  return kNone;
}

void AppendEvent(Json::Value& log, const char* event, Json::Int64 time) {
  Json::Value entry(Json::objectValue);
  entry["event"] = event;
  entry["time"] = time;
  log.append(std::move(entry));
}

std::string CompactText(const Json::Value& root) {
  // Deprecated, but the document is laid out as this writer does it, with the line end that its successor leaves out.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  Json::FastWriter writer;
#pragma GCC diagnostic pop
  return writer.write(root);
}

}  // namespace

CReport::CReport() = default;
CReport::~CReport() = default;

void CReport::UpdateStatus([[maybe_unused]] const char* poolName, [[maybe_unused]] const char* taskName,
                           [[maybe_unused]] ENUM_POOL_EVENT event) {
  // Switched off on purpose; this line switches it on:
  // UpdatePoolTaskStatus(poolName, taskName, event);
}

void CReport::UpdatePoolTaskStatus(const char* poolName, const char* taskName, ENUM_POOL_EVENT event) {
  int poolToRemove = kNone;
  const int pool = FindPoolIndex(poolName);
  switch (event) {
    case POOL_EVENT_POOL_CREATED:
      // Also beside a pool of that name.
      if (poolName) {
        Json::Value node;
        GenerateNewPoolNode(poolName, node);
        m_root.append(std::move(node));
      }
      break;
    case POOL_EVENT_POOL_DESTROYED:
      InsertPoolDestroyInfo(pool);
      poolToRemove = pool;
      break;
    case POOL_EVENT_TASK_CREATED:
      GenerateNewTaskNode(pool, taskName);
      break;
    case POOL_EVENT_TASK_SUBMIT:
      InsertTaskSubmitNode(pool, FindTaskIndex(pool, taskName));
      break;
    case POOL_EVENT_TASK_GOT_RESP:
      InsertTaskRespNode(pool, FindTaskIndex(pool, taskName));
      break;
  }
  WriteDocument();
  // Deliberately not at index 0: the oldest record stays.
  if (poolToRemove > 0) {
    RemovePool(poolToRemove);
  }
}

void CReport::GenerateNewPoolNode(const char* poolName, Json::Value& node) {
  node = Json::Value(Json::objectValue);
  node["poolName"] = poolName ? poolName : "";
  node["baseTime"] = CurTime();
  node["milliTime"] = GetMilliSecond();
  node["age"] = 0;
  AppendEvent(node["log"], "created", 0);
}

int CReport::FindPoolIndex(const char* poolName) const {
  return FindIndex(m_root, "poolName", poolName);
}

int CReport::FindTaskIndex(int poolIndex, const char* taskName) const {
  return IsIndexOf(m_root, poolIndex) ? FindIndex(m_root[poolIndex]["tasks"], "name", taskName) : kNone;
}

void CReport::InsertPoolDestroyInfo(int poolIndex) {
  if (Json::Value* pool = PoolAt(poolIndex)) {
    const Json::Int64 time = GetTimeDiffInMilliSecond(poolIndex);
    // The spelling is deliberate: it is part of the document's format.
    AppendEvent((*pool)["log"], "destoryed", time);
    (*pool)["age"] = time;
  }
}

void CReport::GenerateNewTaskNode(int poolIndex, const char* taskName) {
  Json::Value* pool = PoolAt(poolIndex);
  if (!pool || !taskName) {
    return;
  }
  const Json::Int64 time = GetTimeDiffInMilliSecond(poolIndex);
  Json::Value task(Json::objectValue);
  task["name"] = taskName;
  AppendEvent(task["log"], "create", time);
  (*pool)["tasks"].append(std::move(task));
  (*pool)["age"] = time;
}

void CReport::InsertTaskSubmitNode(int poolIndex, int taskIndex) {
  InsertTaskNode(poolIndex, taskIndex, "submit");
}

void CReport::InsertTaskRespNode(int poolIndex, int taskIndex) {
  InsertTaskNode(poolIndex, taskIndex, "gotResp");
}

void CReport::InsertTaskNode(int poolIndex, int taskIndex, const char* event) {
  if (Json::Value* task = TaskAt(poolIndex, taskIndex)) {
    const Json::Int64 time = GetTimeDiffInMilliSecond(poolIndex);
    AppendEvent((*task)["log"], event, time);
    m_root[poolIndex]["age"] = time;
  }
}

void CReport::RemovePool(int poolIndex) {
  Json::Value rest;
  for (Json::ArrayIndex index = 0; index < m_root.size(); ++index) {
    if (!m_root[index].isNull() && static_cast<int>(index) != poolIndex) {
      rest.append(std::move(m_root[index]));
    }
  }
  m_root = std::move(rest);
}

BasicString CReport::CurTime() const {
  const std::time_t now = std::chrono::system_clock::to_time_t(Now());
  std::array<char, kTimeTextBytes> buffer{};
  BasicString text = ctime_r(&now, buffer.data());
  return text.trimRight('\n');
}

Json::Int64 CReport::GetMilliSecond() const {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Now().time_since_epoch()).count();
}

Json::Int64 CReport::GetTimeDiffInMilliSecond(int poolIndex) const {
  const Json::Int64 created = IsIndexOf(m_root, poolIndex) ? m_root[poolIndex]["milliTime"].asInt64() : 0;
  return GetMilliSecond() - created;
}

std::chrono::system_clock::time_point CReport::Now() const {
  return std::chrono::system_clock::now();
}

Json::Value* CReport::PoolAt(int index) {
  return IsIndexOf(m_root, index) ? &m_root[index] : nullptr;
}

Json::Value* CReport::TaskAt(int poolIndex, int taskIndex) {
  Json::Value* pool = PoolAt(poolIndex);
  // Looked at as a constant: a pool without tasks must not get an empty list by being asked.
  return pool && IsIndexOf(std::as_const(*pool)["tasks"], taskIndex) ? &(*pool)["tasks"][taskIndex] : nullptr;
}

void CReport::WriteDocument() const {
  if (m_root.isNull()) {
    return;
  }
  logstream line(QLX_LEVEL_DEBUG, "httpPool");
  if (line.isWanted()) {
    line << CompactText(m_root) << std::endl;
  }
}
