// Pools: their names, and how they go.

#include <gtest/gtest.h>

#include <string>

#include "httpPool/ZEP_HttpPool.h"
#include "tests/cpp/Host.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

TEST(CppPool, NamesAreItsOwn) {
  const Pool first("news");
  const Pool second("news");
  const Pool unnamed;
  const Pool another;
  EXPECT_EQ(first.name(), "news");
  EXPECT_EQ(second.name(), "news 2");
  EXPECT_NE(unnamed.name(), another.name());
  EXPECT_EQ(Pool(std::string_view("cut\0off", 7)).name(), "cut");
}

TEST(CppPool, ANameThatWasTakenThroughTheCInterfaceIsTaken) {
  ZEP_HttpPool_Create("news");
  NginxServer server;
  Pool pool("news");
  EXPECT_EQ(pool.name(), "news 2");
  EXPECT_EQ(end(pool.task().url(server.url("/text")).run()), done("Hello, pool!"));
  EXPECT_NE(httpPool::snapshot().find(R"({"poolName":"news","taskList":[]})"), std::string::npos);
  ZEP_HttpPool_Destroy("news");
}

TEST(CppPool, TakesItsRequestsAlong) {
  NginxServer server;
  httpPool::Run run = [&] {
    Pool pool;
    httpPool::Run running = pool.task().url(server.url("/silent")).run();
    EXPECT_TRUE(server.waitForOpenConnections(1));
    return running;
  }();
  EXPECT_EQ(run.outcome(), cancelled());
  EXPECT_TRUE(server.waitForOpenConnections(0))
      << "the request must not go on until the library deletes the pool";
  EXPECT_EQ(httpPool::snapshot(), "[]");
}

TEST(CppPool, ItsTasksMayOutliveIt) {
  NginxServer server;
  std::optional<Pool> pool(std::in_place);
  Task task = pool->task().url(server.url("/silent"));
  const httpPool::Run run = task.run();
  pool.reset();
  EXPECT_EQ(run.outcome(), cancelled());
  EXPECT_EQ(task.status(), Status::Cancelled);
  EXPECT_EQ(task.run().outcome(), cancelled());
  task.reset();
  EXPECT_EQ(task.status(), Status::Uninitialized);
  EXPECT_EQ(std::move(task).run().outcome(), cancelled());
}

TEST(CppPool, CanBeClosedBeforeItsEnd) {
  NginxServer server;
  Pool pool;
  const httpPool::Run run = pool.task().url(server.url("/silent")).run();
  EXPECT_TRUE(pool.isOpen());
  pool.close();
  EXPECT_FALSE(pool.isOpen());
  EXPECT_EQ(run.outcome(), cancelled());
  EXPECT_EQ(pool.task().url(server.url("/text")).run().outcome(), cancelled());
  pool.close();
}

TEST(CppPool, MovesWhileItsTasksRun) {
  NginxServer server;
  Pool pool("first");
  Task task = pool.task().url(server.url("/text"));
  const httpPool::Run run = task.run();
  Pool moved = std::move(pool);
  EXPECT_EQ(moved.name(), "first");
  EXPECT_EQ(end(run), done("Hello, pool!"));
  EXPECT_EQ(end(task.run()), done("Hello, pool!"));

  const httpPool::Run silent = moved.task().url(server.url("/silent")).run();
  moved = Pool("second");
  EXPECT_EQ(silent.outcome(), cancelled());
  EXPECT_EQ(end(moved.task().url(server.url("/text")).run()), done("Hello, pool!"));
  pool = std::move(moved);
  EXPECT_EQ(end(pool.task().url(server.url("/text")).run()), done("Hello, pool!"));
}

}  // namespace
}  // namespace test
