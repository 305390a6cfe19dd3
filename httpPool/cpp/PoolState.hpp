#pragma once

// What stands behind Pool and Task: the pool in the library, the requests that run in it, and the way from the notify
// function, which has no context pointer but names, back to them. Lives on the host's thread. Part of httpPool.hpp;
// nothing here is for hosts.

#include <cassert>
#include <cstddef>
#include <exception>
#include <functional>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "httpPool/ZEP_HttpPool.h"
#include "httpPool/cpp/Exceptions.hpp"
#include "httpPool/cpp/Outcome.hpp"
#include "httpPool/cpp/Request.hpp"
#include "httpPool/cpp/Run.hpp"
#include "httpPool/cpp/Undying.hpp"

namespace httpPool {
inline namespace v1 {
namespace detail {

/// The name itself, or with the first number from 2 on that is not taken. A name ends before its first zero byte.
template <typename IsTaken>
std::string freeName(std::string_view wanted, const IsTaken& isTaken) {
  const std::string base(wanted.substr(0, wanted.find('\0')));
  std::string name = base;
  for (unsigned long number = 2; isTaken(name); ++number) {
    name = base + ' ' + std::to_string(number);
  }
  return name;
}

/// Whether the library has a pool of that name, whoever made it.
inline bool hasPool(const std::string& name) {
  constexpr ZEP_HTTP_TASK_STATUS kNotWritten = ZEP_HTTP_TASK_STATUS_8;
  ZEP_HTTP_TASK_STATUS status = kNotWritten;
  ZEP_HttpPool_GetTaskStatus(name.c_str(), "", &status);
  return status != kNotWritten;
}

/// A text of the library that is asked for with a null buffer first.
template <typename Get>
std::string jsonOf(const Get& get) {
  long size = 0;
  get(nullptr, &size);
  if (size <= 0) {
    return {};
  }
  std::string text(static_cast<std::size_t>(size), '\0');
  get(text.data(), &size);
  text.pop_back();  // the terminator
  return text;
}

class PoolState;
using Pools = std::map<std::string, PoolState*, std::less<>>;

class PoolState : public std::enable_shared_from_this<PoolState> {
 public:
  /// Made by makePool() only.
  PoolState(std::string_view name, Pools& pools, ZEP_HttpPool_NotifyProc notified) : pools_(pools) {
    static unsigned long unnamed = 0;
    name_ = freeName(name.empty() ? "httpPool " + std::to_string(++unnamed) : name, hasPool);
    const auto place = pools_.emplace(name_, this).first;
    isOpen_ = ZEP_HttpPool_Create(name_.c_str()) == 0;
    if (isOpen_) {
      ZEP_HttpPool_SetPoolProc(name_.c_str(), notified);
    } else {
      pools_.erase(place);
    }
  }
  PoolState(const PoolState&) = delete;
  PoolState& operator=(const PoolState&) = delete;
  ~PoolState() { assert(!isOpen_); }

  const std::string& name() const { return name_; }
  bool isOpen() const { return isOpen_; }
  std::size_t runningTasks() const { return running_.size(); }

  std::string unusedTaskName() { return "task " + std::to_string(++lastTask_); }

  std::shared_ptr<RunState> launch(const std::string& taskName, const Request& request) {
    assert(isHere());
    auto run = std::make_shared<RunState>();
    run->isGlint = request.isGlint();
    run->downloadFile = request.isDownload() ? request.downloadFile : std::string();
    if (!isOpen_ || !request.isWhole()) {
      run->outcome = Outcome::ended(isOpen_ ? Status::Refused : Status::Cancelled);
      return run;
    }
    run->taskName = freeName(taskName, [&](const std::string& name) { return places_.contains(name); });
    const std::string headers = request.headerJson();
    add(run);
    if (!start(run->taskName, request, headers)) {
      remove(places_.find(run->taskName)->second);
      run->outcome = Outcome::ended(Status::Refused);
    }
    return run;
  }

  /// The request does not run any more afterwards. Tells nobody.
  void cancel(RunState& run) {
    assert(isHere());
    if (!run.outcome) {
      remove(places_.find(run.taskName)->second);
      run.outcome = Outcome::ended(Status::Cancelled);
    }
  }

  /// One request after another, each told before the next one: a callback that turns the run loop and waits for another
  /// request of this pool still finds it running.
  void close() {
    assert(isHere());
    if (!std::exchange(isOpen_, false)) {
      return;
    }
    const auto self = shared_from_this();
    while (!running_.empty()) {
      const std::shared_ptr<RunState> run = running_.front();
      cancel(*run);
      run->deliver();
    }
    pools_.erase(name_);
    ZEP_HttpPool_SetPoolProc(name_.c_str(), nullptr);
    ZEP_HttpPool_Destroy(name_.c_str());
  }

  /// From the notify function.
  void look(std::string_view taskName) {
    assert(isHere());
    const auto self = shared_from_this();
    const auto found = places_.find(taskName);
    std::shared_ptr<RunState> next = found != places_.end() ? *found->second : nullptr;
    // The library goes on behind the task that moves into the place of a removed one: that one is looked at here. Each is
    // told before the next one is looked at, for the reason of close(); so the next one may have ended meanwhile.
    while (next && !next->outcome && hasEnded(*next)) {
      const std::shared_ptr<RunState> run = next;
      const auto place = places_.find(run->taskName)->second;
      next = std::next(place) != running_.end() ? *std::next(place) : nullptr;
      remove(place);
      run->deliver();
    }
  }

 private:
  using Runs = std::list<std::shared_ptr<RunState>>;

  bool isHere() const { return std::this_thread::get_id() == thread_; }

  void add(const std::shared_ptr<RunState>& run) {
    Runs one{run};
    places_.emplace(run->taskName, one.begin());
    running_.splice(running_.end(), one);
    ZEP_HttpPool_AddTask(name_.c_str(), run->taskName.c_str());
  }

  void remove(Runs::iterator place) {
    const std::shared_ptr<RunState> run = *place;
    ZEP_HttpPool_RemoveTask(name_.c_str(), run->taskName.c_str());
    places_.erase(places_.find(run->taskName));
    running_.erase(place);
  }

  bool start(const std::string& task, const Request& request, const std::string& headers) {
    set(task, ZEP_HTTP_TASK_PROP_URL, request.url);
    set(task, ZEP_HTTP_TASK_PROP_HEADER_FIELDS, headers);
    set(task, ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, request.downloadFile);
    if (const auto bytes = request.bytes(); !bytes.empty()) {
      ZEP_HttpPool_SetTaskDataProperty(name_.c_str(), task.c_str(),
                                       reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
    } else {
      set(task, ZEP_HTTP_TASK_PROP_POST_DATA, request.post);
    }
    ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_FAILED;
    ZEP_HttpPool_TaskRun(name_.c_str(), task.c_str(), &status);
    return status == ZEP_HTTP_TASK_REQUESTING;
  }

  void set(const std::string& task, ZEP_HTTP_TASK_PROPERTY property, const std::string& value) const {
    if (!value.empty()) {
      ZEP_HttpPool_SetTaskProperty(name_.c_str(), task.c_str(), property, value.c_str());
    }
  }

  std::string get(const std::string& task, ZEP_HTTP_TASK_PROPERTY property) const {
    long size = ZEP_HttpPool_GetTaskProperty(name_.c_str(), task.c_str(), property, nullptr, nullptr);
    if (size <= 0) {
      return {};
    }
    std::string value(static_cast<std::size_t>(size), '\0');
    ZEP_HttpPool_GetTaskProperty(name_.c_str(), task.c_str(), property, value.data(), &size);
    return value;
  }

  /// Asks the library, and keeps the outcome.
  bool hasEnded(RunState& run) const noexcept {
    ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_REQUESTING;
    ZEP_HttpPool_GetTaskStatus(name_.c_str(), run.taskName.c_str(), &status);
    if (status == ZEP_HTTP_TASK_REQUESTING) {
      return false;
    }
    try {
      run.outcome = outcomeOf(run, status);
    } catch (const std::exception&) {
      // No memory for a copy of the result.
      run.outcome = Outcome::failed({ErrorId::Other});
    }
    return true;
  }

  Outcome outcomeOf(const RunState& run, ZEP_HTTP_TASK_STATUS status) const {
    switch (status) {
      case ZEP_HTTP_TASK_DONE:
        return doneOutcome(run);
      case ZEP_HTTP_TASK_FAILED: {
        // A captured redirect fails right after it was captured.
        std::string target = get(run.taskName, ZEP_HTTP_TASK_PROP_REDIRECT_URL);
        return target.empty()
                   ? Outcome::failed(
                         Error::parse(get(run.taskName, ZEP_HTTP_TASK_PROP_RESULT)).value_or(Error{}))
                   : Outcome::redirected(std::move(target));
      }
      case ZEP_HTTP_TASK_REDIRECTED:
        return Outcome::redirected(get(run.taskName, ZEP_HTTP_TASK_PROP_REDIRECT_URL));
      case ZEP_HTTP_TASK_TIMEOUT:
        return Outcome::ended(Status::TimedOut);
      default:
        // Reset through the C functions.
        return Outcome::ended(Status::Cancelled);
    }
  }

  /// A 429 of a Glint request is done, with an error text in place of the body or the path.
  Outcome doneOutcome(const RunState& run) const {
    std::string text = get(run.taskName, ZEP_HTTP_TASK_PROP_RESULT);
    if (run.isGlint && (run.downloadFile.empty() || text != run.downloadFile)) {
      const auto error = Error::parse(text);
      if (error && error->id == ErrorId::RetryLater) {
        return Outcome::failed(*error);
      }
    }
    return Outcome::done(std::move(text));
  }

  Pools& pools_;
  const std::thread::id thread_ = std::this_thread::get_id();
  std::string name_;
  bool isOpen_ = false;
  unsigned long lastTask_ = 0;
  /// In the order of the library's own list.
  Runs running_;
  std::map<std::string, Runs::iterator, std::less<>> places_;
};

// Every shared object that includes this has its own pools, found by its own notify function, which the dynamic linker
// must not mix with those of the next one: each may come and go by itself.
#define HTTPPOOL_OF_THIS_MODULE [[gnu::visibility("hidden")]] inline

HTTPPOOL_OF_THIS_MODULE Pools& poolsOfThisModule() {
  static Undying<Pools> pools;
  return pools.value();
}

HTTPPOOL_OF_THIS_MODULE void notified(ZEP_HTTP_POOL_TASK_NOTIFY, const char* poolName, const char* taskName,
                                      const char*) {
  guarded([&] {
    const Pools& pools = poolsOfThisModule();
    const auto found = pools.find(std::string_view(poolName));
    if (found != pools.end()) {
      found->second->look(taskName);
    }
  });
}

HTTPPOOL_OF_THIS_MODULE std::shared_ptr<PoolState> makePool(std::string_view name) {
  return std::make_shared<PoolState>(name, poolsOfThisModule(), &notified);
}

#undef HTTPPOOL_OF_THIS_MODULE

}  // namespace detail
}  // namespace v1
}  // namespace httpPool
