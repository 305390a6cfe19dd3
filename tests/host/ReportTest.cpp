// The report of pools and tasks in a library in which the one line that switches it on is not commented out: what the
// fifteen functions write to the trace.

#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>

#include "httpPool/ZEP_HttpPool.h"
#include "tests/host/HostPool.h"
#include "tests/host/TraceGuard.h"

namespace test {
namespace {

/// The document with D for every date and N for every number.
std::string withoutTimes(const std::string& document) {
  const std::string date = R"("baseTime":"Www Mmm dd hh:mm:ss yyyy")";
  const std::string dateKey = date.substr(0, date.find('W'));
  std::string text;
  for (std::size_t at = 0; at < document.size();) {
    if (document.compare(at, dateKey.size(), dateKey) == 0) {
      EXPECT_EQ(document.at(at + date.size() - 1), '"') << document.substr(at, date.size());
      text += dateKey + "D\"";
      at += date.size();
    } else if (document[at] == ':' && std::isdigit(static_cast<unsigned char>(document[at + 1])) != 0) {
      text += ":N";
      at = document.find_first_not_of("0123456789", at + 1);
    } else {
      text += document[at++];
    }
  }
  return text;
}

/// The documents written so far.
std::vector<std::string> documents() {
  std::vector<std::string> documents;
  for (const std::string& text : tracedTexts()) {
    if (text.starts_with("[{")) {
      documents.push_back(withoutTimes(text));
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
