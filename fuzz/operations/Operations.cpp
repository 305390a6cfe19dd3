#include "fuzz/operations/Operations.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <optional>

#include "foundation/ZEP_Foundation.h"
#include "fuzz/Require.h"
#include "fuzz/operations/Answers.h"
#include "fuzz/operations/ScriptedServer.h"
#include "fuzz/operations/SignIn.h"

namespace operations {
namespace {

/// What one input may cost: each request is a thread, and waiting is all that turning the loop is.
constexpr int kMostRuns = 8;
constexpr int kMostTurning = 60;
constexpr int kDeepestTurning = 2;

constexpr std::array<const char*, 4> kPools = {"p", "q", "", nullptr};
constexpr std::array<const char*, 5> kTasks = {"a", "b", "c", "", nullptr};
constexpr std::array<const char*, 8> kHeaders = {
    "",
    R"({"HttpMethonGet":"1"})",
    R"({"HttpMethod":"PUT","X":"y"})",
    R"({"Exchange-Autodiscover":"1"})",
    R"({"Glint":"1"})",
    R"({"HttpMethod":"no token","A":"b\r\nC: d"})",
    R"({"HttpMethod":"HEAD"})",
    "{broken",
};

}  // namespace

void Operations::reenter() {
  if (reentries_ > 0 && !script_.isOver()) {
    --reentries_;
    next();
  }
}

void Operations::next() {
  switch (script_.operation() % 32) {
    case 0:
    case 1:
      return create();
    case 2:
      return destroy();
    case 3:
    case 4:
      return setProc(true);
    case 5:
      return setProc(false);
    case 6:
    case 7:
    case 8:
      return addTask();
    case 9:
      return removeTask();
    case 10:
      return clear();
    case 11:
    case 12:
    case 13:
      return runTask();
    case 14:
      return resetTask();
    case 15:
    case 16:
    case 17:
      return setUrl();
    case 18:
      return setHeader();
    case 19:
      return setText(ZEP_HTTP_TASK_PROP_HEADER_FIELDS, script_.text());
    case 20:
      return setShortText();
    case 21:
      return setFile();
    case 22:
      return setData();
    case 23:
      return setIgnored();
    case 24:
      return checkStatus();
    case 25:
      return checkProperty();
    case 26:
      return checkList();
    case 27:
      return checkSnapshot();
    case 28:
      reentries_ = static_cast<int>(script_.below(16));
      return;
    case 29:
      return chooseAnswer();
    case 31:
      return settle();
    default:
      return turn();
  }
}

const char* Operations::poolName() {
  return kPools.at(script_.below(kPools.size()));
}

Operations::Named Operations::named() {
  const char* pool = poolName();
  const char* task = kTasks.at(script_.below(kTasks.size()));
  PoolModel* known = model_.find(pool);
  return {pool, task, known, known != nullptr ? known->find(task) : nullptr};
}

void Operations::create() {
  const char* name = poolName();
  require(ZEP_HttpPool_Create(name) == 0);
  model_.create(name);
}

void Operations::destroy() {
  const char* name = poolName();
  require(ZEP_HttpPool_Destroy(name) == 0);
  model_.destroy(name);
}

void Operations::setProc(bool isNotified) {
  const char* name = poolName();
  require(ZEP_HttpPool_SetPoolProc(name, isNotified ? notify_ : nullptr) == 0);
  if (PoolModel* pool = model_.find(name)) {
    pool->setNotified(isNotified);
  }
}

void Operations::addTask() {
  const Named named = this->named();
  require(ZEP_HttpPool_AddTask(named.pool, named.task) == 0);
  if (named.knownPool != nullptr && named.knownTask == nullptr && named.task != nullptr) {
    named.knownPool->add(named.task);
  }
}

void Operations::removeTask() {
  const Named named = this->named();
  require(ZEP_HttpPool_RemoveTask(named.pool, named.task) == 0);
  if (named.knownTask != nullptr) {
    named.knownPool->remove(*named.knownTask);
  }
}

void Operations::clear() {
  const char* name = poolName();
  require(ZEP_HttpPool_ClearTask(name) == 0);
  if (PoolModel* pool = model_.find(name)) {
    pool->clear();
  }
}

void Operations::runTask() {
  const Named named = this->named();
  if (runs_ == kMostRuns) {
    return;
  }
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  require(ZEP_HttpPool_TaskRun(named.pool, named.task, script_.below(4) == 0 ? nullptr : &status) == 0);
  if (named.knownTask == nullptr) {
    require(status == ZEP_HTTP_TASK_STATUS_8);
    return;
  }
  ++runs_;
  named.knownTask->run(status);
}

void Operations::resetTask() {
  const Named named = this->named();
  require(ZEP_HttpPool_TaskReset(named.pool, named.task) == 0);
  if (named.knownTask != nullptr) {
    named.knownTask->reset();
  }
}

void Operations::setUrl() {
  const std::size_t choice = script_.below(kPaths.size() + 8);
  if (choice < kPaths.size()) {
    return setText(ZEP_HTTP_TASK_PROP_URL, ScriptedServer::shared().url(kPaths.at(choice).path));
  }
  const std::string port = std::to_string(ScriptedServer::shared().port());
  const std::array<std::string, 8> urls = {
      "",
      "http://a b/",
      "relative",
      "file://" + folder_.file("read"),
      "file://" + folder_.file("none"),
      "ftp://127.0.0.1/",
      "http://u:p@127.0.0.1:" + port + "/basic",
      ScriptedServer::shared().url("/reset"),
  };
  setText(ZEP_HTTP_TASK_PROP_URL, urls.at(choice - kPaths.size()));
}

void Operations::setHeader() {
  setText(ZEP_HTTP_TASK_PROP_HEADER_FIELDS, kHeaders.at(script_.below(kHeaders.size())));
}

void Operations::setShortText() {
  constexpr std::array<int, 5> kProperties = {2, 3, 4, 6, 9};
  const int property = kProperties.at(script_.below(kProperties.size()));
  setText(property, script_.text());
}

void Operations::setFile() {
  const std::array<std::string, 3> files = {"", folder_.file("written"), "/nonexistent/file"};
  setText(ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, files.at(script_.below(files.size())));
}

void Operations::setText(int property, const std::string& value) {
  const Named named = this->named();
  const bool isNull = value.empty() && script_.below(2) == 0;
  require(ZEP_HttpPool_SetTaskProperty(named.pool, named.task, static_cast<ZEP_HTTP_TASK_PROPERTY>(property),
                                       isNull ? nullptr : value.c_str()) == 0);
  if (named.knownTask != nullptr) {
    named.knownTask->setText(property, value);
  }
}

void Operations::setData() {
  const Named named = this->named();
  const std::string bytes = script_.text();
  constexpr std::array<int, 3> kNone = {0, -1, -2'000'000'000};
  const std::size_t choice = script_.below(6);
  const int size = choice < kNone.size() ? kNone.at(choice) : static_cast<int>(bytes.size());
  // A block of exactly that size, so that reading on is noticed.
  const auto block = std::make_unique<unsigned char[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), block.get());
  require(ZEP_HttpPool_SetTaskDataProperty(named.pool, named.task, choice == 3 ? nullptr : block.get(),
                                           size) == 0);
  if (named.knownTask != nullptr) {
    named.knownTask->setData();
  }
}

/// What a host cannot set stays as it is.
void Operations::setIgnored() {
  const Named named = this->named();
  constexpr std::array<int, 5> kIgnored = {0, 7, 10, 11, 15};
  const auto property = static_cast<ZEP_HTTP_TASK_PROPERTY>(kIgnored.at(script_.below(kIgnored.size())));
  const long before = ZEP_HttpPool_GetTaskProperty(named.pool, named.task, property, nullptr, nullptr);
  require(ZEP_HttpPool_SetTaskProperty(named.pool, named.task, property, "a text of the host's own") == 0);
  require(ZEP_HttpPool_GetTaskProperty(named.pool, named.task, property, nullptr, nullptr) == before);
}

void Operations::checkStatus() {
  const Named named = this->named();
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  require(ZEP_HttpPool_GetTaskStatus(named.pool, named.task, nullptr) == 0);
  require(ZEP_HttpPool_GetTaskStatus(named.pool, named.task, &status) == 0);
  if (named.knownPool == nullptr) {
    require(status == ZEP_HTTP_TASK_STATUS_8);
  } else if (named.knownTask == nullptr) {
    require(status == ZEP_HTTP_TASK_NOT_EXIST);
  } else {
    require(named.knownTask->mayHave(status));
  }
}

/// Whole, in part, and into no room at all.
void Operations::checkProperty() {
  const Named named = this->named();
  const auto property = static_cast<int>(script_.below(13));
  const auto which = static_cast<ZEP_HTTP_TASK_PROPERTY>(property);
  const std::string whole = propertyOf(named.pool, named.task, property);
  require(named.knownTask == nullptr ? whole.empty() : named.knownTask->mayHave(property, whole));
  const std::size_t room = script_.below(32);
  const auto part = std::make_unique<char[]>(room);
  long size = static_cast<long>(room);
  require(ZEP_HttpPool_GetTaskProperty(named.pool, named.task, which, part.get(), &size) ==
          static_cast<long>(whole.size()));
  require(size == static_cast<long>(room));
  require(std::string_view(part.get(), std::min(room, whole.size())) ==
          std::string_view(whole).substr(0, room));
  long negative = -1;
  require(ZEP_HttpPool_GetTaskProperty(named.pool, named.task, which, part.get(), &negative) ==
          static_cast<long>(whole.size()));
  require(negative == -1);
}

void Operations::checkList() {
  const char* name = poolName();
  const std::optional<Json::Value> list = taskListOf(name);
  const PoolModel* pool = model_.find(name);
  require(list.has_value() == (pool != nullptr));
  if (list) {
    pool->checkList(*list);
  }
}

void Operations::checkSnapshot() const {
  model_.checkSnapshot(snapshot());
}

void Operations::chooseAnswer() {
  SignIn::shared().choose(script_.below(SignIn::kAnswers));
  require(ZEP_HttpPool_Init(nullptr, this) == 0);
}

void Operations::turn() {
  constexpr std::array<int, 6> kMilliseconds = {0, 1, 2, 11, 25, 55};
  const int milliseconds = kMilliseconds.at(script_.below(kMilliseconds.size()));
  if (turning_ == kDeepestTurning || turned_ + milliseconds > kMostTurning) {
    return;
  }
  turned_ += milliseconds;
  ++turning_;
  require(ZEP_RunLoop_Run(milliseconds) == 0);
  --turning_;
}

bool Operations::isAnyRunning() const {
  return std::ranges::any_of(model_.pools(), [&](const auto& pool) {
    const auto isRunning = [&](const TaskModel& task) {
      return task.hasRun() && operations::isRunning(pool->name().c_str(), task.name().c_str());
    };
    return model_.find(pool->name().c_str()) == pool.get() && std::ranges::any_of(pool->tasks(), isRunning);
  });
}

/// Notifications may do something themselves meanwhile, also to tasks that have ended.
void Operations::settle() {
  constexpr std::chrono::seconds kPatience{60};
  if (turning_ > 0 || hasSettled_) {
    return;
  }
  hasSettled_ = true;
  ++turning_;
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  do {
    require(std::chrono::steady_clock::now() < deadline);
    require(ZEP_RunLoop_Run(11) == 0);
  } while (isAnyRunning());
  --turning_;
}

}  // namespace operations
