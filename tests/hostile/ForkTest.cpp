// Hosts that fork while requests are running.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>

#include "tests/hostile/Attack.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

/// The status of a child that does this; a child that hangs ends by SIGALRM.
int statusOfChild(const std::function<void()>& work) {
  constexpr unsigned kLimitSeconds = 20;
  const pid_t child = fork();
  if (child == 0) {
    alarm(kLimitSeconds);
    work();
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

/// A pool with tasks that all wait for their server.
class ForkingHost : public testing::Test {
 protected:
  static constexpr int kTasks = 10;

  ForkingHost() {
    for (int i = 0; i < kTasks; ++i) {
      pool_.add(task(i), {.url = server_.url("/")});
      pool_.launch(task(i));
    }
    EXPECT_TRUE(waitUntil([this] { return server_.connections() == kTasks; }));
  }

  ~ForkingHost() override {
    isReleased_ = true;
    EXPECT_TRUE(pool_.await());
    for (int i = 0; i < kTasks; ++i) {
      EXPECT_EQ(pool_.outcome(task(i)), done("late"));
    }
    expectServes(pool_);
  }

  static std::string task(int number) { return "task " + std::to_string(number); }

  HostPool pool_;

 private:
  std::atomic<bool> isReleased_ = false;
  RawServer server_{[this](RawServer::Connection& connection) {
    connection.readRequest();
    waitUntil([this] { return isReleased_.load(); }, std::chrono::minutes(2));
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nlate");
  }};
};

TEST_F(ForkingHost, GoesOnBesideChildrenThatLeave) {
  EXPECT_EQ(statusOfChild([] { execl("/bin/true", "true", nullptr); }), 0);
  EXPECT_EQ(statusOfChild([] { _exit(0); }), 0);
}

TEST_F(ForkingHost, HasChildrenThatLookAtThePools) {
  EXPECT_EQ(statusOfChild([this] {
              if (pool_.status(task(0)) != ZEP_HTTP_TASK_REQUESTING || snapshot().empty()) {
                _exit(1);
              }
              ZEP_HttpPool_Create("child");
              ZEP_HttpPool_AddTask("child", "task");
              ZEP_HttpPool_RemoveTask("child", "task");
              ZEP_HttpPool_Destroy("child");
            }),
            0);
}

TEST_F(ForkingHost, HasChildrenThatLaunchTasks) {
  EXPECT_EQ(statusOfChild([this] {
              ZEP_HttpPool_AddTask(pool_.name().c_str(), "child");
              pool_.set("child", ZEP_HTTP_TASK_PROP_URL, "http://127.0.0.1:1/");
              pool_.launch("child");
              ZEP_HttpPool_RemoveTask(pool_.name().c_str(), "child");
            }),
            0);
}

TEST_F(ForkingHost, HasChildrenThatExit) {
  EXPECT_EQ(statusOfChild([] { std::exit(0); }), 0);
}

TEST_F(ForkingHost, HasChildrenThatEndItsTasks) {
  EXPECT_EQ(statusOfChild([this] {
              ZEP_HttpPool_TaskReset(pool_.name().c_str(), task(0).c_str());
              ZEP_HttpPool_RemoveTask(pool_.name().c_str(), task(1).c_str());
              ZEP_HttpPool_ClearTask(pool_.name().c_str());
            }),
            0);
}

}  // namespace
}  // namespace test
