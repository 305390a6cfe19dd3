// The plain C face.

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <thread>

#include "foundation/ZEP_Foundation.h"
#include "foundation/base/Dictionary.h"
#include "foundation/notification/NotificationCenter.h"
#include "foundation/runloop/RunLoop.h"
#include "foundation/runloop/ThreadRunLoop.h"
#include "tests/unit/foundation/MainContext.h"

namespace {

struct Told {
  int count = 0;
  std::string name;
  const void* object = nullptr;
  std::string userInfo;
  bool hadUserInfo = false;
};

void note(const char* name, const void* object, const char* userInfo, void* context) {
  auto& told = *static_cast<Told*>(context);
  ++told.count;
  told.name = name;
  told.object = object;
  told.hadUserInfo = userInfo != nullptr;
  told.userInfo = userInfo != nullptr ? userInfo : "";
}

TEST(FoundationInterface, NotificationsCarryJsonTexts) {
  Told told;
  const long token = ZEP_Notification_AddObserver("c.json", note, &told);
  ASSERT_GT(token, 0);
  EXPECT_EQ(ZEP_Notification_Post("c.json", &told, "{ \"b\": [1, true], \"a\": \"\\u00e4\" }"), 0);
  EXPECT_EQ(told.name, "c.json");
  EXPECT_EQ(told.object, &told);
  EXPECT_EQ(told.userInfo, "{\"b\":[1,true],\"a\":\"\xc3\xa4\"}");
  EXPECT_EQ(ZEP_Notification_Post("c.json", nullptr, nullptr), 0);
  EXPECT_FALSE(told.hadUserInfo);
  EXPECT_EQ(ZEP_Notification_Post("c.json", nullptr, "{}"), 0);
  EXPECT_TRUE(told.hadUserInfo);
  EXPECT_EQ(told.count, 3);
  EXPECT_EQ(ZEP_Notification_RemoveObserver(token), 0);
  EXPECT_EQ(ZEP_Notification_Post("c.json", nullptr, nullptr), 0);
  EXPECT_EQ(told.count, 3);
}

TEST(FoundationInterface, NotificationsMeetTheLibrarysOwn) {
  Told told;
  const long token = ZEP_Notification_AddObserver("c.meet", note, &told);
  const foundation::Dictionary info{{"ShowWarningMsg", "true"}, {"AuthRequiringType", 4}};
  foundation::NotificationCenter::defaultCenter().post("c.meet", &info, &info);
  EXPECT_EQ(told.userInfo, "{\"ShowWarningMsg\":\"true\",\"AuthRequiringType\":4}");
  ZEP_Notification_RemoveObserver(token);
}

TEST(FoundationInterface, NotificationsRefuseBadInput) {
  Told told;
  EXPECT_EQ(ZEP_Notification_AddObserver(nullptr, note, &told), -1);
  EXPECT_EQ(ZEP_Notification_AddObserver("c.bad", nullptr, &told), -1);
  EXPECT_EQ(ZEP_Notification_RemoveObserver(0), -1);
  EXPECT_EQ(ZEP_Notification_RemoveObserver(-5), -1);
  const long token = ZEP_Notification_AddObserver("c.bad", note, &told);
  EXPECT_EQ(ZEP_Notification_Post(nullptr, nullptr, nullptr), -1);
  for (const char* text : {"", "[]", "1", "null", "{", "{\"a\"}", "{\"a\":\"\xff\"}"}) {
    EXPECT_EQ(ZEP_Notification_Post("c.bad", nullptr, text), -2) << text;
  }
  EXPECT_EQ(told.count, 0);
  EXPECT_EQ(ZEP_Notification_RemoveObserver(token), 0);
  EXPECT_EQ(ZEP_Notification_RemoveObserver(token), -1);
}

TEST(FoundationInterface, TheLoopRunsForItsTime) {
  MainContext context;
  const gint64 start = g_get_monotonic_time();
  EXPECT_EQ(ZEP_RunLoop_Run(30), 0);
  EXPECT_GE(g_get_monotonic_time() - start, 30'000);
  bool ran = false;
  foundation::RunLoop::current()->perform([&] { ran = true; });
  EXPECT_EQ(ZEP_RunLoop_Run(0), 0);
  EXPECT_TRUE(ran);
}

TEST(FoundationInterface, TheLoopCanBeStopped) {
  MainContext context;
  EXPECT_EQ(ZEP_RunLoop_Stop(), -1);
  foundation::RunLoop::current()->perform([] { EXPECT_EQ(ZEP_RunLoop_Stop(), 0); });
  EXPECT_EQ(ZEP_RunLoop_Run(-1), 1);
  EXPECT_EQ(ZEP_RunLoop_Stop(), -1);
}

TEST(FoundationInterface, RunsNestAndTheInnermostIsStopped) {
  MainContext context;
  long inner = -9;
  foundation::RunLoop::current()->perform([&] {
    foundation::RunLoop::current()->perform([] { ZEP_RunLoop_Stop(); });
    inner = ZEP_RunLoop_Run(-1);
    foundation::RunLoop::current()->perform([] { ZEP_RunLoop_Stop(); });
  });
  EXPECT_EQ(ZEP_RunLoop_Run(-1), 1);
  EXPECT_EQ(inner, 1);
}

TEST(FoundationInterface, ALoopHasOneThread) {
  ASSERT_TRUE(g_main_context_acquire(nullptr));
  std::thread([] { EXPECT_EQ(ZEP_RunLoop_Run(0), -1); }).join();
  g_main_context_release(nullptr);
  std::thread([] { EXPECT_EQ(ZEP_RunLoop_Run(0), 0); }).join();
}

TEST(FoundationInterface, TheLibrarysOwnThreadsHaveNoLoopToRun) {
  const foundation::ThreadRunLoop::Scope scope;
  EXPECT_EQ(ZEP_RunLoop_Run(0), -1);
}
TEST(FoundationInterface, TheTextIsWrittenOnceForAllObservers) {
  auto& center = foundation::NotificationCenter::defaultCenter();
  foundation::Dictionary info{{"k", 1}};
  Told first, second;
  const long one = ZEP_Notification_AddObserver("c.once", note, &first);
  // A change between the observers shows when the text was written.
  const auto change =
      center.addObserver(nullptr, "c.once", [&](const foundation::Notification&) { info.set("k", 2); });
  const long other = ZEP_Notification_AddObserver("c.once", note, &second);
  center.post("c.once", nullptr, &info);
  EXPECT_EQ(first.userInfo, "{\"k\":1}");
  EXPECT_EQ(second.userInfo, "{\"k\":1}");
  ZEP_Notification_RemoveObserver(one);
  ZEP_Notification_RemoveObserver(other);
  center.removeObserver(change);
}

/// A source that is always ready, before everything of ordinary priority.
class BusySource {
 public:
  explicit BusySource(GMainContext* context) : source_(g_idle_source_new()) {
    g_source_set_priority(source_, G_PRIORITY_HIGH);
    g_source_set_callback(source_, &BusySource::count, &turns_, nullptr);
    g_source_attach(source_, context);
  }
  ~BusySource() {
    g_source_destroy(source_);
    g_source_unref(source_);
  }
  BusySource(const BusySource&) = delete;
  BusySource& operator=(const BusySource&) = delete;
  int turns() const { return turns_; }

 private:
  static gboolean count(gpointer turns) {
    ++*static_cast<int*>(turns);
    return G_SOURCE_CONTINUE;
  }
  GSource* source_;
  int turns_ = 0;
};

TEST(FoundationInterface, ARunEndsThoughSourcesStayReady) {
  MainContext context;
  const BusySource busy(context.get());
  EXPECT_EQ(ZEP_RunLoop_Run(0), 0);
  EXPECT_GT(busy.turns(), 0);
  EXPECT_EQ(ZEP_RunLoop_Run(5), 0);
}

TEST(FoundationInterface, ARunWithoutWaitingTurnsEveryPriority) {
  MainContext context;
  bool ranIdle = false;
  GSource* idle = g_idle_source_new();
  g_source_set_priority(idle, G_PRIORITY_LOW);
  g_source_set_callback(
      idle,
      [](gpointer ran) -> gboolean {
        *static_cast<bool*>(ran) = true;
        return G_SOURCE_REMOVE;
      },
      &ranIdle, nullptr);
  g_source_attach(idle, context.get());
  g_source_unref(idle);
  bool ran = false;
  foundation::RunLoop::current()->perform([&] { ran = true; });
  EXPECT_EQ(ZEP_RunLoop_Run(0), 0);
  EXPECT_TRUE(ran);
  EXPECT_TRUE(ranIdle);
}

TEST(FoundationInterface, ARunWithoutWaitingCanBeStopped) {
  MainContext context;
  int ran = 0;
  GSource* stop = g_idle_source_new();
  g_source_set_priority(stop, G_PRIORITY_HIGH - 1);
  g_source_set_callback(
      stop,
      [](gpointer count) -> gboolean {
        ++*static_cast<int*>(count);
        EXPECT_EQ(ZEP_RunLoop_Stop(), 0);
        return G_SOURCE_CONTINUE;
      },
      &ran, nullptr);
  g_source_attach(stop, context.get());
  EXPECT_EQ(ZEP_RunLoop_Run(0), 1);
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(ZEP_RunLoop_Run(60'000), 1);
  EXPECT_EQ(ran, 2);
  g_source_destroy(stop);
  g_source_unref(stop);
}

TEST(FoundationInterface, AnyTimeIsAccepted) {
  for (const long milliseconds : {std::numeric_limits<long>::min(), std::numeric_limits<long>::max()}) {
    MainContext context;
    // Some turns on, so that an end that lies in the past would come first.
    int turns = 0;
    std::function<void()> again = [&] {
      ++turns == 5 ? static_cast<void>(ZEP_RunLoop_Stop())
                   : foundation::RunLoop::current()->perform(std::function<void()>(again));
    };
    foundation::RunLoop::current()->perform(std::function<void()>(again));
    EXPECT_EQ(ZEP_RunLoop_Run(milliseconds), 1);
  }
}

}  // namespace
