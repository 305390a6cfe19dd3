// The questions of the library when the command line gives the answer, asked without the library.

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Asker.h"
#include "foundation/ZEP_Foundation.h"
#include "tests/support/WaitUntil.h"
#include "tools/httppool/CredentialPrompt.h"
#include "tools/httppool/Interrupt.h"

namespace tooltest {
namespace {

using httppool::CredentialPrompt;
using httppool::Credentials;
using httppool::Secret;
using Rejected = Asker::Rejected;

Credentials annsCredentials() {
  return {"ann", Secret("secret")};
}

// Kept for the run: "Remember" false tells the library to.
const std::optional<std::string> kGiven = answerText("ann", "secret", false);
const std::optional<std::string> kSkip = Asker::kSkip;

TEST(GivenCredentials, AnswerTheFirstQuestionOfEachRequest) {
  CredentialPrompt prompt(annsCredentials());
  Asker one;
  Asker other;
  EXPECT_EQ(one.ask(Rejected::No), kGiven);
  EXPECT_EQ(other.ask(Rejected::No), kGiven);
}

TEST(GivenCredentials, PassEveryCharacterOn) {
  CredentialPrompt prompt(Credentials{"\"J\xc3\xbcrgen\" \\", Secret("\t\x7f\xf0\x9f\x8c\x8d/")});
  Asker asker;
  EXPECT_EQ(asker.ask(Rejected::No),
            answerText("\\\"J\xc3\xbcrgen\\\" \\\\", "\\t\x7f\xf0\x9f\x8c\x8d/", false));
}

TEST(GivenCredentials, AreNotRepeated) {
  CredentialPrompt prompt(annsCredentials());
  Asker rejected;
  EXPECT_EQ(rejected.ask(Rejected::No), kGiven);
  EXPECT_EQ(rejected.ask(Rejected::Yes), kSkip);
  EXPECT_EQ(rejected.ask(Rejected::No), kSkip);
  // What the library kept is no longer there to be called rejected: another request's rejection has removed it.
  Asker silentlyRejected;
  EXPECT_EQ(silentlyRejected.ask(Rejected::No), kGiven);
  EXPECT_EQ(silentlyRejected.ask(Rejected::No), kSkip);
  // The library used what it had kept of another request's answer.
  Asker rejectedFromTheStorage;
  EXPECT_EQ(rejectedFromTheStorage.ask(Rejected::Yes), kSkip);
}

TEST(GivenCredentials, AnswerAQuestionThatSaysNothing) {
  CredentialPrompt prompt(annsCredentials());
  Asker bare;
  EXPECT_EQ(bare.askWith(nullptr), kGiven);
  Asker empty;
  EXPECT_EQ(empty.askWith("{}"), kGiven);
  Asker unlike;
  EXPECT_EQ(unlike.askWith(R"({"ShowWarningMsg":true})"), kGiven);
}

TEST(GivenCredentials, ThatTheLibraryCannotTakeSkip) {
  CredentialPrompt prompt(Credentials{"caf\xe9", Secret("secret")});
  Asker asker;
  EXPECT_EQ(asker.ask(Rejected::No), kSkip);
}

// Holds the first answer up while it is being posted, until the test lets it go on.
class HeldAnswer {
 public:
  HeldAnswer()
      : observer_(ZEP_Notification_AddObserver("HTTPAuthenticationDatasource", &HeldAnswer::answered, this)) {
  }
  ~HeldAnswer() { ZEP_Notification_RemoveObserver(observer_); }
  HeldAnswer(const HeldAnswer&) = delete;
  HeldAnswer& operator=(const HeldAnswer&) = delete;

  bool waitFor() const {
    return test::waitUntil([this] { return isHeld_.load(); });
  }
  void letGo() {
    isLetGo_ = true;
    isLetGo_.notify_all();
  }

 private:
  static void answered(const char* /*name*/, const void* /*object*/, const char* /*userInfo*/,
                       void* context) {
    auto& held = *static_cast<HeldAnswer*>(context);
    held.isHeld_ = true;
    held.isLetGo_.wait(false);
  }

  std::atomic<bool> isHeld_ = false;
  std::atomic<bool> isLetGo_ = false;
  const long observer_;
};

// A skip would reach everyone who waits.
TEST(GivenCredentials, ReachARequestThatWaitsBesideARejectedOne) {
  CredentialPrompt prompt(annsCredentials());
  HeldAnswer held;
  Asker first;
  Asker rejected;
  Asker newcomer;
  std::optional<std::string> toRejected;
  std::optional<std::string> toNewcomer;
  std::thread firstThread([&] { first.ask(Rejected::No); });
  ASSERT_TRUE(held.waitFor());
  std::thread rejectedThread([&] { toRejected = rejected.ask(Rejected::Yes); });
  std::thread newcomersThread([&] { toNewcomer = newcomer.ask(Rejected::No); });
  EXPECT_TRUE(test::waitUntil([&] { return prompt.waiting() == 2; }));
  held.letGo();
  firstThread.join();
  rejectedThread.join();
  newcomersThread.join();
  EXPECT_EQ(toNewcomer, kGiven);
}

// Each request asks again as long as it is given anything, as with wrong credentials, and is told by chance whether
// they were rejected, as it depends on which request has looked first.
TEST(GivenCredentials, ThatAreWrongEndForManyRequests) {
  constexpr int kRequests = 40;
  CredentialPrompt prompt(annsCredentials());
  std::atomic<int> unanswered = 0;
  std::atomic<int> mostAnswers = 0;
  std::vector<std::thread> threads;
  for (unsigned seed = 1; seed <= kRequests; ++seed) {
    threads.emplace_back([&, seed] {
      std::minstd_rand chance(seed);
      Asker asker;
      int answers = 0;
      for (auto answer = asker.ask(Rejected::No); answer != kSkip; ++answers) {
        unanswered += answer.has_value() ? 0 : 1;
        answer = asker.ask(chance() % 2 == 0 ? Rejected::Yes : Rejected::No);
      }
      int most = mostAnswers;
      while (answers > most && !mostAnswers.compare_exchange_weak(most, answers)) {
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(unanswered, 0);
  EXPECT_LE(mostAnswers, kRequests);
  EXPECT_EQ(prompt.waiting(), 0U);
}

TEST(GivenCredentials, SkipAfterTheClose) {
  CredentialPrompt prompt(annsCredentials());
  prompt.close();
  Asker asker;
  EXPECT_EQ(asker.ask(Rejected::No), kSkip);
}

// In a process of its own, where the signal stays caught. Its exit status is 0 when all was as expected.
[[noreturn]] void askAfterAnInterrupt() {
  httppool::catchInterrupts();
  CredentialPrompt prompt(annsCredentials());
  raise(SIGINT);
  Asker asker;
  std::_Exit(asker.ask(Rejected::No) == kSkip ? 0 : 1);
}

TEST(GivenCredentialsDeathTest, SkipAfterAnInterrupt) {
  EXPECT_EXIT(askAfterAnInterrupt(), testing::ExitedWithCode(0), "");
}

TEST(GivenCredentials, AreGivenNoLongerThanThePromptLives) {
  Asker asker;
  {
    CredentialPrompt prompt(annsCredentials());
    EXPECT_EQ(asker.ask(Rejected::No), kGiven);
  }
  EXPECT_EQ(asker.ask(Rejected::No), std::nullopt);
}

}  // namespace
}  // namespace tooltest
