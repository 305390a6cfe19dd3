// Packets that are lost or refused on their way while requests are running, and a name server that goes.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/hostile/Attack.h"
#include "tests/hostile/Http2Peer.h"
#include "tests/hostile/Namespace.h"
#include "tests/hostile/PacketFilter.h"
#include "tests/hostile/TlsPeer.h"
#include "tests/support/Files.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

using Verdict = PacketFilter::Verdict;

constexpr std::size_t kBodyBytes = 1 << 20;
const std::string kHead = "HTTP/1.1 200 OK\r\n";

std::string lengthField(std::size_t bytes) {
  return "Content-Length: " + std::to_string(bytes) + "\r\n\r\n";
}

void neverTimeOut() {
  setenv("ZEP_URL_TIMEOUT_MS", "3600000", 1);
}

/// What the server has sent when the network goes: all up to there, and then the rest.
struct Cut {
  const char* name;
  std::string before;
  std::string behind;
  std::string post = {};
};

/// Its blocks are numbered.
const std::string kBody = NginxServer::bigBody(kBodyBytes);

std::vector<Cut> cutsOfAnAnswer() {
  const std::string half = kBody.substr(0, kBodyBytes / 2);
  const std::string rest = kBody.substr(kBodyBytes / 2);
  const std::string head = kHead + lengthField(kBodyBytes);
  return {
      {"before the answer", "", head + kBody},
      {"in the head", head.substr(0, 20), head.substr(20) + kBody},
      {"in the body", head + half, rest},
      {"in the request", "", head + kBody, std::string(4 << 20, 'p')},
  };
}

/// A server that has something done at the cut of its first answer; its later answers are whole.
class CutServer {
 public:
  CutServer(Cut cut, std::function<void(int port)> atTheCut, std::shared_ptr<TlsIdentity> identity = nullptr)
      : cut_(std::move(cut)),
        atTheCut_(std::move(atTheCut)),
        identity_(std::move(identity)),
        server_([this](RawServer::Connection& connection) { serve(connection); }) {
    port_ = server_.port();
  }

  const char* name() const { return cut_.name; }
  int port() const { return port_; }
  Call call() const {
    return {.url = (identity_ ? "https" : "http") + server_.url("/").substr(4), .post = cut_.post};
  }

 private:
  void serve(RawServer::Connection& connection) {
    if (identity_) {
      TlsPeer peer(connection, *identity_);
      if (peer.shakeHands()) {
        answer(peer);
      }
    } else {
      answer(connection);
    }
    connection.readToEnd();
  }
  template <typename Peer>
  void answer(Peer& peer) {
    peer.readRequest();
    if (cut_.post.empty()) {
      peer.send(cut_.before);
      cutOnce();
    } else {
      peer.read(1000);
      cutOnce();
      peer.read(cut_.post.size() - 1000);
      peer.send(cut_.before);
    }
    peer.send(cut_.behind);
  }
  void cutOnce() {
    if (!isCut_.exchange(true)) {
      atTheCut_(port_);
    }
  }

  const Cut cut_;
  const std::function<void(int)> atTheCut_;
  const std::shared_ptr<TlsIdentity> identity_;
  std::atomic<int> port_{0};
  std::atomic<bool> isCut_{false};
  RawServer server_;
};

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

/// An authority that the library trusts. Before the first request.
class TrustedAuthority : public CertificateAuthority {
 public:
  TrustedAuthority() { setenv("SSL_CERT_FILE", rootFile().c_str(), 1); }
  std::shared_ptr<TlsIdentity> identity() {
    return std::make_shared<TlsIdentity>(good(), TlsIdentity::Offer{});
  }
};

std::string nameOf(const testing::TestParamInfo<Verdict>& info) {
  const char* const names[] = {"Lost",           "Reset",          "Prohibited", "HostUnreachable",
                               "NetUnreachable", "PortUnreachable"};
  return names[static_cast<int>(info.param)];
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
    EXPECT_TRUE(pool.outcome(cut.name) == done(kBody)) << cut.name;
  }
}

INSTANTIATE_TEST_SUITE_P(All, LostPackets,
                         testing::Values(Verdict::Lost, Verdict::Prohibited, Verdict::HostUnreachable),
                         nameOf);

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
  const auto identity = authority.identity();
  const auto lose = [&](int port) { filter.stop(port, Verdict::Lost); };
  std::vector<std::unique_ptr<CutServer>> servers;
  for (const Cut& cut : cutsOfAnAnswer()) {
    servers.push_back(std::make_unique<CutServer>(cut, lose));
    servers.push_back(std::make_unique<CutServer>(cut, lose, identity));
  }
  // As it connects.
  servers.push_back(std::make_unique<CutServer>(cutsOfAnAnswer().front(), [](int) {}));
  filter.stop(servers.back()->port(), Verdict::Lost);

  HostPool pool;
  for (std::size_t i = 0; i < servers.size(); ++i) {
    pool.add(std::to_string(i), servers[i]->call());
    pool.launch(std::to_string(i));
  }
  ASSERT_TRUE(pool.await());
  for (std::size_t i = 0; i < servers.size(); ++i) {
    EXPECT_EQ(pool.outcome(std::to_string(i)), failed(4)) << servers[i]->name();
  }
  expectServes(pool);
  filter.letThrough();
  for (const auto& server : servers) {
    EXPECT_TRUE(pool.run(server->call()) == done(kBody)) << server->name();
  }
}

TEST(RejectedPackets, ByAResetNeverMakeHalfAnAnswer) {
  neverTimeOut();
  PacketFilter filter;
  TrustedAuthority authority;
  const auto identity = authority.identity();
  const auto reset = [&](int port) { filter.stop(port, Verdict::Reset); };
  std::vector<Cut> cuts = cutsOfAnAnswer();
  // What is left of the head comes alone: its receipt is what is refused.
  cuts[1].behind = "X-Part: of the head\r\n";
  const std::string half = kBody.substr(0, kBodyBytes / 2);
  cuts.push_back({"in a body without a length", kHead + "\r\n" + half, half});
  cuts.push_back({"in chunks", kHead + "Transfer-Encoding: chunked\r\n\r\n80000\r\n" + half + "\r\n",
                  "80000\r\n" + half + "\r\n0\r\n\r\n"});
  std::vector<std::unique_ptr<CutServer>> servers;
  for (const Cut& cut : cuts) {
    servers.push_back(std::make_unique<CutServer>(cut, reset));
    servers.push_back(std::make_unique<CutServer>(cut, reset, identity));
  }
  HostPool pool;
  for (std::size_t i = 0; i < servers.size(); ++i) {
    pool.add(std::to_string(i), servers[i]->call());
    pool.launch(std::to_string(i));
  }
  ASSERT_TRUE(pool.await());
  for (std::size_t i = 0; i < servers.size(); ++i) {
    EXPECT_EQ(pool.outcome(std::to_string(i)), failed(1)) << servers[i]->name();
  }
  expectServes(pool);
  filter.letThrough();
  EXPECT_TRUE(pool.run(servers.front()->call()) == done(kBody));
}

TEST(RejectedPackets, ByAResetEndAStreamOfHttp2) {
  neverTimeOut();
  PacketFilter filter;
  TrustedAuthority authority;
  const TlsIdentity identity(authority.good(), {.http2 = true});
  std::atomic<int> port = 0;
  RawServer server([&](RawServer::Connection& connection) {
    Http2Peer peer(connection, identity);
    EXPECT_TRUE(peer.takeRequest());
    peer.send(frame(FrameType::Headers, kEndHeaders, 1, statusOk()) +
              frame(FrameType::Data, 0, 1, kBody.substr(0, 16384)));
    filter.stop(port, Verdict::Reset);
    peer.send(frame(FrameType::Data, 0, 1, kBody.substr(0, 16384)));
    connection.readToEnd();
  });
  port = server.port();
  HostPool pool;
  EXPECT_EQ(pool.run({.url = "https" + server.url("/").substr(4)}), failed(1));
  expectServes(pool);
}

TEST(RejectedPackets, AsItConnectsFailTheTaskAtOnce) {
  neverTimeOut();
  PacketFilter filter;
  HostPool pool;
  struct Refusal {
    Verdict verdict;
    int error;
  };
  for (const Refusal& refusal :
       {Refusal{Verdict::Reset, 2}, Refusal{Verdict::Prohibited, 2}, Refusal{Verdict::HostUnreachable, 2},
        Refusal{Verdict::PortUnreachable, 2}, Refusal{Verdict::NetUnreachable, 1}}) {
    CutServer server(cutsOfAnAnswer().front(), [](int) {});
    filter.stop(server.port(), refusal.verdict);
    EXPECT_EQ(pool.run(server.call()), failed(refusal.error)) << static_cast<int>(refusal.verdict);
    filter.letThrough();
    EXPECT_TRUE(pool.run(server.call()) == done(kBody));
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
    EXPECT_TRUE(pool.outcome(cut.name) == done(kBody)) << cut.name;
  }
}

constexpr int kNamePort = 53;

/// Answers questions for addresses, RFC 1035: all names but "missing.test" are of this machine, and have no other address.
class NameServer {
 public:
  NameServer() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(kNamePort);
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    thread_ = std::thread([this] { serve(); });
  }
  ~NameServer() {
    shutdown(socket_, SHUT_RDWR);
    thread_.join();
    close(socket_);
  }
  NameServer(const NameServer&) = delete;
  NameServer& operator=(const NameServer&) = delete;

 private:
  void serve() const {
    std::array<char, 512> question{};
    sockaddr_in asker{};
    for (;;) {
      socklen_t size = sizeof(asker);
      const ssize_t bytes =
          recvfrom(socket_, question.data(), question.size(), 0, reinterpret_cast<sockaddr*>(&asker), &size);
      if (bytes <= 0) {
        return;
      }
      const std::string answer = answerTo({question.data(), static_cast<std::size_t>(bytes)});
      sendto(socket_, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&asker), size);
    }
  }
  static std::string answerTo(const std::string& question) {
    constexpr std::size_t kHeaderBytes = 12;
    const std::size_t name = question.find('\0', kHeaderBytes);
    if (name == std::string::npos || question.size() < name + 5) {
      return "";
    }
    const std::string asked = question.substr(kHeaderBytes, name + 5 - kHeaderBytes);
    const bool isMissing = asked.find("missing") != std::string::npos;
    const bool isAddress = !isMissing && asked.substr(asked.size() - 4) == std::string("\0\1\0\1", 4);
    using namespace std::string_literals;
    return question.substr(0, 2) + (isMissing ? "\x81\x83"s : "\x81\x80"s) + "\0\1\0"s +
           (isAddress ? "\1"s : "\0"s) + "\0\0\0\0"s + asked +
           (isAddress ? "\xC0\x0C\0\1\0\1\0\0\0\0\0\4\x7F\0\0\1"s : ""s);
  }

  int socket_;
  std::thread thread_;
};

class LostNameServer : public testing::TestWithParam<Verdict> {
 protected:
  LostNameServer() {
    place("resolv.conf", "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n");
    place("nsswitch.conf", "hosts: files dns\n");
    server_ = std::make_unique<NameServer>();
  }

  static std::string url(const RawServer& server, const std::string& name) {
    return "http://" + name + ":" + std::to_string(server.port()) + "/";
  }

  PacketFilter filter_{CLONE_NEWNS};

 private:
  /// For the processes of the namespace.
  void place(const std::string& name, const std::string& content) const {
    writeFile(folder_.file(name), content);
    ASSERT_EQ(mount(folder_.file(name).c_str(), ("/etc/" + name).c_str(), nullptr, MS_BIND, nullptr), 0);
  }

  TemporaryFolder folder_;
  std::unique_ptr<NameServer> server_;
};

TEST_P(LostNameServer, LeavesAddressesAndRunningRequestsAlone) {
  neverTimeOut();
  std::atomic<bool> isAsked = false;
  std::atomic<bool> isToAnswer = false;
  RawServer held([&](RawServer::Connection& connection) {
    connection.readRequest();
    isAsked = true;
    waitUntil([&] { return isToAnswer.load(); }, std::chrono::minutes(2));
    connection.send(kHead + lengthField(4) + "held");
    connection.readToEnd();
  });
  RawServer server(RawServer::answering(kHead + lengthField(4) + "good"));
  HostPool pool;
  EXPECT_EQ(pool.run({.url = url(server, "missing.test")}), failed(2));
  HostPool other("other");
  other.add("held", {.url = url(held, "held.test")});
  other.launch("held");
  ASSERT_TRUE(turnUntil([&] { return isAsked.load(); }));

  filter_.stop(kNamePort, GetParam());
  const long before = filter_.stopped();
  EXPECT_EQ(pool.run({.url = url(server, "first.test")}), failed(1));
  EXPECT_GT(filter_.stopped(), before);
  expectServes(pool);
  EXPECT_EQ(other.status("held"), ZEP_HTTP_TASK_REQUESTING);
  isToAnswer = true;
  ASSERT_TRUE(other.await());
  EXPECT_EQ(other.outcome("held"), done("held"));

  filter_.letThrough();
  EXPECT_EQ(pool.run({.url = url(server, "first.test")}), done("good"));
}

INSTANTIATE_TEST_SUITE_P(All, LostNameServer, testing::Values(Verdict::Lost, Verdict::PortUnreachable),
                         nameOf);

}  // namespace
}  // namespace test
