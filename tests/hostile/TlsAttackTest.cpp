// Servers that break the TLS handshake off, garble it or overdo it, and connections that end without the word for it.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/hostile/Attack.h"
#include "tests/hostile/TlsPeer.h"

namespace test {
namespace {

const std::string kOrigin = "https://127.0.0.1";
const std::string kAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello";
const Outcome kRefused = failed(2);
const Outcome kSilent = failed(4);

/// An authority that the library trusts. Before the first request.
class TlsAttack : public testing::Test {
 protected:
  TlsAttack() { setenv("SSL_CERT_FILE", authority_.rootFile().c_str(), 1); }

  std::shared_ptr<TlsIdentity> identity(const TlsIdentity::Offer& offer = {}) {
    return std::make_shared<TlsIdentity>(leaf_, offer);
  }

 private:
  CertificateAuthority authority_;
  const CertificateAuthority::Leaf leaf_ = authority_.good();
};

enum class End { Close, Reset, Stall };

/// A handshake of which the client sees only so many bytes.
Attack cutHandshake(const std::shared_ptr<TlsIdentity>& identity, std::size_t bytes, End end,
                    const Outcome& expected) {
  return {"after " + std::to_string(bytes) + " bytes",
          [=](RawServer::Connection& connection) {
            TlsPeer peer(connection, *identity);
            peer.limit(bytes);
            peer.shakeHands();
            if (end == End::Reset) {
              connection.reset();
            } else if (end == End::Stall) {
              connection.readToEnd();
            }
          },
          expected};
}

/// The bytes that a server sends until the handshake is over.
std::size_t handshakeBytes(const std::shared_ptr<TlsIdentity>& identity) {
  std::atomic<std::size_t> bytes = 0;
  expectEnds({{"whole",
               [&](RawServer::Connection& connection) {
                 TlsPeer peer(connection, *identity);
                 peer.shakeHands();
                 bytes = peer.sent();
                 peer.readRequest();
                 peer.send(kAnswer);
               },
               done("hello")}},
             {}, kOrigin);
  return bytes;
}

/// Handshakes cut around `steps` places that are spread over the server's bytes.
std::vector<Attack> cutHandshakes(const std::shared_ptr<TlsIdentity>& identity, std::size_t steps, End end,
                                  const Outcome& expected, const std::optional<Outcome>& orElse = {}) {
  const std::size_t whole = handshakeBytes(identity);
  EXPECT_GT(whole, steps);
  std::vector<Attack> attacks;
  for (std::size_t i = 0; i < steps; ++i) {
    attacks.push_back(cutHandshake(identity, i * whole / steps, end, expected));
    attacks.back().orElse = orElse;
  }
  return attacks;
}

TEST_F(TlsAttack, ClosingInTheHandshakeEnds) {
  expectEnds(cutHandshakes(identity(), 60, End::Close, kRefused), {}, kOrigin);
  expectEnds(cutHandshakes(identity({.highest = TLS1_2_VERSION}), 60, End::Close, kRefused), {}, kOrigin);
}

TEST_F(TlsAttack, ResettingInTheHandshakeEnds) {
  expectEnds(cutHandshakes(identity(), 60, End::Reset, kRefused, failed(1)), {}, kOrigin);
  expectEnds(cutHandshakes(identity({.highest = TLS1_2_VERSION}), 60, End::Reset, kRefused, failed(1)), {},
             kOrigin);
}

TEST_F(TlsAttack, StallingInTheHandshakeEnds) {
  setenv("ZEP_URL_TIMEOUT_MS", "3000", 1);
  expectEnds(cutHandshakes(identity(), 40, End::Stall, kSilent), {}, kOrigin);
}

TEST_F(TlsAttack, SpeakingSomethingElseEnds) {
  setenv("ZEP_URL_TIMEOUT_MS", "3000", 1);
  const auto sending = [](const std::string& name, const std::string& bytes, const Outcome& expected) {
    return Attack{name,
                  [=](RawServer::Connection& connection) {
                    connection.readSome();
                    connection.send(bytes);
                    connection.readToEnd();
                  },
                  expected};
  };
  const auto record = [](char type, const std::string& content) {
    return std::string{type, 3, 3, static_cast<char>(content.size() >> 8),
                       static_cast<char>(content.size())} +
           content;
  };
  std::vector<Attack> attacks = {
      sending("plain HTTP", kAnswer, kRefused),
      sending("garbage", std::string(5000, 'g'), kRefused),
      sending("zeros", std::string(5000, '\0'), kRefused),
      sending("a record that is too long", std::string{22, 3, 3, '\x7f', '\x7f'} + std::string(32767, 'r'),
              kRefused),
      sending("an empty record", record(22, ""), kSilent),
      sending("application data", record(23, "hello"), kRefused),
      sending("a change of cipher", record(20, "\x01") + record(20, "\x01"), kRefused),
      sending("a message that is too long",
              record(22, std::string{2, '\x7f', '\xff', '\xff'} + std::string(1000, 'm')), kRefused),
      sending("a hello of an unknown version",
              record(22, std::string{2, 0, 0, 38, 9, 9} + std::string(32, 'r') + std::string{0, 0x13, 1, 0}),
              kRefused),
      sending("a hello of SSL 3",
              record(22, std::string{2, 0, 0, 38, 3, 0} + std::string(32, 'r') + std::string{0, 0, 0x2f, 0}),
              kRefused),
  };
  for (const int alert : {10, 20, 40, 42, 48, 70, 71, 80, 86, 90, 112, 120, 255}) {
    const std::string name = "alert " + std::to_string(alert);
    attacks.push_back(sending(name, record(21, {2, static_cast<char>(alert)}), kRefused));
    // A warning is not the end.
    attacks.push_back(sending(name + " as a warning", record(21, {1, static_cast<char>(alert)}), kSilent));
  }
  attacks.push_back(sending("an end", record(21, {1, 0}), kRefused));
  // curl takes this one for what it says itself of a server's certificate.
  attacks.push_back(sending("a certificate has expired", record(21, {2, 45}), failed(6)));
  expectEnds(attacks, {}, kOrigin);
}

/// A server that shakes hands as offered, and answers.
Attack answeringTls(const std::string& name, const std::shared_ptr<TlsIdentity>& identity,
                    const Outcome& expected) {
  return {name,
          [=](RawServer::Connection& connection) {
            TlsPeer peer(connection, *identity);
            if (peer.shakeHands()) {
              peer.readRequest();
              peer.send(kAnswer);
            }
            connection.readToEnd();
          },
          expected};
}

TEST_F(TlsAttack, OldVersionsAreRefused) {
  expectEnds(
      {
          answeringTls("TLS 1.3", identity({.lowest = TLS1_3_VERSION}), done("hello")),
          answeringTls("TLS 1.2", identity({.highest = TLS1_2_VERSION}), done("hello")),
          answeringTls("TLS 1.1", identity({.lowest = TLS1_VERSION, .highest = TLS1_1_VERSION}), kRefused),
          answeringTls("TLS 1.0", identity({.lowest = TLS1_VERSION, .highest = TLS1_VERSION}), kRefused),
      },
      {}, kOrigin);
}

TEST_F(TlsAttack, ChainsWithoutAnEndAreBounded) {
  expectEnds(
      {
          answeringTls("a hundred certificates", identity({.repeated = 99}), done("hello")),
          answeringTls("a megabyte of certificates", identity({.repeated = 3000}), kRefused),
      },
      {}, kOrigin);
}

TEST_F(TlsAttack, AnEndWithoutAWordIsOneOnlyWithoutALength) {
  const auto ending = [identity = identity()](const std::string& name, const std::string& answer,
                                              bool notifies, const Outcome& expected) {
    return Attack{name,
                  [=](RawServer::Connection& connection) {
                    TlsPeer peer(connection, *identity);
                    if (peer.shakeHands()) {
                      peer.readRequest();
                      peer.send(answer);
                      if (notifies) {
                        peer.notifyClose();
                      }
                    }
                  },
                  expected};
  };
  const std::string open = "HTTP/1.1 200 OK\r\n\r\nhello";
  const std::string chunk = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n";
  expectEnds(
      {
          ending("whole", kAnswer, true, done("hello")),
          ending("whole, without a word", kAnswer, false, done("hello")),
          ending("cut", kAnswer.substr(0, kAnswer.size() - 1), true, failed(1)),
          ending("cut, without a word", kAnswer.substr(0, kAnswer.size() - 1), false, failed(1)),
          ending("cut in its chunks", chunk, true, failed(1)),
          ending("cut in its chunks, without a word", chunk, false, failed(1)),
          ending("without a length", open, true, done("hello")),
          // Accepted as it is elsewhere: servers that end so are common.
          ending("without a length, without a word", open, false, done("hello")),
          ending("nothing", "", true, failed(1)),
          ending("nothing, without a word", "", false, failed(1)),
      },
      {}, kOrigin);
}

}  // namespace
}  // namespace test
