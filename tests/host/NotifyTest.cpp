// The pool's notify function: when it is called, and what a host may do inside it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "foundation/ZEP_Foundation.h"
#include "tests/host/HostPool.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

using Names = std::vector<std::string>;

/// Collects the first so many notifications' task names, doing something at each.
Names notifiedTasks(HostPool& pool, std::size_t count,
                    const std::function<void(const std::string&)>& action = nullptr) {
  Names names;
  pool.onNotify([&](const std::string& task) {
    if (names.size() < count) {
      names.push_back(task);
      if (action) {
        action(task);
      }
    }
  });
  turnUntil([&] { return names.size() >= count; });
  pool.onNotify(nullptr);
  return names;
}

TEST(Notify, CallsForEveryTaskInOrder) {
  HostPool pool;
  for (const char* task : {"b", "a", "c"}) {
    pool.add(task, {.url = ""});
  }
  EXPECT_EQ(notifiedTasks(pool, 6), (Names{"b", "a", "c", "b", "a", "c"}));
}

TEST(Notify, EmptyPoolIsSilent) {
  HostPool pool;
  turnFor(std::chrono::milliseconds(200));
  EXPECT_EQ(pool.notifications(), 0);
  pool.add("task", {.url = ""});
  EXPECT_TRUE(turnUntil([&] { return pool.notifications() > 0; }));
  ZEP_HttpPool_RemoveTask("pool", "task");
  const long before = pool.notifications();
  turnFor(std::chrono::milliseconds(200));
  EXPECT_EQ(pool.notifications(), before);
}

TEST(Notify, NullFunctionEndsTheCalls) {
  HostPool pool;
  pool.add("task", {.url = ""});
  ASSERT_TRUE(turnUntil([&] { return pool.notifications() > 0; }));
  ZEP_HttpPool_SetPoolProc("pool", nullptr);
  const long before = pool.notifications();
  turnFor(std::chrono::milliseconds(200));
  EXPECT_EQ(pool.notifications(), before);
}

TEST(Notify, DestroyedPoolIsNotifiedUntilItIsDeleted) {
  HostPool pool;
  pool.add("task", {.url = ""});
  ZEP_HttpPool_Destroy("pool");
  const long before = pool.notifications();
  turnFor(std::chrono::milliseconds(700));
  const long after = pool.notifications();
  EXPECT_GT(after, before);
  turnFor(std::chrono::milliseconds(300));
  EXPECT_EQ(pool.notifications(), after);
}

// The task that moves into the removed one's place has its turn at the next beat only.
TEST(Notify, TaskRemovedInside) {
  HostPool pool;
  for (const char* task : {"a", "b", "c"}) {
    pool.add(task, {.url = ""});
  }
  const Names names = notifiedTasks(pool, 4, [&](const std::string& task) {
    if (task == "a") {
      ZEP_HttpPool_RemoveTask("pool", "a");
    }
  });
  EXPECT_EQ(names, (Names{"a", "c", "b", "c"}));
}

TEST(Notify, TaskAddedInsideIsNotifiedInTheSameBeat) {
  HostPool pool;
  pool.add("a", {.url = ""});
  const Names names =
      notifiedTasks(pool, 4, [](const std::string&) { ZEP_HttpPool_AddTask("pool", "added"); });
  EXPECT_EQ(names, (Names{"a", "added", "a", "added"}));
}

TEST(Notify, ThousandTasksAddedInside) {
  HostPool pool;
  pool.add("0", {.url = ""});
  int added = 0;
  const Names names = notifiedTasks(pool, 1001, [&](const std::string&) {
    if (added < 1000) {
      ZEP_HttpPool_AddTask("pool", std::to_string(++added).c_str());
    }
  });
  ASSERT_EQ(names.size(), 1001U);
  EXPECT_EQ(names.back(), "1000");
}

TEST(Notify, PoolClearedInside) {
  HostPool pool;
  for (const char* task : {"a", "b", "c"}) {
    pool.add(task, {.url = ""});
  }
  EXPECT_EQ(notifiedTasks(pool, 1, [](const std::string&) { ZEP_HttpPool_ClearTask("pool"); }), Names{"a"});
  const long before = pool.notifications();
  turnFor(std::chrono::milliseconds(200));
  EXPECT_EQ(pool.notifications(), before);
  EXPECT_EQ(taskList("pool"), "[]");
}

TEST(Notify, PoolClearedAndFilledAnewInside) {
  HostPool pool;
  pool.add("a", {.url = ""});
  const Names names = notifiedTasks(pool, 3, [](const std::string& task) {
    ZEP_HttpPool_ClearTask("pool");
    ZEP_HttpPool_AddTask("pool", (task + "'").c_str());
  });
  EXPECT_EQ(names, (Names{"a", "a'", "a''"}));
}

TEST(Notify, PoolDestroyedInside) {
  HostPool pool;
  for (const char* task : {"a", "b"}) {
    pool.add(task, {.url = ""});
  }
  const Names names = notifiedTasks(pool, 2, [](const std::string&) { ZEP_HttpPool_Destroy("pool"); });
  EXPECT_EQ(names, (Names{"a", "b"}));
  EXPECT_EQ(snapshot(), "[]");
  turnFor(std::chrono::milliseconds(700));
  const long before = pool.notifications();
  turnFor(std::chrono::milliseconds(200));
  EXPECT_EQ(pool.notifications(), before);
}

TEST(Notify, RunningTaskRemovedInside) {
  NginxServer server;
  HostPool pool;
  pool.add("task", {.url = server.url("/silent")});
  pool.launch("task");
  ASSERT_TRUE(server.waitForOpenConnections(1));
  EXPECT_EQ(notifiedTasks(pool, 1, [](const std::string&) { ZEP_HttpPool_RemoveTask("pool", "task"); }),
            Names{"task"});
  EXPECT_TRUE(server.waitForOpenConnections(0));
  EXPECT_EQ(pool.status("task"), ZEP_HTTP_TASK_NOT_EXIST);
}

TEST(Notify, TaskRunAgainInside) {
  NginxServer server;
  HostPool pool;
  pool.add("task", {.url = server.url("/text")});
  pool.launch("task");
  int ends = 0;
  pool.onNotify([&](const std::string& task) {
    if (pool.status(task) == ZEP_HTTP_TASK_DONE && ++ends < 5) {
      ZEP_HttpPool_TaskRun("pool", task.c_str(), nullptr);
    }
  });
  EXPECT_TRUE(turnUntil([&] { return ends >= 5; }));
  EXPECT_EQ(server.accesses("/text").size(), 5U);
}

// The pool's beat is on the stack while the registry's beat, in the inner loop, wants to delete the pool.
TEST(Notify, PoolDestroyedBeneathANestedRunLoop) {
  // A request that nobody ends stays.
  setenv("ZEP_URL_TIMEOUT_MS", "3600000", 1);
  NginxServer server;
  HostPool pool;
  pool.add("a", {.url = server.url("/silent")});
  pool.add("b", {.url = server.url("/text")});
  pool.launch("a");
  pool.launch("b");
  int nested = 0;
  pool.onNotify([&](const std::string&) {
    if (++nested == 1) {
      ZEP_HttpPool_Destroy("pool");
      turnFor(std::chrono::milliseconds(1000));
      EXPECT_TRUE(server.accesses("/silent").empty()) << "the pool was deleted beneath its own notification";
    }
  });
  // Its running request ends, so the pool is deleted in the end.
  EXPECT_TRUE(turnUntil([&] { return nested > 0 && !server.accesses("/silent").empty(); }));
  EXPECT_EQ(snapshot(), "[]");
  const long before = pool.notifications();
  turnFor(std::chrono::milliseconds(500));
  EXPECT_EQ(pool.notifications(), before);
}

TEST(Notify, RequestsGoOnInANestedRunLoop) {
  NginxServer server;
  HostPool pool;
  HostPool inner("inner");
  pool.add("task", {.url = ""});
  Outcome outcome;
  bool ran = false;
  pool.onNotify([&](const std::string&) {
    if (!ran) {
      ran = true;
      outcome = inner.run({.url = server.url("/text")});
    }
  });
  ASSERT_TRUE(turnUntil([&] { return ran && outcome.status != ZEP_HTTP_TASK_UNINITIALIZED; }));
  EXPECT_EQ(outcome, done("Hello, pool!"));
}

}  // namespace
}  // namespace test
