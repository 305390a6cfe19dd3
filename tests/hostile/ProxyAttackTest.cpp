// Proxies that refuse a tunnel without end, garble their answer to CONNECT, or break off in it.

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/hostile/Attack.h"
#include "tests/hostile/TlsPeer.h"

namespace test {
namespace {

const Outcome kRefused = failed(1);
const Outcome kLost = failed(1);
const Outcome kBadAnswer = failed(6);
const Outcome kNoTls = failed(2);
const Outcome kSilent = failed(4);

const std::string kRefusal = "HTTP/1.1 407 Proxy\r\nProxy-Authenticate: Basic realm=p\r\n";
const std::string kTunnel = "HTTP/1.1 200 Connected\r\n\r\n";

/// One proxy for all https requests; the port that a tunnel is asked for says which attack it meets.
class ProxyAttack : public testing::Test {
 protected:
  ProxyAttack()
      : identity_(authority_.good(), {}),
        proxy_([this](RawServer::Connection& connection) { serve(connection); }) {
    setenv("SSL_CERT_FILE", authority_.rootFile().c_str(), 1);
    setenv("https_proxy", proxy_.url("").c_str(), 1);
  }

  /// As expectEnds(). Another pool's task has to be served meanwhile, without the proxy, and one through it at the end.
  void expectThem(std::vector<Attack> attacks) {
    attacks_ = std::move(attacks);
    HostPool pool;
    expectServesThroughTheProxy(pool, kGoodPort);
    const MemoryPeak peak;
    for (std::size_t i = 0; i < attacks_.size(); ++i) {
      pool.add(attacks_[i].name, {.url = "https://127.0.0.1:" + std::to_string(kFirstPort + i) + "/"});
      pool.launch(attacks_[i].name);
    }
    {
      HostPool other("other");
      expectServes(other);
    }
    EXPECT_TRUE(pool.await(std::chrono::minutes(1))) << taskList(pool.name());
    for (const Attack& attack : attacks_) {
      const Outcome outcome = pool.outcome(attack.name);
      EXPECT_TRUE(outcome == attack.expected || outcome == attack.orElse) << attack.name << ": " << outcome;
    }
    EXPECT_LT(peak.megabytes(), kSpareMegabytes);
    expectServesThroughTheProxy(pool, kGoodPort + 1);
  }

 private:
  static constexpr std::size_t kGoodPort = 443;
  static constexpr std::size_t kFirstPort = 1000;

  void serve(RawServer::Connection& connection) {
    const std::string request = connection.readRequest();
    const std::size_t port = std::strtoul(request.substr(request.find(':') + 1).c_str(), nullptr, 10);
    if (port >= kFirstPort) {
      attacks_.at(port - kFirstPort).script(connection);
    } else if (TlsPeer peer(connection, identity_); connection.send(kTunnel) && peer.shakeHands()) {
      peer.readRequest();
      peer.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood");
      connection.readToEnd();
    }
  }

  static void expectServesThroughTheProxy(HostPool& pool, std::size_t port) {
    EXPECT_EQ(pool.run({.url = "https://127.0.0.1:" + std::to_string(port) + "/"}), done("good"));
  }

  CertificateAuthority authority_;
  TlsIdentity identity_;
  // Not changed while a task runs.
  std::vector<Attack> attacks_;
  RawServer proxy_;
};

/// Answers CONNECT, which has been read, and waits.
Attack saying(const std::string& name, const std::string& answer, const Outcome& expected) {
  return {name,
          [=](RawServer::Connection& connection) {
            connection.send(answer);
            connection.readToEnd();
          },
          expected};
}

/// Answers CONNECT by a beginning and the rest for as long as it is taken.
Attack flooding(const std::string& name, const std::string& beginning, const std::string& rest,
                const Outcome& expected) {
  std::string block;
  while (block.size() < 64000) {
    block += rest;
  }
  return {name,
          [=](RawServer::Connection& connection) {
            connection.send(beginning);
            while (connection.send(block)) {
            }
          },
          expected};
}

TEST_F(ProxyAttack, AnswersWithoutAnEndEnd) {
  const std::string head = "HTTP/1.1 200 Connected\r\n";
  expectThem({
      flooding("a line", "", "x", kLost),
      flooding("a field", head + "x: ", "x", kLost),
      flooding("fields", head, "x: y\r\n", kBadAnswer),
      flooding("lines that are no fields", head, "x\r\n", kBadAnswer),
      flooding("interim answers", "", "HTTP/1.1 103 Early Hints\r\n\r\n", kLost),
      flooding("a refusal's body", kRefusal + "Content-Length: 1000000000000\r\n\r\n", "x", kRefused),
      flooding("a refusal's chunks", kRefusal + "Transfer-Encoding: chunked\r\n\r\n", "1\r\nx\r\n", kRefused),
      flooding("a refusal's chunk", kRefusal + "Transfer-Encoding: chunked\r\n\r\nfffffffffff\r\n", "x",
               kRefused),
      flooding("a refusal's chunk extension", kRefusal + "Transfer-Encoding: chunked\r\n\r\n1;", "x",
               kRefused),
      flooding("a refusal's trailer", kRefusal + "Transfer-Encoding: chunked\r\n\r\n0\r\n", "x: y\r\n",
               kBadAnswer),
      flooding("a refusal that offers nothing", "HTTP/1.1 407 Proxy\r\nContent-Length: 1000000000000\r\n\r\n",
               "x", kBadAnswer),
      flooding("a body to the end", kRefusal + "\r\n", "x", kRefused),
      flooding("another refusal", "HTTP/1.1 403 No\r\nContent-Length: 1000000000000\r\n\r\n", "x", kLost),
      flooding("a tunnel of something else", kTunnel, "x", kNoTls),
      flooding("a tunnel with a length", head + "Content-Length: 1000000000000\r\n\r\n", "x", kNoTls),
  });
}

TEST_F(ProxyAttack, AnswersThatStopEnd) {
  setenv("ZEP_URL_TIMEOUT_MS", "5000", 1);
  expectThem({
      saying("nothing", "", kSilent),
      saying("half a line", "HTTP/1.1 2", kSilent),
      saying("half a head", "HTTP/1.1 200 Connected\r\nx: y\r\n", kSilent),
      saying("half a refusal", kRefusal, kSilent),
      saying("half a refusal's body", kRefusal + "Content-Length: 10\r\n\r\nhello", kSilent),
      saying("half a refusal's chunk", kRefusal + "Transfer-Encoding: chunked\r\n\r\n5\r\nhe", kSilent),
      saying("a silent tunnel", kTunnel, kSilent),
      saying("status 204", "HTTP/1.1 204 Nothing\r\n\r\n", kSilent),
      saying("a refusal with two lengths", kRefusal + "Content-Length: 0\r\nContent-Length: 9\r\n\r\n",
             kSilent),
      saying("a refusal with broken chunks", kRefusal + "Transfer-Encoding: chunked\r\n\r\nzzz\r\n", kSilent),
  });
}

TEST_F(ProxyAttack, AnswersThatAreNoneEnd) {
  expectThem({
      saying("garbage", "this is no HTTP\r\n\r\n", kLost),
      saying("zeros", std::string(1000, '\0') + "\r\n\r\n", kLost),
      saying("HTTP/2", "HTTP/2 200\r\n\r\n", kLost),
      saying("an unknown version", "HTTP/9.9 200 OK\r\n\r\n", kLost),
      saying("no status", "HTTP/1.1\r\n\r\n", kLost),
      saying("a status of one digit", "HTTP/1.1 2 OK\r\n\r\n", kLost),
      saying("a huge status", "HTTP/1.1 99999999999 OK\r\n\r\n", kLost),
      saying("status 101", "HTTP/1.1 101 Switching\r\n\r\n", kLost),
      saying("a redirect",
             "HTTP/1.1 302 Found\r\nLocation: https://127.0.0.1:443/\r\nContent-Length: 0\r\n\r\n", kLost),
      saying("a server's challenge",
             "HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=p\r\nContent-Length: 0\r\n\r\n", kLost),
      saying("a refusal with a negative length", kRefusal + "Content-Length: -1\r\n\r\n", kRefused),
      saying("a refusal with a length that overflows",
             kRefusal + "Content-Length: 99999999999999999999999\r\n\r\n", kRefused),
      saying("a refusal without a length", kRefusal + "\r\n", kRefused),
      saying("a tunnel of plain HTTP", kTunnel + "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi", kNoTls),
  });
}

TEST_F(ProxyAttack, AnswersThatAreCutEnd) {
  const auto cut = [](const std::string& name, const std::string& answer, bool resets,
                      const Outcome& expected) {
    return Attack{name,
                  [=](RawServer::Connection& connection) {
                    connection.send(answer);
                    if (resets) {
                      connection.reset();
                    }
                  },
                  expected};
  };
  std::vector<Attack> attacks;
  const std::string refusal = kRefusal + "Content-Length: 2\r\n\r\nno";
  for (const std::string& answer : {kTunnel, refusal}) {
    for (std::size_t length = 0; length <= answer.size(); ++length) {
      const std::string name = answer.substr(9, 3) + " after " + std::to_string(length) + " bytes";
      const bool isTunnel = answer == kTunnel && length == answer.size();
      attacks.push_back(cut(name, answer.substr(0, length), false, isTunnel ? kNoTls : kLost));
      attacks.push_back(cut(name + ", reset", answer.substr(0, length), true, isTunnel ? kNoTls : kLost));
      attacks.back().orElse = kLost;
    }
  }
  expectThem(attacks);
}

}  // namespace
}  // namespace test
