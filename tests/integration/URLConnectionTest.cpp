// What a connection reports of ordinary and of hostile answers.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tests/integration/RecordingDelegate.h"
#include "tests/support/FreePort.h"
#include "tests/support/NginxServer.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/RawServer.h"
#include "tests/support/ThreadRefusal.h"
#include "tests/support/WaitUntil.h"

using test::fetch;
using test::RawServer;
using test::RecordingDelegate;
using test::requestFor;
using Events = std::vector<std::string>;

namespace {

std::string answer(const std::string& body, const std::string& fields = "") {
  return "HTTP/1.1 200 OK\r\n" + fields + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
         body;
}

TEST(URLConnection, ReportsResponseDataAndFinishInOrder) {
  RawServer server(RawServer::answering(answer("hello", "X-Mine: a\r\nx-mine: b\r\n")));
  const RecordingDelegate got = fetch(server.url("/"));
  EXPECT_EQ(got.events, (Events{"response 200", "data", "finish"}));
  EXPECT_EQ(got.body, "hello");
  EXPECT_EQ(*got.response->allHeaderFields().value("X-Mine"), "a, b");
}

TEST(URLConnection, ABodyOfNothingBringsNoData) {
  RawServer server(RawServer::answering(answer("")));
  EXPECT_EQ(fetch(server.url("/")).events, (Events{"response 200", "finish"}));
}

TEST(URLConnection, ReportsWhatCannotBeLoaded) {
  EXPECT_EQ(fetch("ftp://h/x").error->code, -1002);
  EXPECT_EQ(fetch("relative").error->code, -1002);
  EXPECT_EQ(fetch("").error->code, -1002);
  EXPECT_EQ(fetch("http:///path").error->code, -1000);
  EXPECT_EQ(fetch(foundation::URLRequest()).error->code, -1000);
  for (const char* method : {"", "A B", "GET\r\nX: y", "G\xc3\xa4T"}) {
    auto request = requestFor("http://127.0.0.1:1/");
    request.setHTTPMethod(method);
    EXPECT_EQ(fetch(request).error->code, -1000) << method;
  }
  EXPECT_EQ(fetch("ftp://h/x").error->domain, "NSURLErrorDomain");
  EXPECT_FALSE(fetch("ftp://h/x").error->localizedDescription.empty());
}

TEST(URLConnection, AThreadThatWasRefusedOnceIsMadeForTheNextLoad) {
  RawServer server(RawServer::answering(answer("hello")));
  {
    const test::ThreadRefusal refusal(EAGAIN);
    EXPECT_EQ(fetch(server.url("/")).events, (Events{"fail -1"}));
  }
  EXPECT_EQ(fetch(server.url("/")).events, (Events{"response 200", "data", "finish"}));
}

TEST(URLConnection, WithoutDescriptorsTheFirstLoadFailsAndALaterOneDoesNot) {
  const test::NginxServer server;  // not of this process, whose descriptors are gone
  {
    const test::NoDescriptors none;
    EXPECT_EQ(fetch(server.url("/text")).events, (Events{"fail -1"}));
  }
  EXPECT_EQ(fetch(server.url("/text")).events, (Events{"response 200", "data", "finish"}));
}

TEST(URLConnection, ReportsARefusedConnection) {
  const test::RefusingPort port;
  EXPECT_EQ(fetch("http://127.0.0.1:" + std::to_string(port.port()) + "/").events, (Events{"fail -1004"}));
}

TEST(URLConnection, ReportsLostConnections) {
  RawServer closing([](RawServer::Connection& connection) { connection.readRequest(); });
  EXPECT_EQ(fetch(closing.url("/")).events, (Events{"fail -1005"}));
  RawServer resetting([](RawServer::Connection& connection) {
    connection.readRequest();
    connection.reset();
  });
  EXPECT_EQ(fetch(resetting.url("/")).events, (Events{"fail -1005"}));
  RawServer cutting(RawServer::answering("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nshort"));
  EXPECT_EQ(fetch(cutting.url("/")).events, (Events{"response 200", "data", "fail -1005"}));
  RawServer badChunk(
      RawServer::answering("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\nzz\r\n"));
  EXPECT_EQ(fetch(badChunk.url("/")).error->code, -1005);
}

TEST(URLConnection, RefusesAnswersThatAreNotHTTP) {
  for (const char* text : {"this is not HTTP at all\r\n\r\n", "\r\n\r\n", "220 smtp.example.org ESMTP\r\n"}) {
    RawServer server(RawServer::answering(text));
    EXPECT_EQ(fetch(server.url("/")).events, (Events{"fail -1011"})) << text;
  }
}

TEST(URLConnection, BoundsTheHeader) {
  RawServer oneLine(RawServer::answering("HTTP/1.1 200 OK\r\nA: " + std::string(400'000, 'x') + "\r\n\r\n"));
  EXPECT_EQ(fetch(oneLine.url("/")).events, (Events{"fail -1011"}));
  std::string lines = "HTTP/1.1 200 OK\r\n";
  for (int i = 0; i < 5000; ++i) {
    lines += "A" + std::to_string(i) + ": b\r\n";
  }
  RawServer manyLines(RawServer::answering(lines + "\r\n"));
  EXPECT_EQ(fetch(manyLines.url("/")).events, (Events{"fail -1011"}));
  RawServer interim([](RawServer::Connection& connection) {
    connection.readRequest();
    while (connection.send("HTTP/1.1 102 Processing\r\n\r\n")) {
    }
  });
  EXPECT_EQ(fetch(interim.url("/")).events, (Events{"fail -1011"}));
}

TEST(URLConnection, InterimAnswersAreNotReported) {
  RawServer server(RawServer::answering("HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n" + answer("final")));
  const RecordingDelegate got = fetch(server.url("/"));
  EXPECT_EQ(got.events, (Events{"response 200", "data", "finish"}));
  EXPECT_EQ(got.response->allHeaderFields().value("Link"), nullptr);
}

TEST(URLConnection, ABodyOverTheLimitFailsTheRequest) {
  setenv("ZEP_URL_MAX_BODY_BYTES", "1000", 1);
  RawServer announced(RawServer::answering(answer(std::string(1001, 'x'))));
  EXPECT_EQ(fetch(announced.url("/")).events, (Events{"fail -1103"}));
  RawServer endless([](RawServer::Connection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.send(std::string(100, 'x'))) {
    }
  });
  EXPECT_EQ(fetch(endless.url("/")).error->code, -1103);
  RawServer fitting(RawServer::answering(answer(std::string(1000, 'x'))));
  EXPECT_EQ(fetch(fitting.url("/")).body.size(), 1000u);
}

TEST(URLConnection, AnAnnouncedLengthIsNotBelievedBlindly) {
  RawServer server(RawServer::answering("HTTP/1.1 200 OK\r\nContent-Length: 9000000000000000000\r\n\r\nx"));
  EXPECT_EQ(fetch(server.url("/")).error->code, -1103);
}

TEST(URLConnection, ADamagedEncodingFailsTheRequest) {
  RawServer server(RawServer::answering(answer("certainly no gzip", "Content-Encoding: gzip\r\n")));
  EXPECT_EQ(fetch(server.url("/")).error->code, -1016);
}

TEST(URLConnection, SilenceEndsInATimeOut) {
  setenv("ZEP_URL_TIMEOUT_MS", "2000", 1);
  RawServer silent([](RawServer::Connection& connection) { connection.readToEnd(); });
  EXPECT_EQ(fetch(silent.url("/")).events, (Events{"fail -1001"}));
  RawServer stalling([](RawServer::Connection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc");
    connection.readToEnd();
  });
  EXPECT_EQ(fetch(stalling.url("/")).events, (Events{"response 200", "data", "fail -1001"}));
}

TEST(URLConnection, BytesKeepARequestAlive) {
  // Ten gaps far below the limit, together above it.
  setenv("ZEP_URL_TIMEOUT_MS", "2000", 1);
  RawServer dripping([](RawServer::Connection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n");
    for (int i = 0; i < 10; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(250));  // the peer's slowness is what is tested
      connection.send("x");
    }
    connection.readToEnd();
  });
  const RecordingDelegate got = fetch(dripping.url("/"));
  EXPECT_EQ(got.events.back(), "finish");
  EXPECT_EQ(got.body.size(), 10u);
}

TEST(URLConnection, CookiesAreKeptForTheProcess) {
  std::atomic<bool> saw{false};
  RawServer server([&](RawServer::Connection& connection) {
    saw = connection.readRequest().find("\r\nCookie: taste=sweet\r\n") != std::string::npos;
    connection.send(
        "HTTP/1.1 200 OK\r\nSet-Cookie: taste=sweet\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    connection.readToEnd();
  });
  fetch(server.url("/"));
  EXPECT_FALSE(saw);
  fetch(server.url("/"));
  EXPECT_TRUE(saw);
}

TEST(URLConnection, TheHostsOwnCookiesJoinThoseOfTheJar) {
  std::string header;
  RawServer server([&](RawServer::Connection& connection) {
    header = connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nSet-Cookie: jar=1\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
    connection.readToEnd();
  });
  auto request = requestFor(server.url("/"));
  request.setValueForHTTPHeaderField("mine=2", "Cookie");
  fetch(request);
  fetch(request);
  const std::size_t at = header.find("\r\nCookie: ");
  ASSERT_NE(at, std::string::npos) << header;
  EXPECT_EQ(header.find("\r\nCookie: ", at + 1), std::string::npos) << header;
  EXPECT_NE(header.find("jar=1"), std::string::npos) << header;
  EXPECT_NE(header.find("mine=2"), std::string::npos) << header;
}

TEST(URLConnection, ManyLoadsAtOnceAllEnd) {
  RawServer server(RawServer::answering(answer("x", "Connection: close\r\n")));
  test::Turner turner;
  constexpr std::size_t kLoads = 300;
  std::vector<std::unique_ptr<RecordingDelegate>> delegates;
  std::vector<std::unique_ptr<foundation::URLConnection>> connections;
  for (std::size_t i = 0; i < kLoads; ++i) {
    delegates.push_back(std::make_unique<RecordingDelegate>());
    connections.push_back(
        std::make_unique<foundation::URLConnection>(requestFor(server.url("/")), *delegates.back()));
  }
  EXPECT_TRUE(turner.until(
      [&] {
        return std::all_of(delegates.begin(), delegates.end(),
                           [](const auto& delegate) { return delegate->ended; });
      },
      std::chrono::seconds(120)));
  for (const auto& delegate : delegates) {
    EXPECT_EQ(delegate->events, (Events{"response 200", "data", "finish"}));
  }
}

}  // namespace
