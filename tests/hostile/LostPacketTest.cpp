// Packets that are lost on their way while requests are running, and a network that goes.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/hostile/Attack.h"
#include "tests/hostile/CutServer.h"
#include "tests/hostile/Namespace.h"
#include "tests/hostile/PacketFilter.h"
#include "tests/hostile/TrustedAuthority.h"

namespace test {
namespace {

using Verdict = PacketFilter::Verdict;

std::string verdictOf(const testing::TestParamInfo<Verdict>& info) {
  return nameOf(info.param);
}

/// Whether this process has a connection to the port, or makes one, tcp(7).
bool isConnectedTo(int port) {
  constexpr unsigned kEstablished = 1;
  constexpr unsigned kSynSent = 2;
  std::ifstream table("/proc/thread-self/net/tcp");
  std::string line;
  std::getline(table, line);
  while (std::getline(table, line)) {
    unsigned remote = 0;
    unsigned state = 0;
    if (std::sscanf(line.c_str(), " %*d: %*x:%*x %*x:%x %x", &remote, &state) != 2) {
      ADD_FAILURE() << "no connection: " << line;
    }
    if (remote == static_cast<unsigned>(port) && (state == kEstablished || state == kSynSent)) {
      return true;
    }
  }
  return false;
}

class LostPackets : public testing::TestWithParam<Verdict> {
 protected:
  PacketFilter filter_;
};

/// For a connection that stands there is no difference.
TEST_P(LostPackets, AreSilenceUntilTheyComeThrough) {
  neverTimeOut();
  HostPool pool;
  HostPool other("other");
  for (const Cut& cut : cutsOfAnAnswer()) {
    std::atomic<bool> isCut = false;
    CutServer server(cut, [&](int port) {
      filter_.stop(port, GetParam());
      isCut = true;
    });
    const long before = filter_.stopped();
    pool.add(cut.name, server.call());
    pool.launch(cut.name);
    ASSERT_TRUE(turnUntil([&] { return isCut && filter_.stopped() > before + 1; })) << cut.name;
    EXPECT_EQ(pool.status(cut.name), ZEP_HTTP_TASK_REQUESTING) << cut.name;
    expectServes(other);
    filter_.letThrough();
    ASSERT_TRUE(pool.await()) << cut.name;
    EXPECT_TRUE(pool.outcome(cut.name) == done(cutBody())) << cut.name;
  }
}

INSTANTIATE_TEST_SUITE_P(All, LostPackets,
                         testing::Values(Verdict::Lost, Verdict::Prohibited, Verdict::HostUnreachable),
                         verdictOf);

using Leave = void (*)(const char* pool, const char* task);

constexpr std::array<Leave, 4> kLeaves = {
    [](const char* pool, const char* task) { ZEP_HttpPool_TaskReset(pool, task); },
    [](const char* pool, const char* task) { ZEP_HttpPool_RemoveTask(pool, task); },
    [](const char* pool, const char*) { ZEP_HttpPool_ClearTask(pool); },
    [](const char* pool, const char*) { ZEP_HttpPool_Destroy(pool); },
};

/// A task in a pool of its own, whose packets are lost at the cut; without a cut, as it connects.
class LostTask {
 public:
  LostTask(PacketFilter& filter, const std::optional<Cut>& cut, Leave leave, int number)
      : leave_(leave),
        isCut_(!cut),
        server_(cut.value_or(cutsOfAnAnswer().front()),
                [this, &filter](int port) {
                  filter.stop(port, Verdict::Lost);
                  isCut_ = true;
                }),
        pool_("pool " + std::to_string(number)) {
    if (!cut) {
      filter.stop(server_.port(), Verdict::Lost);
    }
    pool_.add("task", server_.call());
    pool_.launch("task");
  }

  bool isLost() const { return isCut_ && isConnected(); }
  bool isConnected() const { return isConnectedTo(server_.port()); }
  void leave() { leave_(pool_.name().c_str(), "task"); }
  /// Whether nothing of it is told.
  bool isForgotten() const {
    return pool_.status("task") != ZEP_HTTP_TASK_REQUESTING && pool_.outcome("task") == Outcome{};
  }

 private:
  const Leave leave_;
  std::atomic<bool> isCut_;
  CutServer server_;
  HostPool pool_;
};

TEST(LostTasks, LetTheHostLeaveAtOnce) {
  neverTimeOut();
  PacketFilter filter;
  HostPool other;
  const std::vector<Cut> cuts = cutsOfAnAnswer();
  const std::vector<std::optional<Cut>> places = {std::nullopt, cuts[2], cuts[3]};
  std::vector<std::unique_ptr<LostTask>> tasks;
  for (const std::optional<Cut>& place : places) {
    for (const Leave leave : kLeaves) {
      tasks.push_back(std::make_unique<LostTask>(filter, place, leave, static_cast<int>(tasks.size())));
    }
  }
  for (const auto& task : tasks) {
    ASSERT_TRUE(turnUntil([&] { return task->isLost(); }));
  }
  for (const auto& task : tasks) {
    task->leave();
    EXPECT_TRUE(task->isForgotten());
  }
  for (std::size_t i = 0; i < tasks.size(); ++i) {
    EXPECT_TRUE(turnUntil([&] { return !tasks[i]->isConnected(); })) << i;
  }
  for (const auto& task : tasks) {
    EXPECT_TRUE(task->isForgotten());
  }
  expectServes(other);
}

TEST(LostTasks, EndWithTheTimeOutWhereverTheyStand) {
  setenv("ZEP_URL_TIMEOUT_MS", "3000", 1);
  PacketFilter filter;
  TrustedAuthority authority;
  const auto lose = [&](int port) { filter.stop(port, Verdict::Lost); };
  CutServers servers = serversOf(cutsOfAnAnswer(), lose, authority.identity());
  // As it connects.
  servers.push_back(std::make_unique<CutServer>(cutsOfAnAnswer().front(), [](int) {}));
  filter.stop(servers.back()->port(), Verdict::Lost);

  HostPool pool;
  expectAll(servers, pool, failed(4));
  expectServes(pool);
  filter.letThrough();
  for (const auto& server : servers) {
    EXPECT_TRUE(pool.run(server->call()) == done(cutBody())) << server->name();
  }
}

TEST(LostInterface, ThatComesBackLetsTheRequestGoOn) {
  neverTimeOut();
  enterNamespaces(CLONE_NEWNET);
  switchLoopback(true);
  HostPool pool;
  for (const Cut& cut : cutsOfAnAnswer()) {
    std::atomic<bool> isCut = false;
    CutServer server(cut, [&](int) {
      switchLoopback(false);
      isCut = true;
    });
    pool.add(cut.name, server.call());
    pool.launch(cut.name);
    ASSERT_TRUE(turnUntil([&] { return isCut.load(); })) << cut.name;
    turnFor(std::chrono::milliseconds(100));
    EXPECT_EQ(pool.status(cut.name), ZEP_HTTP_TASK_REQUESTING) << cut.name;
    switchLoopback(true);
    ASSERT_TRUE(pool.await()) << cut.name;
    EXPECT_TRUE(pool.outcome(cut.name) == done(cutBody())) << cut.name;
  }
}

}  // namespace
}  // namespace test
