// What the library says, whatever that is, and what becomes of it.

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "httpPool/cpp/Pool.hpp"
#include "tests/cpp/FakeLibrary.h"

namespace test {
namespace {

using httpPool::Error;
using httpPool::ErrorId;
using httpPool::Outcome;
using httpPool::Pool;
using httpPool::Status;
using httpPool::Task;

class CppPoolState : public testing::Test {
 protected:
  CppPoolState() { library() = {}; }

  static FakeTask& fakeTask(const Pool& pool, const Task& task) {
    return *library().task(pool.name(), task.name());
  }
};

TEST_F(CppPoolState, EveryStatusHasItsOutcome) {
  struct Case {
    ZEP_HTTP_TASK_STATUS status;
    const char* result;
    const char* redirectUrl;
    Outcome outcome;
  };
  for (const Case& one :
       {Case{ZEP_HTTP_TASK_DONE, "body", "", Outcome::done("body")},
        Case{ZEP_HTTP_TASK_DONE, R"({"errorID":5,"errorReason":1})", "",
             Outcome::done(R"({"errorID":5,"errorReason":1})")},
        Case{ZEP_HTTP_TASK_FAILED, R"({"errorID":4,"errorReason":0})", "",
             Outcome::failed({ErrorId::Silence})},
        Case{ZEP_HTTP_TASK_FAILED, "", "", Outcome::failed({ErrorId::Unknown})},
        Case{ZEP_HTTP_TASK_FAILED, R"({"errorID":2,"errorReason":0})", "http://there/",
             Outcome::redirected("http://there/")},
        Case{ZEP_HTTP_TASK_REDIRECTED, "", "http://there/", Outcome::redirected("http://there/")},
        Case{ZEP_HTTP_TASK_TIMEOUT, "", "", Outcome::ended(Status::TimedOut)},
        Case{ZEP_HTTP_TASK_UNINITIALIZED, "", "", Outcome::ended(Status::Cancelled)},
        Case{ZEP_HTTP_TASK_NOT_EXIST, "", "", Outcome::ended(Status::Cancelled)}}) {
    Pool pool;
    Task task = pool.task();
    const httpPool::Run run = task.run();
    FakeTask& fake = fakeTask(pool, task);
    library().beat(pool.name());
    EXPECT_FALSE(run.hasEnded());
    fake.properties[ZEP_HTTP_TASK_PROP_RESULT] = one.result;
    fake.properties[ZEP_HTTP_TASK_PROP_REDIRECT_URL] = one.redirectUrl;
    fake.status = one.status;
    library().beat(pool.name());
    EXPECT_EQ(run.outcome(), one.outcome) << one.status << ": " << task.outcome()->description();
    EXPECT_TRUE(library().pool(pool.name())->tasks.empty());
  }
}

/// The library passes over the task that moves into the place of a removed one.
TEST_F(CppPoolState, TasksThatEndedTogetherEndInOneBeat) {
  Pool pool;
  std::vector<std::string> ended;
  std::vector<Task> tasks;
  for (int i = 0; i < 10; ++i) {
    tasks.push_back(pool.task(std::to_string(i)));
    tasks.back().run().then([&, i](const Outcome&) { ended.push_back(std::to_string(i)); });
  }
  // One in the middle stays.
  for (const Task& task : tasks) {
    fakeTask(pool, task).status = task.name() == "4" ? ZEP_HTTP_TASK_REQUESTING : ZEP_HTTP_TASK_DONE;
  }
  library().beat(pool.name());
  EXPECT_EQ(ended, (std::vector<std::string>{"0", "1", "2", "3", "5", "6", "7", "8", "9"}));
  EXPECT_EQ(pool.runningTasks(), 1U);
}

TEST_F(CppPoolState, ATaskThatIsDestroyedByAnEarlierEndOfItsBeatIsCancelled) {
  Pool pool;
  std::vector<std::string> told;
  std::optional<Task> second = pool.task("second");
  Task first = pool.task("first");
  first.run().then([&](const Outcome&) {
    second.reset();
    told.push_back("second is gone");
  });
  second->run().then([&](const Outcome& outcome) { told.push_back(outcome.description()); });
  fakeTask(pool, first).status = ZEP_HTTP_TASK_DONE;
  fakeTask(pool, *second).status = ZEP_HTTP_TASK_DONE;
  library().beat(pool.name());
  EXPECT_EQ(told, (std::vector<std::string>{"cancelled", "second is gone"}));
}

/// As by a run loop that is turned inside the callback.
TEST_F(CppPoolState, ACallbackMayWaitForOthersOfItsBeat) {
  Pool pool;
  std::vector<std::string> told;
  std::vector<Task> tasks;
  for (const char* name : {"first", "second", "third"}) {
    tasks.push_back(pool.task(name));
    tasks.back().run().then([&, name](const Outcome&) {
      told.push_back(name);
      library().beat(pool.name());
      told.push_back(std::string("after ") + name);
    });
    fakeTask(pool, tasks.back()).status = ZEP_HTTP_TASK_DONE;
  }
  library().beat(pool.name());
  EXPECT_EQ(told, (std::vector<std::string>{"first", "second", "third", "after third", "after second",
                                            "after first"}));
}

TEST_F(CppPoolState, ACallbackOfACloseMayWaitForOthers) {
  std::vector<std::string> told;
  Pool pool;
  Task first = pool.task("first");
  Task second = pool.task("second");
  first.run().then([&](const Outcome& outcome) {
    told.push_back(outcome.description());
    fakeTask(pool, second).status = ZEP_HTTP_TASK_DONE;
    library().beat(pool.name());
    EXPECT_EQ(first.run().outcome(), Outcome::ended(Status::Cancelled)) << "nothing new begins";
  });
  second.run().then([&](const Outcome& outcome) { told.push_back(outcome.description()); });
  pool.close();
  EXPECT_EQ(told, (std::vector<std::string>{"cancelled", "done, 0 bytes"}));
  EXPECT_TRUE(library().pools.empty());
}

TEST_F(CppPoolState, ThePoolMayGoInsideABeat) {
  int ends = 0;
  std::optional<Pool> pool(std::in_place, "p");
  for (int i = 0; i < 4; ++i) {
    pool->task(std::to_string(i)).run().then([&](const Outcome&) {
      ++ends;
      pool.reset();
    });
  }
  library().task("p", "1")->status = ZEP_HTTP_TASK_DONE;
  library().task("p", "2")->status = ZEP_HTTP_TASK_DONE;
  library().beat("p");
  EXPECT_EQ(ends, 4);
  EXPECT_TRUE(library().pools.empty());
}

TEST_F(CppPoolState, ResultsThatDoNotFitIntoMemoryFail) {
  Pool pool;
  Task task = pool.task();
  const httpPool::Run run = task.run();
  fakeTask(pool, task).status = ZEP_HTTP_TASK_DONE;
  library().claimedLength = std::numeric_limits<long>::max();
  library().beat(pool.name());
  EXPECT_EQ(run.outcome(), Outcome::failed({ErrorId::Other}));
}

TEST_F(CppPoolState, WithoutTheLibraryEveryRunIsCancelled) {
  library().isLoaded = false;
  Pool pool("p");
  EXPECT_FALSE(pool.isOpen());
  EXPECT_EQ(pool.task().run().outcome(), Outcome::ended(Status::Cancelled));
  EXPECT_EQ(pool.taskList(), "");
  EXPECT_EQ(httpPool::snapshot(), "");
}

TEST_F(CppPoolState, ALaunchThatIsRefusedLeavesNoTask) {
  library().launchStatus = ZEP_HTTP_TASK_FAILED;
  Pool pool;
  EXPECT_EQ(pool.task().run().outcome(), Outcome::ended(Status::Refused));
  EXPECT_TRUE(library().pool(pool.name())->tasks.empty());
  EXPECT_EQ(pool.runningTasks(), 0U);
}

TEST_F(CppPoolState, NotificationsOfStrangersAreNotItsOwn) {
  Pool pool("p");
  Task task = pool.task("mine");
  const httpPool::Run run = task.run();
  ZEP_HttpPool_AddTask("p", "stranger");
  library().task("p", "stranger")->status = ZEP_HTTP_TASK_DONE;
  library().beat("p");
  library().pools.front().proc(ZEP_HTTP_POOL_TASK_NOTIFY_POLL, "another", "mine", nullptr);
  EXPECT_FALSE(run.hasEnded());
  EXPECT_EQ(library().pool("p")->tasks.size(), 2U);
}

TEST_F(CppPoolState, TheRequestReachesTheLibraryWhole) {
  const std::string zero("a\0b", 3);
  Pool pool("p");
  Task task = pool.task("t").url("u").method("M").header("H", "v").post("text");
  task.run();
  FakeTask fake = *library().task("p", "t");
  EXPECT_EQ(fake.properties[ZEP_HTTP_TASK_PROP_URL], "u");
  EXPECT_EQ(fake.properties[ZEP_HTTP_TASK_PROP_HEADER_FIELDS], R"({"H":"v","HttpMethod":"M"})");
  EXPECT_EQ(fake.properties[ZEP_HTTP_TASK_PROP_POST_DATA], "text");
  task.post(zero).run();
  fake = *library().task("p", "t");
  EXPECT_EQ(fake.data, zero);
  EXPECT_EQ(fake.properties.count(ZEP_HTTP_TASK_PROP_POST_DATA), 0U);
  task.request({.url = "u", .downloadFile = "f"}).run();
  fake = *library().task("p", "t");
  EXPECT_EQ(fake.properties, (std::map<int, std::string>{{ZEP_HTTP_TASK_PROP_URL, "u"},
                                                         {ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE, "f"}}));
  EXPECT_EQ(fake.data, "");
}

}  // namespace
}  // namespace test
