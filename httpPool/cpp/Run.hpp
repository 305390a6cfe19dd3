#pragma once

// A request that was launched, and the ways to learn its end: by callback, future, co_await, or by waiting. Lives on the
// host's thread. Part of httpPool.hpp.

#include <chrono>
#include <concepts>
#include <functional>
#include <future>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#ifdef __cpp_impl_coroutine
#include <coroutine>
#endif

#include "httpPool/cpp/Exceptions.hpp"
#include "httpPool/cpp/Outcome.hpp"
#include "httpPool/cpp/RunLoop.hpp"

namespace httpPool {
inline namespace v1 {
namespace detail {

class Waiter {
 public:
  virtual ~Waiter() = default;
  virtual void ended(const Outcome& outcome) = 0;

 protected:
  Waiter() = default;
  Waiter(const Waiter&) = default;
  Waiter& operator=(const Waiter&) = default;
};

template <typename Callback>
class CallbackWaiter final : public Waiter {
 public:
  explicit CallbackWaiter(Callback callback) : callback_(std::move(callback)) {}
  void ended(const Outcome& outcome) override { std::invoke(callback_, outcome); }

 private:
  Callback callback_;
};

/// What is known of a launched request. Held by the pool while it runs, and by everybody who wants to know its end.
struct RunState {
  /// In the library's pool.
  std::string taskName;
  /// Of a download, the path that is its result; else empty.
  std::string downloadFile;
  bool isGlint = false;
  /// Set once, before the waiters are called.
  std::optional<Outcome> outcome;
  std::list<std::unique_ptr<Waiter>> waiters;

  /// Calls whoever is still waiting. A callback may do anything, so nothing of this object is used but the list, and the
  /// caller holds it alive.
  void deliver() {
    while (!waiters.empty()) {
      const std::unique_ptr<Waiter> next = std::move(waiters.front());
      waiters.pop_front();
      guarded([&] { next->ended(*outcome); });
    }
  }
};

/// Calls the waiters of a request that has ended when the scope is left.
struct ToldAtTheEnd {
  std::shared_ptr<RunState> run;

  explicit ToldAtTheEnd(std::shared_ptr<RunState> ended) : run(std::move(ended)) {}
  ~ToldAtTheEnd() {
    if (run) {
      run->deliver();
    }
  }
  ToldAtTheEnd(const ToldAtTheEnd&) = delete;
  ToldAtTheEnd& operator=(const ToldAtTheEnd&) = delete;
};

}  // namespace detail

/// Returned by Task::run(). Dropping it changes nothing: the request goes on. Copies tell of the same request.
class Run {
 public:
  /// Made by Task::run() only.
  explicit Run(std::shared_ptr<detail::RunState> state) : state_(std::move(state)) {}

  /// Whether outcome() is there.
  bool hasEnded() const { return state_->outcome.has_value(); }
  /// Nothing while it is running.
  const std::optional<Outcome>& outcome() const { return state_->outcome; }

  /// Has the callback called with the outcome, exactly once, on the host's thread: when the request ends, from a turn
  /// of the run loop; when it is cancelled, by whoever does that, which may be the destructor of the Task or the Pool;
  /// when it has ended already, at once. The callback may do everything, also run, reset and destroy tasks and pools.
  /// What it throws goes to the handler of setExceptionHandler(). Several callbacks are called in their order, after
  /// the futures of this request have become ready; none may wait for a later one.
  template <typename Callback>
  requires std::invocable < std::decay_t<Callback>
  &, const Outcome& > const Run& then(Callback&& callback) const {
    const std::shared_ptr<detail::RunState> state = state_;
    state->waiters.push_back(
        std::make_unique<detail::CallbackWaiter<std::decay_t<Callback>>>(std::forward<Callback>(callback)));
    if (state->outcome) {
      state->deliver();
    }
    return *this;
  }

  /// Becomes ready at the end; never holds an exception. Another thread may wait for it; on the host's thread
  /// runUntilReady() turns the run loop meanwhile, and get() before would wait for ever.
  std::future<Outcome> future() const {
    std::promise<Outcome> promise;
    std::future<Outcome> future = promise.get_future();
    if (state_->outcome) {
      promise.set_value(*state_->outcome);
      return future;
    }
    auto settle = [promise = std::move(promise)](const Outcome& outcome) mutable {
      promise.set_value(outcome);
    };
    // Before all callbacks: one of them may turn the run loop until it is ready.
    state_->waiters.push_front(std::make_unique<detail::CallbackWaiter<decltype(settle)>>(std::move(settle)));
    return future;
  }

  /// Turns the run loop until the end, which it returns; nothing when the limit came first, the loop was stopped, or
  /// cannot be turned here.
  std::optional<Outcome> wait(std::chrono::milliseconds limit = std::chrono::milliseconds::max()) const {
    const std::shared_ptr<detail::RunState> state = state_;
    runUntil([&] { return state->outcome.has_value(); }, limit);
    return state->outcome;
  }

#ifdef __cpp_impl_coroutine
  class Awaiter;
  /// co_await gives the Outcome. The coroutine goes on where a callback would be called. One that is destroyed while it
  /// waits is forgotten.
  Awaiter operator co_await() const;
#endif

 private:
  std::shared_ptr<detail::RunState> state_;
};

#ifdef __cpp_impl_coroutine

/// Lives in the frame of the coroutine that waits.
class Run::Awaiter {
 public:
  explicit Awaiter(std::shared_ptr<detail::RunState> state) : state_(std::move(state)) {}
  ~Awaiter() {
    if (isWaiting_) {
      state_->waiters.erase(place_);
    }
  }
  Awaiter(const Awaiter&) = delete;
  Awaiter& operator=(const Awaiter&) = delete;

  bool await_ready() const noexcept { return state_->outcome.has_value(); }
  void await_suspend(std::coroutine_handle<> coroutine) {
    auto resume = [this, coroutine](const Outcome&) {
      isWaiting_ = false;
      coroutine.resume();
    };
    place_ = state_->waiters.insert(state_->waiters.end(),
                                    std::make_unique<detail::CallbackWaiter<decltype(resume)>>(resume));
    isWaiting_ = true;
  }
  Outcome await_resume() const { return *state_->outcome; }

 private:
  std::shared_ptr<detail::RunState> state_;
  std::list<std::unique_ptr<detail::Waiter>>::iterator place_;
  bool isWaiting_ = false;
};

inline Run::Awaiter Run::operator co_await() const {
  return Awaiter(state_);
}

/// The return type of a coroutine that nobody waits for: it begins at once, goes its way, and its frame ends with it.
/// What it uses must live until then: parameters by value are its own, the captures of a lambda are not. An exception that leaves it goes to the handler of
/// setExceptionHandler().
class Detached {
 public:
  struct promise_type {
    Detached get_return_object() const noexcept { return {}; }
    std::suspend_never initial_suspend() const noexcept { return {}; }
    std::suspend_never final_suspend() const noexcept { return {}; }
    void return_void() const noexcept {}
    void unhandled_exception() const noexcept { detail::report(std::current_exception()); }
  };
};

#endif

}  // namespace v1
}  // namespace httpPool
