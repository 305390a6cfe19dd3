#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Allocations.h"
#include "Turning.h"
#include "httpPool/Global.h"

namespace {

std::function<void(const std::string& pool)> onNotify;

void notify(ZEP_HTTP_POOL_TASK_NOTIFY, const char* pool, const char*, const char*) {
  if (onNotify) {
    onNotify(pool);
  }
}

/// Tells when its timer beats.
struct Registry : CGlobal {
  void OnTimer(unsigned int id) override {
    ++beats;
    CGlobal::OnTimer(id);
  }
  int beats = 0;
};

class GlobalTest : public testing::Test {
 protected:
  ~GlobalTest() override {
    onNotify = nullptr;
    // The registry does not delete what is left, so nothing is left.
    while (CPool* pool = firstPool()) {
      registry.DestroyPool(pool->GetName().c_str());
    }
    tick();
  }

  CPool* firstPool() {
    for (const char* name : {"a", "b", "c", "A", ""}) {
      if (CPool* pool = registry.GetPool(name)) {
        return pool;
      }
    }
    return nullptr;
  }
  void tick() { registry.OnTimer(10002); }
  std::string snapshot() {
    long size = -1;
    EXPECT_EQ(registry.GetSnapshot(nullptr, &size), 0);
    std::string text(static_cast<std::size_t>(size), '?');
    EXPECT_EQ(registry.GetSnapshot(text.data(), &size), 0);
    EXPECT_EQ(text.back(), '\0');
    text.pop_back();
    return text;
  }

  Registry registry;
};

TEST_F(GlobalTest, TheSnapshotOfNoPoolsIsAnEmptyArray) {
  EXPECT_EQ(snapshot(), "[]");
}

TEST_F(GlobalTest, TheSnapshotListsThePoolsInOrder) {
  registry.CreatePool("a");
  registry.CreatePool("b");
  registry.AddTask("a", "t1");
  registry.AddTask("a", "t2");
  EXPECT_EQ(snapshot(),
            R"([{"poolName":"a","taskList":[{"taskName":"t1","taskStatus":"uninitialized"},)"
            R"({"taskName":"t2","taskStatus":"uninitialized"}]},{"poolName":"b","taskList":[]}])");
}

TEST_F(GlobalTest, TheSnapshotHoldsTheTaskListsByteForByte) {
  registry.CreatePool("a");
  // Every byte there is, alone and in pairs that are, or are not, parts of UTF-8 sequences.
  for (int byte = 1; byte < 256; ++byte) {
    const auto one = static_cast<char>(byte);
    registry.AddTask("a", std::string({one}).c_str());
    registry.AddTask("a", std::string({one, '\x80', one, '\\', 'u', one}).c_str());
  }
  long size = 0;
  registry.GetTaskList("a", nullptr, &size);
  std::string list(static_cast<std::size_t>(size), '?');
  registry.GetTaskList("a", list.data(), &size);
  list.pop_back();
  EXPECT_EQ(snapshot(), R"([{"poolName":"a","taskList":)" + list + "}]");
}

TEST_F(GlobalTest, ASizeAloneOrABufferAloneCopiesNothing) {
  registry.CreatePool("a");
  long size = 1;
  EXPECT_EQ(registry.GetSnapshot(nullptr, &size), 0);
  EXPECT_EQ(size, static_cast<long>(std::string(R"([{"poolName":"a","taskList":[]}])").length()) + 1);
  char buffer[] = "####";
  EXPECT_EQ(registry.GetSnapshot(buffer, nullptr), 0);
  EXPECT_STREQ(buffer, "####");
}

TEST_F(GlobalTest, TheTaskListOfAnUnknownPoolTouchesNothing) {
  long size = 77;
  char buffer[] = "####";
  EXPECT_EQ(registry.GetTaskList("a", buffer, &size), 0);
  EXPECT_EQ(size, 77);
  EXPECT_STREQ(buffer, "####");
  EXPECT_EQ(registry.GetTaskList(nullptr, buffer, &size), 0);
  EXPECT_EQ(size, 77);
}

TEST_F(GlobalTest, TheTaskListIsCopiedWithItsTerminator) {
  registry.CreatePool("a");
  char buffer[] = "#####";
  long size = 0;
  EXPECT_EQ(registry.GetTaskList("a", buffer, &size), 0);
  EXPECT_EQ(size, 3);
  EXPECT_STREQ(buffer, "[]");
  EXPECT_EQ(buffer[3], '#');
}

TEST_F(GlobalTest, OfTwoPoolsOfOneNameTheOlderIsFound) {
  registry.CreatePool("a");
  CPool* first = registry.GetPool("a");
  registry.CreatePool("a");
  EXPECT_EQ(registry.GetPool("a"), first);
  registry.AddTask("a", "of the first");
  registry.DestroyPool("a");
  EXPECT_NE(registry.GetPool("a"), first);
  EXPECT_EQ(snapshot(), R"([{"poolName":"a","taskList":[]}])");
}

TEST_F(GlobalTest, PoolNamesDifferByCase) {
  registry.CreatePool("a");
  registry.CreatePool("A");
  EXPECT_NE(registry.GetPool("a"), registry.GetPool("A"));
}

TEST_F(GlobalTest, NullNamesMakeAndFindNothing) {
  EXPECT_EQ(registry.CreatePool(nullptr), 0);
  EXPECT_EQ(snapshot(), "[]");
  EXPECT_EQ(registry.GetPool(nullptr), nullptr);
  EXPECT_EQ(registry.DestroyPool(nullptr), 0);
  EXPECT_EQ(registry.DestroyPool("unknown"), 0);
}

TEST_F(GlobalTest, ForwardsToThePool) {
  registry.CreatePool("a");
  EXPECT_EQ(registry.AddTask("a", "t"), 0);
  EXPECT_EQ(registry.SetTaskProperty("a", "t", ZEP_HTTP_TASK_PROP_URL, "no URL"), 0);
  EXPECT_EQ(registry.GetTaskProperty("a", "t", ZEP_HTTP_TASK_PROP_URL, nullptr, nullptr), 6);
  const unsigned char bytes[] = {1};
  EXPECT_EQ(registry.SetTaskDataProperty("a", "t", bytes, 1), 0);
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  EXPECT_EQ(registry.TaskRun("a", "t", &status), 0);
  EXPECT_EQ(status, ZEP_HTTP_TASK_FAILED);
  EXPECT_EQ(registry.TaskReset("a", "t"), 0);
  EXPECT_EQ(registry.GetTaskStatus("a", "t", &status), 0);
  EXPECT_EQ(status, ZEP_HTTP_TASK_UNINITIALIZED);
  EXPECT_EQ(registry.RemoveTask("a", "t"), 0);
  EXPECT_EQ(registry.GetTaskStatus("a", "t", &status), 0);
  EXPECT_EQ(status, ZEP_HTTP_TASK_NOT_EXIST);
  registry.AddTask("a", "t");
  EXPECT_EQ(registry.ClearTask("a"), 0);
  EXPECT_EQ(snapshot(), R"([{"poolName":"a","taskList":[]}])");
}

TEST_F(GlobalTest, AnUnknownPoolIsNoError) {
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  EXPECT_EQ(registry.SetPoolProc("x", &notify), 0);
  EXPECT_EQ(registry.AddTask("x", "t"), 0);
  EXPECT_EQ(registry.RemoveTask("x", "t"), 0);
  EXPECT_EQ(registry.ClearTask("x"), 0);
  EXPECT_EQ(registry.GetTaskStatus("x", "t", &status), 0);
  EXPECT_EQ(registry.TaskRun("x", "t", &status), 0);
  EXPECT_EQ(registry.TaskReset("x", "t"), 0);
  EXPECT_EQ(registry.SetTaskProperty("x", "t", ZEP_HTTP_TASK_PROP_URL, "u"), 0);
  EXPECT_EQ(registry.SetTaskDataProperty("x", "t", nullptr, 0), 0);
  EXPECT_EQ(registry.GetTaskProperty("x", "t", ZEP_HTTP_TASK_PROP_URL, nullptr, nullptr), 0);
  EXPECT_EQ(status, ZEP_HTTP_TASK_STATUS_8);
}

TEST_F(GlobalTest, ADestroyedPoolGoesOnUntilTheNextTick) {
  registry.CreatePool("a");
  registry.SetPoolProc("a", &notify);
  registry.AddTask("a", "t");
  registry.DestroyPool("a");
  EXPECT_EQ(snapshot(), "[]");
  int notifications = 0;
  registry.beats = 0;
  onNotify = [&notifications](const std::string&) { ++notifications; };
  EXPECT_TRUE(turnUntil([&] { return notifications > 0 || registry.beats > 0; }));
  EXPECT_GT(notifications, 0) << "10 ms beats come before a 300 ms one";
  EXPECT_TRUE(turnUntil([&] { return registry.beats > 0; }));
  notifications = 0;
  for (int i = 0; i < 10; ++i) {
    turnOnce();
  }
  EXPECT_EQ(notifications, 0) << "deleted, and its timer with it";
}

TEST_F(GlobalTest, OtherTimersAreNotTheRegistrys) {
  registry.CreatePool("a");
  registry.SetPoolProc("a", &notify);
  registry.AddTask("a", "t");
  registry.DestroyPool("a");
  registry.OnTimer(10001);
  bool isNotified = false;
  onNotify = [&isNotified](const std::string&) { isNotified = true; };
  registry.beats = 0;
  EXPECT_TRUE(turnUntil([&] { return isNotified || registry.beats > 0; }));
  EXPECT_TRUE(isNotified) << "still there";
}

TEST_F(GlobalTest, TheTimerStopsWhenNoPoolIsLeftAndStartsAgain) {
  Registry witness;
  witness.CreatePool("witness");
  const auto beatsDuringThreeOfTheWitness = [&] {
    registry.beats = 0;
    witness.beats = 0;
    EXPECT_TRUE(turnUntil([&] { return witness.beats >= 3; }));
    return registry.beats;
  };
  EXPECT_EQ(beatsDuringThreeOfTheWitness(), 0);
  registry.CreatePool("a");
  EXPECT_GT(beatsDuringThreeOfTheWitness(), 0);
  registry.DestroyPool("a");
  registry.beats = 0;
  EXPECT_TRUE(turnUntil([&] { return registry.beats > 0; }));
  EXPECT_EQ(beatsDuringThreeOfTheWitness(), 0);
  registry.CreatePool("b");
  EXPECT_GT(beatsDuringThreeOfTheWitness(), 0);
  witness.DestroyPool("witness");
  witness.OnTimer(10002);
}

TEST_F(GlobalTest, APoolIsNotDeletedWhileItNotifies) {
  registry.CreatePool("a");
  registry.SetPoolProc("a", &notify);
  registry.AddTask("a", "t1");
  registry.AddTask("a", "t2");
  CPool* pool = registry.GetPool("a");
  int notifications = 0;
  onNotify = [&](const std::string& name) {
    EXPECT_EQ(name, "a");
    if (++notifications == 1) {
      registry.DestroyPool("a");
      // As from a loop that the host turns inside its function.
      tick();
    }
  };
  pool->OnTimer(10001);
  EXPECT_EQ(notifications, 2) << "the walk goes on in a pool that is still there";
  tick();
  EXPECT_EQ(snapshot(), "[]");
}

TEST_F(GlobalTest, ANestedLoopInsideANotificationDeletesOtherPoolsOnly) {
  registry.CreatePool("a");
  registry.CreatePool("b");
  registry.SetPoolProc("a", &notify);
  registry.AddTask("a", "t");
  bool isDone = false;
  onNotify = [&](const std::string&) {
    if (isDone) {
      return;
    }
    isDone = true;
    registry.DestroyPool("a");
    registry.DestroyPool("b");
    registry.beats = 0;
    EXPECT_TRUE(turnUntil([&] { return registry.beats > 0; }));
  };
  EXPECT_TRUE(turnUntil([&] { return isDone; }));
  registry.beats = 0;
  EXPECT_TRUE(turnUntil([&] { return registry.beats > 0; }))
      << "a later beat deletes the pool that was notifying";
  EXPECT_EQ(snapshot(), "[]");
}

TEST_F(GlobalTest, AStatusPollDoesNotAllocate) {
  const std::string task = "a task whose name does not fit into a small string";
  registry.CreatePool("a");
  registry.AddTask("a", task.c_str());
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  const long before = allocationsOfThisThread();
  registry.GetTaskStatus("a", task.c_str(), &status);
  EXPECT_EQ(allocationsOfThisThread(), before);
  EXPECT_EQ(status, ZEP_HTTP_TASK_UNINITIALIZED);
}

TEST_F(GlobalTest, LongNamesAreListedWhole) {
  const std::string name(10'000, 'n');
  registry.CreatePool(name.c_str());
  registry.AddTask(name.c_str(), name.c_str());
  const std::string text = R"([{"poolName":")" + name + R"(","taskList":[{"taskName":")" + name +
                           R"(","taskStatus":"uninitialized"}]}])";
  EXPECT_EQ(snapshot(), text);
  registry.DestroyPool(name.c_str());
}

}  // namespace
