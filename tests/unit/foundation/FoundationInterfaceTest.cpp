// The plain C face.

#include <gtest/gtest.h>

#include <cstring>
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

}  // namespace
