// Redirects: proposed one at a time, followed or declined, with bodies of every kind.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/integration/RecordingDelegate.h"
#include "tests/support/RawServer.h"

using test::fetch;
using test::RawServer;
using test::RecordingDelegate;
using test::requestFor;
using Events = std::vector<std::string>;

namespace {

constexpr const char* kEnd = "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nend";

/// Redirects every target but /end, with `rest` behind the Location line; serves /end. Keeps connections
/// open.
RawServer::Script redirecting(std::string rest) {
  return [rest](RawServer::Connection& connection) {
    for (std::string head = connection.readRequest(); !head.empty(); head = connection.readRequest()) {
      if (head.find(" /end ") != std::string::npos) {
        connection.send(kEnd);
      } else {
        connection.send("HTTP/1.1 302 Found\r\nLocation: /end\r\n" + rest);
      }
    }
  };
}

/// Takes the redirect response itself as the answer.
RecordingDelegate fetchDeclining(const std::string& url) {
  test::Turner turner;
  RecordingDelegate delegate;
  delegate.onRedirect = [](auto&, auto&) { return std::nullopt; };
  foundation::URLConnection connection(requestFor(url), delegate);
  turner.until([&] { return delegate.ended; });
  return delegate;
}

TEST(URLConnectionRedirect, IsProposedAndFollowedOnTheSameConnection) {
  RawServer server(redirecting("Content-Length: 5\r\n\r\nmoved"));
  const RecordingDelegate got = fetch(server.url("/start"));
  EXPECT_EQ(got.events, (Events{"redirect 302", "response 200", "data", "finish"}));
  EXPECT_EQ(got.body, "end");
  EXPECT_EQ(got.response->url()->absoluteString(), server.url("/end"));
  EXPECT_EQ(server.connections(), 1) << "the redirect's body was not read to its end";
}

TEST(URLConnectionRedirect, DeclinedIsTheAnswerWithItsBody) {
  RawServer withBody(redirecting("Content-Length: 5\r\n\r\nmoved"));
  const RecordingDelegate got = fetchDeclining(withBody.url("/start"));
  EXPECT_EQ(got.events, (Events{"redirect 302", "response 302", "data", "finish"}));
  EXPECT_EQ(got.body, "moved");
  EXPECT_EQ(*got.response->allHeaderFields().find("Location"), "/end");
  RawServer withoutBody(redirecting("Content-Length: 0\r\n\r\n"));
  EXPECT_EQ(fetchDeclining(withoutBody.url("/start")).events,
            (Events{"redirect 302", "response 302", "finish"}));
  RawServer large(redirecting("Content-Length: 500000\r\n\r\n" + std::string(500'000, 'x')));
  EXPECT_EQ(fetchDeclining(large.url("/start")).body.size(), 500'000u);
}

TEST(URLConnectionRedirect, DeclinedButCutShortIsALostConnection) {
  RawServer server(
      RawServer::answering("HTTP/1.1 302 Found\r\nLocation: /end\r\nContent-Length: 9\r\n\r\ncut"));
  EXPECT_EQ(fetchDeclining(server.url("/start")).events,
            (Events{"redirect 302", "response 302", "data", "fail -1005"}));
}

TEST(URLConnectionRedirect, ABodyWithoutEndDoesNotHoldItUp) {
  RawServer server([](RawServer::Connection& connection) {
    if (connection.readRequest().find(" /end ") != std::string::npos) {
      connection.send(kEnd);
      connection.readToEnd();
      return;
    }
    connection.send("HTTP/1.1 302 Found\r\nLocation: /end\r\n\r\n");
    while (connection.send(std::string(1000, 'x'))) {
    }
  });
  EXPECT_EQ(fetch(server.url("/start")).events, (Events{"redirect 302", "response 200", "data", "finish"}));
}

TEST(URLConnectionRedirect, ABodyThatStallsDoesNotHoldItUp) {
  RawServer server([](RawServer::Connection& connection) {
    if (connection.readRequest().find(" /end ") != std::string::npos) {
      connection.send(kEnd);
    } else {
      connection.send("HTTP/1.1 302 Found\r\nLocation: /end\r\nContent-Length: 10\r\n\r\nhalf");
    }
    connection.readToEnd();
  });
  EXPECT_EQ(fetch(server.url("/start")).events, (Events{"redirect 302", "response 200", "data", "finish"}));
}

TEST(URLConnectionRedirect, TheDelegatesTimeIsNotIdleTime) {
  setenv("ZEP_URL_TIMEOUT_MS", "2000", 1);
  RawServer server(redirecting("Content-Length: 5\r\n\r\nmoved"));
  test::Turner turner;
  RecordingDelegate delegate;
  delegate.onRedirect = [](auto&, const foundation::URLRequest& request) {
    std::this_thread::sleep_for(std::chrono::milliseconds(4000));  // a slow delegate is what is tested
    return request;
  };
  foundation::URLConnection connection(requestFor(server.url("/start")), delegate);
  EXPECT_TRUE(turner.until([&] { return delegate.ended; }));
  EXPECT_EQ(delegate.events.back(), "finish");
}

TEST(URLConnectionRedirect, TwentyAreFollowedAndNoMore) {
  std::atomic<int> left{0};
  RawServer server([&](RawServer::Connection& connection) {
    for (std::string head = connection.readRequest(); !head.empty(); head = connection.readRequest()) {
      connection.send(left-- > 0 ? "HTTP/1.1 302 Found\r\nLocation: /next\r\nContent-Length: 0\r\n\r\n"
                                 : kEnd);
    }
  });
  left = 20;
  EXPECT_EQ(fetch(server.url("/")).events.back(), "finish");
  left = 1000;
  const RecordingDelegate got = fetch(server.url("/"));
  EXPECT_EQ(got.proposals.size(), 20u);
  EXPECT_EQ(got.events.back(), "fail -1007");
}

TEST(URLConnectionRedirect, OnlyToHTTP) {
  for (const char* target :
       {"ftp://127.0.0.1/x", "file:///etc/hostname", "mailto:a@b", "http://", "javascript:x", "://"}) {
    RawServer server(RawServer::answering(std::string("HTTP/1.1 302 Found\r\nLocation: ") + target +
                                          "\r\nContent-Length: 0\r\n\r\n"));
    EXPECT_EQ(fetch(server.url("/")).events, (Events{"redirect 302", "fail -1010"})) << target;
    EXPECT_EQ(fetchDeclining(server.url("/")).events, (Events{"redirect 302", "response 302", "finish"}))
        << target;
  }
}

TEST(URLConnectionRedirect, WithoutLocationIsAnAnswer) {
  RawServer server(RawServer::answering("HTTP/1.1 302 Found\r\nContent-Length: 0\r\n\r\n"));
  EXPECT_EQ(fetch(server.url("/")).events, (Events{"response 302", "finish"}));
}

TEST(URLConnectionRedirect, SecretsStayAtTheirOrigin) {
  std::string header;
  RawServer other([&](RawServer::Connection& connection) {
    header = connection.readRequest();
    connection.send(kEnd);
    connection.readToEnd();
  });
  RawServer first(RawServer::answering("HTTP/1.1 307 Moved\r\nLocation: " + other.url("/end") +
                                       "\r\nContent-Length: 0\r\n\r\n"));
  auto request = requestFor(first.url("/"));
  request.setValueForHTTPHeaderField("Basic c2VjcmV0", "Authorization");
  request.setValueForHTTPHeaderField("secret=1", "Cookie");
  request.setValueForHTTPHeaderField("kept", "X-Mine");
  EXPECT_EQ(fetch(request).events.back(), "finish");
  EXPECT_NE(header.find("X-Mine: kept"), std::string::npos);
  EXPECT_EQ(header.find("c2VjcmV0"), std::string::npos) << header;
  EXPECT_EQ(header.find("secret=1"), std::string::npos) << header;
}

TEST(URLConnectionRedirect, APostIsRepeatedWholeBy307) {
  std::string header;
  std::string body;
  RawServer server([&](RawServer::Connection& connection) {
    for (std::string head = connection.readRequest(); !head.empty(); head = connection.readRequest()) {
      const std::string sent = connection.read(200'000);
      if (head.find(" /end ") != std::string::npos) {
        header = head;
        body = sent;
        connection.send(kEnd);
      } else {
        connection.send("HTTP/1.1 307 Moved\r\nLocation: /end\r\nContent-Length: 0\r\n\r\n");
      }
    }
  });
  auto request = requestFor(server.url("/"));
  request.setHTTPMethod("POST");
  request.setHTTPBody(std::make_shared<foundation::Data>(std::string(200'000, 'b')));
  EXPECT_EQ(fetch(request).events.back(), "finish");
  EXPECT_EQ(header.rfind("POST /end HTTP/1.1", 0), 0u) << header;
  EXPECT_EQ(body, std::string(200'000, 'b'));
}

}  // namespace
