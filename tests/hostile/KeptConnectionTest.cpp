// Connections that are kept for the next request, by HTTP/2 shared with others: what becomes of a request whose server
// has just given the connection up, and of what is held back on one while others go on.

#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/hostile/Attack.h"
#include "tests/hostile/Http2Peer.h"

namespace test {
namespace {

const Fields kGet = {{"HttpMethonGet", "1"}};

class KeptConnection : public testing::Test {
 protected:
  using Act = std::function<void(Http2Peer&, RawServer::Connection&)>;
  struct Seen {
    Outcome outcome;
    int connections = 0;
  };

  KeptConnection() { setenv("SSL_CERT_FILE", authority_.rootFile().c_str(), 1); }

  const TlsIdentity& identity() const { return identity_; }
  static std::string urlOf(const RawServer& server) {
    return "https://127.0.0.1:" + std::to_string(server.port()) + "/";
  }

  /// A first connection that answers one request and does that with the second, which is looked at; later ones do
  /// `later` with theirs.
  Seen second(const Fields& headers, const Act& act, const Act& later) const {
    std::atomic<int> connections = 0;
    RawServer server([&](RawServer::Connection& connection) {
      Http2Peer peer(connection, identity_);
      const bool isFirst = ++connections == 1;
      if (!peer.takeRequest()) {
        return;
      }
      if (!isFirst) {
        later(peer, connection);
      } else if (peer.send(answer(1, "first")) && peer.takeNextRequest()) {
        act(peer, connection);
      }
    });
    HostPool pool;
    EXPECT_EQ(pool.run({.url = urlOf(server), .headers = headers}), done("first"));
    const Outcome outcome = pool.run({.url = urlOf(server), .headers = headers});
    return {outcome, connections};
  }
  Seen second(const Fields& headers, const Act& act) const {
    return second(headers, act, [](Http2Peer& peer, RawServer::Connection&) {
      peer.send(answer(1, "again"));
      peer.readToEnd();
    });
  }

 private:
  CertificateAuthority authority_;
  TlsIdentity identity_{authority_.good(), TlsIdentity::Offer{.http2 = true}};
};

void closes(Http2Peer& /*peer*/, RawServer::Connection& connection) {
  connection.close();
}

TEST_F(KeptConnection, ThatIsGoneHasItsRequestSentAgainOnANewOne) {
  const Seen closed = second(kGet, &closes);
  EXPECT_EQ(closed.outcome, done("again"));
  EXPECT_EQ(closed.connections, 2);
  const Seen reset = second(kGet, [](Http2Peer&, RawServer::Connection& connection) { connection.reset(); });
  EXPECT_EQ(reset.outcome, done("again"));
  EXPECT_EQ(reset.connections, 2);
}

TEST_F(KeptConnection, ThatTakesNoMoreHasAnyRequestSentAgain) {
  for (const Fields& headers : {kGet, Fields{}}) {
    for (const bool isClosed : {false, true}) {
      const Seen seen = second(headers, [=](Http2Peer& peer, RawServer::Connection&) {
        peer.send(frame(FrameType::GoAway, 0, 0, number(1) + number(0)));
        if (!isClosed) {
          peer.readToEnd();
        }
      });
      EXPECT_EQ(seen.outcome, done("again")) << headers.size() << isClosed;
      EXPECT_EQ(seen.connections, 2);
    }
  }
}

/// The server may have acted on it.
TEST_F(KeptConnection, ThatIsClosedHasNothingPostedTwice) {
  const Seen seen = second({}, &closes);
  EXPECT_EQ(seen.outcome, failed(1));
  EXPECT_EQ(seen.connections, 1);
}

TEST_F(KeptConnection, OfAServerThatAlwaysClosesIsReplacedOnce) {
  const Seen seen = second(kGet, &closes, &closes);
  EXPECT_EQ(seen.outcome, failed(1));
  EXPECT_EQ(seen.connections, 2);
}

TEST_F(KeptConnection, ThatEndsInsideTheAnswerEndsTheRequest) {
  const Seen seen = second(kGet, [](Http2Peer& peer, RawServer::Connection& connection) {
    peer.send(frame(FrameType::Headers, kEndHeaders, 3, statusOk()) + frame(FrameType::Data, 0, 3, "hal"));
    connection.close();
  });
  EXPECT_EQ(seen.outcome, failed(1));
  EXPECT_EQ(seen.connections, 1);
}

/// Redirects whose long bodies are held back, and not read when they are followed.
TEST_F(KeptConnection, SharedByOthersLosesNothingThatWasHeldBack) {
  constexpr std::uint32_t kCount = 60;
  constexpr std::size_t kHeld = 16'000;
  const std::string moved =
      field(":status", "302") + field("location", "/again") + field("content-length", "10000000");
  std::atomic<bool> isWaiting = false;
  RawServer server([&](RawServer::Connection& connection) {
    Http2Peer peer(connection, identity());
    isWaiting = peer.takeRequest();
    const auto takeAll = [&] {
      for (std::uint32_t i = 0; i < kCount; ++i) {
        if (!peer.takeNextRequest()) {
          return false;
        }
      }
      return true;
    };
    for (std::uint32_t stream = 3; takeAll();) {
      std::string answers;
      for (std::uint32_t i = 0; i < kCount; ++i, stream += 2) {
        answers += frame(FrameType::Headers, kEndHeaders, stream, moved) +
                   frame(FrameType::Data, 0, stream, std::string(kHeld, 'b'));
      }
      if (!peer.send(answers) || !takeAll()) {
        return;
      }
      answers.clear();
      for (std::uint32_t i = 0; i < kCount; ++i, stream += 2) {
        answers += answer(stream, "again");
      }
      peer.send(answers);
    }
  });
  HostPool pool;
  pool.add("keeps the connection", {.url = urlOf(server), .headers = kGet});
  pool.launch("keeps the connection");
  ASSERT_TRUE(turnUntil([&] { return isWaiting.load(); }));
  HostPool moving("moving");
  const auto runAll = [&] {
    for (std::uint32_t i = 0; i < kCount; ++i) {
      const std::string name = std::to_string(i);
      moving.add(name, {.url = urlOf(server), .headers = kGet});
      moving.launch(name);
    }
    EXPECT_TRUE(moving.await());
    for (std::uint32_t i = 0; i < kCount; ++i) {
      EXPECT_EQ(moving.outcome(std::to_string(i)), done("again")) << i;
      ZEP_HttpPool_RemoveTask("moving", std::to_string(i).c_str());
    }
  };
  runAll();
  // Under a sanitizer this says nothing, but the leak sanitizer does.
  const std::size_t before = mallinfo2().uordblks;
  runAll();
  EXPECT_LT(mallinfo2().uordblks, before + kCount * kHeld / 4);
  EXPECT_EQ(server.connections(), 1);
  ZEP_HttpPool_TaskReset(pool.name().c_str(), "keeps the connection");
}

}  // namespace
}  // namespace test
