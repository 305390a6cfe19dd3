// Servers that break off, answer nonsense, are slow, or are not there.

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/host/HostPool.h"
#include "tests/support/FreePort.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RawServer.h"

namespace test {
namespace {

TEST(Fault, ConnectionClosedWithoutAnAnswer) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/close")}), failed(1));
}

TEST(Fault, ConnectionResetWithoutAnAnswer) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/reset")}), failed(1));
}

TEST(Fault, BodyCutShort) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/cut")}), failed(1));
}

TEST(Fault, ChunkedBodyCutShort) {
  RawServer server(
      RawServer::answering("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n"));
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/")}), failed(1));
}

TEST(Fault, BodyResetInTheMiddle) {
  RawServer server([](RawServer::Connection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhello");
    connection.reset();
  });
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/")}), failed(1));
}

TEST(Fault, RefusedPort) {
  RefusingPort refusing;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = "http://127.0.0.1:" + std::to_string(refusing.port()) + "/"}), failed(2));
}

// A label may have 63 bytes: no name server is asked, wherever the test runs.
TEST(Fault, NameThatCannotExist) {
  HostPool pool;
  EXPECT_EQ(pool.run({.url = "http://" + std::string(64, 'a') + ".test/"}), failed(2));
}

TEST(Fault, AnswerThatIsNotHttp) {
  RawServer server(RawServer::answering("220 mail.example.test ESMTP\r\n"));
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/")}), failed(6));
}

TEST(Fault, StatusLineWithoutAStatus) {
  RawServer server(RawServer::answering("HTTP/1.1 OK\r\nContent-Length: 0\r\n\r\n"));
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/")}), failed(6));
}

TEST(Fault, HugeHeaderBlock) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/headers/huge")}), failed(6));
  EXPECT_EQ(pool.run({.url = server.url("/text")}), done("Hello, pool!"));
}

TEST(Fault, HeaderBlockWithoutAnEnd) {
  RawServer server([](RawServer::Connection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\n");
    while (connection.send("X-Filler: ffffffffffffffffffffffffffffffffffffffffffffffff\r\n")) {
    }
  });
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/")}), failed(6));
}

TEST(Fault, DribblingAnswerSucceeds) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/drip?n=20&ms=60")}), done(std::string(20, 'x')));
}

TEST(Fault, LateAnswerSucceeds) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/late?ms=1500")}), done("late"));
}

TEST(Fault, SilentServerTimesOut) {
  setenv("ZEP_URL_TIMEOUT_MS", "500", 1);
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/silent")}), failed(4));
}

TEST(Fault, SilenceInTheBodyTimesOut) {
  setenv("ZEP_URL_TIMEOUT_MS", "500", 1);
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/half")}), failed(4));
}

// Forty times longer than the gaps and shorter than the whole: only the time since the last byte counts.
TEST(Fault, DripOutlivesTheTimeOut) {
  setenv("ZEP_URL_TIMEOUT_MS", "2000", 1);
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/drip?n=80&ms=50")}), done(std::string(80, 'x')));
}

TEST(Fault, OneBrokenServerDoesNotDisturbAnother) {
  NginxServer server;
  RawServer broken([](RawServer::Connection& connection) {
    connection.readRequest();
    connection.reset();
  });
  HostPool pool;
  for (int task = 0; task < 20; ++task) {
    const std::string number = std::to_string(task);
    pool.add("good " + number, {.url = server.url("/late?ms=100")});
    pool.add("bad " + number, {.url = broken.url("/")});
    pool.launch("good " + number);
    pool.launch("bad " + number);
  }
  ASSERT_TRUE(pool.await());
  for (int task = 0; task < 20; ++task) {
    EXPECT_EQ(pool.outcome("good " + std::to_string(task)), done("late"));
    EXPECT_EQ(pool.outcome("bad " + std::to_string(task)), failed(1));
  }
}

}  // namespace
}  // namespace test
