// The fifteen exported functions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Allocations.h"
#include "TraceLog.h"
#include "httpPool/Global.h"
#include "httpPool/MacDownloadEngine.h"
#include "httpPool/ZEP_HttpPool.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Function {
  const char* name;
  std::function<long()> call;
};

void ignore(ZEP_HTTP_POOL_TASK_NOTIFY, const char*, const char*, const char*) {
}

/// All but Init, called for a pool that does not exist.
std::vector<Function> functions() {
  return {
      {"ZEP_HttpPool_Create", [] { return ZEP_HttpPool_Create(nullptr); }},
      {"ZEP_HttpPool_SetPoolProc", [] { return ZEP_HttpPool_SetPoolProc("x", &ignore); }},
      {"ZEP_HttpPool_Destroy", [] { return ZEP_HttpPool_Destroy("x"); }},
      {"ZEP_HttpPool_AddTask", [] { return ZEP_HttpPool_AddTask("x", "t"); }},
      {"ZEP_HttpPool_RemoveTask", [] { return ZEP_HttpPool_RemoveTask("x", "t"); }},
      {"ZEP_HttpPool_ClearTask", [] { return ZEP_HttpPool_ClearTask("x"); }},
      {"ZEP_HttpPool_GetTaskList", [] { return ZEP_HttpPool_GetTaskList("x", nullptr, nullptr); }},
      {"ZEP_HttpPool_GetSnapshot", [] { return ZEP_HttpPool_GetSnapshot(nullptr, nullptr); }},
      {"ZEP_HttpPool_TaskRun", [] { return ZEP_HttpPool_TaskRun("x", "t", nullptr); }},
      {"ZEP_HttpPool_TaskReset", [] { return ZEP_HttpPool_TaskReset("x", "t"); }},
      {"ZEP_HttpPool_SetTaskProperty",
       [] { return ZEP_HttpPool_SetTaskProperty("x", "t", ZEP_HTTP_TASK_PROP_URL, "u"); }},
      {"ZEP_HttpPool_SetTaskDataProperty",
       [] { return ZEP_HttpPool_SetTaskDataProperty("x", "t", nullptr, 0); }},
      {"ZEP_HttpPool_GetTaskProperty",
       [] { return ZEP_HttpPool_GetTaskProperty("x", "t", ZEP_HTTP_TASK_PROP_URL, nullptr, nullptr); }},
  };
}

class InterfaceTest : public testing::Test {
 protected:
  ~InterfaceTest() override {
    ZEP_HttpPool_Destroy("p");
    if (g_pGlobal) {
      g_pGlobal->OnTimer(10002);
    }
  }
};

TEST_F(InterfaceTest, TheInitializerHasMadeTheRegistry) {
  ASSERT_NE(g_pGlobal, nullptr);
  EXPECT_EQ(g_localizationStr, nullptr);
}

TEST_F(InterfaceTest, WithoutTheRegistryEveryFunctionButInitSaysSo) {
  CGlobal* const registry = g_pGlobal;
  g_pGlobal = nullptr;
  for (const Function& function : functions()) {
    EXPECT_EQ(function.call(), -1) << function.name;
  }
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  EXPECT_EQ(ZEP_HttpPool_GetTaskStatus("x", "t", &status), -1);
  EXPECT_EQ(status, ZEP_HTTP_TASK_STATUS_8);
  long size = 77;
  EXPECT_EQ(ZEP_HttpPool_GetSnapshot(nullptr, &size), -1);
  EXPECT_EQ(size, 77);
  EXPECT_EQ(ZEP_HttpPool_Init(nullptr, nullptr), 0);
  g_pGlobal = registry;
}

TEST_F(InterfaceTest, AnUnknownPoolIsNoError) {
  for (const Function& function : functions()) {
    EXPECT_EQ(function.call(), 0) << function.name;
  }
}

TEST_F(InterfaceTest, EveryFunctionTracesItsEntryAndExit) {
  for (const Function& function : functions()) {
    takeTrace();
    function.call();
    EXPECT_THAT(takeTrace(), ElementsAre(TraceLine{1, std::string("--> ") + function.name},
                                         TraceLine{1, std::string("<-- ") + function.name}));
  }
}

TEST_F(InterfaceTest, InitAndTheStatusQueryAreNotTraced) {
  takeTrace();
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  int anything = 0;
  EXPECT_EQ(ZEP_HttpPool_Init(&anything, &status), 0);
  EXPECT_EQ(ZEP_HttpPool_GetTaskStatus("x", "t", &status), 0);
  EXPECT_THAT(takeTrace(), IsEmpty());
}

TEST_F(InterfaceTest, AnEmptySnapshotTakesThreeBytes) {
  long size = 0;
  EXPECT_EQ(ZEP_HttpPool_GetSnapshot(nullptr, &size), 0);
  EXPECT_EQ(size, 3);
}

TEST_F(InterfaceTest, TheStatusQueryTellsAMissingTaskFromAMissingPool) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  ZEP_HttpPool_GetTaskStatus("p", "t", &status);
  EXPECT_EQ(status, ZEP_HTTP_TASK_STATUS_8);
  ZEP_HttpPool_Create("p");
  ZEP_HttpPool_GetTaskStatus("p", "t", &status);
  EXPECT_EQ(status, ZEP_HTTP_TASK_NOT_EXIST);
  EXPECT_EQ(ZEP_HttpPool_GetTaskStatus("p", "t", nullptr), 0);
}

TEST_F(InterfaceTest, APropertyIsReadThroughABufferOfAnySize) {
  ZEP_HttpPool_Create("p");
  ZEP_HttpPool_AddTask("p", "t");
  ZEP_HttpPool_SetTaskProperty("p", "t", ZEP_HTTP_TASK_PROP_EXTRA_2, "0123456789");
  char buffer[] = "########";
  long size = 4;
  EXPECT_EQ(ZEP_HttpPool_GetTaskProperty("p", "t", ZEP_HTTP_TASK_PROP_EXTRA_2, buffer, &size), 10);
  EXPECT_STREQ(buffer, "0123####");
  EXPECT_EQ(size, 4);
}

TEST_F(InterfaceTest, TheResultCannotBeSet) {
  ZEP_HttpPool_Create("p");
  ZEP_HttpPool_AddTask("p", "t");
  EXPECT_EQ(ZEP_HttpPool_SetTaskProperty("p", "t", ZEP_HTTP_TASK_PROP_RESULT, "value"), 0);
  EXPECT_EQ(ZEP_HttpPool_GetTaskProperty("p", "t", ZEP_HTTP_TASK_PROP_RESULT, nullptr, nullptr), 0);
}

TEST_F(InterfaceTest, AddingATaskWithoutANameDoesNothing) {
  ZEP_HttpPool_Create("p");
  EXPECT_EQ(ZEP_HttpPool_AddTask("p", nullptr), 0);
  long size = 0;
  ZEP_HttpPool_GetTaskList("p", nullptr, &size);
  EXPECT_EQ(size, 3);
}

TEST_F(InterfaceTest, TheStatusQueryDoesNotAllocate) {
  ZEP_HttpPool_Create("p");
  ZEP_HttpPool_AddTask("p", "a task whose name does not fit into a small string");
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  const long before = allocationsOfThisThread();
  ZEP_HttpPool_GetTaskStatus("p", "a task whose name does not fit into a small string", &status);
  EXPECT_EQ(allocationsOfThisThread(), before);
  EXPECT_EQ(status, ZEP_HTTP_TASK_UNINITIALIZED);
}

TEST_F(InterfaceTest, StatusesPropertiesAndNotificationsHaveTheirNumbers) {
  EXPECT_EQ(ZEP_HTTP_TASK_UNINITIALIZED, 0);
  EXPECT_EQ(ZEP_HTTP_TASK_REQUESTING, 2);
  EXPECT_EQ(ZEP_HTTP_TASK_DONE, 3);
  EXPECT_EQ(ZEP_HTTP_TASK_NOT_EXIST, 4);
  EXPECT_EQ(ZEP_HTTP_TASK_FAILED, 5);
  EXPECT_EQ(ZEP_HTTP_TASK_TIMEOUT, 6);
  EXPECT_EQ(ZEP_HTTP_TASK_API_ERROR, 7);
  EXPECT_EQ(ZEP_HTTP_TASK_REDIRECTED, 9);
  EXPECT_EQ(ZEP_HTTP_TASK_PROP_HEADER_FIELDS, 1);
  EXPECT_EQ(ZEP_HTTP_TASK_PROP_URL, 5);
  EXPECT_EQ(ZEP_HTTP_TASK_PROP_POST_DATA, 6);
  EXPECT_EQ(ZEP_HTTP_TASK_PROP_RESULT, 7);
  EXPECT_EQ(ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, 8);
  EXPECT_EQ(ZEP_HTTP_TASK_PROP_EXTRA_9, 9);
  EXPECT_EQ(ZEP_HTTP_TASK_PROP_REDIRECT_URL, 10);
  EXPECT_EQ(ZEP_HTTP_POOL_TASK_NOTIFY_POLL, 0);
  EXPECT_EQ(sizeof(ZEP_HTTP_TASK_STATUS), 4U);
  EXPECT_EQ(sizeof(ZEP_HTTP_TASK_PROPERTY), 4U);
}

}  // namespace
