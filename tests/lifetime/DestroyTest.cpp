// Tasks that are reset, removed, cleared or destroyed with their pool while their requests stand somewhere: the
// requests end, and nothing is heard of them any more.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/host/HostPool.h"
#include "tests/lifetime/Stations.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

constexpr int kTasks = 5;

struct Way {
  const char* name;
  std::function<void(const char* pool)> end;
  ZEP_HTTP_TASK_STATUS statusAfter;
};

const Way kWays[] = {
    {"reset",
     [](const char* pool) {
       for (int task = 0; task < kTasks; ++task) {
         ZEP_HttpPool_TaskReset(pool, std::to_string(task).c_str());
       }
     },
     ZEP_HTTP_TASK_UNINITIALIZED},
    {"remove",
     [](const char* pool) {
       for (int task = 0; task < kTasks; ++task) {
         ZEP_HttpPool_RemoveTask(pool, std::to_string(task).c_str());
       }
     },
     ZEP_HTTP_TASK_NOT_EXIST},
    {"clear", [](const char* pool) { ZEP_HttpPool_ClearTask(pool); }, ZEP_HTTP_TASK_NOT_EXIST},
    {"destroy", [](const char* pool) { ZEP_HttpPool_Destroy(pool); }, kNotWritten},
};
constexpr int kRequests = kTasks * static_cast<int>(std::size(kWays));

/// The stations whose server sees the connections end. That of a prompt is kept for other requests.
bool hasConnections(const std::string& station) {
  const std::vector<std::string> with = {"head",     "body",   "receiving", "redirect",
                                         "draining", "tunnel", "handshake"};
  return std::find(with.begin(), with.end(), station) != with.end();
}

class EndAt : public testing::TestWithParam<std::string> {
 protected:
  EndAt() {
    setenv("ZEP_URL_TIMEOUT_MS", "3600000", 1);
    if (GetParam() == "texts") {
      untrusted_.emplace(NginxServer::Options{.certificate = authority_.selfSigned()});
    }
    stations_ = std::make_unique<Stations>(untrusted_ ? untrusted_->tlsUrl("/text") : "", folder_.path());
  }
  void launchAll() {
    for (const Way& way : kWays) {
      pools_.push_back(std::make_unique<HostPool>(way.name));
      for (int task = 0; task < kTasks; ++task) {
        pools_.back()->add(std::to_string(task),
                           {.url = stations_->url(GetParam()), .data = Stations::body(GetParam())});
        ASSERT_EQ(pools_.back()->launch(std::to_string(task)), ZEP_HTTP_TASK_REQUESTING);
      }
    }
    const int wanted = Stations::most(GetParam(), kRequests);
    ASSERT_TRUE(turnUntil([&] { return stations_->standing(GetParam()) >= wanted; }));
  }
  /// By another thread, because whoever stops a request that waits for the host waits with it.
  void endAll() {
    std::thread person;
    if (Stations::waitsForTheHost(GetParam())) {
      person = std::thread([] { Stations::release(); });
    }
    for (const Way& way : kWays) {
      way.end(way.name);
    }
    if (person.joinable()) {
      person.join();
    }
  }
  void expectStatuses() {
    for (std::size_t way = 0; way < pools_.size(); ++way) {
      for (int task = 0; task < kTasks; ++task) {
        EXPECT_EQ(pools_[way]->status(std::to_string(task)), kWays[way].statusAfter) << kWays[way].name;
        // A reset leaves the texts as they are, and a request that goes on may have come to its result before.
        if (!Stations::goesOn(GetParam())) {
          EXPECT_EQ(pools_[way]->property(std::to_string(task), ZEP_HTTP_TASK_PROP_RESULT), "")
              << kWays[way].name;
        }
      }
    }
  }
  void turnForBeats(long count) {
    const long end = witness_.notifications() + count;
    ASSERT_TRUE(turnUntil([&] { return witness_.notifications() >= end; }));
  }

  CertificateAuthority authority_;
  std::optional<NginxServer> untrusted_;
  TemporaryFolder folder_;
  std::unique_ptr<Stations> stations_;
  HostPool witness_{"witness"};
  std::vector<std::unique_ptr<HostPool>> pools_;
};

TEST_P(EndAt, IsForGood) {
  witness_.add("task", {.url = ""});
  ASSERT_NO_FATAL_FAILURE(launchAll());
  endAll();
  // A destroyed pool has gone after a beat of the registry, which has 300 ms.
  HostPool& destroyed = *pools_.back();
  turnForBeats(40);
  ASSERT_TRUE(turnUntil([&] {
    const long before = destroyed.notifications();
    turnForBeats(5);
    return destroyed.notifications() == before;
  }));
  if (hasConnections(GetParam())) {
    EXPECT_TRUE(waitUntil([&] { return stations_->left(GetParam()) >= kRequests; }));
  } else if (GetParam() == "connecting") {
    EXPECT_TRUE(waitUntil([&] { return stations_->standing(GetParam()) == 0; }));
  }
  expectStatuses();

  // What is still held up goes on now, and finds nobody.
  Stations::release();
  std::vector<long> before;
  for (const auto& pool : pools_) {
    before.push_back(pool->notifications());
  }
  turnForBeats(20);
  expectStatuses();
  EXPECT_GT(pools_[0]->notifications(), before[0]) << "a task that was reset is still notified of";
  for (std::size_t way = 1; way < pools_.size(); ++way) {
    EXPECT_EQ(pools_[way]->notifications(), before[way]) << kWays[way].name;
  }
}

INSTANTIATE_TEST_SUITE_P(All, EndAt, testing::ValuesIn(Stations::names()), [](const auto& info) {
  std::string name = info.param;
  std::erase(name, '-');
  return name;
});

}  // namespace
}  // namespace test
