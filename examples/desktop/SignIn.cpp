#include "SignIn.h"

#include <utility>

#include "Json.h"
#include "foundation/ZEP_Foundation.h"

namespace example {

SignIn::SignIn(std::function<void(std::function<void()>)> onMainThread,
               std::function<void(bool wasRefused)> show)
    : onMainThread_(std::move(onMainThread)),
      show_(std::move(show)),
      observer_(ZEP_Notification_AddObserver("HTTPAuthenticationRequired", &SignIn::required, this)) {
}

SignIn::~SignIn() {
  ZEP_Notification_RemoveObserver(observer_);
}

void SignIn::required(const char* /*name*/, const void* /*object*/, const char* userInfo, void* context) {
  static_cast<SignIn*>(context)->ask(jsonFrom(userInfo)["ShowWarningMsg"] == "true");
}

// On the thread of the request.
void SignIn::ask(bool wasRefused) {
  Question question;
  std::unique_lock lock(mutex_);
  if (isSkipping_) {
    lock.unlock();
    post(std::nullopt);
    return;
  }
  open_.push_back(&question);
  wasRefused_ = wasRefused_ || wasRefused;
  if (!std::exchange(isShown_, true)) {
    onMainThread_([this] { show(); });
  }
  answered_.wait(lock, [&] { return question.isAnswered; });
}

void SignIn::show() {
  std::unique_lock lock(mutex_);
  if (open_.empty()) {
    isShown_ = false;
    return;
  }
  const bool wasRefused = std::exchange(wasRefused_, false);
  lock.unlock();
  show_(wasRefused);
}

void SignIn::answer(const std::optional<Answer>& answer) {
  std::unique_lock lock(mutex_);
  // Whoever asks from here on gets a dialog of his own.
  const std::vector<Question*> questions = std::exchange(open_, {});
  isShown_ = false;
  lock.unlock();
  post(answer);
  lock.lock();
  for (Question* const question : questions) {
    question->isAnswered = true;
  }
  answered_.notify_all();
}

std::size_t SignIn::waiting() const {
  const std::lock_guard lock(mutex_);
  return open_.size();
}

void SignIn::skipDuring(const std::function<void()>& stop) {
  {
    const std::lock_guard lock(mutex_);
    isSkipping_ = true;
  }
  answer(std::nullopt);
  stop();
  const std::lock_guard lock(mutex_);
  isSkipping_ = false;
}

void SignIn::post(const std::optional<Answer>& answer) {
  constexpr const char* kAnswer = "HTTPAuthenticationDatasource";
  if (!answer) {
    ZEP_Notification_Post(kAnswer, nullptr, nullptr);
    return;
  }
  Json::Value userInfo(Json::objectValue);
  userInfo["Username"] = answer->userName;
  userInfo["Password"] = answer->password;
  // True says that the application remembers the password by itself, so that the library keeps nothing.
  userInfo["Remember"] = !answer->isKept;
  ZEP_Notification_Post(kAnswer, nullptr, compactJson(userInfo).c_str());
}

}  // namespace example
