// The way of a question to the main thread and of its answer back, with threads that ask as the library does.

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "examples/desktop/SignIn.h"
#include "foundation/ZEP_Foundation.h"
#include "tests/support/WaitUntil.h"

namespace example {
namespace {

/// A thread that asks once, and what it was answered until its question returned.
class Asker {
 public:
  explicit Asker(const char* userInfo = "{\"ShowWarningMsg\":\"false\"}")
      : thread_([this, userInfo] {
          const long token =
              ZEP_Notification_AddObserver("HTTPAuthenticationDatasource", &Asker::answered, this);
          ZEP_Notification_Post("HTTPAuthenticationRequired", this, userInfo);
          ZEP_Notification_RemoveObserver(token);
          isDone_ = true;
        }) {}
  ~Asker() { thread_.join(); }

  bool isDone() const { return isDone_; }
  bool waitUntilDone() const {
    return test::waitUntil([this] { return isDone(); });
  }
  /// Only when it is done. "skip" for an answer without user information.
  const std::vector<std::string>& answers() const { return answers_; }

 private:
  static void answered(const char*, const void*, const char* userInfo, void* context) {
    auto& asker = *static_cast<Asker*>(context);
    const std::lock_guard lock(asker.mutex_);
    asker.answers_.emplace_back(userInfo != nullptr ? userInfo : "skip");
  }

  std::mutex mutex_;
  std::vector<std::string> answers_;  // under mutex_ while the thread runs
  std::atomic<bool> isDone_{false};
  std::thread thread_;  // last: it uses the others
};

class ExampleSignInQuestion : public testing::Test {
 protected:
  /// Waits for the main thread's next call and does it, as its loop would.
  void turn() {
    std::function<void()> call;
    ASSERT_TRUE(test::waitUntil([&] {
      const std::lock_guard lock(mutex);
      if (calls.empty()) {
        return false;
      }
      call = std::move(calls.front());
      calls.pop_front();
      return true;
    }));
    call();
  }
  std::size_t pendingCalls() {
    const std::lock_guard lock(mutex);
    return calls.size();
  }

  std::mutex mutex;
  std::list<std::function<void()>> calls;  // under mutex
  std::vector<bool> shown;
  SignIn signIn{[this](std::function<void()> call) {
                  const std::lock_guard lock(mutex);
                  calls.push_back(std::move(call));
                },
                [this](bool wasRefused) { shown.push_back(wasRefused); }};
};

const SignIn::Answer kAlice{.userName = "alice \"a\"", .password = "\xE2\x82\xAC\\", .isKept = true};

TEST_F(ExampleSignInQuestion, WaitsForItsAnswer) {
  const Asker asker;
  turn();
  EXPECT_EQ(shown, std::vector<bool>{false});
  EXPECT_FALSE(asker.isDone());
  signIn.answer(kAlice);
  ASSERT_TRUE(asker.waitUntilDone());
  EXPECT_EQ(asker.answers(),
            std::vector<std::string>{
                "{\"Password\":\"\xE2\x82\xAC\\\\\",\"Remember\":false,\"Username\":\"alice \\\"a\\\"\"}"});
}

TEST_F(ExampleSignInQuestion, WhatIsNotKeptIsSaidToBeRemembered) {
  const Asker asker;
  turn();
  signIn.answer(SignIn::Answer{.userName = "a", .password = "b", .isKept = false});
  ASSERT_TRUE(asker.waitUntilDone());
  EXPECT_EQ(asker.answers(),
            std::vector<std::string>{"{\"Password\":\"b\",\"Remember\":true,\"Username\":\"a\"}"});
}

TEST_F(ExampleSignInQuestion, ACancelledOneIsSkipped) {
  const Asker asker;
  turn();
  signIn.answer(std::nullopt);
  ASSERT_TRUE(asker.waitUntilDone());
  EXPECT_EQ(asker.answers(), std::vector<std::string>{"skip"});
}

TEST_F(ExampleSignInQuestion, OfManyIsOneDialog) {
  constexpr std::size_t kCount = 5;
  const std::list<Asker> askers(kCount);
  ASSERT_TRUE(test::waitUntil([&] { return signIn.waiting() == kCount; }));
  EXPECT_EQ(pendingCalls(), 1U);
  turn();
  signIn.answer(kAlice);
  for (const Asker& asker : askers) {
    ASSERT_TRUE(asker.waitUntilDone());
    EXPECT_EQ(asker.answers().size(), 1U);
  }
  EXPECT_EQ(pendingCalls(), 0U);
  EXPECT_EQ(signIn.waiting(), 0U);
}

TEST_F(ExampleSignInQuestion, ARefusalIsTold) {
  const Asker asker("{\"ShowWarningMsg\":\"true\"}");
  turn();
  EXPECT_EQ(shown, std::vector<bool>{true});
  signIn.answer(std::nullopt);
}

TEST_F(ExampleSignInQuestion, IsSkippedWhileRequestsAreStopped) {
  const Asker waiting;
  ASSERT_TRUE(test::waitUntil([this] { return signIn.waiting() == 1; }));
  signIn.skipDuring([&] {
    // As the library does when it stops a request: it waits for the request's thread.
    EXPECT_TRUE(waiting.waitUntilDone());
    const Asker another;
    EXPECT_TRUE(another.waitUntilDone());
    EXPECT_EQ(another.answers(), std::vector<std::string>{"skip"});
  });
  EXPECT_EQ(waiting.answers(), std::vector<std::string>{"skip"});
  turn();
  EXPECT_EQ(shown.size(), 0U) << "a dialog for nobody";

  const Asker later;
  turn();
  EXPECT_EQ(shown.size(), 1U);
  signIn.answer(std::nullopt);
}

}  // namespace
}  // namespace example
