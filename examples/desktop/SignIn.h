// Brings a server's question for a user name and a password to the main thread, and the answer back.
//
// The library asks on the thread of the request, which goes on when it has been answered. That thread is kept inside
// the notification until the user has closed the dialog: an answer that comes then is taken at once, while one that
// comes later is noticed up to 10 seconds later. The question does not say which server asks, and an answer
// reaches every request that is waiting, so one dialog asks for all of them. Made on the main thread; outlives the
// requests.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace example {

class SignIn {
 public:
  struct Answer {
    std::string userName;
    std::string password;
    // Until the process ends, for every request to that server.
    bool isKept = false;
  };

  // `onMainThread` is called on the requests' threads and has the main thread call what it is given; `show` then
  // opens the dialog there, whose end is told by answer().
  SignIn(std::function<void(std::function<void()>)> onMainThread, std::function<void(bool wasRefused)> show);
  ~SignIn();
  SignIn(const SignIn&) = delete;
  SignIn& operator=(const SignIn&) = delete;

  // Answers every request that is waiting; none: they are skipped and fail. Main thread.
  void answer(const std::optional<Answer>& answer);

  // How many requests wait for an answer. Any thread.
  std::size_t waiting() const;

  // Calls `stop` and skips every question meanwhile: whoever stops a request waits for its thread, which must not
  // wait for him. Main thread.
  void skipDuring(const std::function<void()>& stop);

 private:
  struct Question {
    bool isAnswered = false;
  };

  static void required(const char* name, const void* object, const char* userInfo, void* context);

  void ask(bool wasRefused);
  void show();
  static void post(const std::optional<Answer>& answer);

  const std::function<void(std::function<void()>)> onMainThread_;
  const std::function<void(bool)> show_;
  mutable std::mutex mutex_;
  std::condition_variable answered_;
  std::vector<Question*> open_;  // under mutex_
  bool isShown_ = false;         // under mutex_: a dialog is open, or will be
  bool wasRefused_ = false;      // under mutex_
  bool isSkipping_ = false;      // under mutex_
  const long observer_;          // last: from here on questions come
};

}  // namespace example
