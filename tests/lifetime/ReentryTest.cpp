// Whatever a host may do inside its notify function, to the task it is notified of, to those before and behind it and
// to those of other pools, in every state that these may be in: all combinations at once, each with pools of its own.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/ZEP_Foundation.h"
#include "tests/host/HostPool.h"
#include "tests/lifetime/Stations.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

/// What has become of the task when the operation was done to it and everything has come to rest.
enum class After { Unchanged, Reset, RunAgain, NoTask, NoPool };
/// Whether its notifications go on.
enum class Notified { ByTheSame, ByTheOther, No };

struct Target {
  std::string pool;
  std::string task;
  const char* poolName() const { return pool.c_str(); }
  const char* taskName() const { return task.c_str(); }
};

long otherNotifications = 0;

void otherNotified(ZEP_HTTP_POOL_TASK_NOTIFY, const char*, const char*, const char*) {
  ++otherNotifications;
}

void readEverything(const Target& target) {
  snapshot();
  taskList(target.pool);
  ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
  ZEP_HttpPool_GetTaskStatus(target.poolName(), target.taskName(), &status);
  for (int property = 1; property <= 10; ++property) {
    // The redirect of a task without a call is not to be asked for.
    if (property == ZEP_HTTP_TASK_PROP_REDIRECT_URL && status == ZEP_HTTP_TASK_UNINITIALIZED) {
      continue;
    }
    char text[64];
    long size = sizeof(text);
    ZEP_HttpPool_GetTaskProperty(target.poolName(), target.taskName(),
                                 static_cast<ZEP_HTTP_TASK_PROPERTY>(property), text, &size);
  }
}

void setEverything(const Target& target) {
  for (const int property : {2, 3, 4, 6, 9}) {
    ZEP_HttpPool_SetTaskProperty(target.poolName(), target.taskName(),
                                 static_cast<ZEP_HTTP_TASK_PROPERTY>(property), "new");
  }
  const unsigned char byte = 1;
  ZEP_HttpPool_SetTaskDataProperty(target.poolName(), target.taskName(), &byte, 1);
}

struct Operation {
  const char* name;
  void (*act)(const Target& target);
  After after;
  Notified notified;
};

const Operation kOperations[] = {
    {"remove", [](const Target& t) { ZEP_HttpPool_RemoveTask(t.poolName(), t.taskName()); }, After::NoTask,
     Notified::No},
    {"clear", [](const Target& t) { ZEP_HttpPool_ClearTask(t.poolName()); }, After::NoTask, Notified::No},
    {"reset", [](const Target& t) { ZEP_HttpPool_TaskReset(t.poolName(), t.taskName()); }, After::Reset,
     Notified::ByTheSame},
    {"run", [](const Target& t) { ZEP_HttpPool_TaskRun(t.poolName(), t.taskName(), nullptr); },
     After::RunAgain, Notified::ByTheSame},
    {"reset and run",
     [](const Target& t) {
       ZEP_HttpPool_TaskReset(t.poolName(), t.taskName());
       ZEP_HttpPool_TaskRun(t.poolName(), t.taskName(), nullptr);
     },
     After::RunAgain, Notified::ByTheSame},
    {"destroy", [](const Target& t) { ZEP_HttpPool_Destroy(t.poolName()); }, After::NoPool, Notified::No},
    {"create", [](const Target& t) { ZEP_HttpPool_Create(t.poolName()); }, After::Unchanged,
     Notified::ByTheSame},
    {"destroy and create",
     [](const Target& t) {
       ZEP_HttpPool_Destroy(t.poolName());
       ZEP_HttpPool_Create(t.poolName());
     },
     After::NoTask, Notified::No},
    {"remove and add",
     [](const Target& t) {
       ZEP_HttpPool_RemoveTask(t.poolName(), t.taskName());
       ZEP_HttpPool_AddTask(t.poolName(), t.taskName());
     },
     After::Reset, Notified::ByTheSame},
    {"clear and add",
     [](const Target& t) {
       ZEP_HttpPool_ClearTask(t.poolName());
       ZEP_HttpPool_AddTask(t.poolName(), t.taskName());
     },
     After::Reset, Notified::ByTheSame},
    {"add", [](const Target& t) { ZEP_HttpPool_AddTask(t.poolName(), t.taskName()); }, After::Unchanged,
     Notified::ByTheSame},
    {"set properties", &setEverything, After::Unchanged, Notified::ByTheSame},
    {"read", &readEverything, After::Unchanged, Notified::ByTheSame},
    {"other function", [](const Target& t) { ZEP_HttpPool_SetPoolProc(t.poolName(), &otherNotified); },
     After::Unchanged, Notified::ByTheOther},
    {"no function", [](const Target& t) { ZEP_HttpPool_SetPoolProc(t.poolName(), nullptr); },
     After::Unchanged, Notified::No},
    {"turn", [](const Target&) { ZEP_RunLoop_Run(30); }, After::Unchanged, Notified::ByTheSame},
    // Long enough for the beat of the registry that deletes destroyed pools.
    {"destroy and turn",
     [](const Target& t) {
       ZEP_HttpPool_Destroy(t.poolName());
       ZEP_RunLoop_Run(400);
     },
     After::NoPool, Notified::No},
    {"remove and turn",
     [](const Target& t) {
       ZEP_HttpPool_RemoveTask(t.poolName(), t.taskName());
       ZEP_RunLoop_Run(30);
     },
     After::NoTask, Notified::No},
};

/// The state of the task that the operation is done to.
struct State {
  const char* name;
  /// Where its request leads (see Stations).
  const char* url;
  bool isRun;
  ZEP_HTTP_TASK_STATUS status;
  /// When nothing is done to it, or it is run (again).
  ZEP_HTTP_TASK_STATUS atRest;
  ZEP_HTTP_TASK_STATUS runAgain;
};

const State kStates[] = {
    {"Uninitialized", "done", false, ZEP_HTTP_TASK_UNINITIALIZED, ZEP_HTTP_TASK_UNINITIALIZED,
     ZEP_HTTP_TASK_DONE},
    {"Connecting", "connecting", true, ZEP_HTTP_TASK_REQUESTING, ZEP_HTTP_TASK_REQUESTING,
     ZEP_HTTP_TASK_REQUESTING},
    {"InTheBody", "body", true, ZEP_HTTP_TASK_REQUESTING, ZEP_HTTP_TASK_REQUESTING, ZEP_HTTP_TASK_REQUESTING},
    {"Done", "done", true, ZEP_HTTP_TASK_DONE, ZEP_HTTP_TASK_DONE, ZEP_HTTP_TASK_DONE},
    {"Failed", "failed", true, ZEP_HTTP_TASK_FAILED, ZEP_HTTP_TASK_FAILED, ZEP_HTTP_TASK_FAILED},
    {"InTheRedirect", "redirect", true, ZEP_HTTP_TASK_REQUESTING, ZEP_HTTP_TASK_REQUESTING,
     ZEP_HTTP_TASK_REQUESTING},
    {"InTheHandshake", "handshake", true, ZEP_HTTP_TASK_REQUESTING, ZEP_HTTP_TASK_REQUESTING,
     ZEP_HTTP_TASK_REQUESTING},
    {"AskingForATunnel", "tunnel", true, ZEP_HTTP_TASK_REQUESTING, ZEP_HTTP_TASK_REQUESTING,
     ZEP_HTTP_TASK_REQUESTING},
    // What the process itself holds up goes on when the operations are done; that which waits for the host, when they
    // begin.
    {"Prompting", "prompt", true, ZEP_HTTP_TASK_REQUESTING, ZEP_HTTP_TASK_FAILED, ZEP_HTTP_TASK_FAILED},
    {"AskingForTrust", "texts", true, ZEP_HTTP_TASK_REQUESTING, ZEP_HTTP_TASK_FAILED, ZEP_HTTP_TASK_FAILED},
    {"LookingUp", "look-up", true, ZEP_HTTP_TASK_REQUESTING, ZEP_HTTP_TASK_FAILED, ZEP_HTTP_TASK_FAILED},
    {"AskingForTheProxy", "proxy", true, ZEP_HTTP_TASK_REQUESTING, ZEP_HTTP_TASK_FAILED,
     ZEP_HTTP_TASK_FAILED},
    {"ReadingAFile", "file", true, ZEP_HTTP_TASK_REQUESTING, ZEP_HTTP_TASK_DONE, ZEP_HTTP_TASK_DONE},
};

constexpr const char* kActing = "acting";
constexpr const char* kTargets[] = {"earlier", kActing, "later", "elsewhere"};

/// One operation on one target, with a pool that acts and another one.
struct Case {
  const Operation* operation;
  Target target;
  bool hasActed = false;
  long notifications = 0;

  std::string name() const { return std::string(operation->name) + " on " + target.task; }
};

/// By the name of the acting pool; the other one's is that with a dash.
std::map<std::string, Case>* cases = nullptr;
bool mayAct = false;
long witnessed = 0;
/// Of the pool that outlives the others.
long marked = 0;

void notified(ZEP_HTTP_POOL_TASK_NOTIFY, const char* poolName, const char* taskName, const char*) {
  const std::string pool = poolName;
  const std::string task = taskName;
  if (pool == "witness") {
    ++witnessed;
    return;
  }
  if (pool == "marker") {
    ++marked;
    return;
  }
  Case& one = cases->at(pool.substr(0, pool.find('-')));
  if (pool == one.target.pool && task == one.target.task) {
    ++one.notifications;
  }
  if (mayAct && !one.hasActed && task == kActing) {
    one.hasActed = true;
    one.operation->act(one.target);
  }
}

ZEP_HTTP_TASK_STATUS statusOf(const Target& target) {
  ZEP_HTTP_TASK_STATUS status = kNotWritten;
  ZEP_HttpPool_GetTaskStatus(target.poolName(), target.taskName(), &status);
  return status;
}

class Reentry : public testing::TestWithParam<State> {
 protected:
  Reentry() {
    setenv("ZEP_URL_TIMEOUT_MS", "3600000", 1);
    if (std::string(GetParam().url) == "texts") {
      untrusted_.emplace(NginxServer::Options{.certificate = authority_.selfSigned()});
      ZEP_TrustPanel_SetRunner([](const char*, void*) { return 0; }, nullptr);
    }
    stations_ = std::make_unique<Stations>(untrusted_ ? untrusted_->tlsUrl("/text") : "", folder_.path());
    cases = &cases_;
    mayAct = false;
    witnessed = 0;
    ZEP_HttpPool_Create("witness");
    ZEP_HttpPool_SetPoolProc("witness", &notified);
    ZEP_HttpPool_AddTask("witness", "task");
  }

  void makeCases() {
    for (const Operation& operation : kOperations) {
      for (const char* target : kTargets) {
        const std::string acting = std::to_string(cases_.size());
        const std::string other = acting + "-other";
        const bool isElsewhere = std::string(target) == "elsewhere";
        Case& one = cases_[acting];
        one.operation = &operation;
        one.target = {.pool = isElsewhere ? other : acting, .task = target};
        for (const std::string& pool : {acting, other}) {
          ZEP_HttpPool_Create(pool.c_str());
          ZEP_HttpPool_SetPoolProc(pool.c_str(), &notified);
        }
        for (const char* task : {"earlier", kActing, "later"}) {
          ZEP_HttpPool_AddTask(acting.c_str(), task);
        }
        ZEP_HttpPool_AddTask(other.c_str(), "elsewhere");
        bringToItsState(one.target);
      }
    }
  }
  void bringToItsState(const Target& target) {
    ZEP_HttpPool_SetTaskProperty(target.poolName(), target.taskName(), ZEP_HTTP_TASK_PROP_URL,
                                 stations_->url(GetParam().url).c_str());
    if (GetParam().isRun) {
      ZEP_HttpPool_TaskRun(target.poolName(), target.taskName(), nullptr);
    }
  }
  bool areReady() {
    const int count = Stations::most(GetParam().url, static_cast<int>(cases_.size()));
    return (!GetParam().isRun || stations_->standing(GetParam().url) >= count) &&
           std::all_of(cases_.begin(), cases_.end(), [](const auto& entry) {
             return statusOf(entry.second.target) == GetParam().status && entry.second.notifications > 0;
           });
  }
  /// Whoever stops a request that asks the host for something waits for the answer, so it comes from elsewhere.
  void letAllAct() {
    std::thread person;
    if (Stations::waitsForTheHost(GetParam().url)) {
      person = std::thread([] { Stations::release(); });
    }
    mayAct = true;
    EXPECT_TRUE(turnUntil([&] {
      return std::all_of(cases_.begin(), cases_.end(),
                         [](const auto& entry) { return entry.second.hasActed; });
    }));
    if (person.joinable()) {
      person.join();
    }
    Stations::release();
  }
  static ZEP_HTTP_TASK_STATUS expectedStatus(const Case& one) {
    switch (one.operation->after) {
      case After::Unchanged:
        return GetParam().atRest;
      case After::Reset:
        return ZEP_HTTP_TASK_UNINITIALIZED;
      case After::RunAgain:
        return GetParam().runAgain;
      case After::NoTask:
        return ZEP_HTTP_TASK_NOT_EXIST;
      default:
        return kNotWritten;
    }
  }
  void expectStatuses(const char* when) {
    for (const auto& [pool, one] : cases_) {
      EXPECT_EQ(statusOf(one.target), expectedStatus(one)) << one.name() << " " << when;
    }
  }
  void turnForBeats(long count) {
    const long end = witnessed + count;
    ASSERT_TRUE(turnUntil([&] { return witnessed >= end; }));
  }
  void expectNotifications() {
    for (auto& [pool, one] : cases_) {
      one.notifications = 0;
    }
    otherNotifications = 0;
    turnForBeats(10);
    EXPECT_GT(otherNotifications, 0);
    for (const auto& [pool, one] : cases_) {
      EXPECT_EQ(one.notifications > 0, one.operation->notified == Notified::ByTheSame) << one.name();
    }
  }
  void destroyEverything() {
    for (const auto& [pool, one] : cases_) {
      for (int twice = 0; twice < 2; ++twice) {
        ZEP_HttpPool_Destroy(pool.c_str());
        ZEP_HttpPool_Destroy((pool + "-other").c_str());
      }
    }
    EXPECT_EQ(snapshot(),
              R"([{"poolName":"witness","taskList":[{"taskName":"task","taskStatus":"uninitialized"}]}])");
    ZEP_HttpPool_Destroy("witness");
    turnUntilDeleted();
    for (auto& [pool, one] : cases_) {
      one.notifications = 0;
    }
    const long before = witnessed;
    marked = 0;
    ASSERT_TRUE(turnUntil([] { return marked >= 5; }));
    EXPECT_EQ(witnessed, before);
    for (const auto& [pool, one] : cases_) {
      EXPECT_EQ(one.notifications, 0) << one.name() << " after the end";
    }
    ZEP_HttpPool_Destroy("marker");
  }
  /// What was destroyed goes with the registry's next tick, every 300 ms. Timers that are due have their turn in one
  /// pass, so a later one's shows that the registry's has been.
  void turnUntilDeleted() {
    ZEP_HttpPool_Create("marker");
    ZEP_HttpPool_SetPoolProc("marker", &notified);
    ZEP_HttpPool_AddTask("marker", "task");
    const auto due = std::chrono::steady_clock::now() + std::chrono::milliseconds(400);
    ASSERT_TRUE(turnUntil([&] {
      if (std::chrono::steady_clock::now() < due) {
        marked = 0;
      }
      return marked >= 2;
    }));
  }

  CertificateAuthority authority_;
  std::optional<NginxServer> untrusted_;
  TemporaryFolder folder_;
  std::unique_ptr<Stations> stations_;
  std::map<std::string, Case> cases_;
};

TEST_P(Reentry, EveryOperationOnEveryTarget) {
  makeCases();
  ASSERT_TRUE(turnUntil([&] { return areReady(); }));
  letAllAct();
  ASSERT_TRUE(turnUntil([&] {
    return std::all_of(cases_.begin(), cases_.end(), [](const auto& entry) {
      return statusOf(entry.second.target) == expectedStatus(entry.second);
    });
  })) << (expectStatuses("at last"), "");
  // Beyond the beat that deletes the destroyed pools.
  turnForBeats(40);
  expectStatuses("later");
  expectNotifications();
  destroyEverything();
}

INSTANTIATE_TEST_SUITE_P(All, Reentry, testing::ValuesIn(kStates),
                         [](const auto& info) { return std::string(info.param.name); });

// --- Loops inside notifications. ---

constexpr int kDepth = 20;
bool mayDescend = false;
int depth = 0;
bool isDeepest = false;
long notificationsOfAll = 0;
void (*inTheDepth)() = nullptr;

/// Turns the loop until the pool behind it has been notified inside that turn.
void descend(ZEP_HTTP_POOL_TASK_NOTIFY, const char* pool, const char*, const char*) {
  ++notificationsOfAll;
  if (!mayDescend || std::atoi(pool) != depth || isDeepest) {
    return;
  }
  ++depth;
  if (depth < kDepth) {
    EXPECT_TRUE(turnUntil([] { return isDeepest; }));
  } else {
    isDeepest = true;
    inTheDepth();
  }
  --depth;
}

class NestedLoops : public testing::Test {
 protected:
  NestedLoops() : stations_("", folder_.path()) {
    mayDescend = false;
    isDeepest = false;
    setenv("ZEP_URL_TIMEOUT_MS", "3600000", 1);
    for (int pool = 0; pool < kDepth; ++pool) {
      const std::string name = std::to_string(pool);
      ZEP_HttpPool_Create(name.c_str());
      ZEP_HttpPool_SetPoolProc(name.c_str(), &descend);
      ZEP_HttpPool_AddTask(name.c_str(), "task");
      ZEP_HttpPool_SetTaskProperty(name.c_str(), "task", ZEP_HTTP_TASK_PROP_URL,
                                   stations_.url("head").c_str());
      ZEP_HttpPool_TaskRun(name.c_str(), "task", nullptr);
    }
  }
  ~NestedLoops() override {
    for (int pool = 0; pool < kDepth; ++pool) {
      ZEP_HttpPool_Destroy(std::to_string(pool).c_str());
    }
    // Until they are deleted they notify.
    EXPECT_TRUE(turnUntil([] {
      const long before = notificationsOfAll;
      ZEP_RunLoop_Run(50);
      return notificationsOfAll == before;
    }));
  }
  void descendWhenAllStand() {
    ASSERT_TRUE(turnUntil([&] { return stations_.standing("head") == kDepth; }));
    mayDescend = true;
    ASSERT_TRUE(turnUntil([] { return isDeepest && depth == 0; }));
  }

  TemporaryFolder folder_;
  Stations stations_;
};

Stations* stationsOfTheDepth = nullptr;

TEST_F(NestedLoops, PoolsDestroyedInTheDepthStayUntilTheirNotificationsAreOver) {
  stationsOfTheDepth = &stations_;
  inTheDepth = [] {
    for (int pool = 0; pool < kDepth; ++pool) {
      ZEP_HttpPool_Destroy(std::to_string(pool).c_str());
    }
    // A pool of no notification goes; it tells that the registry's beat has come in here.
    ZEP_HttpPool_Create("beside");
    ZEP_HttpPool_AddTask("beside", "task");
    ZEP_HttpPool_SetTaskProperty("beside", "task", ZEP_HTTP_TASK_PROP_URL,
                                 stationsOfTheDepth->url("body").c_str());
    ZEP_HttpPool_TaskRun("beside", "task", nullptr);
    EXPECT_TRUE(turnUntil([] { return stationsOfTheDepth->standing("body") == 1; }));
    ZEP_HttpPool_Destroy("beside");
    EXPECT_TRUE(turnUntil([] { return stationsOfTheDepth->left("body") == 1; }));
    EXPECT_EQ(stationsOfTheDepth->left("head"), 0) << "a pool was deleted beneath its own notification";
  };
  ASSERT_NO_FATAL_FAILURE(descendWhenAllStand());
  EXPECT_TRUE(turnUntil([&] { return stations_.left("head") == kDepth; })) << "they are deleted in the end";
  EXPECT_EQ(snapshot(), "[]");
}

TEST_F(NestedLoops, EveryTaskRemovedAndMadeAnewInTheDepth) {
  stationsOfTheDepth = &stations_;
  inTheDepth = [] {
    for (int pool = 0; pool < kDepth; ++pool) {
      const std::string name = std::to_string(pool);
      ZEP_HttpPool_ClearTask(name.c_str());
      ZEP_HttpPool_AddTask(name.c_str(), "task");
      ZEP_HttpPool_SetTaskProperty(name.c_str(), "task", ZEP_HTTP_TASK_PROP_URL,
                                   stationsOfTheDepth->url("done").c_str());
      ZEP_HttpPool_TaskRun(name.c_str(), "task", nullptr);
    }
  };
  ASSERT_NO_FATAL_FAILURE(descendWhenAllStand());
  EXPECT_TRUE(turnUntil([&] { return stations_.left("head") == kDepth; }));
  for (int pool = 0; pool < kDepth; ++pool) {
    const Target target{.pool = std::to_string(pool), .task = "task"};
    EXPECT_TRUE(turnUntil([&] { return statusOf(target) == ZEP_HTTP_TASK_DONE; })) << pool;
  }
}

}  // namespace
}  // namespace test
