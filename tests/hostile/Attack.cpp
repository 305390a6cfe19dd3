#include "tests/hostile/Attack.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <utility>

#include "tests/hostile/TlsPeer.h"

namespace test {
namespace {

long peakKilobytes() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmHWM:") {
      long kilobytes = 0;
      status >> kilobytes;
      return kilobytes;
    }
  }
  ADD_FAILURE() << "the peak of memory is not told";
  return 0;
}

}  // namespace

MemoryPeak::MemoryPeak() : before_(0) {
  // From here on the peak counts from what is resident now.
  std::ofstream peak("/proc/self/clear_refs");
  peak << "5" << std::flush;
  EXPECT_TRUE(peak) << "the peak of memory cannot be set back";
  before_ = peakKilobytes();
}

long MemoryPeak::megabytes() const {
  return (peakKilobytes() - before_) / 1024;
}

void expectEnds(const std::vector<Attack>& attacks, const Call& call, const std::string& origin,
                const Service& service) {
  std::vector<std::unique_ptr<RawServer>> servers;
  HostPool pool;
  service(pool);
  const MemoryPeak peak;
  for (const Attack& attack : attacks) {
    servers.push_back(std::make_unique<RawServer>(attack.script));
    Call attacked = call;
    attacked.url = origin + ":" + std::to_string(servers.back()->port()) + "/";
    pool.add(attack.name, attacked);
  }
  for (const Attack& attack : attacks) {
    pool.launch(attack.name);
  }
  EXPECT_TRUE(pool.await(std::chrono::minutes(1))) << taskList(pool.name());
  for (std::size_t i = 0; i < attacks.size(); ++i) {
    const Outcome outcome = pool.outcome(attacks[i].name);
    EXPECT_TRUE(outcome == attacks[i].expected || outcome == attacks[i].orElse)
        << attacks[i].name << ": " << outcome;
    EXPECT_GE(servers[i]->connections(), 1) << attacks[i].name;
  }
  EXPECT_LT(peak.megabytes(), kSpareMegabytes);
  service(pool);
}

void expectNobodyHeldUp(const std::vector<Attack>& floods, const std::string& origin,
                        const Service& service) {
  std::vector<std::unique_ptr<RawServer>> servers;
  HostPool flooded("flooded");
  HostPool pool;
  // OpenSSL finds out about the authority's certificate once, with a lock that the thread sanitizer does not see.
  service(pool);
  for (const Attack& flood : floods) {
    servers.push_back(std::make_unique<RawServer>(flood.script));
    flooded.add(flood.name, {.url = origin + ":" + std::to_string(servers.back()->port()) + "/"});
    flooded.launch(flood.name);
  }
  const auto expectFlowing = [&] {
    constexpr std::size_t kFlow = 1 << 16;
    std::vector<std::size_t> enough;
    for (const Attack& flood : floods) {
      enough.push_back(*flood.sent + kFlow);
    }
    for (std::size_t i = 0; i < floods.size(); ++i) {
      EXPECT_TRUE(turnUntil([&] { return *floods[i].sent > enough[i]; }))
          << floods[i].name << " stands still";
      EXPECT_EQ(flooded.status(floods[i].name), ZEP_HTTP_TASK_REQUESTING) << floods[i].name;
    }
  };
  expectFlowing();
  service(pool);
  expectFlowing();
  for (const Attack& flood : floods) {
    ZEP_HttpPool_TaskReset(flooded.name().c_str(), flood.name.c_str());
  }
  service(pool);
}

Attack answering(const std::string& name, const std::string& text, const Outcome& expected) {
  return {.name = name, .script = RawServer::answering(text), .expected = expected};
}

void expectServes(HostPool& pool) {
  RawServer good(RawServer::answering("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood"));
  EXPECT_EQ(pool.run({.url = good.url("/")}), done("good"));
}

Service servingByTls(std::shared_ptr<const TlsIdentity> identity) {
  return [identity = std::move(identity)](HostPool& pool) {
    RawServer good([&](RawServer::Connection& connection) {
      TlsPeer peer(connection, *identity);
      if (peer.shakeHands()) {
        peer.readRequest();
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood");
        connection.readToEnd();
      }
    });
    EXPECT_EQ(pool.run({.url = "https://127.0.0.1:" + std::to_string(good.port()) + "/"}), done("good"));
  };
}

void stall(RawServer::Connection& connection) {
  connection.readToEnd();
}

}  // namespace test
