#include "tests/host/HostPool.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

#include "foundation/ZEP_Foundation.h"

namespace test {
namespace {

std::map<std::string, HostPool*>& pools() {
  static std::map<std::string, HostPool*> all;
  return all;
}

bool isFinal(ZEP_HTTP_TASK_STATUS status) {
  return status == ZEP_HTTP_TASK_DONE || status == ZEP_HTTP_TASK_FAILED || status == ZEP_HTTP_TASK_TIMEOUT;
}

std::string jsonString(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      result += {'\\', c};
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof(escape), "\\u%04x", static_cast<unsigned>(c));
      result += escape;
    } else {
      result += c;
    }
  }
  return result + "\"";
}

std::string trimmedToTerminator(std::string text) {
  text.resize(std::min(text.find('\0'), text.size()));
  return text;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
  return stream << "status " << static_cast<int>(outcome.status) << ", " << outcome.result.size()
                << " bytes: \"" << outcome.result.substr(0, 300) << "\"";
}

Outcome done(std::string result) {
  return {.status = ZEP_HTTP_TASK_DONE, .result = std::move(result)};
}

Outcome failed(int errorID, int errorReason) {
  return {.status = ZEP_HTTP_TASK_FAILED, .result = errorText(errorID, errorReason)};
}

std::string errorText(int errorID, int errorReason) {
  return "{\"errorID\":" + std::to_string(errorID) + ",\"errorReason\":" + std::to_string(errorReason) + "}";
}

std::string headerJson(const Fields& fields) {
  std::string result = "{";
  for (const auto& [name, value] : fields) {
    result += (result.size() > 1 ? "," : "") + jsonString(name) + ":" + jsonString(value);
  }
  return result + "}";
}

HostPool::HostPool(std::string name) : name_(std::move(name)) {
  pools()[name_] = this;
  ZEP_HttpPool_Create(name_.c_str());
  ZEP_HttpPool_SetPoolProc(name_.c_str(), &HostPool::notified);
}

HostPool::~HostPool() {
  pools().erase(name_);
  ZEP_HttpPool_Destroy(name_.c_str());
  // Destroyed pools are deleted on a beat of 300 ms.
  turnFor(std::chrono::milliseconds(350));
}

void HostPool::add(const std::string& task, const Call& call) {
  ZEP_HttpPool_AddTask(name_.c_str(), task.c_str());
  set(task, ZEP_HTTP_TASK_PROP_URL, call.url);
  if (!call.headers.empty()) {
    set(task, ZEP_HTTP_TASK_PROP_HEADER_FIELDS, headerJson(call.headers));
  }
  if (!call.post.empty()) {
    set(task, ZEP_HTTP_TASK_PROP_POST_DATA, call.post);
  }
  if (!call.file.empty()) {
    set(task, ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, call.file);
  }
  if (!call.data.empty()) {
    ZEP_HttpPool_SetTaskDataProperty(name_.c_str(), task.c_str(), call.data.data(),
                                     static_cast<int>(call.data.size()));
  }
}

ZEP_HTTP_TASK_STATUS HostPool::launch(const std::string& task) {
  outcomes_.erase(task);
  running_.insert(task);
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
  ZEP_HttpPool_TaskRun(name_.c_str(), task.c_str(), &status);
  return status;
}

bool HostPool::await(std::chrono::milliseconds limit) {
  awaiting_ = true;
  turnUntil([this] { return running_.empty(); }, limit);
  awaiting_ = false;
  return running_.empty();
}

Outcome HostPool::run(const Call& call) {
  const std::string task = "call " + std::to_string(++unnamed_);
  add(task, call);
  launch(task);
  await();
  return outcome(task);
}

Outcome HostPool::outcome(const std::string& task) const {
  const auto found = outcomes_.find(task);
  return found == outcomes_.end() ? Outcome{} : found->second;
}

ZEP_HTTP_TASK_STATUS HostPool::status(const std::string& task) const {
  ZEP_HTTP_TASK_STATUS status = kNotWritten;
  ZEP_HttpPool_GetTaskStatus(name_.c_str(), task.c_str(), &status);
  return status;
}

std::string HostPool::property(const std::string& task, int number) const {
  const auto property = static_cast<ZEP_HTTP_TASK_PROPERTY>(number);
  long size = ZEP_HttpPool_GetTaskProperty(name_.c_str(), task.c_str(), property, nullptr, nullptr);
  std::string value(static_cast<std::size_t>(size), '\0');
  ZEP_HttpPool_GetTaskProperty(name_.c_str(), task.c_str(), property, value.data(), &size);
  return value;
}

void HostPool::set(const std::string& task, int number, const std::string& value) {
  ZEP_HttpPool_SetTaskProperty(name_.c_str(), task.c_str(), static_cast<ZEP_HTTP_TASK_PROPERTY>(number),
                               value.c_str());
}

long HostPool::notifications(const std::string& task) const {
  const auto found = notificationsOf_.find(task);
  return found == notificationsOf_.end() ? 0 : found->second;
}

void HostPool::notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task,
                        const char* data) {
  const auto found = pools().find(pool);
  if (found != pools().end() && code == ZEP_HTTP_POOL_TASK_NOTIFY_POLL && data == nullptr) {
    found->second->poll(task);
  }
}

void HostPool::poll(const std::string& task) {
  ++notifications_;
  ++notificationsOf_[task];
  if (action_) {
    action_(task);
  }
  if (running_.contains(task) && isFinal(status(task))) {
    outcomes_[task] = {.status = status(task), .result = property(task, ZEP_HTTP_TASK_PROP_RESULT)};
    running_.erase(task);
    if (awaiting_ && running_.empty()) {
      ZEP_RunLoop_Stop();
    }
  }
}

void turnFor(std::chrono::milliseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  while (std::chrono::steady_clock::now() < end) {
    const auto left = end - std::chrono::steady_clock::now();
    ZEP_RunLoop_Run(std::chrono::duration_cast<std::chrono::milliseconds>(left).count() + 1);
  }
}

bool turnUntil(const std::function<bool()>& predicate, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!predicate()) {
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    ZEP_RunLoop_Run(20);
  }
  return true;
}

std::string snapshot() {
  long size = 0;
  ZEP_HttpPool_GetSnapshot(nullptr, &size);
  std::string text(static_cast<std::size_t>(size), '\0');
  ZEP_HttpPool_GetSnapshot(text.data(), &size);
  return trimmedToTerminator(text);
}

std::string taskList(const std::string& pool) {
  long size = 0;
  ZEP_HttpPool_GetTaskList(pool.c_str(), nullptr, &size);
  std::string text(static_cast<std::size_t>(size), '\0');
  ZEP_HttpPool_GetTaskList(pool.c_str(), text.data(), &size);
  return trimmedToTerminator(text);
}

}  // namespace test
