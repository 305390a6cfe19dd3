// What the library does for one request that asks for credentials: watches for the answer and posts the question.
// Asks on any thread, one at a time; the answer may come on another one.
#pragma once

#include <mutex>
#include <optional>
#include <string>

namespace tooltest {

class Asker {
 public:
  enum class Rejected { No, Yes };

  static constexpr const char* kSkip = "skip";

  // The JSON text of the answer, or kSkip; nothing when the question was not answered when its post returned.
  std::optional<std::string> ask(Rejected rejected);
  // The same with a user information of the test's own, NULL for none.
  std::optional<std::string> askWith(const char* userInfo);

 private:
  static void answered(const char* name, const void* object, const char* userInfo, void* context);

  std::mutex mutex_;
  std::optional<std::string> answer_;  // under mutex_
};

// The JSON text of an answer.
std::string answerText(const std::string& user, const std::string& password, bool remember);

}  // namespace tooltest
