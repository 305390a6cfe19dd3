#pragma once

// Where the pools report what happens to them and their tasks. One object for all pools (CPool::m_sReport),
// on the host's thread.

enum ENUM_POOL_EVENT : int {
  POOL_EVENT_POOL_CREATED = 0,
  POOL_EVENT_POOL_DESTROYED = 5,
  POOL_EVENT_TASK_CREATED = 10,
  POOL_EVENT_TASK_SUBMIT = 20,
  POOL_EVENT_TASK_GOT_RESP = 30,
};

class CReport {
 public:
  /// The pools' one entry point. Empty on purpose: the report is switched off here, and nothing is recorded.
  /// `taskName` is null for an event of the pool itself.
  void UpdateStatus(const char* poolName, const char* taskName, ENUM_POOL_EVENT event);
};
