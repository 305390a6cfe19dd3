// Cookies are kept for the life of the process, for all pools.

#include <gtest/gtest.h>

#include "tests/host/HostPool.h"
#include "tests/support/NginxServer.h"

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

}  // namespace
}  // namespace test
