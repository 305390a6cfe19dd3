// Many tasks, many pools, long names, and a host that is busy with other things.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "foundation/ZEP_Foundation.h"
#include "tests/host/HostPool.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

/// The ordinary limit, whatever the machine of the test allows.
void limitDescriptorsTo(rlim_t count) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  limit.rlim_cur = std::min(count, limit.rlim_max);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST(Many, TasksAllEndUnderTheDescriptorLimit) {
  limitDescriptorsTo(1024);
  NginxServer server;
  HostPool pool;
  for (int task = 0; task < MANY_TASKS; ++task) {
    const std::string name = std::to_string(task);
    pool.add(name, {.url = server.url("/late?ms=200")});
    ASSERT_EQ(pool.launch(name), ZEP_HTTP_TASK_REQUESTING);
  }
  ASSERT_TRUE(pool.await());
  int ended = 0;
  for (int task = 0; task < MANY_TASKS; ++task) {
    ended += pool.outcome(std::to_string(task)) == done("late") ? 1 : 0;
  }
  EXPECT_EQ(ended, MANY_TASKS);
  EXPECT_EQ(server.accesses("/late").size(), std::size_t{MANY_TASKS});
}

// The host blocks its thread 300 ms at a time, so that everything a request has to say waits in one heap.
TEST(Many, BusyHostThreadChangesNoOutcome) {
  NginxServer server;
  HostPool pool;
  constexpr int kRounds = 10;
  for (int round = 0; round < kRounds; ++round) {
    const std::string number = " " + std::to_string(round);
    pool.add("good" + number, {.url = server.url("/text")});
    pool.add("bad" + number, {.url = server.url("/status/500")});
    pool.add("slow" + number, {.url = server.url("/drip?n=10&ms=30")});
    pool.add("cut" + number, {.url = server.url("/cut")});
    pool.add("busy" + number, {.url = server.url("/retry-after?value=7"), .headers = {{"Glint", "1"}}});
    for (const char* kind : {"good", "bad", "slow", "cut", "busy"}) {
      pool.launch(kind + number);
    }
  }
  while (!pool.await(std::chrono::milliseconds(1))) {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
  }
  for (int round = 0; round < kRounds; ++round) {
    const std::string number = " " + std::to_string(round);
    EXPECT_EQ(pool.outcome("good" + number), done("Hello, pool!"));
    EXPECT_EQ(pool.outcome("bad" + number), failed(2));
    EXPECT_EQ(pool.outcome("slow" + number), done("xxxxxxxxxx"));
    EXPECT_EQ(pool.outcome("cut" + number), failed(1));
    EXPECT_EQ(pool.outcome("busy" + number), done(errorText(5, 7000)));
  }
}

TEST(Many, ThousandPools) {
  constexpr int kPools = 1000;
  for (int pool = 0; pool < kPools; ++pool) {
    ZEP_HttpPool_Create(("pool " + std::to_string(pool)).c_str());
    ZEP_HttpPool_AddTask(("pool " + std::to_string(pool)).c_str(), "task");
  }
  const std::string all = snapshot();
  std::string expected = "[";
  for (int pool = 0; pool < kPools; ++pool) {
    expected += (pool == 0 ? "" : ",") + ("{\"poolName\":\"pool " + std::to_string(pool)) +
                "\",\"taskList\":[{\"taskName\":\"task\",\"taskStatus\":\"uninitialized\"}]}";
  }
  EXPECT_TRUE(all == expected + "]") << all.substr(0, 500);
  turnFor(std::chrono::milliseconds(100));
  for (int pool = 0; pool < kPools; ++pool) {
    ZEP_HttpPool_Destroy(("pool " + std::to_string(pool)).c_str());
  }
  EXPECT_EQ(snapshot(), "[]");
  turnFor(std::chrono::milliseconds(700));
  EXPECT_EQ(snapshot(), "[]");
}

TEST(Many, PoolsWithRequestsOfTheirOwn) {
  NginxServer server;
  std::vector<std::unique_ptr<HostPool>> pools;
  for (int number = 0; number < 20; ++number) {
    pools.push_back(std::make_unique<HostPool>("pool " + std::to_string(number)));
    pools.back()->add("same name", {.url = server.url("/big?bytes=" + std::to_string(1000 + number))});
    pools.back()->launch("same name");
  }
  for (std::size_t number = 0; number < pools.size(); ++number) {
    ASSERT_TRUE(pools[number]->await());
    EXPECT_EQ(pools[number]->outcome("same name"), done(NginxServer::bigBody(1000 + number)));
  }
}

TEST(Many, NamesOfTenThousandBytes) {
  NginxServer server;
  const std::string poolName(10'000, 'p');
  const std::string task(10'000, 't');
  HostPool pool(poolName);
  pool.add(task, {.url = server.url("/text")});
  pool.add(task + "2", {.url = server.url("/utf8")});
  pool.launch(task);
  pool.launch(task + "2");
  ASSERT_TRUE(pool.await());
  EXPECT_EQ(pool.outcome(task), done("Hello, pool!"));
  EXPECT_EQ(pool.outcome(task + "2"), done("Grüße, 世界 🌍"));
  EXPECT_EQ(taskList(poolName), "[{\"taskName\":\"" + task +
                                    "\",\"taskStatus\":\"successfully done\"},{\"taskName\":\"" + task +
                                    "2\",\"taskStatus\":\"successfully done\"}]");
}

}  // namespace
}  // namespace test
