#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "foundation/notification/NotificationCenter.h"

using foundation::Dictionary;
using foundation::Notification;
using foundation::NotificationCenter;

namespace {

TEST(NotificationCenter, TellsObserversOfTheNameInOrder) {
  NotificationCenter center;
  std::string told;
  center.addObserver(nullptr, "name", [&](const Notification&) { told += 'a'; });
  center.addObserver(nullptr, "other", [&](const Notification&) { told += 'x'; });
  center.addObserver(nullptr, "name", [&](const Notification&) { told += 'b'; });
  center.post("name", nullptr, nullptr);
  EXPECT_EQ(told, "ab");
}

TEST(NotificationCenter, PassesObjectAndUserInfo) {
  NotificationCenter center;
  const Dictionary info{{"k", "v"}};
  int object = 0;
  center.addObserver(nullptr, "name", [&](const Notification& notification) {
    EXPECT_EQ(notification.name, "name");
    EXPECT_EQ(notification.object, &object);
    EXPECT_EQ(notification.userInfo, &info);
    ++object;
  });
  center.post("name", &object, &info);
  EXPECT_EQ(object, 1);
}

TEST(NotificationCenter, RemovesByTokenObserverAndName) {
  NotificationCenter center;
  int observer = 0, other = 0;
  std::string told;
  const auto add = [&](const void* who, const char* name, char mark) {
    return center.addObserver(who, name, [&told, mark](const Notification&) { told += mark; });
  };
  const auto token = add(&observer, "n", 'a');
  add(&observer, "n", 'b');
  add(&observer, "m", 'c');
  add(&other, "n", 'd');
  EXPECT_TRUE(center.removeObserver(token));
  EXPECT_FALSE(center.removeObserver(token));
  EXPECT_FALSE(center.removeObserver(NotificationCenter::Token{12345}));
  center.post("n", nullptr, nullptr);
  EXPECT_EQ(told, "bd");
  center.removeObserver(&observer, "n");
  center.post("n", nullptr, nullptr);
  center.post("m", nullptr, nullptr);
  EXPECT_EQ(told, "bddc");
  center.removeObserver(&observer);
  center.removeObserver(nullptr);
  center.post("m", nullptr, nullptr);
  center.post("n", nullptr, nullptr);
  EXPECT_EQ(told, "bddcd");
}

TEST(NotificationCenter, ObserversMayComeAndGoInsideADelivery) {
  NotificationCenter center;
  std::string told;
  NotificationCenter::Token second = 0;
  NotificationCenter::Token self = 0;
  self = center.addObserver(nullptr, "n", [&](const Notification&) {
    told += 'a';
    center.removeObserver(self);
    center.removeObserver(second);
    center.addObserver(nullptr, "n", [&](const Notification&) { told += 'n'; });
    center.post("m", nullptr, nullptr);
  });
  second = center.addObserver(nullptr, "n", [&](const Notification&) { told += 'b'; });
  center.addObserver(nullptr, "m", [&](const Notification&) { told += 'm'; });
  center.post("n", nullptr, nullptr);
  EXPECT_EQ(told, "am") << "the removed one was told, or the new one too early";
  center.post("n", nullptr, nullptr);
  EXPECT_EQ(told, "amn");
}

TEST(NotificationCenter, TakesPostsFromManyThreads) {
  NotificationCenter center;
  std::atomic<int> told{0};
  center.addObserver(nullptr, "n", [&](const Notification&) { ++told; });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 500; ++n) {
        const auto token = center.addObserver(nullptr, "other", [](const Notification&) {});
        center.post("n", nullptr, nullptr);
        center.removeObserver(token);
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(told, 2000);
}
TEST(NotificationCenter, ObserversComeAndGoWhileOthersPost) {
  NotificationCenter center;
  std::atomic<bool> stop{false};
  std::atomic<int> toldOfOther{0};
  center.addObserver(nullptr, "n", [&](const Notification&) { ++toldOfOther; });
  int posts = 0;
  std::thread poster([&] {
    do {
      center.post("n", nullptr, nullptr);
      ++posts;
    } while (!stop);
  });
  for (int i = 0; i < 2000; ++i) {
    const auto token = center.addObserver(nullptr, "n", [](const Notification&) {});
    EXPECT_TRUE(center.removeObserver(token));
    EXPECT_FALSE(center.removeObserver(token));
  }
  stop = true;
  poster.join();
  EXPECT_EQ(toldOfOther, posts) << "a delivery left out the observer that stayed, or told it twice";
}

TEST(NotificationCenter, ReleasesWhatARemovedHandlerHolds) {
  NotificationCenter center;
  // Releasing it comes back to the center, which must hold no lock then.
  struct Caller {
    NotificationCenter& center;
    ~Caller() { center.post("released", nullptr, nullptr); }
  };
  int released = 0;
  center.addObserver(nullptr, "released", [&](const Notification&) { ++released; });
  auto caller = std::make_shared<Caller>(center);
  const auto token = center.addObserver(nullptr, "n", [caller](const Notification&) {});
  caller.reset();
  EXPECT_EQ(released, 0);
  center.removeObserver(token);
  EXPECT_EQ(released, 1);
}

TEST(NotificationCenter, WritesTheUserInfoWhenAskedAndOnce) {
  NotificationCenter center;
  Dictionary info{{"k", 0}};
  // A change between the observers shows when the text was written.
  center.addObserver(nullptr, "n", [&](const Notification&) { info.set("k", 1); });
  center.addObserver(nullptr, "n", [&](const Notification& told) {
    EXPECT_STREQ(told.userInfoText(), "{\"k\":1}");
    info.set("k", 2);
  });
  int told = 0;
  center.addObserver(nullptr, "n", [&](const Notification& notification) {
    EXPECT_STREQ(notification.userInfoText(), "{\"k\":1}");
    ++told;
  });
  center.post("n", nullptr, &info);
  EXPECT_EQ(told, 1);
  NotificationCenter other;
  other.addObserver(nullptr, "n", [&](const Notification& notification) {
    EXPECT_EQ(notification.userInfoText(), nullptr);
    ++told;
  });
  other.post("n", nullptr, nullptr);
  EXPECT_EQ(told, 2);
}

}  // namespace
