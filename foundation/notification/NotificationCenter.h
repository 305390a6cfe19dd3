#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/base/Dictionary.h"
#include "foundation/base/Export.h"

namespace foundation {

/// What observers are told. Valid during the delivery.
struct FOUNDATION_EXPORT Notification {
  std::string_view name;
  /// Who posted it: an identity, never dereferenced by the center. May be null.
  const void* object = nullptr;
  /// Null when the notification carries none.
  const Dictionary* userInfo = nullptr;

  /// The user information as the text of a JSON object; null when there is none. Written at the first call
  /// and kept for the observers that follow.
  const char* userInfoText() const;

  mutable std::optional<std::string> writtenUserInfo = {};
};

/// Named notifications inside the process. Any thread. Observers are called one after another, in the order
/// of their registration, on the posting thread, before post() returns. No lock is held meanwhile: an
/// observer may add and remove observers and post. The child of a fork(2) has the default center's observers, too.
class FOUNDATION_EXPORT NotificationCenter {
 public:
  using Handler = std::function<void(const Notification&)>;
  /// Identifies one registration; never 0, never used twice.
  using Token = long;

  static NotificationCenter& defaultCenter();

  NotificationCenter();
  ~NotificationCenter();
  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;

  /// Registers `handler` for `name` from any object. `observer` is an identity to remove by and may be null.
  Token addObserver(const void* observer, std::string_view name, Handler handler);
  /// Removes one registration. False when the token is unknown. After the return no delivery of it begins;
  /// one that is under way on another thread may still be running.
  bool removeObserver(Token token);
  /// Removes every registration of `observer`, or those for `name` only. A null observer removes nothing.
  void removeObserver(const void* observer);
  void removeObserver(const void* observer, std::string_view name);

  /// Delivers to everyone registered for `name` at this moment who is not removed before its turn.
  void post(std::string_view name, const void* object, const Dictionary* userInfo);

 private:
  struct Registration;
  [[gnu::constructor]] static void handleForks();
  template <typename Matches>
  bool removeMatching(const Matches& matches);

  std::mutex mutex_;
  std::vector<std::shared_ptr<Registration>> registrations_;
  Token lastToken_ = 0;
};

}  // namespace foundation
