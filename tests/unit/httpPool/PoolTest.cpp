#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Allocations.h"
#include "Fakes.h"
#include "Turning.h"
#include "httpPool/Pool.h"

namespace {

using testing::ElementsAre;

/// What the notify function was told, and what it does then.
std::vector<std::string> notified;
std::function<void(const std::string& task)> onNotify;

void notify(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* pool, const char* task, const char* data) {
  EXPECT_EQ(code, ZEP_HTTP_POOL_TASK_NOTIFY_POLL);
  EXPECT_EQ(data, nullptr);
  const std::string name = task;
  notified.push_back(std::string(pool) + "/" + name);
  if (onNotify) {
    onNotify(name);
  }
}

class PoolTest : public testing::Test {
 protected:
  PoolTest() {
    notified.clear();
    onNotify = nullptr;
  }
  ~PoolTest() override { onNotify = nullptr; }

  ZEP_HTTP_TASK_STATUS statusOf(const char* task) {
    ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
    pool.GetTaskStatus(task, &status);
    return status;
  }
  void tick() { pool.OnTimer(10001); }
  /// Whether the pool's timer runs: only its beats notify.
  bool ticksByItself() {
    notified.clear();
    return turnUntil([] { return notified.size() >= 3; }, std::chrono::seconds(30));
  }

  CPool pool{"p"};
};

TEST_F(PoolTest, HasItsName) {
  EXPECT_EQ(pool.GetName(), "p");
  EXPECT_EQ(pool.GetSelfIdentity(), "p");
  pool.SetName("q");
  EXPECT_EQ(pool.GetName(), "q");
}

TEST_F(PoolTest, AnEmptyPoolListsNothing) {
  EXPECT_EQ(pool.GetTaskList(), "[]");
}

TEST_F(PoolTest, ListsItsTasksInOrderWithTheirWords) {
  pool.AddTask("t1");
  pool.AddTask("t\"2");
  EXPECT_EQ(
      pool.GetTaskList(),
      R"([{"taskName":"t1","taskStatus":"uninitialized"},{"taskName":"t\"2","taskStatus":"uninitialized"}])");
}

struct Word {
  HTTP_CALL_STATUS callStatus;
  const char* word;
};

class PoolWordTest : public PoolTest, public testing::WithParamInterface<Word> {};

TEST_P(PoolWordTest, ListsTheStatusAsItsWord) {
  CallScript script;
  auto made = std::make_unique<CTask>(
      "t", "p", [&script] { return std::make_unique<CHttpCall>(std::make_unique<FakeCallImpl>(script)); });
  CTask& task = *made;
  pool.AdoptTask(std::move(made));
  task.Run(nullptr);
  ASSERT_TRUE(task.NotifyHttpCallStatus(script.sessionId, GetParam().callStatus));
  EXPECT_EQ(pool.GetTaskList(),
            std::string(R"([{"taskName":"t","taskStatus":")") + GetParam().word + R"("}])");
  pool.ClearTask();
  EXPECT_EQ(script.alive, 0);
}

INSTANTIATE_TEST_SUITE_P(Words, PoolWordTest,
                         testing::Values(Word{HTTP_CALL_SUCCEEDED, "successfully done"},
                                         Word{HTTP_CALL_FAILED, "task failed"},
                                         Word{HTTP_CALL_TIMEOUT, "time out"},
                                         Word{HTTP_CALL_RECEIVING, "requesting"},
                                         Word{HTTP_CALL_REDIRECTED, ""}));

TEST_F(PoolTest, AddingATaskTwiceKeepsOne) {
  pool.AddTask("t");
  CTask* first = pool.GetTask("t");
  pool.AddTask("t");
  EXPECT_EQ(pool.GetTask("t"), first);
  EXPECT_EQ(pool.GetTaskList(), R"([{"taskName":"t","taskStatus":"uninitialized"}])");
}

TEST_F(PoolTest, NullNamesAreNoTasks) {
  pool.AddTask(nullptr);
  EXPECT_EQ(pool.GetTaskList(), "[]");
  pool.AddTask("t");
  pool.RemoveTask(nullptr);
  pool.TaskRun(nullptr, nullptr);
  pool.TaskReset(nullptr);
  pool.SetTaskProperty(nullptr, ZEP_HTTP_TASK_PROP_URL, "u");
  pool.SetTaskDataProperty(nullptr, nullptr, 0);
  EXPECT_EQ(pool.GetTaskProperty(nullptr, ZEP_HTTP_TASK_PROP_URL, nullptr, nullptr), 0);
  EXPECT_EQ(statusOf(nullptr), ZEP_HTTP_TASK_NOT_EXIST);
  EXPECT_NE(pool.GetTask("t"), nullptr);
}

TEST_F(PoolTest, TaskNamesDifferByCase) {
  pool.AddTask("t");
  pool.AddTask("T");
  EXPECT_NE(pool.GetTask("t"), pool.GetTask("T"));
}

TEST_F(PoolTest, AnUnknownTaskDoesNotExist) {
  EXPECT_EQ(statusOf("t"), ZEP_HTTP_TASK_NOT_EXIST);
  pool.GetTaskStatus("t", nullptr);
  EXPECT_EQ(pool.GetTaskProperty("t", ZEP_HTTP_TASK_PROP_RESULT, nullptr, nullptr), 0);
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  pool.TaskRun("t", &status);
  EXPECT_EQ(status, ZEP_HTTP_TASK_STATUS_8);
}

TEST_F(PoolTest, ForwardsToTheTask) {
  pool.AddTask("t");
  pool.SetTaskProperty("t", ZEP_HTTP_TASK_PROP_URL, "no URL at all");
  char buffer[] = "#############";
  long size = 2;
  EXPECT_EQ(pool.GetTaskProperty("t", ZEP_HTTP_TASK_PROP_URL, buffer, &size), 13);
  EXPECT_STREQ(buffer, "no###########");
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  pool.TaskRun("t", &status);
  EXPECT_EQ(status, ZEP_HTTP_TASK_FAILED) << "a URL with blanks is refused at once";
  EXPECT_EQ(pool.GetTaskList(), R"([{"taskName":"t","taskStatus":"task failed"}])");
  pool.TaskReset("t");
  EXPECT_EQ(statusOf("t"), ZEP_HTTP_TASK_UNINITIALIZED);
}

TEST_F(PoolTest, ATickNotifiesOfEveryTaskInOrder) {
  pool.AddTask("a");
  pool.AddTask("b");
  tick();
  EXPECT_TRUE(notified.empty()) << "without a notify function nothing happens";
  pool.SetPoolProc(&notify);
  tick();
  EXPECT_THAT(notified, ElementsAre("p/a", "p/b"));
  pool.SetPoolProc(nullptr);
  tick();
  EXPECT_EQ(notified.size(), 2U);
}

TEST_F(PoolTest, TheTimerIdIsNotLookedAt) {
  pool.AddTask("a");
  pool.SetPoolProc(&notify);
  pool.OnTimer(0);
  EXPECT_THAT(notified, ElementsAre("p/a"));
}

TEST_F(PoolTest, ARemovalInsideANotificationSkipsTheNextTask) {
  for (const char* name : {"a", "b", "c"}) {
    pool.AddTask(name);
  }
  pool.SetPoolProc(&notify);
  onNotify = [this](const std::string& task) {
    if (task == "a") {
      pool.RemoveTask("a");
    }
  };
  tick();
  EXPECT_THAT(notified, ElementsAre("p/a", "p/c"));
}

TEST_F(PoolTest, ATaskAddedInsideANotificationIsNotifiedInTheSameTick) {
  pool.AddTask("a");
  pool.SetPoolProc(&notify);
  onNotify = [this](const std::string& task) {
    if (task == "a") {
      pool.AddTask("b");
    }
  };
  tick();
  EXPECT_THAT(notified, ElementsAre("p/a", "p/b"));
}

TEST_F(PoolTest, ClearingInsideANotificationEndsTheTick) {
  for (const char* name : {"a", "b", "c"}) {
    pool.AddTask(name);
  }
  pool.SetPoolProc(&notify);
  onNotify = [this](const std::string&) { pool.ClearTask(); };
  tick();
  EXPECT_THAT(notified, ElementsAre("p/a"));
  EXPECT_EQ(pool.GetTaskList(), "[]");
}

TEST_F(PoolTest, TheNotifyFunctionMayBeTakenAwayInsideANotification) {
  pool.AddTask("a");
  pool.AddTask("b");
  pool.SetPoolProc(&notify);
  onNotify = [this](const std::string&) { pool.SetPoolProc(nullptr); };
  tick();
  EXPECT_THAT(notified, ElementsAre("p/a"));
}

TEST_F(PoolTest, TheTextsOfANotificationOutliveTheTask) {
  static std::string seenAfterRemoval;
  const std::string longName(1000, 'n');
  pool.AddTask(longName.c_str());
  static CPool* thePool = nullptr;
  thePool = &pool;
  pool.SetPoolProc([](ZEP_HTTP_POOL_TASK_NOTIFY, const char*, const char* task, const char*) {
    thePool->RemoveTask(task);
    seenAfterRemoval = task;
  });
  tick();
  EXPECT_EQ(seenAfterRemoval, longName);
}

TEST_F(PoolTest, ATickAllocatesForTheFirstTasksOnly) {
  for (int i = 0; i < 1000; ++i) {
    pool.AddTask(("a task with quite a long name, number " + std::to_string(i)).c_str());
  }
  static int count = 0;
  count = 0;
  pool.SetPoolProc([](ZEP_HTTP_POOL_TASK_NOTIFY, const char*, const char*, const char*) { ++count; });
  const long before = allocationsOfThisThread();
  tick();
  EXPECT_EQ(count, 1000);
  EXPECT_LT(allocationsOfThisThread() - before, 10);
}

TEST_F(PoolTest, AStatusPollDoesNotAllocate) {
  const std::string name = "a task whose name does not fit into a small string";
  pool.AddTask(name.c_str());
  const long before = allocationsOfThisThread();
  EXPECT_EQ(statusOf(name.c_str()), ZEP_HTTP_TASK_UNINITIALIZED);
  EXPECT_EQ(statusOf("another task whose name does not fit into a small string"), ZEP_HTTP_TASK_NOT_EXIST);
  EXPECT_EQ(allocationsOfThisThread(), before);
}

TEST_F(PoolTest, TheTimerRunsWhileThereAreTasks) {
  pool.SetPoolProc(&notify);
  pool.AddTask("a");
  EXPECT_TRUE(ticksByItself());
  pool.AddTask("b");
  pool.RemoveTask("a");
  EXPECT_TRUE(ticksByItself());
}

TEST_F(PoolTest, TheTimerStopsWithTheLastTaskAndStartsAgain) {
  // A second pool's beats tell that this pool's timer had its chances, too.
  CPool witness("witness");
  static int witnessed = 0;
  witness.AddTask("w");
  witness.SetPoolProc([](ZEP_HTTP_POOL_TASK_NOTIFY, const char*, const char*, const char*) { ++witnessed; });

  struct Beats : CPool {
    using CPool::CPool;
    void OnTimer(unsigned int id) override {
      ++count;
      CPool::OnTimer(id);
    }
    int count = 0;
  };
  Beats beats("beats");
  const auto beatsDuringFiveOfTheWitness = [&beats] {
    beats.count = 0;
    witnessed = 0;
    EXPECT_TRUE(turnUntil([] { return witnessed >= 5; }));
    return beats.count;
  };

  EXPECT_EQ(beatsDuringFiveOfTheWitness(), 0) << "no task yet";
  beats.AddTask("a");
  EXPECT_GT(beatsDuringFiveOfTheWitness(), 0);
  beats.RemoveTask("a");
  EXPECT_EQ(beatsDuringFiveOfTheWitness(), 0);
  beats.RemoveTask("unknown");
  EXPECT_EQ(beatsDuringFiveOfTheWitness(), 0);
  beats.AddTask("b");
  EXPECT_GT(beatsDuringFiveOfTheWitness(), 0);
  beats.ClearTask();
  EXPECT_EQ(beatsDuringFiveOfTheWitness(), 0);
}

TEST_F(PoolTest, LongNamesAreFine) {
  const std::string name(10'000, 'n');
  pool.AddTask(name.c_str());
  EXPECT_EQ(statusOf(name.c_str()), ZEP_HTTP_TASK_UNINITIALIZED);
  EXPECT_EQ(pool.GetTask(name.c_str())->GetSelfIdentity().length(), 1023U)
      << "the identity is cut, not overrun";
}

TEST_F(PoolTest, ARenamedTaskIsFoundByItsNewName) {
  pool.AddTask("a");
  CTask* task = pool.GetTask("a");
  task->SetName("b");
  EXPECT_EQ(pool.GetTask("a"), nullptr);
  EXPECT_EQ(pool.GetTask("b"), task);
  pool.RemoveTask("b");
  EXPECT_EQ(pool.GetTaskList(), "[]");
}

}  // namespace
