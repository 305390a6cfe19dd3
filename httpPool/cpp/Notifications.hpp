#pragma once

// Notifications between library and host: NotificationObserver, and postNotification() for answers. Any thread. Part of
// httpPool.hpp.

#include <algorithm>
#include <bit>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/ZEP_Foundation.h"
#include "httpPool/cpp/Exceptions.hpp"
#include "httpPool/cpp/Json.hpp"
#include "httpPool/cpp/Undying.hpp"

namespace httpPool {
inline namespace v1 {

/// What an observer is told. Valid during the call.
struct Notification {
  /// The name that the observer was made for.
  std::string_view name;
  /// An identity of the poster, not to be dereferenced; may be null.
  const void* object = nullptr;
  /// The text of a JSON object, or null.
  const char* userInfo = nullptr;

  /// The members of userInfo; none of them without it.
  JsonObject members() const {
    return userInfo != nullptr ? JsonObject::parse(userInfo).value_or(JsonObject()) : JsonObject();
  }
};

/// Called for each notification; see NotificationObserver for the thread.
using NotificationHandler = std::function<void(const Notification&)>;

/// Calls the observers of that name on this thread, one after another, then returns. `userInfo` is the text of a JSON
/// object, without one the notification carries nothing. False, with nothing posted, when it is not such a text.
inline bool postNotification(const std::string& name,
                             const std::optional<std::string>& userInfo = std::nullopt,
                             const void* object = nullptr) {
  const bool isText = userInfo && userInfo->find('\0') == std::string::npos;
  return (!userInfo || isText) &&
         ZEP_Notification_Post(name.c_str(), object, userInfo ? userInfo->c_str() : nullptr) == 0;
}

namespace detail {

/// One observer and the threads that are inside it now.
class ObserverState {
 public:
  explicit ObserverState(NotificationHandler handler) : handler_(std::move(handler)) {}

  void call(const Notification& notification) {
    {
      const std::lock_guard lock(mutex_);
      if (isRemoved_) {
        return;
      }
      inside_.push_back(std::this_thread::get_id());
    }
    guarded([&] { handler_(notification); });
    const std::lock_guard lock(mutex_);
    inside_.erase(std::find(inside_.begin(), inside_.end(), std::this_thread::get_id()));
    left_.notify_all();
  }

  /// No call begins any more, and none is running on another thread.
  void remove() {
    std::unique_lock lock(mutex_);
    isRemoved_ = true;
    left_.wait(lock, [&] {
      return std::all_of(inside_.begin(), inside_.end(),
                         [](std::thread::id thread) { return thread == std::this_thread::get_id(); });
    });
  }

 private:
  const NotificationHandler handler_;
  std::mutex mutex_;
  std::condition_variable left_;
  std::vector<std::thread::id> inside_;
  bool isRemoved_ = false;
};

/// The observers of this process by number: the center may still be about to call one that has just been removed, so it
/// gets a number and no pointer.
class Observers {
 public:
  static Observers& all() {
    static Undying<Observers> observers;
    return observers.value();
  }

  std::uintptr_t add(std::shared_ptr<ObserverState> state) {
    const std::lock_guard lock(mutex_);
    states_.emplace(++last_, std::move(state));
    return last_;
  }
  void remove(std::uintptr_t number) {
    const std::lock_guard lock(mutex_);
    states_.erase(number);
  }
  std::shared_ptr<ObserverState> find(std::uintptr_t number) {
    const std::lock_guard lock(mutex_);
    const auto found = states_.find(number);
    return found != states_.end() ? found->second : nullptr;
  }

  static void notified(const char* name, const void* object, const char* userInfo, void* number) {
    guarded([&] {
      if (const auto state = all().find(std::bit_cast<std::uintptr_t>(number))) {
        state->call({name, object, userInfo});
      }
    });
  }

 private:
  std::mutex mutex_;
  std::map<std::uintptr_t, std::shared_ptr<ObserverState>> states_;
  std::uintptr_t last_ = 0;
};

}  // namespace detail

/// Observes the notifications of one name while it lives. The handler is called on the thread that posts, so for the
/// library's questions on its threads, several at the same time. What it throws goes to the handler of
/// setExceptionHandler().
///
/// The destructor waits for calls that are running on other threads; inside the handler itself it does not. So the
/// handler must not wait for the thread that destroys the observer.
class NotificationObserver {
 public:
  /// Begins to observe. `name` ends before its first zero byte.
  NotificationObserver(const std::string& name, NotificationHandler handler)
      : state_(std::make_shared<detail::ObserverState>(std::move(handler))),
        number_(detail::Observers::all().add(state_)),
        token_(ZEP_Notification_AddObserver(name.c_str(), &detail::Observers::notified,
                                            std::bit_cast<void*>(number_))) {}
  /// Ends it. Any thread; waits as said above.
  ~NotificationObserver() {
    ZEP_Notification_RemoveObserver(token_);
    detail::Observers::all().remove(number_);
    state_->remove();
  }
  /// Neither copied nor moved: the observer is where it was made.
  NotificationObserver(const NotificationObserver&) = delete;
  NotificationObserver& operator=(const NotificationObserver&) = delete;

 private:
  const std::shared_ptr<detail::ObserverState> state_;
  const std::uintptr_t number_;
  const long token_;
};

}  // namespace v1
}  // namespace httpPool
