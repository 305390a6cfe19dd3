#pragma once

// The history of all pools and their tasks as one JSON document, written to the trace after each event. One object for
// all pools (CPool::m_sReport), on the host's thread. It is switched off: the pools report to UpdateStatus, which does
// nothing. The document is an array of pools, oldest first:
//   {"age":9,"baseTime":"Sat Nov 21 14:47:03 2026","log":[{"event":"created","time":0}],"milliTime":1795272423000,
//    "poolName":"p","tasks":[{"log":[{"event":"create","time":9}],"name":"t"}]}
// Times are milliseconds, "age" and "time" since the pool's "milliTime". Names are found without regard to case.

#include <json/value.h>

#include <chrono>

#include "support/BasicString.h"

enum ENUM_POOL_EVENT : int {
  POOL_EVENT_POOL_CREATED = 0,
  POOL_EVENT_POOL_DESTROYED = 5,
  POOL_EVENT_TASK_CREATED = 10,
  POOL_EVENT_TASK_SUBMIT = 20,
  POOL_EVENT_TASK_GOT_RESP = 30,
};

class CReport {
 public:
  CReport();
  CReport(const CReport&) = delete;
  CReport& operator=(const CReport&) = delete;
  virtual ~CReport();

  /// The pools' one entry point. Empty on purpose: the report is switched off here, and nothing is recorded.
  /// `taskName` is null for an event of the pool itself.
  void UpdateStatus(const char* poolName, const char* taskName, ENUM_POOL_EVENT event);

  /// Records an event and writes the document, once there is one, whatever the event. What names an unknown pool or
  /// task changes nothing, and neither does a null name. A pool that is created again gets a second record; one that
  /// is destroyed is written once more and then removed, but for the oldest, which stays.
  void UpdatePoolTaskStatus(const char* poolName, const char* taskName, ENUM_POOL_EVENT event);

  /// Makes `node` the record of a pool that has just been created.
  void GenerateNewPoolNode(const char* poolName, Json::Value& node);
  /// The index of the first pool of that name; -1 when there is none, or for null.
  int FindPoolIndex(const char* poolName) const;
  /// The same of a task in a pool.
  int FindTaskIndex(int poolIndex, const char* taskName) const;

  // Each adds an event that happens now and sets the pool's age. Indices of nothing change nothing.
  void InsertPoolDestroyInfo(int poolIndex);
  void GenerateNewTaskNode(int poolIndex, const char* taskName);
  void InsertTaskSubmitNode(int poolIndex, int taskIndex);
  void InsertTaskRespNode(int poolIndex, int taskIndex);

  void RemovePool(int poolIndex);

  /// The local time as ctime(3) writes it, without the line end.
  BasicString CurTime() const;
  /// Milliseconds since 1970.
  Json::Int64 GetMilliSecond() const;
  /// Milliseconds since the pool was created; negative when the clock was set back since.
  Json::Int64 GetTimeDiffInMilliSecond(int poolIndex) const;

 protected:
  virtual std::chrono::system_clock::time_point Now() const;

 private:
  /// The record at that index; null when there is none.
  Json::Value* PoolAt(int index);
  Json::Value* TaskAt(int poolIndex, int taskIndex);
  void InsertTaskNode(int poolIndex, int taskIndex, const char* event);
  void WriteDocument() const;

  /// Null until the first pool is created.
  Json::Value m_root;
};
