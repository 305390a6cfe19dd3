#include "foundation/notification/NotificationCenter.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <utility>

#include "foundation/base/JsonText.h"

namespace foundation {

const char* Notification::userInfoText() const {
  if (userInfo == nullptr) {
    return nullptr;
  }
  if (!writtenUserInfo) {
    writtenUserInfo = jsonText(*userInfo);
  }
  return writtenUserInfo->c_str();
}

struct NotificationCenter::Registration {
  Token token;
  const void* observer;
  std::string name;
  Handler handler;
  /// Cleared by the removal, looked at right before the call.
  std::atomic<bool> isActive{true};
};

NotificationCenter& NotificationCenter::defaultCenter() {
  // Never destroyed: threads may still post while the process exits.
  static NotificationCenter* const center = new NotificationCenter;
  return *center;
}

/// Called as the library is loaded: what a thread is still making while another one forks stays half made in the child.
/// The lock is taken around a fork, so that it is free in the child and what it guards is whole.
void NotificationCenter::handleForks() {
  defaultCenter();
  pthread_atfork([] { defaultCenter().mutex_.lock(); }, [] { defaultCenter().mutex_.unlock(); },
                 [] { defaultCenter().mutex_.unlock(); });
}

NotificationCenter::NotificationCenter() = default;
NotificationCenter::~NotificationCenter() = default;

NotificationCenter::Token NotificationCenter::addObserver(const void* observer, std::string_view name,
                                                          Handler handler) {
  auto registration = std::make_shared<Registration>();
  registration->observer = observer;
  registration->name = name;
  registration->handler = std::move(handler);
  const std::lock_guard lock(mutex_);
  registration->token = ++lastToken_;
  registrations_.push_back(std::move(registration));
  return lastToken_;
}

template <typename Matches>
bool NotificationCenter::removeMatching(const Matches& matches) {
  // Released behind the lock: a handler's captures may call back.
  std::vector<std::shared_ptr<Registration>> removed;
  const std::lock_guard lock(mutex_);
  const auto kept = std::stable_partition(registrations_.begin(), registrations_.end(),
                                          [&](const auto& registration) { return !matches(*registration); });
  std::move(kept, registrations_.end(), std::back_inserter(removed));
  registrations_.erase(kept, registrations_.end());
  for (const auto& registration : removed) {
    registration->isActive = false;
  }
  return !removed.empty();
}

bool NotificationCenter::removeObserver(Token token) {
  return removeMatching([&](const Registration& registration) { return registration.token == token; });
}

void NotificationCenter::removeObserver(const void* observer) {
  removeMatching([&](const Registration& registration) {
    return observer != nullptr && registration.observer == observer;
  });
}

void NotificationCenter::removeObserver(const void* observer, std::string_view name) {
  removeMatching([&](const Registration& registration) {
    return observer != nullptr && registration.observer == observer && registration.name == name;
  });
}

void NotificationCenter::post(std::string_view name, const void* object, const Dictionary* userInfo) {
  std::vector<std::shared_ptr<Registration>> receivers;
  {
    const std::lock_guard lock(mutex_);
    std::copy_if(registrations_.begin(), registrations_.end(), std::back_inserter(receivers),
                 [&](const auto& registration) { return registration->name == name; });
  }
  const Notification notification{name, object, userInfo};
  for (const auto& receiver : receivers) {
    if (receiver->isActive) {
      receiver->handler(notification);
    }
  }
}

}  // namespace foundation
