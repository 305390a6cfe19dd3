// Cancelling at every step: nothing is told afterwards, and nobody waits.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "tests/integration/RecordingDelegate.h"
#include "tests/support/RawServer.h"
#include "tests/support/WaitUntil.h"

using test::RawServer;
using test::RecordingDelegate;
using test::requestFor;
using Events = std::vector<std::string>;

namespace {

/// Serves a redirect to /body, and there a body that comes in two halves. Counts the peers that have gone.
class StepServer {
 public:
  std::atomic<int> requests{0};
  std::atomic<int> gone{0};

  StepServer()
      : server_([this](RawServer::Connection& connection) {
          for (std::string head = connection.readRequest(); !head.empty(); head = connection.readRequest()) {
            ++requests;
            if (head.find(" /body ") != std::string::npos) {
              connection.send("HTTP/1.1 200 OK\r\nContent-Length: 8\r\n\r\nhalf");
            } else if (head.find(" /redirect ") != std::string::npos) {
              connection.send("HTTP/1.1 302 Found\r\nLocation: /body\r\nContent-Length: 5\r\n\r\nmoved");
            } else if (head.find(" /whole ") != std::string::npos) {
              connection.send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nwhole");
            }
          }
          ++gone;
        }) {}

  std::string url(const std::string& target) const { return server_.url(target); }
  /// The client has hung up.
  bool waitUntilGone(int count) {
    return test::waitUntil([&] { return gone == count; });
  }

 private:
  RawServer server_;
};

/// Cancels inside the event of that name and checks that it was the last one.
void cancelInside(const std::string& event, const std::string& target, const Events& expected) {
  StepServer server;
  test::Turner turner;
  RecordingDelegate delegate;
  bool cancelled = false;
  delegate.onEvent = [&](foundation::URLConnection& connection, const std::string& name) {
    if (name == event) {
      connection.cancel();
      cancelled = true;
    }
  };
  foundation::URLConnection connection(requestFor(server.url(target)), delegate);
  ASSERT_TRUE(turner.until([&] { return cancelled; }));
  if (event != "finish") {
    EXPECT_TRUE(server.waitUntilGone(1)) << "the connection to the server stays open";
  }
  for (int i = 0; i < 20; ++i) {
    turner.pass();
  }
  EXPECT_EQ(delegate.events, expected);
}

TEST(URLConnectionCancel, InsideARedirect) {
  cancelInside("redirect 302", "/redirect", {"redirect 302"});
}

TEST(URLConnectionCancel, InsideTheResponse) {
  cancelInside("response 200", "/body", {"response 200"});
}

TEST(URLConnectionCancel, InsideTheData) {
  cancelInside("data", "/body", {"response 200", "data"});
}

TEST(URLConnectionCancel, InsideTheFinish) {
  cancelInside("finish", "/whole", {"response 200", "data", "finish"});
}

TEST(URLConnectionCancel, BeforeTheResponse) {
  StepServer server;
  test::Turner turner;
  RecordingDelegate delegate;
  foundation::URLConnection connection(requestFor(server.url("/silent")), delegate);
  ASSERT_TRUE(test::waitUntil([&] { return server.requests == 1; }));
  connection.cancel();
  EXPECT_TRUE(server.waitUntilGone(1));
  turner.pass();
  EXPECT_TRUE(delegate.events.empty());
}

TEST(URLConnectionCancel, WhileEventsWait) {
  StepServer server;
  test::Turner turner;
  RecordingDelegate delegate;
  {
    foundation::URLConnection connection(requestFor(server.url("/body")), delegate);
    // The answer is on its way or here; the loop is not turned, so it waits in the inbox.
    ASSERT_TRUE(test::waitUntil([&] { return server.requests == 1; }));
  }
  EXPECT_TRUE(server.waitUntilGone(1));
  turner.pass();
  EXPECT_TRUE(delegate.events.empty());
}

TEST(URLConnectionCancel, WhileARedirectWaitsForItsAnswer) {
  StepServer server;
  test::Turner turner;
  RecordingDelegate delegate;
  auto connection =
      std::make_unique<foundation::URLConnection>(requestFor(server.url("/redirect")), delegate);
  ASSERT_TRUE(test::waitUntil([&] { return server.requests == 1; }));
  connection.reset();
  EXPECT_TRUE(server.waitUntilGone(1));
  EXPECT_EQ(server.requests, 1);
}

TEST(URLConnectionCancel, ASecondTimeDoesNothing) {
  StepServer server;
  test::Turner turner;
  RecordingDelegate delegate;
  foundation::URLConnection connection(requestFor(server.url("/silent")), delegate);
  connection.cancel();
  connection.cancel();
  turner.pass();
  EXPECT_TRUE(delegate.events.empty());
}

TEST(URLConnectionCancel, AtOnceAndManyTimes) {
  StepServer server;
  test::Turner turner;
  RecordingDelegate dropped;
  for (int i = 0; i < 500; ++i) {
    foundation::URLConnection connection(requestFor(server.url("/whole")), dropped);
  }
  RecordingDelegate kept;
  foundation::URLConnection connection(requestFor(server.url("/whole")), kept);
  EXPECT_TRUE(turner.until([&] { return kept.ended; }));
  EXPECT_EQ(kept.events.back(), "finish");
  EXPECT_TRUE(dropped.events.empty());
}

}  // namespace
