// The report of pools and tasks in a library in which the one line that switches it on is not commented out: what the
// fifteen functions write to the trace.

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "httpPool/ZEP_HttpPool.h"
#include "tests/host/HostPool.h"
#include "tests/host/TraceGuard.h"

namespace test {
namespace {

/// The documents written so far, every number in them replaced by N and every date by D.
std::vector<std::string> documents() {
  std::vector<std::string> documents;
  for (const std::string& text : tracedTexts()) {
    if (text.starts_with("[{")) {
      const std::string dated = std::regex_replace(
          text, std::regex(R"("baseTime":"[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9:]{8} [0-9]{4}")"),
          R"("baseTime":"D")");
      documents.push_back(std::regex_replace(dated, std::regex(R"(:[0-9]+)"), ":N"));
    }
  }
  return documents;
}

bool turnUntilDocuments(std::size_t count) {
  return turnUntil([count] { return documents().size() >= count; });
}

std::string pool(const std::string& name, const std::string& laterEvents, const std::string& tasks = "") {
  return R"({"age":N,"baseTime":"D","log":[{"event":"created","time":N})" + laterEvents +
         R"(],"milliTime":N,"poolName":")" + name + "\"" +
         (tasks.empty() ? "" : R"(,"tasks":[)" + tasks + "]") + "}";
}

std::string task(const std::string& name, const std::string& laterEvents) {
  return R"({"log":[{"event":"create","time":N})" + laterEvents + R"(],"name":")" + name + "\"}";
}

TEST(Report, FollowsPoolsAndTasksOnceItIsSwitchedOn) {
  const std::string submit = R"(,{"event":"submit","time":N})";
  const std::string response = R"(,{"event":"gotResp","time":N})";
  const std::string destroyed = R"(,{"event":"destoryed","time":N})";
  const std::string end = "]\n\n";

  ZEP_HttpPool_Create("a");
  ZEP_HttpPool_Create("b");
  ZEP_HttpPool_AddTask("a", "job");
  ZEP_HttpPool_AddTask("a", "job");
  ZEP_HttpPool_TaskRun("a", "job", nullptr);
  ZEP_HttpPool_GetTaskProperty("a", "job", ZEP_HTTP_TASK_PROP_URL, nullptr, nullptr);
  ZEP_HttpPool_GetTaskProperty("a", "job", ZEP_HTTP_TASK_PROP_RESULT, nullptr, nullptr);
  ZEP_HttpPool_GetTaskProperty("a", "none", ZEP_HTTP_TASK_PROP_RESULT, nullptr, nullptr);
  ZEP_HttpPool_TaskRun("none", "job", nullptr);
  std::vector<std::string> expected = {
      "[" + pool("a", "") + end,
      "[" + pool("a", "") + "," + pool("b", "") + end,
      "[" + pool("a", "", task("job", "")) + "," + pool("b", "") + end,
      "[" + pool("a", "", task("job", submit)) + "," + pool("b", "") + end,
      "[" + pool("a", "", task("job", submit + response)) + "," + pool("b", "") + end,
  };
  EXPECT_EQ(documents(), expected);

  ZEP_HttpPool_Destroy("b");
  ASSERT_TRUE(turnUntilDocuments(expected.size() + 1));
  expected.push_back("[" + pool("a", "", task("job", submit + response)) + "," + pool("b", destroyed) + end);
  EXPECT_EQ(documents(), expected);

  ZEP_HttpPool_Destroy("a");
  ASSERT_TRUE(turnUntilDocuments(expected.size() + 1));
  expected.push_back("[" + pool("a", destroyed, task("job", submit + response)) + end);
  EXPECT_EQ(documents(), expected);

  ZEP_HttpPool_Create("c");
  expected.push_back("[" + pool("a", destroyed, task("job", submit + response)) + "," + pool("c", "") + end);
  EXPECT_EQ(documents(), expected);
}

TEST(Report, IsHeldBackWithTheDebugLines) {
  setenv("TRACE_RECORD_LEVEL", "2", 1);
  ZEP_HttpPool_Create("a");
  EXPECT_EQ(documents().size(), 0U);
  setenv("TRACE_RECORD_LEVEL", "1", 1);
  ZEP_HttpPool_Create("b");
  EXPECT_EQ(documents(), std::vector<std::string>{"[" + pool("a", "") + "," + pool("b", "") + "]\n\n"});
}

}  // namespace
}  // namespace test
