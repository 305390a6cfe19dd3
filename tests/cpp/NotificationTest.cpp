// Observers of notifications.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/cpp/Host.h"

namespace test {
namespace {

using httpPool::JsonWriter;
using httpPool::Notification;
using httpPool::NotificationObserver;
using httpPool::postNotification;

TEST(CppObserver, IsToldWhileItLives) {
  std::vector<std::string> told;
  {
    const NotificationObserver observer("CppTold", [&](const Notification& notification) {
      told.push_back(std::string(notification.name) + ":" +
                     notification.members().text("t").value_or("none"));
      EXPECT_EQ(notification.object, &told);
    });
    EXPECT_TRUE(postNotification("CppTold", JsonWriter().text("t", "\xC3\xA4\"\n").str(), &told));
    EXPECT_TRUE(postNotification("CppTold", std::nullopt, &told));
    EXPECT_TRUE(postNotification("CppOther"));
  }
  EXPECT_TRUE(postNotification("CppTold"));
  EXPECT_EQ(told, (std::vector<std::string>{"CppTold:\xC3\xA4\"\n", "CppTold:none"}));
}

TEST(CppObserver, WhatIsNoObjectIsNotPosted) {
  int calls = 0;
  const NotificationObserver observer("CppRefused", [&](const Notification&) { ++calls; });
  EXPECT_FALSE(postNotification("CppRefused", "[]"));
  EXPECT_FALSE(postNotification("CppRefused", JsonWriter().text("t", "\xFF").str()));
  EXPECT_FALSE(postNotification("CppRefused", std::string("{}\0{}", 5)));
  EXPECT_EQ(calls, 0);
}

TEST(CppObserver, ThatThrowsIsReportedAndHurtsNobody) {
  int reports = 0;
  int calls = 0;
  httpPool::setExceptionHandler([&](const std::exception_ptr&) { ++reports; });
  const NotificationObserver thrower("CppThrown",
                                     [](const Notification&) { throw std::runtime_error("no"); });
  const NotificationObserver other("CppThrown", [&](const Notification&) { ++calls; });
  EXPECT_TRUE(postNotification("CppThrown"));
  EXPECT_EQ(reports, 1);
  EXPECT_EQ(calls, 1);
  httpPool::setExceptionHandler(nullptr);
}

TEST(CppObserver, MayEndInsideItsOwnCall) {
  int calls = 0;
  std::optional<NotificationObserver> observer;
  observer.emplace("CppEnd", [&, owned = std::make_shared<int>(17)](const Notification&) {
    observer.reset();
    calls += *owned;
  });
  EXPECT_TRUE(postNotification("CppEnd"));
  EXPECT_TRUE(postNotification("CppEnd"));
  EXPECT_EQ(calls, 17);
}

TEST(CppObserver, ItsEndWaitsForACallOnAnotherThread) {
  std::atomic<bool> isInside{false};
  std::atomic<bool> mayLeave{false};
  std::atomic<bool> hasLeft{false};
  std::optional<NotificationObserver> observer;
  observer.emplace("CppWait", [&](const Notification&) {
    isInside = true;
    isInside.notify_all();
    mayLeave.wait(false);
    hasLeft = true;
  });
  std::thread poster([] { postNotification("CppWait"); });
  isInside.wait(false);
  std::thread releaser([&] {
    mayLeave = true;
    mayLeave.notify_all();
  });
  observer.reset();
  EXPECT_TRUE(hasLeft);
  poster.join();
  releaser.join();
}

/// Posts from many threads while observers come and go; what they capture is gone with them.
TEST(CppObserver, EndsUnderManyPostsLeaveNothingBehind) {
  std::atomic<bool> isOver{false};
  std::atomic<int> calls{0};
  std::vector<std::thread> posters;
  for (int i = 0; i < 4; ++i) {
    posters.emplace_back([&] {
      while (!isOver) {
        postNotification("CppMany");
      }
    });
  }
  const NotificationObserver constant("CppMany", [&](const Notification&) { ++calls; });
  for (int i = 0; i < 300; ++i) {
    auto owned = std::make_unique<std::atomic<int>>(0);
    const NotificationObserver observer("CppMany",
                                        [counter = owned.get()](const Notification&) { ++*counter; });
    const int before = calls;
    while (calls < before + 3) {
      std::this_thread::yield();
    }
  }
  isOver = true;
  for (std::thread& poster : posters) {
    poster.join();
  }
  EXPECT_GE(calls, 900);
}

}  // namespace
}  // namespace test
