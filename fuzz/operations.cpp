// The fifteen functions in any order, as the bytes of the input say, against a server in the process itself; also from
// inside the notify function, and with the run loop turned there. A model of pools, tasks and properties is kept
// beside the library and tells what it has to answer.

#include <json/reader.h>
#include <json/value.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "foundation/ZEP_Foundation.h"
#include "fuzz/Input.h"
#include "fuzz/Require.h"
#include "fuzz/ScriptedServer.h"
#include "httpPool/Global.h"
#include "httpPool/ZEP_HttpPool.h"

namespace {

using Clock = std::chrono::steady_clock;

/// What one input may cost: each request is a thread, and waiting is all that turning the loop is.
constexpr int kMostOperations = 80;
constexpr int kMostRuns = 8;
constexpr int kMostTurning = 60;
constexpr int kDeepestTurning = 2;
constexpr std::chrono::seconds kPatience{60};

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

/// What a task comes to that asks for the path once, with no header fields.
struct Path {
  const char* path;
  ZEP_HTTP_TASK_STATUS status;
  const char* result;
};
constexpr const char* kTimedOut = R"({"errorID":4,"errorReason":0})";
constexpr const char* kAnything = nullptr;
constexpr std::array<Path, 14> kPaths = {{
    {"/ok", ZEP_HTTP_TASK_DONE, "ok"},
    {"/chunked", ZEP_HTTP_TASK_DONE, "chunked"},
    {"/404", ZEP_HTTP_TASK_DONE, "none"},
    {"/429", ZEP_HTTP_TASK_FAILED, R"({"errorID":2,"errorReason":0})"},
    {"/500", ZEP_HTTP_TASK_FAILED, R"({"errorID":2,"errorReason":0})"},
    {"/redirect", ZEP_HTTP_TASK_DONE, "ok"},
    {"/loop", ZEP_HTTP_TASK_FAILED, R"({"errorID":6,"errorReason":0})"},
    {"/basic", ZEP_HTTP_TASK_DONE, kAnything},
    {"/never", ZEP_HTTP_TASK_FAILED, kAnything},
    {"/big", ZEP_HTTP_TASK_DONE, kAnything},
    {"/stall", ZEP_HTTP_TASK_FAILED, kTimedOut},
    {"/early", ZEP_HTTP_TASK_FAILED, R"({"errorID":1,"errorReason":0})"},
    {"/noise", ZEP_HTTP_TASK_FAILED, R"({"errorID":6,"errorReason":0})"},
    {"/silent", ZEP_HTTP_TASK_FAILED, kTimedOut},
}};

/// A folder for downloads; gone with the process.
class Folder {
 public:
  Folder() {
    std::array<char, 32> name{"/tmp/fuzz-operations-XXXXXX"};
    require(mkdtemp(name.data()) != nullptr);
    name_ = name.data();
    std::ofstream(file("read")) << "from a file";
  }
  ~Folder() {
    std::error_code error;
    std::filesystem::remove_all(name_, error);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string file(const char* name) const { return name_ + "/" + name; }

 private:
  std::string name_;
};

struct Task {
  std::string name;
  std::array<std::string, 11> properties;
  bool hasData = false;
  /// Since the task was added or reset.
  int runs = 0;
  /// What it was run with, when it is clear what has to come of it.
  const Path* path = nullptr;
};

struct Pool {
  std::string name;
  bool isNotified = false;
  std::vector<Task> tasks;

  Task* find(const char* task) {
    const auto found = std::find_if(tasks.begin(), tasks.end(),
                                    [&](const Task& other) { return task != nullptr && other.name == task; });
    return found == tasks.end() ? nullptr : &*found;
  }
};

/// The bytes of the input, one after another; zeros when there are no more.
class Script {
 public:
  explicit Script(std::string_view bytes) : rest_(bytes) {}

  bool isOver() const { return rest_.empty() || operations_ == kMostOperations; }
  std::size_t below(std::size_t end) { return byte() % end; }
  std::uint8_t operation() {
    ++operations_;
    return byte();
  }
  std::string text() {
    const std::string text(rest_.substr(0, below(24)));
    rest_.remove_prefix(text.size());
    return text.substr(0, text.find('\0'));
  }

 private:
  std::uint8_t byte() {
    if (rest_.empty()) {
      return 0;
    }
    const auto value = static_cast<std::uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return value;
  }

  std::string_view rest_;
  int operations_ = 0;
};

/// Answers the library's questions, on the threads of its requests.
std::atomic<int> answers = 0;

void answer(const char* /*name*/, const void* /*object*/, const char* userInfo, void* /*context*/) {
  require(userInfo != nullptr);
  constexpr std::array<const char*, 4> kAnswers = {R"({"Username":"u","Password":"p","Remember":true})",
                                                   R"({"Username":"u","Password":"x","Remember":true})",
                                                   R"({"Username":"u"})", nullptr};
  ZEP_Notification_Post("HTTPAuthenticationDatasource", nullptr,
                        kAnswers.at(static_cast<std::size_t>(answers)));
}

/// The host of one input, and its model of what the library holds.
class Host {
 public:
  Host(std::string_view bytes, const Folder& folder) : script_(bytes), folder_(folder) { current_ = this; }
  ~Host() { current_ = nullptr; }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void run() {
    const bool waits = script_.below(16) == 0;
    while (!script_.isOver()) {
      operate();
    }
    reentries_ = 0;
    if (waits) {
      waitForAll();
    }
    leave();
  }

 private:
  void operate();
  void create();
  void destroy();
  void setProc(bool isNotified);
  void addTask();
  void removeTask();
  void clear();
  void runTask();
  void resetTask();
  void setUrl();
  void setText(int property, const std::string& value);
  void setData();
  void setIgnored();
  void checkStatus();
  void checkProperty();
  void checkList();
  void checkSnapshot();
  void turn();

  void waitForAll();
  void waitFor(const Pool& pool, const Task& task);
  void checkOutcome(const Pool& pool, const Task& task, ZEP_HTTP_TASK_STATUS status);
  void leave();

  static void notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data);
  bool isKnown(const char* pool, const char* task);

  Pool* find(const char* name) {
    const auto found = std::find_if(pools_.begin(), pools_.end(),
                                    [&](const auto& pool) { return name != nullptr && pool->name == name; });
    return found == pools_.end() ? nullptr : found->get();
  }
  const char* poolName() { return kPools.at(script_.below(kPools.size())); }
  /// The next pool and task the script names, and what the model has of them.
  struct Named {
    const char* pool;
    const char* task;
    Pool* knownPool;
    Task* knownTask;
  };
  Named named() {
    const char* pool = poolName();
    const char* task = kTasks.at(script_.below(kTasks.size()));
    Pool* known = find(pool);
    return {pool, task, known, known != nullptr ? known->find(task) : nullptr};
  }

  static Host* current_;

  Script script_;
  const Folder& folder_;
  std::vector<std::unique_ptr<Pool>> pools_;
  /// Destroyed, and perhaps not deleted yet.
  std::vector<std::unique_ptr<Pool>> gone_;
  int runs_ = 0;
  int turned_ = 0;
  int turning_ = 0;
  /// So many notifications do something themselves.
  int reentries_ = 0;
};

Host* Host::current_ = nullptr;

void Host::operate() {
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
      return setText(ZEP_HTTP_TASK_PROP_HEADER_FIELDS, kHeaders.at(script_.below(kHeaders.size())));
    case 19:
      return setText(ZEP_HTTP_TASK_PROP_HEADER_FIELDS, script_.text());
    case 20: {
      constexpr std::array<int, 5> kProperties = {2, 3, 4, 6, 9};
      return setText(kProperties.at(script_.below(kProperties.size())), script_.text());
    }
    case 21: {
      const std::array<std::string, 3> files = {"", folder_.file("written"), "/nonexistent/file"};
      return setText(ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, files.at(script_.below(files.size())));
    }
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
      answers = static_cast<int>(script_.below(4));
      require(ZEP_HttpPool_Init(nullptr, this) == 0);
      return;
    default:
      return turn();
  }
}

void Host::create() {
  const char* name = poolName();
  require(ZEP_HttpPool_Create(name) == 0);
  if (name != nullptr) {
    pools_.push_back(std::make_unique<Pool>());
    pools_.back()->name = name;
  }
}

void Host::destroy() {
  const char* name = poolName();
  require(ZEP_HttpPool_Destroy(name) == 0);
  if (Pool* pool = find(name)) {
    const auto position =
        std::find_if(pools_.begin(), pools_.end(), [&](const auto& other) { return other.get() == pool; });
    gone_.push_back(std::move(*position));
    pools_.erase(position);
  }
}

void Host::setProc(bool isNotified) {
  const char* name = poolName();
  require(ZEP_HttpPool_SetPoolProc(name, isNotified ? &Host::notified : nullptr) == 0);
  if (Pool* pool = find(name)) {
    pool->isNotified = isNotified;
  }
}

void Host::addTask() {
  const Named named = this->named();
  require(ZEP_HttpPool_AddTask(named.pool, named.task) == 0);
  if (named.knownPool != nullptr && named.knownTask == nullptr && named.task != nullptr) {
    named.knownPool->tasks.emplace_back().name = named.task;
  }
}

void Host::removeTask() {
  const Named named = this->named();
  require(ZEP_HttpPool_RemoveTask(named.pool, named.task) == 0);
  if (named.knownTask != nullptr) {
    named.knownPool->tasks.erase(named.knownPool->tasks.begin() +
                                 (named.knownTask - named.knownPool->tasks.data()));
  }
}

void Host::clear() {
  const char* name = poolName();
  require(ZEP_HttpPool_ClearTask(name) == 0);
  if (Pool* pool = find(name)) {
    pool->tasks.clear();
  }
}

void Host::runTask() {
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
  Task& task = *named.knownTask;
  ++task.runs;
  task.path = nullptr;
  require(status == ZEP_HTTP_TASK_STATUS_8 || status == ZEP_HTTP_TASK_REQUESTING ||
          status == ZEP_HTTP_TASK_FAILED);
  if (task.runs == 1 && task.properties[ZEP_HTTP_TASK_PROP_HEADER_FIELDS].empty() &&
      task.properties[ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE].empty()) {
    for (const Path& path : kPaths) {
      if (task.properties[ZEP_HTTP_TASK_PROP_URL] == ScriptedServer::shared().url(path.path)) {
        task.path = &path;
        require(status != ZEP_HTTP_TASK_FAILED);
      }
    }
  }
}

void Host::resetTask() {
  const Named named = this->named();
  require(ZEP_HttpPool_TaskReset(named.pool, named.task) == 0);
  if (named.knownTask != nullptr) {
    named.knownTask->runs = 0;
    named.knownTask->path = nullptr;
    named.knownTask->hasData = false;
  }
}

void Host::setUrl() {
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

void Host::setText(int property, const std::string& value) {
  const Named named = this->named();
  const bool isNull = value.empty() && script_.below(2) == 0;
  require(ZEP_HttpPool_SetTaskProperty(named.pool, named.task, static_cast<ZEP_HTTP_TASK_PROPERTY>(property),
                                       isNull ? nullptr : value.c_str()) == 0);
  if (named.knownTask != nullptr) {
    named.knownTask->properties.at(static_cast<std::size_t>(property)) = value;
  }
}

void Host::setData() {
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
}

/// What a host cannot set stays as it is.
void Host::setIgnored() {
  const Named named = this->named();
  constexpr std::array<int, 5> kIgnored = {0, 7, 10, 11, 15};
  const auto property = static_cast<ZEP_HTTP_TASK_PROPERTY>(kIgnored.at(script_.below(kIgnored.size())));
  const long before = ZEP_HttpPool_GetTaskProperty(named.pool, named.task, property, nullptr, nullptr);
  require(ZEP_HttpPool_SetTaskProperty(named.pool, named.task, property, "a text of the host's own") == 0);
  require(ZEP_HttpPool_GetTaskProperty(named.pool, named.task, property, nullptr, nullptr) == before);
}

void Host::checkStatus() {
  const Named named = this->named();
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  require(ZEP_HttpPool_GetTaskStatus(named.pool, named.task, nullptr) == 0);
  require(ZEP_HttpPool_GetTaskStatus(named.pool, named.task, &status) == 0);
  if (named.knownPool == nullptr) {
    require(status == ZEP_HTTP_TASK_STATUS_8);
  } else if (named.knownTask == nullptr) {
    require(status == ZEP_HTTP_TASK_NOT_EXIST);
  } else if (named.knownTask->runs == 0) {
    require(status == ZEP_HTTP_TASK_UNINITIALIZED);
  } else {
    require(status == ZEP_HTTP_TASK_REQUESTING || status == ZEP_HTTP_TASK_DONE ||
            status == ZEP_HTTP_TASK_FAILED || status == ZEP_HTTP_TASK_REDIRECTED);
  }
}

std::string propertyOf(const char* pool, const char* task, int property) {
  const auto which = static_cast<ZEP_HTTP_TASK_PROPERTY>(property);
  long length = ZEP_HttpPool_GetTaskProperty(pool, task, which, nullptr, nullptr);
  require(length >= 0);
  std::string text(static_cast<std::size_t>(length), '\0');
  require(ZEP_HttpPool_GetTaskProperty(pool, task, which, text.data(), &length) == length);
  return text;
}

/// Whole, in part, and into no room at all.
void Host::checkProperty() {
  const Named named = this->named();
  const auto property = static_cast<int>(script_.below(13));
  const auto which = static_cast<ZEP_HTTP_TASK_PROPERTY>(property);
  const std::string whole = propertyOf(named.pool, named.task, property);
  if (named.knownTask == nullptr || property < 1 || property > 10) {
    require(whole.empty());
  } else if (property != ZEP_HTTP_TASK_PROP_RESULT && property != ZEP_HTTP_TASK_PROP_REDIRECT_URL) {
    require(whole == named.knownTask->properties.at(static_cast<std::size_t>(property)));
  }
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

Json::Value parsed(const std::string& text) {
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value root;
  require(reader->parse(text.data(), text.data() + text.size(), &root, nullptr));
  return root;
}

void checkTasks(const Json::Value& list, const Pool& pool) {
  constexpr std::array<std::string_view, 5> kWords = {"uninitialized", "requesting", "successfully done",
                                                      "task failed", ""};
  require(list.isArray() && list.size() == pool.tasks.size());
  for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
    const Task& task = pool.tasks[i];
    const std::string word = list[i]["taskStatus"].asString();
    require(list[i]["taskName"].asString() == task.name && list[i].size() == 2);
    require(std::find(kWords.begin(), kWords.end(), word) != kWords.end());
    require((word == kWords[0]) == (task.runs == 0));
  }
}

/// `get` is asked for the length first, and then for the text, into a block of exactly that length.
template <typename Get>
std::optional<std::string> textOf(const Get& get) {
  constexpr long kUntouched = -7;
  long size = kUntouched;
  require(get(nullptr, nullptr) == 0 && get(nullptr, &size) == 0);
  if (size == kUntouched) {
    return std::nullopt;
  }
  require(size > 0);
  const auto block = std::make_unique<char[]>(static_cast<std::size_t>(size));
  long again = 0;
  require(get(block.get(), &again) == 0 && again == size);
  require(std::strlen(block.get()) + 1 == static_cast<std::size_t>(size));
  return std::string(block.get());
}

void Host::checkList() {
  const char* name = poolName();
  const auto text =
      textOf([&](char* buffer, long* size) { return ZEP_HttpPool_GetTaskList(name, buffer, size); });
  const Pool* pool = find(name);
  require(text.has_value() == (pool != nullptr));
  if (text) {
    checkTasks(parsed(*text), *pool);
  }
}

void Host::checkSnapshot() {
  const auto text = textOf([](char* buffer, long* size) { return ZEP_HttpPool_GetSnapshot(buffer, size); });
  const Json::Value snapshot = parsed(text.value());
  require(snapshot.isArray() && snapshot.size() == pools_.size());
  for (Json::ArrayIndex i = 0; i < snapshot.size(); ++i) {
    require(snapshot[i]["poolName"].asString() == pools_[i]->name);
    checkTasks(snapshot[i]["taskList"], *pools_[i]);
  }
}

void Host::turn() {
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

/// A pool that is known by that name, has such a task, and was told to notify.
bool Host::isKnown(const char* pool, const char* task) {
  const auto knows = [&](const auto& other) {
    return other->name == pool && other->isNotified && other->find(task) != nullptr;
  };
  return std::any_of(pools_.begin(), pools_.end(), knows) || std::any_of(gone_.begin(), gone_.end(), knows);
}

void Host::notified(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data) {
  require(current_ != nullptr && code == ZEP_HTTP_POOL_TASK_NOTIFY_POLL && data == nullptr);
  require(current_->isKnown(pool, task));
  if (current_->reentries_ > 0 && !current_->script_.isOver()) {
    --current_->reentries_;
    current_->operate();
  }
}

void Host::waitForAll() {
  for (const auto& pool : pools_) {
    if (find(pool->name.c_str()) != pool.get()) {
      continue;  // nobody finds it
    }
    for (const Task& task : pool->tasks) {
      if (task.runs > 0) {
        waitFor(*pool, task);
      }
    }
  }
}

void Host::waitFor(const Pool& pool, const Task& task) {
  const auto deadline = Clock::now() + kPatience;
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_REQUESTING;
  while (ZEP_HttpPool_GetTaskStatus(pool.name.c_str(), task.name.c_str(), &status),
         status == ZEP_HTTP_TASK_REQUESTING || status == ZEP_HTTP_TASK_REDIRECTED) {
    require(Clock::now() < deadline);
    ZEP_RunLoop_Run(5);
  }
  require(status == ZEP_HTTP_TASK_DONE || status == ZEP_HTTP_TASK_FAILED);
  if (task.path != nullptr) {
    checkOutcome(pool, task, status);
  }
}

void Host::checkOutcome(const Pool& pool, const Task& task, ZEP_HTTP_TASK_STATUS status) {
  const std::string result = propertyOf(pool.name.c_str(), task.name.c_str(), ZEP_HTTP_TASK_PROP_RESULT);
  if (result == kTimedOut) {
    require(status == ZEP_HTTP_TASK_FAILED);
    return;  // the machine may have had no time for us
  }
  require(status == task.path->status || std::string_view(task.path->path) == "/basic");
  require(task.path->result == kAnything || result == task.path->result);
}

std::size_t downloaderThreads() {
  std::size_t count = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    count += name == "zep.downloader" ? 1 : 0;
  }
  return count;
}

/// Nothing is left of an input: no pool, no thread of a request.
void Host::leave() {
  constexpr unsigned kRegistryBeat = 10002;
  while (!pools_.empty()) {
    const std::unique_ptr<Pool> pool = std::move(pools_.front());
    pools_.erase(pools_.begin());
    require(ZEP_HttpPool_Destroy(pool->name.c_str()) == 0);
  }
  gone_.clear();
  // Without waiting for it: what has been destroyed is deleted, and notifies nobody any more.
  g_pGlobal->OnTimer(kRegistryBeat);
  // A thread is told that it is not needed any more before it is called otherwise.
  for (const auto deadline = Clock::now() + kPatience; downloaderThreads() != 0; std::this_thread::yield()) {
    require(Clock::now() < deadline);
  }
  checkSnapshot();
  ZEP_RunLoop_Run(0);
}

/// What all inputs share.
const Folder& surroundings() {
  static const Folder& folder = [&]() -> const Folder& {
    for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTP_PROXY",
                             "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY"}) {
      unsetenv(name);
    }
    setenv("ZEP_URL_TIMEOUT_MS", "300", 1);
    require(ZEP_Notification_AddObserver("HTTPAuthenticationRequired", &answer, nullptr) > 0);
    static const Folder made;
    return made;
  }();
  return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Host(textOf(data, size), surroundings()).run();
  return 0;
}
