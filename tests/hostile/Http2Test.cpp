// Servers that break the rules of HTTP/2 (RFC 9113), flood the connection or end it at a bad moment.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/hostile/Attack.h"
#include "tests/hostile/Http2Peer.h"

namespace test {
namespace {

const std::string kHead = frame(FrameType::Headers, kEndHeaders, 1, statusOk());
const std::string kBody = frame(FrameType::Data, kEndStream, 1, "hello");
const std::string kHalf = frame(FrameType::Data, 0, 1, "hel");
const std::string kReset = frame(FrameType::ResetStream, 0, 1, number(8));
const Outcome kLost = failed(1);
const Outcome kSilent = failed(4);
const std::string kOrigin = "https://127.0.0.1";

class Http2Attack : public testing::Test {
 protected:
  Http2Attack() {
    setenv("SSL_CERT_FILE", authority_.rootFile().c_str(), 1);
    setenv("ZEP_URL_TIMEOUT_MS", "5000", 1);
    identity_ = std::make_shared<TlsIdentity>(authority_.good(), TlsIdentity::Offer{.http2 = true});
  }

  /// Sends those frames when the request has come, and reads on.
  Attack sending(const std::string& name, const std::string& frames, const Outcome& expected) const {
    return {name,
            [=, identity = identity_](RawServer::Connection& connection) {
              Http2Peer peer(connection, *identity);
              if (peer.takeRequest() && peer.send(frames)) {
                peer.readToEnd();
              }
            },
            expected};
  }

  /// Sends the beginning, and then the rest for as long as it is taken.
  Attack flooding(const std::string& name, const std::string& beginning, const std::string& rest,
                  const Outcome& expected, const std::optional<Outcome>& orElse = {}) const {
    std::string block;
    while (block.size() < 16000) {
      block += rest;
    }
    auto sent = std::make_shared<std::atomic<std::size_t>>(0);
    return {.name = name,
            .script =
                [=, identity = identity_](RawServer::Connection& connection) {
                  Http2Peer peer(connection, *identity);
                  if (peer.takeRequest() && peer.send(beginning)) {
                    while (peer.send(block)) {
                      *sent += block.size();
                    }
                  }
                },
            .expected = expected,
            .orElse = orElse,
            .sent = sent};
  }

  /// Floods of what is allowed: they end by silence alone.
  std::vector<Attack> endlessFloods() const {
    return {
        flooding("answers to pings", "", frame(FrameType::Ping, kAcknowledges, 0, "12345678"), failed(4)),
        flooding("empty data", kHead, frame(FrameType::Data, 0, 1, ""), failed(4)),
        flooding("padding alone", kHead,
                 frame(FrameType::Data, 8, 1, std::string("\xff") + std::string(255, '\0')), failed(4)),
        flooding("windows", "", frame(FrameType::WindowUpdate, 0, 1, number(1)), failed(4)),
        flooding("priorities", "", frame(FrameType::Priority, 0, 1, number(3) + "x"), failed(4)),
        flooding("unknown frames", "", frame(FrameType::Unknown, 0, 0, std::string(100, 'u')), failed(4)),
        flooding("going away", "", frame(FrameType::GoAway, 0, 0, number(1) + number(0)), failed(4)),
    };
  }

  void expectThem(const std::vector<Attack>& attacks) const { expectEnds(attacks, {}, kOrigin, service()); }

  /// By HTTP/2.
  Service service() const {
    return [good = sending("", kHead + frame(FrameType::Data, kEndStream, 1, "good"), {})](HostPool& pool) {
      RawServer server(good.script);
      EXPECT_EQ(pool.run({.url = kOrigin + ":" + std::to_string(server.port()) + "/"}), done("good"));
    };
  }

  std::shared_ptr<TlsIdentity> identity() const { return identity_; }

 private:
  CertificateAuthority authority_;
  std::shared_ptr<TlsIdentity> identity_;
};

TEST_F(Http2Attack, EndingTheStreamOrTheConnectionEnds) {
  const std::string goneBefore = frame(FrameType::GoAway, 0, 0, number(0) + number(0));
  const std::string goneBehind = frame(FrameType::GoAway, 0, 0, number(1) + number(0));
  expectThem({
      sending("in order", kHead + kBody, done("hello")),
      sending("reset before the head", kReset, kLost),
      sending("refused", frame(FrameType::ResetStream, 0, 1, number(7)), kLost),
      // The next connection speaks HTTP/2 again.
      sending("asked for HTTP/1.1", frame(FrameType::ResetStream, 0, 1, number(13)), failed(2)),
      sending("reset behind the head", kHead + kReset, kLost),
      sending("reset in the body", kHead + kHalf + kReset, kLost),
      sending("reset without an error in the body",
              kHead + kHalf + frame(FrameType::ResetStream, 0, 1, number(0)), kLost),
      sending("reset behind the end", kHead + kBody + kReset, done("hello")),
      sending("away before the head", goneBefore, kLost),
      sending("away, answering this one", goneBehind + kHead + kBody, done("hello")),
      sending("away in the body", kHead + kHalf + goneBehind + frame(FrameType::Data, kEndStream, 1, "lo"),
              done("hello")),
      sending("away in the body, not answering it", kHead + kHalf + goneBefore, kLost),
      sending("away with an error",
              frame(FrameType::GoAway, 0, 0, number(0) + number(11) + std::string(1000, 'd')), kLost),
  });
}

TEST_F(Http2Attack, BreakingTheFramesEnds) {
  expectThem({
      sending("a frame that is too long", frame(FrameType::Data, 0, 1, std::string(20000, 'd')), kLost),
      sending("headers on no stream", frame(FrameType::Headers, kEndHeaders, 0, statusOk()), kLost),
      sending("data on no stream", frame(FrameType::Data, 0, 0, "hello"), kLost),
      sending("data on an idle stream", frame(FrameType::Data, 0, 7, "hello"), kLost),
      sending("data on a stream of the server's", frame(FrameType::Data, 0, 2, "hello"), kLost),
      sending("data before the head", kBody, kLost),
      sending("settings of half a setting", frame(FrameType::Settings, 0, 0, "abc"), kLost),
      sending("settings on a stream", frame(FrameType::Settings, 0, 1, ""), kLost),
      sending("a window that is too large",
              frame(FrameType::Settings, 0, 0, std::string("\0\4", 2) + number(0xFFFFFFFF)), kLost),
      sending("a frame size that is too small",
              frame(FrameType::Settings, 0, 0, std::string("\0\5", 2) + number(1)), kLost),
      sending("a ping that is too short", frame(FrameType::Ping, 0, 0, "ping"), kLost),
      sending("a window that grows by nothing", frame(FrameType::WindowUpdate, 0, 1, number(0)), kLost),
      sending("a connection's window that grows by nothing", frame(FrameType::WindowUpdate, 0, 0, number(0)),
              kLost),
      sending("a window that overflows", frame(FrameType::WindowUpdate, 0, 0, number(0x7FFFFFFF)), kLost),
      sending("a stream's window that overflows", frame(FrameType::WindowUpdate, 0, 1, number(0x7FFFFFFF)),
              kLost),
      sending("a promise nobody wants",
              frame(FrameType::PushPromise, kEndHeaders, 1,
                    number(2) + field(":method", "GET") + field(":scheme", "https") + field(":path", "/") +
                        field(":authority", "127.0.0.1")),
              kLost),
      sending("a continuation of nothing", frame(FrameType::Continuation, kEndHeaders, 1, statusOk()), kLost),
      sending("something between headers", frame(FrameType::Headers, 0, 1, statusOk()) + kBody, kLost),
      sending("padding beyond the frame", frame(FrameType::Data, 8, 1, "\x7f"), kLost),
      sending("an answer of HTTP/1", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi", kLost),
      sending("an unknown frame before the answer", frame(FrameType::Unknown, 0, 0, "?") + kHead + kBody,
              done("hello")),
      sending("a stream that depends on itself",
              frame(FrameType::Priority, 0, 1, number(1) + "x") + kHead + kBody, kLost),
  });
}

TEST_F(Http2Attack, BreakingTheFieldsEnds) {
  const auto head = [](const std::string& fields) {
    return frame(FrameType::Headers, kEndHeaders, 1, fields);
  };
  expectThem({
      sending("no status", head(field("x", "y")) + kBody, kLost),
      sending("nothing", head("") + kBody, kLost),
      sending("two statuses", head(statusOk() + statusOk()) + kBody, kLost),
      sending("a status that is no number", head(field(":status", "ok")) + kBody, kLost),
      sending("status 99", head(field(":status", "99")) + kBody, kLost),
      sending("status 1000", head(field(":status", "1000")) + kBody, kLost),
      sending("status -20", head(field(":status", "-20")) + kBody, kLost),
      sending("status 101", head(field(":status", "101")) + kBody, kLost),
      sending("a status behind the fields", head(field("x", "y") + statusOk()) + kBody, kLost),
      sending("a pseudo-field of requests", head(statusOk() + field(":path", "/")) + kBody, kLost),
      sending("capitals", head(statusOk() + field("X", "y")) + kBody, kLost),
      sending("a connection's field", head(statusOk() + field("connection", "close")) + kBody, kLost),
      sending("a line end in a value", head(statusOk() + field("x", "y\r\nset-cookie: a=b")) + kBody, kLost),
      sending("NUL in a value", head(statusOk() + field("x", std::string("y\0z", 3))) + kBody, kLost),
      sending("a line end in a name", head(statusOk() + field("x\r\ny", "z")) + kBody, kLost),
      sending("an entry of no table", head("\xff\xff\x7f") + kBody, kLost),
      sending("a number that overflows", head("\xff\xff\xff\xff\xff\xff\xff\x7f") + kBody, kLost),
      sending("a table that is too large", head("\x3f\xe1\xff\x7f" + statusOk()) + kBody, kLost),
      sending("a text beyond the frame", head(std::string("\0\x7fx", 3)) + kBody, kLost),
      sending("more than its length", head(statusOk() + field("content-length", "3")) + kBody, kLost),
      sending("less than its length", head(statusOk() + field("content-length", "9")) + kBody, kLost),
      sending("two lengths",
              head(statusOk() + field("content-length", "5") + field("content-length", "6")) + kBody, kLost),
      sending("a trailer",
              kHead + kHalf + frame(FrameType::Headers, kEndHeaders | kEndStream, 1, field("x", "y")),
              done("hel")),
      sending("a status in the trailer",
              kHead + kHalf + frame(FrameType::Headers, kEndHeaders | kEndStream, 1, statusOk()), kLost),
  });
}

TEST_F(Http2Attack, FloodsEnd) {
  const std::string filler(16000, 'f');
  setenv("ZEP_URL_MAX_BODY_BYTES", "1000000", 1);
  std::vector<Attack> attacks = {
      // Answered for as long as the connection takes it, which on a slow machine outlasts the idle time.
      flooding("settings", "", frame(FrameType::Settings, 0, 0, ""), kLost, kSilent),
      flooding("pings", "", frame(FrameType::Ping, 0, 0, "12345678"), kLost, kSilent),
      flooding("interim answers", "", frame(FrameType::Headers, kEndHeaders, 1, field(":status", "103")),
               failed(6)),
      flooding("empty continuations", frame(FrameType::Headers, 0, 1, statusOk()),
               frame(FrameType::Continuation, 0, 1, ""), kLost),
      flooding("continuations", frame(FrameType::Headers, 0, 1, statusOk()),
               frame(FrameType::Continuation, 0, 1, field("x", filler)), kLost),
      flooding("resets of streams nobody opened", "", frame(FrameType::ResetStream, 0, 3, number(8)), kLost),
      flooding("answers to settings", "", frame(FrameType::Settings, kAcknowledges, 0, ""), kLost),
      flooding("a body", kHead, frame(FrameType::Data, 0, 1, filler), failed(6)),
  };
  for (Attack& attack : endlessFloods()) {
    attacks.push_back(std::move(attack));
  }
  expectThem(attacks);
}

/// Their time-out would end the floods.
class Http2Flood : public Http2Attack {
 protected:
  Http2Flood() { setenv("ZEP_URL_TIMEOUT_MS", "120000", 1); }
};

TEST_F(Http2Flood, HoldsNobodyElseUp) {
  expectNobodyHeldUp(endlessFloods(), kOrigin, [byHttp2 = service()](HostPool& pool) {
    byHttp2(pool);
    expectServes(pool);
  });
}

TEST_F(Http2Attack, AnAnswerThatIsCutIsLostBeforeItsLastByte) {
  const std::string answer = kHead + kBody;
  std::vector<Attack> attacks;
  for (const bool resets : {false, true}) {
    for (std::size_t length = 0; length <= answer.size(); ++length) {
      attacks.push_back({"after " + std::to_string(length) + " bytes" + (resets ? ", reset" : ""),
                         [=, identity = identity()](RawServer::Connection& connection) {
                           Http2Peer peer(connection, *identity);
                           if (peer.takeRequest()) {
                             peer.send(answer.substr(0, length));
                           }
                           if (resets) {
                             connection.reset();
                           }
                         },
                         length == answer.size() ? done("hello") : kLost});
      if (resets) {
        // The reset may overtake the reading of what has come.
        attacks.back().orElse = kLost;
      }
    }
  }
  expectThem(attacks);
}

/// One connection with several requests on it, the n-th on the stream 2n+1.
class Http2Streams : public Http2Attack {
 protected:
  static constexpr int kCount = 5;
  using Act = std::function<void(Http2Peer&, RawServer::Connection&)>;

  /// Runs them; when all have come, the first connection does that. Later ones answer each of their requests "again".
  /// The outcomes in the order of the streams.
  std::vector<Outcome> run(const Act& act) {
    std::atomic<int> arrived = 0;
    std::atomic<int> connections = 0;
    RawServer server([&](RawServer::Connection& connection) {
      Http2Peer peer(connection, *identity());
      const bool isFirst = ++connections == 1;
      if (!peer.takeRequest()) {
        return;
      }
      if (!isFirst) {
        for (std::uint32_t stream = 1; peer.send(answer(stream, "again")) && peer.takeNextRequest();
             stream += 2) {
        }
        return;
      }
      while (++arrived < kCount && peer.takeNextRequest()) {
      }
      act(peer, connection);
    });
    HostPool pool;
    std::vector<std::string> names;
    for (int i = 0; i < kCount; ++i) {
      names.push_back("task " + std::to_string(i));
      pool.add(names.back(), {.url = kOrigin + ":" + std::to_string(server.port()) + "/"});
      pool.launch(names.back());
      EXPECT_TRUE(turnUntil([&] { return arrived > i; })) << "not all on one connection";
    }
    EXPECT_TRUE(pool.await(std::chrono::minutes(1))) << taskList(pool.name());
    std::vector<Outcome> outcomes;
    for (const std::string& name : names) {
      outcomes.push_back(pool.outcome(name));
    }
    service()(pool);
    return outcomes;
  }
};

using Outcomes = std::vector<Outcome>;

TEST_F(Http2Streams, AResetEndsItsOwnOnly) {
  EXPECT_EQ(run([](Http2Peer& peer, RawServer::Connection&) {
              peer.send(frame(FrameType::Headers, kEndHeaders, 5, statusOk()) + answer(9, "9") +
                        frame(FrameType::ResetStream, 0, 3, number(8)) +
                        frame(FrameType::ResetStream, 0, 5, number(8)) + answer(1, "1") + answer(7, "7"));
              peer.readToEnd();
            }),
            (Outcomes{done("1"), kLost, kLost, done("7"), done("9")}));
}

TEST_F(Http2Streams, ThoseThatAServerGoesAwayFromAreSentAgain) {
  EXPECT_EQ(run([](Http2Peer& peer, RawServer::Connection&) {
              peer.send(frame(FrameType::GoAway, 0, 0, number(5) + number(0)) + answer(1, "1") +
                        answer(3, "3") + answer(5, "5"));
              peer.readToEnd();
            }),
            (Outcomes{done("1"), done("3"), done("5"), done("again"), done("again")}));
}

TEST_F(Http2Streams, AnErrorOfTheConnectionEndsAll) {
  const std::vector<Outcome> outcomes = run([](Http2Peer& peer, RawServer::Connection&) {
    peer.send(frame(FrameType::Headers, kEndHeaders, 1, statusOk()) + answer(3, "3") +
              frame(FrameType::Data, 0, 0, "hello"));
    peer.readToEnd();
  });
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    // Those that curl does not tell of it hear no more, as the server keeps the connection.
    EXPECT_TRUE(i == 1 ? outcomes[i] == done("3") : outcomes[i] == kLost || outcomes[i] == kSilent)
        << i << ": " << outcomes[i];
  }
}

TEST_F(Http2Streams, AnEndOfTheConnectionEndsAll) {
  for (const bool resets : {false, true}) {
    const std::vector<Outcome> outcomes = run([=](Http2Peer& peer, RawServer::Connection& connection) {
      peer.send(frame(FrameType::Headers, kEndHeaders, 1, statusOk()));
      if (resets) {
        connection.reset();
      }
    });
    EXPECT_EQ(outcomes.front(), kLost) << resets;
    for (const Outcome& outcome : outcomes) {
      // curl may send again what nothing has come for.
      EXPECT_TRUE(outcome == kLost || outcome == done("again")) << resets << ": " << outcome;
    }
  }
}

// Each reference is a byte and brings a field of 4,000 out of the table.
TEST_F(Http2Attack, FieldsThatGrowAreBounded) {
  const std::string entered = std::string("\x40", 1) + field("x", std::string(3900, 'v')).substr(1);
  const std::string megabyte(300, '\xbe');
  expectThem({
      sending("a megabyte of fields",
              frame(FrameType::Headers, kEndHeaders, 1, statusOk() + entered + megabyte) + kBody, kLost),
      flooding("fields without an end", frame(FrameType::Headers, 0, 1, statusOk() + entered),
               frame(FrameType::Continuation, 0, 1, megabyte), kLost),
  });
}

}  // namespace
}  // namespace test
