// Answers with all kinds of bodies, read through property 7.

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/host/HostPool.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

TEST(Body, TextIsTheResult) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/text")}), done("Hello, pool!"));
}

TEST(Body, Utf8IsTheResultByteByByte) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/utf8")}), done("Grüße, 世界 🌍"));
}

TEST(Body, BytesThatAreNotUtf8EndAtTheFirstZeroByte) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/latin1")}), done("caf\xE9 ol\xE9"));
}

TEST(Body, EmptyBodyIsDoneWithAnEmptyResult) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/empty")}), done(""));
}

TEST(Body, GzipIsDecoded) {
  NginxServer server;
  HostPool pool;
  std::string expected;
  for (int line = 1; line <= 200; ++line) {
    expected += "compressed line " + std::to_string(line) + "\n";
  }
  EXPECT_EQ(pool.run({.url = server.url("/gzip")}), done(expected));
  const auto accesses = server.accesses("/gzip");
  ASSERT_EQ(accesses.size(), 1U);
  EXPECT_LT(accesses[0].bodyBytes, static_cast<long>(expected.size() / 2)) << "the server did not compress";
}

TEST(Body, BrokenEncodingFails) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/encoding/broken")}), failed(6));
}

TEST(Body, FourMegabytesArriveWhole) {
  NginxServer server;
  HostPool pool;
  constexpr std::size_t kBytes = 4'000'003;
  const Outcome outcome = pool.run({.url = server.url("/big?bytes=" + std::to_string(kBytes))});
  EXPECT_EQ(outcome.status, ZEP_HTTP_TASK_DONE);
  EXPECT_TRUE(outcome.result == NginxServer::bigBody(kBytes)) << outcome;
}

TEST(Body, BeyondTheLimitOfBytesFails) {
  setenv("ZEP_URL_MAX_BODY_BYTES", "100000", 1);
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/big?bytes=100000")}).status, ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(pool.run({.url = server.url("/big?bytes=100001")}), failed(6));
}

TEST(Body, LimitOfBytesCountsDecodedOnes) {
  setenv("ZEP_URL_MAX_BODY_BYTES", "2000", 1);
  NginxServer server;
  HostPool pool;
  // Some 500 bytes on the wire, some 3,900 decoded.
  EXPECT_EQ(pool.run({.url = server.url("/gzip")}), failed(6));
  ASSERT_EQ(server.accesses("/gzip").size(), 1U);
}

}  // namespace
}  // namespace test
