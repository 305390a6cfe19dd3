// Servers that break the TLS handshake off, garble it or overdo it, and connections that end without the word for it.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/host/PanelHost.h"
#include "tests/hostile/Attack.h"
#include "tests/hostile/TlsPeer.h"
#include "tests/support/WaitUntil.h"

namespace test {
namespace {

const std::string kOrigin = "https://127.0.0.1";
const std::string kAnswer = "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello";
const Outcome kRefused = failed(2);
const Outcome kSilent = failed(4);
const Outcome kLost = failed(1);
const Outcome kDeclined = failed(3);

enum class End { Close, Reset, Stall, Alert };

/// An authority that the library trusts. Before the first request.
class TlsAttack : public testing::Test {
 protected:
  TlsAttack() { setenv("SSL_CERT_FILE", authority_.rootFile().c_str(), 1); }

  std::shared_ptr<TlsIdentity> identity(const TlsIdentity::Offer& offer = {}) {
    return std::make_shared<TlsIdentity>(leaf_, offer);
  }

  /// Of which nobody knows the root.
  std::shared_ptr<TlsIdentity> unknownIdentity(const TlsIdentity::Offer& offer) {
    return std::make_shared<TlsIdentity>(unknown_, offer);
  }

  void expectThem(const std::vector<Attack>& attacks) {
    expectEnds(attacks, {}, kOrigin, servingByTls(identity()));
  }
  void expectEndsBetweenMessages(const std::vector<End>& ends);

 private:
  CertificateAuthority authority_;
  const CertificateAuthority::Leaf leaf_ = authority_.good();
  const CertificateAuthority::Leaf unknown_ = authority_.selfSigned();
};

/// A fatal one: an internal error.
const std::string kAlert = {2, 80};

void endBy(End end, RawServer::Connection& connection, TlsPeer& peer) {
  switch (end) {
    case End::Close:
      break;
    case End::Reset:
      connection.reset();
      break;
    case End::Alert:
      peer.sendRecord(kAlertRecord, kAlert);
      connection.readToEnd();
      break;
    case End::Stall:
      connection.readToEnd();
      break;
  }
}

/// A handshake of which the client sees only so many bytes.
Attack cutHandshake(const std::shared_ptr<TlsIdentity>& identity, std::size_t bytes, End end,
                    const Outcome& expected) {
  return {"after " + std::to_string(bytes) + " bytes",
          [=](RawServer::Connection& connection) {
            TlsPeer peer(connection, *identity);
            peer.limit(bytes);
            peer.shakeHands();
            endBy(end, connection, peer);
          },
          expected};
}

/// What a server sends until the handshake is over.
struct Extent {
  std::size_t bytes = 0;
  std::size_t messages = 0;
};

Extent handshakeOf(const std::shared_ptr<TlsIdentity>& identity) {
  std::promise<Extent> extent;
  expectEnds({{"whole",
               [&](RawServer::Connection& connection) {
                 TlsPeer peer(connection, *identity);
                 peer.shakeHands();
                 extent.set_value({.bytes = peer.sent(), .messages = peer.records()});
                 peer.readRequest();
                 peer.send(kAnswer);
               },
               done("hello")}},
             {}, kOrigin);
  return extent.get_future().get();
}

/// Handshakes cut around `steps` places that are spread over the server's bytes.
std::vector<Attack> cutHandshakes(const std::shared_ptr<TlsIdentity>& identity, std::size_t steps, End end,
                                  const Outcome& expected, const std::optional<Outcome>& orElse = {}) {
  const std::size_t whole = handshakeOf(identity).bytes;
  EXPECT_GT(whole, steps);
  std::vector<Attack> attacks;
  for (std::size_t i = 0; i < steps; ++i) {
    attacks.push_back(cutHandshake(identity, i * whole / steps, end, expected));
    attacks.back().orElse = orElse;
  }
  return attacks;
}

TEST_F(TlsAttack, ClosingInTheHandshakeEnds) {
  expectThem(cutHandshakes(identity(), 60, End::Close, kRefused));
  expectThem(cutHandshakes(identity({.highest = TLS1_2_VERSION}), 60, End::Close, kRefused));
}

TEST_F(TlsAttack, ResettingInTheHandshakeEnds) {
  expectThem(cutHandshakes(identity(), 60, End::Reset, kRefused, failed(1)));
  expectThem(cutHandshakes(identity({.highest = TLS1_2_VERSION}), 60, End::Reset, kRefused, failed(1)));
}

TEST_F(TlsAttack, StallingInTheHandshakeEnds) {
  setenv("ZEP_URL_TIMEOUT_MS", "3000", 1);
  expectThem(cutHandshakes(identity(), 40, End::Stall, kSilent));
}

/// So many messages of the server's handshake, and then that end instead of the next one. What comes behind the last
/// one is the request.
std::vector<Attack> endsBetweenMessages(const std::shared_ptr<TlsIdentity>& identity, std::size_t whole,
                                        End end) {
  std::vector<Attack> attacks;
  for (std::size_t records = 0; records <= whole; ++records) {
    attacks.push_back(
        {std::to_string(static_cast<int>(end)) + " after " + std::to_string(records) + " messages",
         [=](RawServer::Connection& connection) {
           TlsPeer peer(connection, *identity);
           peer.limitRecords(records);
           if (peer.shakeHands()) {
             peer.readRequest();
           }
           endBy(end, connection, peer);
         },
         end == End::Stall  ? kSilent
         : records == whole ? failed(1)
                            : kRefused});
    if (end == End::Reset) {
      attacks.back().orElse = failed(1);
    }
  }
  return attacks;
}

/// Of each version of TLS, with each of these ends.
void TlsAttack::expectEndsBetweenMessages(const std::vector<End>& ends) {
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    const auto offered = identity({.highest = version});
    const std::size_t whole = handshakeOf(offered).messages;
    constexpr std::size_t kFewest = 6;
    EXPECT_GE(whole, kFewest);
    std::vector<Attack> attacks;
    for (const End end : ends) {
      for (Attack& attack : endsBetweenMessages(offered, whole, end)) {
        attacks.push_back(std::move(attack));
      }
    }
    SCOPED_TRACE(version == TLS1_2_VERSION ? "TLS 1.2" : "TLS 1.3");
    expectThem(attacks);
  }
}

TEST_F(TlsAttack, EndingBetweenTheMessagesOfTheHandshakeEnds) {
  expectEndsBetweenMessages({End::Close, End::Reset, End::Alert});
}

TEST_F(TlsAttack, StallingBetweenTheMessagesOfTheHandshakeEnds) {
  setenv("ZEP_URL_TIMEOUT_MS", "5000", 1);
  expectEndsBetweenMessages({End::Stall});
}

using Step = std::function<bool(TlsPeer&)>;

/// Shakes hands, or no more of it than so many messages, and then takes that step for as long as it is taken.
Attack flooding(const std::string& name, const std::shared_ptr<TlsIdentity>& identity,
                std::optional<std::size_t> messages, const Step& step, const Outcome& expected) {
  auto sent = std::make_shared<std::atomic<std::size_t>>(0);
  return {.name = name,
          .script =
              [=](RawServer::Connection& connection) {
                TlsPeer peer(connection, *identity);
                if (messages) {
                  peer.limitRecords(*messages);
                }
                if (peer.shakeHands()) {
                  peer.readRequest();
                }
                while (step(peer)) {
                  *sent = peer.sent();
                }
              },
          .expected = expected,
          .sent = sent};
}

Step sending(char type, const std::string& message, std::size_t times = 1) {
  std::string content;
  for (std::size_t i = 0; i < times; ++i) {
    content += message;
  }
  return [=](TlsPeer& peer) { return peer.sendRecord(type, content); };
}

const std::string kHelloRequest(4, '\0');
/// A NewSessionTicket (RFC 8446 §4.6.1) of 10 KB.
const std::string kTicket = std::string("\4\0\x27\x1d\0\0\1\0\0\0\0\0\0\x27\x10", 15) +
                            std::string(10000, 't') + std::string(2, '\0');

std::vector<Attack> endlessFloods(const std::shared_ptr<TlsIdentity>& identity,
                                  const std::shared_ptr<TlsIdentity>& identity12) {
  constexpr std::size_t kMany = 4000;
  constexpr std::size_t kHelloAndCertificate = 2;
  const Step update = [](TlsPeer& peer) { return peer.sendKeyUpdate(SSL_KEY_UPDATE_NOT_REQUESTED); };
  const Step request = [](TlsPeer& peer) { return peer.sendHelloRequest(); };
  return {
      flooding("requests for a hello", identity, 0, sending(kHandshakeRecord, kHelloRequest, kMany), kSilent),
      flooding("requests for a hello behind the certificate", identity12, kHelloAndCertificate,
               sending(kHandshakeRecord, kHelloRequest, kMany), kSilent),
      flooding(
          "tickets", identity, {}, [](TlsPeer& peer) { return peer.sendTicket(); }, kSilent),
      flooding("requests for a new handshake", identity12, {}, request, kSilent),
      flooding("large tickets", identity, {}, sending(kHandshakeRecord, kTicket), kSilent),
      flooding("updates of the key", identity, {}, update, kSilent),
  };
}

TEST_F(TlsAttack, FloodsOfWhatIsSkippedEnd) {
  setenv("ZEP_URL_TIMEOUT_MS", "5000", 1);
  std::vector<Attack> attacks = endlessFloods(identity(), identity({.highest = TLS1_2_VERSION}));
  // Nobody reads the answers.
  const Step update = [](TlsPeer& peer) { return peer.sendKeyUpdate(SSL_KEY_UPDATE_REQUESTED); };
  attacks.push_back(flooding("updates of both keys", identity(), {}, update, kSilent));
  attacks.back().orElse = kLost;
  expectThem(attacks);
}

TEST_F(TlsAttack, FloodsOfMessagesEnd) {
  const auto any = identity();
  const auto old = identity({.highest = TLS1_2_VERSION});
  const Step userCancelled = sending(kAlertRecord, {1, 90});
  const Step helloRequest = sending(kHandshakeRecord, kHelloRequest);
  const Step newHandshake = [](TlsPeer& peer) {
    return peer.sendHelloRequest() && !peer.readRequest().empty();
  };
  const Step certificateRequest = sending(kHandshakeRecord, std::string("\x0d\0\0\3\0\0\0", 7));
  const Step endlessMessage = sending(kHandshakeRecord, "\x0b\xff\xff\xff" + std::string(16000, 'm'));
  expectThem({
      flooding("warnings before the hello", any, 0, userCancelled, kRefused),
      flooding("warnings behind the hello", any, 1, userCancelled, kRefused),
      flooding("warnings behind the certificate", old, 2, userCancelled, kRefused),
      flooding("warnings behind the handshake", any, {}, userCancelled, kLost),
      flooding("empty records", any, 0, sending(kHandshakeRecord, ""), kRefused),
      flooding("empty data behind the handshake", any, {}, sending(kDataRecord, ""), kLost),
      flooding("changes of cipher", any, 1, sending(kChangeOfCipherRecord, "\1"), kRefused),
      flooding("a message without an end", any, 1, endlessMessage, kRefused),
      flooding("requests for a hello behind the handshake", any, {}, helloRequest, kLost),
      flooding("requests for a certificate", any, {}, certificateRequest, kLost),
  });
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
  const auto record = &plainRecord;
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
  expectThem(attacks);
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
  expectThem({
      answeringTls("TLS 1.3", identity({.lowest = TLS1_3_VERSION}), done("hello")),
      answeringTls("TLS 1.2", identity({.highest = TLS1_2_VERSION}), done("hello")),
      answeringTls("TLS 1.1", identity({.lowest = TLS1_VERSION, .highest = TLS1_1_VERSION}), kRefused),
      answeringTls("TLS 1.0", identity({.lowest = TLS1_VERSION, .highest = TLS1_VERSION}), kRefused),
  });
}

TEST_F(TlsAttack, ChainsWithoutAnEndAreBounded) {
  expectThem({
      answeringTls("a hundred certificates", identity({.repeated = 99}), done("hello")),
      answeringTls("a megabyte of certificates", identity({.repeated = 3000}), kRefused),
  });
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
  expectThem({
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
  });
}

/// The class's time-out would end them.
class TlsFlood : public TlsAttack {};

TEST_F(TlsFlood, HoldsNobodyElseUp) {
  setenv("ZEP_URL_TIMEOUT_MS", "120000", 1);
  const auto any = identity();
  expectNobodyHeldUp(endlessFloods(any, identity({.highest = TLS1_2_VERSION})), kOrigin, servingByTls(any));
}

/// While a person looks at the server's certificate.
TEST_F(TlsAttack, EndingWhileItsCertificateIsLookedAtEnds) {
  std::atomic<bool> isOver = false;
  bool isAccepted = false;
  const PanelHost person([&](const std::string&) {
    EXPECT_TRUE(waitUntil([&] { return isOver.load(); }));
    return isAccepted ? 1 : 0;
  });
  HostPool pool;
  const auto meet = [&](int version, End end) {
    isOver = false;
    const auto unknown = unknownIdentity({.highest = version});
    std::atomic<int> connections = 0;
    RawServer server([&](RawServer::Connection& connection) {
      TlsPeer peer(connection, *unknown);
      if (++connections > 1) {
        peer.shakeHands();
        peer.readRequest();
        peer.send(kAnswer);
        return;
      }
      peer.answerHello();
      if (end == End::Close) {
        connection.close();
      } else if (end == End::Reset) {
        connection.reset();
      } else {
        peer.sendRecord(kAlertRecord, kAlert);
      }
      isOver = true;
      connection.readToEnd();
    });
    return pool.run({.url = kOrigin + ":" + std::to_string(server.port()) + "/"});
  };
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    for (const End end : {End::Close, End::Reset, End::Alert}) {
      EXPECT_EQ(meet(version, end), kDeclined) << version << ", " << static_cast<int>(end);
    }
  }
  constexpr std::size_t kMet = 6;
  EXPECT_EQ(person.panels().size(), kMet);
  // The acceptance is known too late for that connection: the next one is used.
  isAccepted = true;
  EXPECT_EQ(meet(TLS1_3_VERSION, End::Reset), done("hello"));
  servingByTls(identity())(pool);
}

}  // namespace
}  // namespace test
