// The end of a process whose requests are still running.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>

#include "Turning.h"
#include "httpPool/ZEP_HttpPool.h"
#include "tests/support/RawServer.h"

namespace {

void exitWithRunningRequests() {
  static std::atomic<int> requests = 0;
  // Never stopped: it serves until the process is gone.
  auto* server = new test::RawServer([](test::RawServer::Connection& connection) {
    connection.readRequest();
    ++requests;
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.send("more")) {
    }
  });
  const std::string url = server->url("/");
  ZEP_HttpPool_Create("p");
  constexpr int kTasks = 5;
  for (int i = 0; i < kTasks; ++i) {
    const std::string task = std::to_string(i);
    ZEP_HttpPool_AddTask("p", task.c_str());
    ZEP_HttpPool_SetTaskProperty("p", task.c_str(), ZEP_HTTP_TASK_PROP_URL, url.c_str());
    ZEP_HttpPool_TaskRun("p", task.c_str(), nullptr);
  }
  const bool areRunning = turnUntil([] { return requests == kTasks; });
  std::exit(areRunning ? 3 : 4);
}

TEST(ExitDeathTest, RunningRequestsNeitherCrashNorHangTheExit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitWithRunningRequests(), testing::ExitedWithCode(3), "");
}

}  // namespace
