// A name server that goes while requests are running.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "tests/hostile/Attack.h"
#include "tests/hostile/PacketFilter.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

using Verdict = PacketFilter::Verdict;

std::string answerOf(const std::string& fourBytes) {
  return "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n" + fourBytes;
}

std::string verdictOf(const testing::TestParamInfo<Verdict>& info) {
  return nameOf(info.param);
}

constexpr int kNamePort = 53;

/// Answers questions for addresses, RFC 1035: all names but "missing.test" are of this machine, and have no other
/// address.
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
  setenv("ZEP_URL_TIMEOUT_MS", "3600000", 1);
  std::atomic<bool> isAsked = false;
  std::atomic<bool> isToAnswer = false;
  RawServer held([&](RawServer::Connection& connection) {
    connection.readRequest();
    isAsked = true;
    waitUntil([&] { return isToAnswer.load(); }, std::chrono::minutes(2));
    connection.send(answerOf("held"));
    connection.readToEnd();
  });
  RawServer server(RawServer::answering(answerOf("good")));
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
                         verdictOf);

}  // namespace
}  // namespace test
