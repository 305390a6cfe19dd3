// The fifteen functions: what they return, write and ignore, without a request being run.

#include <gtest/gtest.h>

#include <cstring>

#include "tests/host/HostPool.h"

namespace test {
namespace {

constexpr auto kUntouched = kNotWritten;

ZEP_HTTP_TASK_STATUS statusOf(const char* pool, const char* task) {
  ZEP_HTTP_TASK_STATUS status = kUntouched;
  EXPECT_EQ(ZEP_HttpPool_GetTaskStatus(pool, task, &status), 0);
  return status;
}

TEST(Interface, InitDoesNothing) {
  int first = 0;
  EXPECT_EQ(ZEP_HttpPool_Init(&first, nullptr), 0);
  EXPECT_EQ(ZEP_HttpPool_Init(nullptr, nullptr), 0);
  EXPECT_EQ(snapshot(), "[]");
}

TEST(Interface, SnapshotWithoutPoolsNeedsThreeBytes) {
  long size = 0;
  EXPECT_EQ(ZEP_HttpPool_GetSnapshot(nullptr, &size), 0);
  EXPECT_EQ(size, 3);
}

TEST(Interface, NullArgumentsAreNoOperations) {
  ZEP_HTTP_TASK_STATUS status = kUntouched;
  char buffer[16] = "untouched";
  long size = 16;
  const auto url = ZEP_HTTP_TASK_PROP_URL;
  EXPECT_EQ(ZEP_HttpPool_Create(nullptr), 0);
  EXPECT_EQ(snapshot(), "[]");
  ASSERT_EQ(ZEP_HttpPool_Create("pool"), 0);
  EXPECT_EQ(ZEP_HttpPool_SetPoolProc(nullptr, nullptr), 0);
  EXPECT_EQ(ZEP_HttpPool_SetPoolProc("pool", nullptr), 0);
  EXPECT_EQ(ZEP_HttpPool_Destroy(nullptr), 0);
  EXPECT_EQ(ZEP_HttpPool_AddTask(nullptr, "task"), 0);
  EXPECT_EQ(ZEP_HttpPool_AddTask("pool", nullptr), 0);
  EXPECT_EQ(taskList("pool"), "[]");
  ASSERT_EQ(ZEP_HttpPool_AddTask("pool", "task"), 0);
  for (const auto& [pool, task] :
       {std::pair<const char*, const char*>{nullptr, nullptr}, {nullptr, "task"}, {"pool", nullptr}}) {
    EXPECT_EQ(ZEP_HttpPool_RemoveTask(pool, task), 0);
    EXPECT_EQ(ZEP_HttpPool_TaskRun(pool, task, &status), 0);
    EXPECT_EQ(ZEP_HttpPool_TaskReset(pool, task), 0);
    EXPECT_EQ(ZEP_HttpPool_SetTaskProperty(pool, task, url, "x"), 0);
    EXPECT_EQ(ZEP_HttpPool_SetTaskDataProperty(pool, task, nullptr, 5), 0);
    EXPECT_EQ(ZEP_HttpPool_GetTaskProperty(pool, task, url, buffer, &size), 0);
    EXPECT_EQ(ZEP_HttpPool_GetTaskStatus(pool, task, nullptr), 0);
  }
  EXPECT_EQ(ZEP_HttpPool_ClearTask(nullptr), 0);
  EXPECT_EQ(ZEP_HttpPool_GetTaskList(nullptr, buffer, &size), 0);
  EXPECT_EQ(ZEP_HttpPool_GetTaskList("pool", nullptr, nullptr), 0);
  EXPECT_EQ(ZEP_HttpPool_GetSnapshot(nullptr, nullptr), 0);
  EXPECT_EQ(status, kUntouched);
  EXPECT_EQ(size, 16);
  EXPECT_STREQ(buffer, "untouched");
  EXPECT_EQ(statusOf("pool", "task"), ZEP_HTTP_TASK_UNINITIALIZED);
}

TEST(Interface, NullPropertyValueIsTheEmptyText) {
  HostPool pool;
  pool.add("task", {.url = "http://example.test/"});
  EXPECT_EQ(ZEP_HttpPool_SetTaskProperty("pool", "task", ZEP_HTTP_TASK_PROP_URL, nullptr), 0);
  EXPECT_EQ(pool.property("task", ZEP_HTTP_TASK_PROP_URL), "");
}

TEST(Interface, NullDataOrNoSizeIsNoData) {
  HostPool pool;
  pool.add("task", {.url = "http://127.0.0.1/a b"});
  const unsigned char byte = 'x';
  EXPECT_EQ(ZEP_HttpPool_SetTaskDataProperty("pool", "task", nullptr, 5), 0);
  EXPECT_EQ(ZEP_HttpPool_SetTaskDataProperty("pool", "task", &byte, 0), 0);
  EXPECT_EQ(ZEP_HttpPool_SetTaskDataProperty("pool", "task", &byte, -1), 0);
  EXPECT_EQ(pool.launch("task"), ZEP_HTTP_TASK_FAILED);
}

TEST(Interface, RunWithANullStatus) {
  HostPool pool;
  pool.add("task", {.url = "http://127.0.0.1/a b"});
  EXPECT_EQ(ZEP_HttpPool_TaskRun("pool", "task", nullptr), 0);
  EXPECT_EQ(pool.status("task"), ZEP_HTTP_TASK_FAILED);
}

TEST(Interface, UnknownNamesAreNoOperations) {
  HostPool pool;
  pool.add("task", {.url = "http://example.test/"});
  ZEP_HTTP_TASK_STATUS status = kUntouched;
  long size = 55;
  char buffer[4] = "abc";
  EXPECT_EQ(statusOf("pool", "unknown"), ZEP_HTTP_TASK_NOT_EXIST);
  EXPECT_EQ(statusOf("unknown", "task"), kUntouched);
  EXPECT_EQ(ZEP_HttpPool_TaskRun("pool", "unknown", &status), 0);
  EXPECT_EQ(ZEP_HttpPool_TaskRun("unknown", "task", &status), 0);
  EXPECT_EQ(status, kUntouched);
  EXPECT_EQ(ZEP_HttpPool_GetTaskList("unknown", buffer, &size), 0);
  EXPECT_EQ(ZEP_HttpPool_GetTaskProperty("unknown", "task", ZEP_HTTP_TASK_PROP_URL, buffer, &size), 0);
  EXPECT_EQ(ZEP_HttpPool_GetTaskProperty("pool", "unknown", ZEP_HTTP_TASK_PROP_URL, buffer, &size), 0);
  EXPECT_EQ(size, 55);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(ZEP_HttpPool_RemoveTask("pool", "unknown"), 0);
  EXPECT_EQ(ZEP_HttpPool_ClearTask("unknown"), 0);
  EXPECT_EQ(ZEP_HttpPool_TaskReset("unknown", "task"), 0);
  EXPECT_EQ(ZEP_HttpPool_Destroy("unknown"), 0);
  EXPECT_EQ(ZEP_HttpPool_SetPoolProc("unknown", nullptr), 0);
  EXPECT_EQ(ZEP_HttpPool_SetTaskProperty("pool", "unknown", ZEP_HTTP_TASK_PROP_URL, "x"), 0);
  EXPECT_EQ(taskList("pool"), "[{\"taskName\":\"task\",\"taskStatus\":\"uninitialized\"}]");
}

TEST(Interface, NamesAreComparedByteByByte) {
  HostPool pool("Pool");
  pool.add("Task", {.url = ""});
  EXPECT_EQ(statusOf("pool", "Task"), kUntouched);
  EXPECT_EQ(statusOf("Pool", "task"), ZEP_HTTP_TASK_NOT_EXIST);
  EXPECT_EQ(statusOf("Pool", "Task"), ZEP_HTTP_TASK_UNINITIALIZED);
  EXPECT_EQ(statusOf("Pool", "Task "), ZEP_HTTP_TASK_NOT_EXIST);
}

TEST(Interface, SettablePropertiesAreKept) {
  HostPool pool;
  pool.add("task", {.url = ""});
  for (const int number : {1, 2, 3, 4, 5, 6, 8, 9}) {
    pool.set("task", number, "value " + std::to_string(number));
  }
  for (const int number : {1, 2, 3, 4, 5, 6, 8, 9}) {
    EXPECT_EQ(pool.property("task", number), "value " + std::to_string(number));
  }
}

TEST(Interface, OtherPropertiesAreIgnored) {
  HostPool pool;
  pool.add("task", {.url = ""});
  for (const int number : {7, 10, 0, -1, 11, 1000, -2147483647}) {
    pool.set("task", number, "value");
    EXPECT_EQ(pool.property("task", number), "") << number;
  }
}

TEST(Interface, PropertyIsCopiedWithoutATerminator) {
  HostPool pool;
  pool.add("task", {.url = "0123456789"});
  const auto url = ZEP_HTTP_TASK_PROP_URL;
  char buffer[16];
  std::memset(buffer, '#', sizeof(buffer));
  long size = 4;
  EXPECT_EQ(ZEP_HttpPool_GetTaskProperty("pool", "task", url, buffer, &size), 10);
  EXPECT_EQ(size, 4);
  EXPECT_EQ(std::string(buffer, sizeof(buffer)), "0123############");
  size = 16;
  EXPECT_EQ(ZEP_HttpPool_GetTaskProperty("pool", "task", url, buffer, &size), 10);
  EXPECT_EQ(size, 16);
  EXPECT_EQ(std::string(buffer, sizeof(buffer)), "0123456789######");
}

TEST(Interface, PropertyLengthIsToldWithoutABuffer) {
  HostPool pool;
  pool.add("task", {.url = "0123456789"});
  const auto url = ZEP_HTTP_TASK_PROP_URL;
  char buffer[16] = "untouched";
  long size = 16;
  EXPECT_EQ(ZEP_HttpPool_GetTaskProperty("pool", "task", url, nullptr, &size), 10);
  EXPECT_EQ(ZEP_HttpPool_GetTaskProperty("pool", "task", url, buffer, nullptr), 10);
  EXPECT_EQ(ZEP_HttpPool_GetTaskProperty("pool", "task", url, nullptr, nullptr), 10);
  size = -5;
  EXPECT_EQ(ZEP_HttpPool_GetTaskProperty("pool", "task", url, buffer, &size), 10);
  EXPECT_EQ(size, -5);
  EXPECT_STREQ(buffer, "untouched");
}

TEST(Interface, JsonTextsIgnoreTheGivenSize) {
  HostPool pool;
  pool.add("t1", {.url = ""});
  const std::string expected = "[{\"taskName\":\"t1\",\"taskStatus\":\"uninitialized\"}]";
  std::string buffer(expected.size() + 2, '#');
  for (const long given : {0L, 1L, -9L, 100000L}) {
    long size = given;
    EXPECT_EQ(ZEP_HttpPool_GetTaskList("pool", buffer.data(), &size), 0);
    EXPECT_EQ(size, static_cast<long>(expected.size() + 1));
    EXPECT_EQ(buffer, expected + '\0' + '#');
  }
  std::string untouched = "#";
  EXPECT_EQ(ZEP_HttpPool_GetTaskList("pool", untouched.data(), nullptr), 0);
  EXPECT_EQ(ZEP_HttpPool_GetSnapshot(untouched.data(), nullptr), 0);
  EXPECT_EQ(untouched, "#");
}

TEST(Interface, SnapshotHoldsAllPoolsInTheirOrder) {
  HostPool b("b");
  HostPool a("a");
  b.add("t2", {.url = "http://127.0.0.1/a b"});
  b.add("t1", {.url = ""});
  b.launch("t2");
  EXPECT_EQ(snapshot(),
            "[{\"poolName\":\"b\",\"taskList\":[{\"taskName\":\"t2\",\"taskStatus\":\"task failed\"},"
            "{\"taskName\":\"t1\",\"taskStatus\":\"uninitialized\"}]},{\"poolName\":\"a\",\"taskList\":[]}]");
}

TEST(Interface, NamesAreEscapedInJson) {
  HostPool pool("quo\"te\\");
  pool.add("tab\t\xC3\xBC", {.url = ""});
  EXPECT_EQ(snapshot(),
            "[{\"poolName\":\"quo\\\"te\\\\\",\"taskList\":[{\"taskName\":\"tab\\t\xC3\xBC\",\"taskStatus\":"
            "\"uninitialized\"}]}]");
}

TEST(Interface, TaskIsAddedOnce) {
  HostPool pool;
  pool.add("task", {.url = "first"});
  EXPECT_EQ(ZEP_HttpPool_AddTask("pool", "task"), 0);
  EXPECT_EQ(pool.property("task", ZEP_HTTP_TASK_PROP_URL), "first");
  EXPECT_EQ(taskList("pool"), "[{\"taskName\":\"task\",\"taskStatus\":\"uninitialized\"}]");
}

TEST(Interface, OlderOfTwoPoolsOfOneNameIsFoundFirst) {
  ZEP_HttpPool_Create("twin");
  ZEP_HttpPool_AddTask("twin", "older");
  ZEP_HttpPool_Create("twin");
  EXPECT_EQ(statusOf("twin", "older"), ZEP_HTTP_TASK_UNINITIALIZED);
  ZEP_HttpPool_Destroy("twin");
  EXPECT_EQ(statusOf("twin", "older"), ZEP_HTTP_TASK_NOT_EXIST);
  EXPECT_EQ(snapshot(), "[{\"poolName\":\"twin\",\"taskList\":[]}]");
  ZEP_HttpPool_Destroy("twin");
  EXPECT_EQ(snapshot(), "[]");
  EXPECT_EQ(statusOf("twin", "older"), kUntouched);
}

}  // namespace
}  // namespace test
