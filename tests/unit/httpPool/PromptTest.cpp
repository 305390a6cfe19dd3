// The engine's two prompts: what the host is told, how it may answer, and how long it is waited for.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/notification/NotificationCenter.h"
#include "httpPool/MacDownloadEngine.h"

namespace {

using foundation::Dictionary;
using foundation::Notification;
using foundation::NotificationCenter;
using testing::ElementsAre;

/// Answers in place of a host, for as long as it lives.
class Host {
 public:
  explicit Host(std::string question) : Host(std::move(question), nullptr) {}
  Host(std::string question, std::function<void()> action) : action_(std::move(action)) {
    NotificationCenter::defaultCenter().addObserver(this, question, [this](const Notification& notification) {
      objects.push_back(notification.object);
      told.push_back(notification.userInfo ? std::optional(*notification.userInfo) : std::nullopt);
      if (action_) {
        action_();
      }
    });
  }
  ~Host() { NotificationCenter::defaultCenter().removeObserver(this); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  std::vector<const void*> objects;
  std::vector<std::optional<Dictionary>> told;

 private:
  std::function<void()> action_;
};

void answerCredentials(const Dictionary& info) {
  NotificationCenter::defaultCenter().post("HTTPAuthenticationDatasource", nullptr, &info);
}
void skipCredentials() {
  NotificationCenter::defaultCenter().post("HTTPAuthenticationDatasource", nullptr, nullptr);
}
void answerTexts(const Dictionary& info) {
  NotificationCenter::defaultCenter().post("HTTPLocalizationDatasource", nullptr, &info);
}

const Dictionary kFull = {{"Username", "user"}, {"Password", "pass"}, {"Remember", true}};

/// Runs `onSleep` where the engine would sleep for ten seconds.
class WakefulEngine : public MacDownloadEngine {
 public:
  std::function<void()> onSleep;
  std::atomic<int> sleeps = 0;

 protected:
  void SleepBetweenLooks() override {
    ++sleeps;
    if (onSleep) {
      onSleep();
    }
  }
};

struct Answer {
  std::string user = {};
  std::string password = {};
  bool isRemember = false;
  bool isSkip = false;
};

class PromptTest : public testing::Test {
 protected:
  Answer ask() { return ask({}); }
  Answer ask(Answer before) {
    EXPECT_TRUE(
        engine.OnAskNTLMChallenge(before.user, before.password, before.isRemember, before.isSkip, *sender));
    return before;
  }

  WakefulEngine engine;
  std::shared_ptr<MacDownloader> sender = std::make_shared<MacDownloader>(std::nullopt);
};

TEST_F(PromptTest, AnAnswerInsideTheNotificationNeedsNoSleep) {
  const Host host("HTTPAuthenticationRequired", [] { answerCredentials(kFull); });
  const Answer answer = ask();
  EXPECT_EQ(answer.user, "user");
  EXPECT_EQ(answer.password, "pass");
  EXPECT_TRUE(answer.isRemember);
  EXPECT_FALSE(answer.isSkip);
  EXPECT_EQ(engine.sleeps, 0);
}

TEST_F(PromptTest, TheHostIsToldWhatIsAsked) {
  const Host host("HTTPAuthenticationRequired", [] { answerCredentials(kFull); });
  ask();
  sender->setShowWarningMsg(true);
  const Dictionary glint = {{"Glint", "x"}};
  engine.generateURLRequest("http://a/", nullptr, &glint);
  ask();
  EXPECT_THAT(host.objects, ElementsAre(&engine, &engine));
  EXPECT_THAT(
      host.told,
      ElementsAre(
          Dictionary{{"authLink", "linkValue"}, {"ShowWarningMsg", "false"}, {"AuthRequiringType", 0}},
          Dictionary{{"authLink", "linkValue"}, {"ShowWarningMsg", "true"}, {"AuthRequiringType", 4}}));
}

TEST_F(PromptTest, EveryKindOfRequestIsTold) {
  const Host host("HTTPAuthenticationRequired", [] { answerCredentials(kFull); });
  const std::pair<const char*, int> kinds[] = {
      {"Exchange-Autodiscover", 1}, {"Exchange-Listmeeting", 2}, {"Adjacency", 3}};
  for (const auto& [key, number] : kinds) {
    const Dictionary fields = {{key, "1"}};
    engine.generateURLRequest("http://a/", nullptr, &fields);
    ask();
    EXPECT_EQ(*host.told.back()->find("AuthRequiringType"), foundation::Value(number));
  }
}

TEST_F(PromptTest, AnAnswerFromAnotherThreadIsSeenAtTheNextLook) {
  engine.onSleep = [this] {
    if (engine.sleeps == 3) {
      std::thread([] { answerCredentials(kFull); }).join();
    }
  };
  EXPECT_EQ(ask().user, "user");
  EXPECT_EQ(engine.sleeps, 3) << "there is no limit, and no look too many";
}

TEST_F(PromptTest, NoUserInformationIsASkipForGood) {
  bool skips = true;
  const Host host("HTTPAuthenticationRequired",
                  [&] { skips ? skipCredentials() : answerCredentials(kFull); });
  EXPECT_TRUE(ask().isSkip);
  skips = false;
  const Answer later = ask();
  EXPECT_TRUE(later.isSkip) << "never cleared during the engine's life";
  EXPECT_EQ(later.user, "user");
}

TEST_F(PromptTest, ASkipIsOnlyEverSet) {
  const Host host("HTTPAuthenticationRequired", [] { answerCredentials(kFull); });
  EXPECT_TRUE(ask({.isSkip = true}).isSkip);
}

TEST_F(PromptTest, EmptyAnswersLeaveTheCallersTexts) {
  const Host host("HTTPAuthenticationRequired", [] { answerCredentials(Dictionary()); });
  const Answer answer = ask({.user = "before", .password = "old", .isRemember = true});
  EXPECT_EQ(answer.user, "before");
  EXPECT_EQ(answer.password, "old");
  EXPECT_FALSE(answer.isRemember) << "absent is false";
  EXPECT_FALSE(answer.isSkip) << "user information without entries is none the less there";
}

TEST_F(PromptTest, WhatTheHostLeavesOutStaysFromItsLastAnswer) {
  Dictionary info = kFull;
  const Host host("HTTPAuthenticationRequired", [&] { answerCredentials(info); });
  ask();
  info = {{"Username", "second"}};
  const Answer answer = ask();
  EXPECT_EQ(answer.user, "second");
  EXPECT_EQ(answer.password, "pass");
  EXPECT_FALSE(answer.isRemember);
}

TEST_F(PromptTest, WhatIsNoTextIsNoAnswer) {
  const Host host("HTTPAuthenticationRequired", [] {
    answerCredentials({{"Username", 5}, {"Password", true}, {"Remember", "yes"}});
  });
  const Answer answer = ask();
  EXPECT_EQ(answer.user, "");
  EXPECT_EQ(answer.password, "");
  EXPECT_TRUE(answer.isRemember);
}

TEST_F(PromptTest, AnAnswerReachesEveryEngineThatWaits) {
  WakefulEngine second;
  std::atomic<int> asked = 0;
  const auto token = NotificationCenter::defaultCenter().addObserver(nullptr, "HTTPAuthenticationRequired",
                                                                     [&](const Notification&) { ++asked; });
  second.onSleep = [] { std::this_thread::yield(); };
  bool answered = false;
  engine.onSleep = [&] {
    if (asked == 2 && !std::exchange(answered, true)) {
      answerCredentials(kFull);
    }
  };
  Answer other;
  std::thread asker([&] {
    second.OnAskNTLMChallenge(other.user, other.password, other.isRemember, other.isSkip, *sender);
  });
  EXPECT_EQ(ask().user, "user");
  asker.join();
  EXPECT_EQ(other.user, "user");
  NotificationCenter::defaultCenter().removeObserver(token);
}

TEST_F(PromptTest, AnAnswerThatNobodyWaitsForIsDropped) {
  answerCredentials({{"Username", "early"}, {"Password", "early"}});
  const Host host("HTTPAuthenticationRequired", [] {
    answerCredentials(kFull);
    answerCredentials({{"Username", "late"}, {"Password", "late"}});
  });
  EXPECT_EQ(ask().user, "user") << "the first answer counts";
  answerCredentials({{"Username", "later"}, {"Password", "later"}});
  const Host silent("HTTPAuthenticationRequired");
  EXPECT_EQ(ask().user, "user");
}

/// The answering thread may still be inside the observer when the prompt is over and the engine gone.
TEST_F(PromptTest, AnswersFromManyThreadsMeetNoEngineThatIsGone) {
  std::atomic<bool> done = false;
  std::vector<std::thread> hosts;
  for (int i = 0; i < 3; ++i) {
    hosts.emplace_back([&] {
      while (!done) {
        answerCredentials(kFull);
        // Who posts without a pause keeps the center's lock from everybody else.
        std::this_thread::sleep_for(std::chrono::microseconds(20));
      }
    });
  }
  for (int i = 0; i < 300; ++i) {
    auto shortLived = std::make_unique<WakefulEngine>();
    shortLived->onSleep = [] { std::this_thread::yield(); };
    Answer answer;
    shortLived->OnAskNTLMChallenge(answer.user, answer.password, answer.isRemember, answer.isSkip, *sender);
    EXPECT_EQ(answer.user, "user");
    shortLived->OnAskNTLMChallenge(answer.user, answer.password, answer.isRemember, answer.isSkip, *sender);
  }
  done = true;
  for (std::thread& host : hosts) {
    host.join();
  }
}

// --- The texts of dialogs. Each test runs in a process of its own: what is set once stays. ---

TEST_F(PromptTest, TheTextsAreAskedForOnceAndKept) {
  ASSERT_EQ(g_localizationStr, nullptr);
  const Host host("HTTPLocalizationRequired", [] { answerTexts({{"CertificationMsg", "first"}}); });
  engine.OnAskLocalization();
  ASSERT_NE(g_localizationStr, nullptr);
  const Dictionary* const texts = g_localizationStr;
  EXPECT_EQ(*texts, (Dictionary{{"CertificationMsg", "first"}}));
  EXPECT_THAT(host.objects, ElementsAre(&engine));
  EXPECT_THAT(host.told, ElementsAre(std::nullopt));

  answerTexts({{"CertificationMsg", "second"}});
  WakefulEngine other;
  other.OnAskLocalization();
  EXPECT_EQ(host.objects.size(), 1U) << "nobody is asked again";
  EXPECT_EQ(g_localizationStr, texts);
  EXPECT_EQ(*texts, (Dictionary{{"CertificationMsg", "first"}}));
  EXPECT_EQ(engine.sleeps + other.sleeps, 0);
}

TEST_F(PromptTest, AnAnswerWithoutTextsEndsTheWaitAndTheNextPromptAsksAgain) {
  int asked = 0;
  const Host host("HTTPLocalizationRequired", [&] {
    ++asked;
    NotificationCenter::defaultCenter().post("HTTPLocalizationDatasource", nullptr, nullptr);
  });
  engine.OnAskLocalization();
  EXPECT_EQ(g_localizationStr, nullptr);
  engine.OnAskLocalization();
  EXPECT_EQ(asked, 2);
  EXPECT_EQ(engine.sleeps, 0);
}

TEST_F(PromptTest, TheTextsAreWaitedForWithoutALimit) {
  engine.onSleep = [this] {
    if (engine.sleeps == 2) {
      answerTexts({});
    }
  };
  engine.OnAskLocalization();
  EXPECT_EQ(engine.sleeps, 2);
  ASSERT_NE(g_localizationStr, nullptr) << "an empty dictionary is one";
}

TEST_F(PromptTest, OneAnswerCountsForManyThatAskAtOnce) {
  constexpr int kEngines = 4;
  std::atomic<int> asked = 0;
  const auto token = NotificationCenter::defaultCenter().addObserver(nullptr, "HTTPLocalizationRequired",
                                                                     [&](const Notification&) {
                                                                       const int mine = ++asked;
                                                                       answerTexts({{"by", mine}});
                                                                     });
  std::vector<std::unique_ptr<WakefulEngine>> engines;
  std::vector<std::thread> threads;
  for (int i = 0; i < kEngines; ++i) {
    engines.push_back(std::make_unique<WakefulEngine>());
    threads.emplace_back([asker = engines.back().get()] { asker->OnAskLocalization(); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  NotificationCenter::defaultCenter().removeObserver(token);
  ASSERT_NE(g_localizationStr, nullptr);
  EXPECT_EQ(g_localizationStr->size(), 1U);
}

}  // namespace
