#pragma once

// Stands in for both libraries where a test decides what they say: pools and tasks with the statuses and properties
// that the test gives them, and the same rules for names and beats. Lives on the test's thread.

#include <map>
#include <string>
#include <vector>

#include "httpPool/ZEP_HttpPool.h"

namespace test {

struct FakeTask {
  std::string name;
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  std::map<int, std::string> properties{};
  std::string data{};
};

struct FakePool {
  std::string name;
  ZEP_HttpPool_NotifyProc proc = nullptr;
  std::vector<FakeTask> tasks{};
};

struct FakeLibrary {
  /// False: every function returns -1.
  bool isLoaded = true;
  /// What a launch answers.
  ZEP_HTTP_TASK_STATUS launchStatus = ZEP_HTTP_TASK_REQUESTING;
  /// Not 0: the length that every property claims to have.
  long claimedLength = 0;
  std::vector<FakePool> pools{};

  /// Null when there is none.
  FakePool* pool(const std::string& name);
  FakeTask* task(const std::string& pool, const std::string& name);
  /// The notifications of one pool, in order: after a removal the task that moves up is passed over.
  void beat(const std::string& pool);
};

/// The one behind the functions; a test sets it up anew.
FakeLibrary& library();

}  // namespace test
