#pragma once

// A host with one pool: adds tasks, launches them, turns the run loop and polls in the pool's notify function
// until the tasks are final, as a real host does. Lives on the test's main thread; the destructor destroys
// the pool and turns the loop until it is deleted.

#include <chrono>
#include <functional>
#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "httpPool/ZEP_HttpPool.h"

namespace test {

/// How a task ended: its status, and property 7.
struct Outcome {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  std::string result;
  bool operator==(const Outcome&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const Outcome& outcome);

Outcome done(std::string result);
/// Failed, with the error text of those numbers.
Outcome failed(int errorID, int errorReason = 0);
std::string errorText(int errorID, int errorReason);

using Fields = std::vector<std::pair<std::string, std::string>>;
/// The text of a JSON object of strings, in that order; any bytes below 0x80 and any UTF-8.
std::string headerJson(const Fields& fields);

/// What a host sets before a run; empty texts are not set.
struct Call {
  std::string url = {};
  Fields headers = {};
  std::string post = {};
  std::string file = {};
  std::vector<unsigned char> data = {};
};

/// What a status is set to before the library is asked for it: a value that the library never writes.
inline constexpr ZEP_HTTP_TASK_STATUS kNotWritten = ZEP_HTTP_TASK_STATUS_8;

class HostPool {
 public:
  explicit HostPool(std::string name = "pool");
  ~HostPool();
  HostPool(const HostPool&) = delete;
  HostPool& operator=(const HostPool&) = delete;

  const std::string& name() const { return name_; }

  void add(const std::string& task, const Call& call);
  /// TaskRun; what it wrote.
  ZEP_HTTP_TASK_STATUS launch(const std::string& task);
  /// Turns the run loop until every launched task has been seen final; false at the limit.
  bool await(std::chrono::milliseconds limit = std::chrono::minutes(4));
  /// Adds, launches and awaits a task of its own.
  Outcome run(const Call& call);

  /// What polling saw when the task was final; status 0 if it was not.
  Outcome outcome(const std::string& task) const;
  /// kNotWritten when there is no such pool.
  ZEP_HTTP_TASK_STATUS status(const std::string& task) const;
  std::string property(const std::string& task, int number) const;
  void set(const std::string& task, int number, const std::string& value);
  void set(const std::string& task, ZEP_HTTP_TASK_PROPERTY property, const std::string& value) {
    set(task, static_cast<int>(property), value);
  }

  /// How often the notify function was called for that task, and for all.
  long notifications(const std::string& task) const;
  long notifications() const { return notifications_; }
  /// Called in every notification, before the harness polls.
  void onNotify(std::function<void(const std::string& task)> action) { action_ = std::move(action); }

 private:
  static void notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data);
  void poll(const std::string& task);

  std::string name_;
  std::set<std::string> running_;
  std::map<std::string, Outcome> outcomes_;
  std::map<std::string, long> notificationsOf_;
  long notifications_ = 0;
  int unnamed_ = 0;
  bool awaiting_ = false;
  std::function<void(const std::string&)> action_;
};

/// Turns the run loop for a while, come what may.
void turnFor(std::chrono::milliseconds time);
/// Turns the run loop until the predicate holds; false at the limit.
bool turnUntil(const std::function<bool()>& predicate,
               std::chrono::milliseconds limit = std::chrono::minutes(2));

/// The texts of the two JSON getters, by asking for the size first.
std::string snapshot();
std::string taskList(const std::string& pool);

}  // namespace test
