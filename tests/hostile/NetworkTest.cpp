// Networks that are not there, or go: in a network namespace of the test's own.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "tests/hostile/Attack.h"
#include "tests/hostile/Namespace.h"

namespace test {
namespace {

TEST(LostNetwork, WithoutARouteOrANameServerEndsAtOnce) {
  enterNamespaces(CLONE_NEWNET);
  HostPool pool;
  EXPECT_EQ(pool.run({.url = "http://192.0.2.1/"}), failed(1));
  EXPECT_EQ(pool.run({.url = "http://name.test/"}), failed(1));
  switchLoopback(true);
  expectServes(pool);
}

TEST(LostNetwork, InTheMiddleOfAnAnswerIsSilence) {
  setenv("ZEP_URL_TIMEOUT_MS", "3000", 1);
  enterNamespaces(CLONE_NEWNET);
  switchLoopback(true);
  HostPool pool;
  RawServer server([](RawServer::Connection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello");
    usleep(100'000);
    switchLoopback(false);
    connection.send("world");
    connection.readToEnd();
  });
  EXPECT_EQ(pool.run({.url = server.url("/")}), failed(4));
  EXPECT_EQ(pool.run({.url = server.url("/")}), failed(4)) << "nobody says that it is gone";
  switchLoopback(true);
  expectServes(pool);
}

}  // namespace
}  // namespace test
