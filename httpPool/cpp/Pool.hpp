#pragma once

// Pool and Task, the owners of what they are named after in the library. Both live on the host's thread. Part of
// httpPool.hpp.

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "httpPool/cpp/PoolState.hpp"

namespace httpPool {
inline namespace v1 {

class Task;

/// A pool of tasks. The destructor stops and cancels what is running in it and destroys it; a Task may outlive it.
/// Movable, not copyable. One that was moved from has isOpen() false and may be assigned to.
class Pool {
 public:
  /// The thread is the host's: its run loop serves the pool. A name that a pool of the process has already, and an empty
  /// one, gets a number; see name(). When the library is not there any more (after its unload), isOpen() is false.
  explicit Pool(std::string_view name = {}) : state_(detail::makePool(name)) {}
  /// As close().
  ~Pool() { close(); }
  /// Tasks and running requests stay with the pool.
  Pool(Pool&&) noexcept = default;
  /// Closes this pool first.
  Pool& operator=(Pool&& other) noexcept {
    if (this != &other) {
      close();
      state_ = std::move(other.state_);
    }
    return *this;
  }

  /// As in the library: the one that was asked for, or with a number. Not of a pool that was moved from.
  const std::string& name() const { return state_->name(); }
  /// False after close(), after a move, and when the library could not make the pool.
  bool isOpen() const { return state_ && state_->isOpen(); }
  /// How many requests are running.
  std::size_t runningTasks() const { return state_->runningTasks(); }

  /// A task of this pool; for the name see Task.
  Task task(std::string_view name = {});

  /// The tasks whose requests are running, as a JSON array of {"taskName":...,"taskStatus":word}.
  std::string taskList() const {
    return detail::jsonOf(
        [&](char* buffer, long* size) { ZEP_HttpPool_GetTaskList(name().c_str(), buffer, size); });
  }

  /// What the destructor does. Every request ends as Status::Cancelled before this returns, those that are run later,
  /// too. Waits for requests whose question to the host is unanswered (ZEP_Foundation.h).
  void close() noexcept {
    if (state_) {
      detail::guarded([&] { state_->close(); });
    }
  }

 private:
  friend class Task;
  std::shared_ptr<detail::PoolState> state_;
};

/// All pools of the process with their tasks, as a JSON array of {"poolName":...,"taskList":[...]}. On the host's thread.
inline std::string snapshot() {
  return detail::jsonOf([](char* buffer, long* size) { ZEP_HttpPool_GetSnapshot(buffer, size); });
}

/// A request that can be run, again and again. In the library the task is there while its request is running; one that
/// is not running costs nothing. What is set counts from the next run on.
///
/// The destructor resets it, so declare a task after what its callbacks use. When its pool is gone every run ends at
/// once, as Status::Cancelled. Movable, also while its request is running, not copyable. One that was moved from may be
/// assigned to.
class Task : public RequestSetters<Task> {
 public:
  /// The name is for the task list and the traces. Without one it gets a number; while another task of the pool with
  /// the same name is running, it runs under a name with a number.
  explicit Task(const Pool& pool, std::string_view name = {})
      : pool_(pool.state_), name_(name.empty() ? pool_->unusedTaskName() : std::string(name)) {}
  /// As reset().
  ~Task() { reset(); }
  /// A running request goes along with the task.
  Task(Task&&) noexcept = default;
  /// Resets this task first.
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      reset();
      RequestSetters::operator=(static_cast<RequestSetters&&>(other));
      pool_ = std::move(other.pool_);
      name_ = std::move(other.name_);
      run_ = std::move(other.run_);
    }
    return *this;
  }

  /// The one that was asked for, or a number.
  const std::string& name() const { return name_; }

  /// Launches the request. One that is running is cancelled. A request that is refused has ended on return.
  Run run() & {
    // Told last, when all is done or memory has run out: a callback may destroy this task.
    const detail::ToldAtTheEnd before{std::exchange(run_, nullptr)};
    if (before.run) {
      pool_->cancel(*before.run);
    }
    run_ = pool_->launch(name_, request());
    return Run(run_);
  }

  /// Of a task that nobody keeps: `Pool::task().url(...).run()`. The request belongs to its pool then.
  Run run() && {
    Run run = this->run();
    run_ = nullptr;
    return run;
  }

  /// Stops the request, if one is running, and ends it as Status::Cancelled before it returns; status() is
  /// Uninitialized then. What was set stays. Waits as Pool::close() does.
  void reset() noexcept {
    if (const auto run = std::exchange(run_, nullptr)) {
      detail::guarded([&] { pool_->cancel(*run); });
      run->deliver();
    }
  }

  /// Of the last run: an end, or Requesting; Uninitialized without one and after a reset. On the host's thread.
  Status status() const {
    return !run_ ? Status::Uninitialized : run_->outcome ? run_->outcome->status() : Status::Requesting;
  }
  /// Of the last run; nothing while it is running, without one, and after a reset.
  std::optional<Outcome> outcome() const { return run_ ? run_->outcome : std::nullopt; }

 private:
  std::shared_ptr<detail::PoolState> pool_;
  std::string name_;
  std::shared_ptr<detail::RunState> run_;
};

inline Task Pool::task(std::string_view name) {
  return Task(*this, name);
}

}  // namespace v1
}  // namespace httpPool
