// Packets that are refused on their way while requests are running, by a reset or by what ICMP tells of them.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "tests/hostile/Attack.h"
#include "tests/hostile/CutServer.h"
#include "tests/hostile/Http2Peer.h"
#include "tests/hostile/PacketFilter.h"
#include "tests/hostile/TrustedAuthority.h"

namespace test {
namespace {

using Verdict = PacketFilter::Verdict;

const std::string kHead = "HTTP/1.1 200 OK\r\n";

TEST(RejectedPackets, ByAResetNeverMakeHalfAnAnswer) {
  neverTimeOut();
  PacketFilter filter;
  TrustedAuthority authority;
  const auto reset = [&](int port) { filter.stop(port, Verdict::Reset); };
  std::vector<Cut> cuts = cutsOfAnAnswer();
  // What is left of the head comes alone: its receipt is what is refused.
  cuts[1].behind = "X-Part: of the head\r\n";
  const std::string half = cutBody().substr(0, kCutBodyBytes / 2);
  cuts.push_back({"in a body without a length", kHead + "\r\n" + half, half});
  cuts.push_back({"in chunks", kHead + "Transfer-Encoding: chunked\r\n\r\n80000\r\n" + half + "\r\n",
                  "80000\r\n" + half + "\r\n0\r\n\r\n"});
  const CutServers servers = serversOf(cuts, reset, authority.identity());
  HostPool pool;
  expectAll(servers, pool, failed(1));
  expectServes(pool);
  filter.letThrough();
  EXPECT_TRUE(pool.run(servers.front()->call()) == done(cutBody()));
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
              frame(FrameType::Data, 0, 1, cutBody().substr(0, 16384)));
    filter.stop(port, Verdict::Reset);
    peer.send(frame(FrameType::Data, 0, 1, cutBody().substr(0, 16384)));
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
    EXPECT_EQ(pool.run(server.call()), failed(refusal.error)) << nameOf(refusal.verdict);
    filter.letThrough();
    EXPECT_TRUE(pool.run(server.call()) == done(cutBody()));
  }
}

}  // namespace
}  // namespace test
