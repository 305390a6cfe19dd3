// A running task that is reset, removed, cleared, or destroyed with its pool: its request ends, and nothing
// is heard of it any more.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#include "tests/host/HostPool.h"
#include "tests/support/NginxServer.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

constexpr const char* kTask = "task";

/// So that a request that nobody ends stays.
void neverTimeOut() {
  setenv("ZEP_URL_TIMEOUT_MS", "3600000", 1);
}

/// Where the request stands when it is ended.
enum class Step { JustLaunched, WaitingForTheAnswer, InTheBody };

struct Way {
  const char* name;
  std::function<void(HostPool&)> end;
  ZEP_HTTP_TASK_STATUS statusAfter;
};

const Way kWays[] = {
    {"Reset", [](HostPool& pool) { ZEP_HttpPool_TaskReset(pool.name().c_str(), kTask); },
     ZEP_HTTP_TASK_UNINITIALIZED},
    {"Remove", [](HostPool& pool) { ZEP_HttpPool_RemoveTask(pool.name().c_str(), kTask); },
     ZEP_HTTP_TASK_NOT_EXIST},
    {"Clear", [](HostPool& pool) { ZEP_HttpPool_ClearTask(pool.name().c_str()); }, ZEP_HTTP_TASK_NOT_EXIST},
    {"Destroy", [](HostPool& pool) { ZEP_HttpPool_Destroy(pool.name().c_str()); }, kNotWritten},
};

class Cancel : public testing::TestWithParam<std::tuple<int, Step>> {
 protected:
  const Way& way() const { return kWays[std::get<0>(GetParam())]; }
  Step step() const { return std::get<1>(GetParam()); }
  const char* target() const { return step() == Step::InTheBody ? "/half" : "/silent"; }
};

TEST_P(Cancel, EndsTheRequestForGood) {
  neverTimeOut();
  NginxServer server;
  HostPool pool;
  pool.add(kTask, {.url = server.url(target())});
  ASSERT_EQ(pool.launch(kTask), ZEP_HTTP_TASK_REQUESTING);
  if (step() != Step::JustLaunched) {
    ASSERT_TRUE(turnUntil([&] { return server.openConnections() == 1; }));
    turnFor(std::chrono::milliseconds(200));
    ASSERT_EQ(pool.status(kTask), ZEP_HTTP_TASK_REQUESTING);
  }
  way().end(pool);
  EXPECT_EQ(pool.status(kTask), way().statusAfter);

  // A destroyed pool is deleted on a later beat of its thread's run loop.
  EXPECT_TRUE(turnUntil([&] { return server.openConnections() == 0; }));
  turnFor(std::chrono::milliseconds(400));
  const bool isStillThere = way().statusAfter == ZEP_HTTP_TASK_UNINITIALIZED;
  const long before = pool.notifications();
  turnFor(std::chrono::milliseconds(400));
  EXPECT_EQ(pool.notifications() > before, isStillThere);
  EXPECT_EQ(pool.status(kTask), way().statusAfter);
  EXPECT_EQ(pool.outcome(kTask), Outcome{});
  if (step() != Step::JustLaunched) {
    const auto accesses = server.accesses(target());
    ASSERT_EQ(accesses.size(), 1U);
    EXPECT_EQ(accesses[0].status, step() == Step::InTheBody ? 200 : 499);
  }
}

std::string caseName(const testing::TestParamInfo<std::tuple<int, Step>>& info) {
  const char* const steps[] = {"JustLaunched", "WaitingForTheAnswer", "InTheBody"};
  return std::string(kWays[std::get<0>(info.param)].name) + steps[static_cast<int>(std::get<1>(info.param))];
}

INSTANTIATE_TEST_SUITE_P(All, Cancel,
                         testing::Combine(testing::Range(0, 4),
                                          testing::Values(Step::JustLaunched, Step::WaitingForTheAnswer,
                                                          Step::InTheBody)),
                         caseName);

TEST(CancelAlone, ResetTakesEffectWithoutATurnOfTheRunLoop) {
  NginxServer server;
  HostPool pool;
  pool.add(kTask, {.url = server.url("/silent")});
  pool.launch(kTask);
  ASSERT_TRUE(server.waitForOpenConnections(1));
  ZEP_HttpPool_TaskReset(pool.name().c_str(), kTask);
  EXPECT_TRUE(server.waitForOpenConnections(0));
  EXPECT_EQ(server.accesses("/silent").size(), 1U);
}

TEST(CancelAlone, ResetTaskRunsAgain) {
  NginxServer server;
  HostPool pool;
  pool.add(kTask, {.url = server.url("/silent")});
  pool.launch(kTask);
  ASSERT_TRUE(server.waitForOpenConnections(1));
  ZEP_HttpPool_TaskReset(pool.name().c_str(), kTask);
  pool.set(kTask, ZEP_HTTP_TASK_PROP_URL, server.url("/text"));
  EXPECT_EQ(pool.launch(kTask), ZEP_HTTP_TASK_REQUESTING);
  ASSERT_TRUE(pool.await());
  EXPECT_EQ(pool.outcome(kTask), done("Hello, pool!"));
}

// The answers are there already when the tasks are reset: none of them may be reported afterwards.
TEST(CancelAlone, AnswerThatWaitsForTheHostIsForgotten) {
  NginxServer server;
  HostPool pool;
  for (const char* target : {"/text", "/status/500", "/cut", "/big?bytes=100000"}) {
    pool.add(target, {.url = server.url(target)});
    pool.launch(target);
  }
  ASSERT_TRUE(waitUntil([&] { return server.accesses().size() == 4; }));
  for (const char* target : {"/text", "/status/500", "/cut", "/big?bytes=100000"}) {
    ZEP_HttpPool_TaskReset(pool.name().c_str(), target);
  }
  turnFor(std::chrono::milliseconds(300));
  for (const char* target : {"/text", "/status/500", "/cut", "/big?bytes=100000"}) {
    EXPECT_EQ(pool.status(target), ZEP_HTTP_TASK_UNINITIALIZED) << target;
    EXPECT_EQ(pool.property(target, ZEP_HTTP_TASK_PROP_RESULT), "") << target;
  }
}

TEST(CancelAlone, HundredRunningTasksAreClearedTogether) {
  NginxServer server;
  HostPool pool;
  for (int task = 0; task < 100; ++task) {
    pool.add(std::to_string(task), {.url = server.url("/silent")});
    pool.launch(std::to_string(task));
  }
  ASSERT_TRUE(server.waitForOpenConnections(100));
  ZEP_HttpPool_ClearTask(pool.name().c_str());
  EXPECT_EQ(taskList(pool.name()), "[]");
  EXPECT_TRUE(server.waitForOpenConnections(0));
  EXPECT_EQ(server.accesses("/silent").size(), 100U);
}

TEST(RunAgain, AfterDoneWithoutAReset) {
  NginxServer server;
  HostPool pool;
  pool.add(kTask, {.url = server.url("/text")});
  pool.launch(kTask);
  ASSERT_TRUE(pool.await());
  ASSERT_EQ(pool.outcome(kTask), done("Hello, pool!"));
  pool.set(kTask, ZEP_HTTP_TASK_PROP_URL, server.url("/utf8"));
  EXPECT_EQ(pool.launch(kTask), ZEP_HTTP_TASK_REQUESTING);
  ASSERT_TRUE(pool.await());
  EXPECT_EQ(pool.outcome(kTask), done("Grüße, 世界 🌍"));
}

TEST(RunAgain, AfterAFailure) {
  NginxServer server;
  HostPool pool;
  pool.add(kTask, {.url = server.url("/status/500")});
  pool.launch(kTask);
  ASSERT_TRUE(pool.await());
  ASSERT_EQ(pool.outcome(kTask), failed(2));
  pool.set(kTask, ZEP_HTTP_TASK_PROP_URL, server.url("/text"));
  pool.launch(kTask);
  ASSERT_TRUE(pool.await());
  EXPECT_EQ(pool.outcome(kTask), done("Hello, pool!"));
}

TEST(RunAgain, ResetKeepsTheTextsAndForgetsTheBytes) {
  NginxServer server;
  HostPool pool;
  pool.add(kTask, {.url = server.url("/text"), .data = {'b'}});
  pool.launch(kTask);
  ASSERT_TRUE(pool.await());
  ZEP_HttpPool_TaskReset(pool.name().c_str(), kTask);
  EXPECT_EQ(pool.status(kTask), ZEP_HTTP_TASK_UNINITIALIZED);
  EXPECT_EQ(pool.property(kTask, ZEP_HTTP_TASK_PROP_RESULT), "Hello, pool!");
  EXPECT_EQ(pool.property(kTask, ZEP_HTTP_TASK_PROP_URL), server.url("/text"));
  EXPECT_EQ(taskList(pool.name()), "[{\"taskName\":\"task\",\"taskStatus\":\"uninitialized\"}]");
}

// Both requests go their way, and the task ends with the later one's answer.
TEST(RunAgain, WithoutWaitingForTheFirst) {
  NginxServer server;
  HostPool pool;
  pool.add(kTask, {.url = server.url("/late?ms=300")});
  EXPECT_EQ(pool.launch(kTask), ZEP_HTTP_TASK_REQUESTING);
  pool.set(kTask, ZEP_HTTP_TASK_PROP_URL, server.url("/late?ms=900"));
  EXPECT_EQ(pool.launch(kTask), ZEP_HTTP_TASK_REQUESTING);
  EXPECT_TRUE(turnUntil([&] { return pool.property(kTask, ZEP_HTTP_TASK_PROP_RESULT) == "late"; }));
  EXPECT_EQ(pool.status(kTask), ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(server.accesses("/late").size(), 2U);
}

TEST(RunAgain, HundredTimesWithoutWaiting) {
  NginxServer server;
  HostPool pool;
  pool.add(kTask, {.url = server.url("/late?ms=100")});
  for (int run = 0; run < 100; ++run) {
    ASSERT_EQ(pool.launch(kTask), ZEP_HTTP_TASK_REQUESTING);
  }
  EXPECT_TRUE(turnUntil([&] { return server.accesses("/late").size() == 100; }));
  EXPECT_TRUE(turnUntil([&] { return pool.property(kTask, ZEP_HTTP_TASK_PROP_RESULT) == "late"; }));
  EXPECT_EQ(pool.status(kTask), ZEP_HTTP_TASK_DONE);
}

}  // namespace
}  // namespace test
