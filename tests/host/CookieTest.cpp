// Cookies are kept for the life of the process, for all pools.

#include <gtest/gtest.h>

#include <mutex>
#include <string>

#include "tests/host/HostPool.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RawServer.h"

namespace test {
namespace {

TEST(Cookie, IsSentBackToItsServer) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/cookie/show")}), done(""));
  EXPECT_EQ(pool.run({.url = server.url("/cookie/set?name=flavour&value=oat")}), done("set"));
  EXPECT_EQ(pool.run({.url = server.url("/cookie/show")}), done("flavour=oat"));
}

TEST(Cookie, IsSharedByAllPools) {
  NginxServer server;
  {
    HostPool first("first");
    ASSERT_EQ(first.run({.url = server.url("/cookie/set?name=flavour&value=oat")}), done("set"));
  }
  HostPool second("second");
  EXPECT_EQ(second.run({.url = server.url("/cookie/show")}), done("flavour=oat"));
}

TEST(Cookie, OfTheHostIsSent) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/cookie/show"), .headers = {{"Cookie", "by=hand"}}}),
            done("by=hand"));
}

TEST(Cookie, DoesNotReachAnotherHost) {
  NginxServer server;
  HostPool pool;
  ASSERT_EQ(pool.run({.url = server.url("/cookie/set?name=flavour&value=oat")}), done("set"));
  EXPECT_EQ(pool.run({.url = "http://localhost:" + std::to_string(server.port()) + "/cookie/show"}),
            done(""));
}

/// What curl alone would keep for ever, and send the oldest of: the newest 50 are left when there are 3,000 and one.
TEST(Cookie, OfAServerThatFloodsMakeRoomForOthers) {
  constexpr int kOfAnAnswer = 50;
  constexpr int kAnswers = 61;
  std::mutex mutex;
  int answers = 0;
  std::string lastRequest;
  RawServer flooding([&](RawServer::Connection& connection) {
    const std::string request = connection.readRequest();
    const std::lock_guard lock(mutex);
    lastRequest = request;
    std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n";
    for (int i = 0; i < kOfAnAnswer; ++i) {
      head += "Set-Cookie: c" + std::to_string(1000 + answers * kOfAnAnswer + i) + "=x\r\n";
    }
    ++answers;
    connection.send(head + "\r\n");
  });
  NginxServer server;
  HostPool pool;
  ASSERT_EQ(pool.run({.url = server.url("/cookie/set?name=flavour&value=oat")}), done("set"));
  const std::string url = "http://localhost:" + std::to_string(flooding.port()) + "/";
  for (int i = 0; i < kAnswers; ++i) {
    ASSERT_EQ(pool.run({.url = url}), done(""));
  }
  EXPECT_EQ(pool.run({.url = server.url("/cookie/show")}), done("flavour=oat"));
  const std::lock_guard lock(mutex);
  EXPECT_EQ(lastRequest.find("c3949=x"), std::string::npos) << lastRequest;
  EXPECT_NE(lastRequest.find("c3950=x"), std::string::npos) << lastRequest;
  EXPECT_NE(lastRequest.find("c3999=x"), std::string::npos) << lastRequest;
}

}  // namespace
}  // namespace test
