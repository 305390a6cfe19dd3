// How connections are used, seen from the server's log.

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/host/HostPool.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

constexpr int kRequests = 8;

TEST(Connection, IsKeptForTheNextRequest) {
  NginxServer server;
  HostPool pool;
  for (int request = 0; request < kRequests; ++request) {
    ASSERT_EQ(pool.run({.url = server.url("/text")}), done("Hello, pool!"));
  }
  const auto accesses = server.accesses("/text");
  ASSERT_EQ(accesses.size(), std::size_t{kRequests});
  EXPECT_EQ(NginxServer::connectionsOf(accesses), 1U);
}

// The control for the test above: the count does tell kept connections from new ones.
TEST(Connection, IsNewWhenTheServerEndsEach) {
  NginxServer server({.extraLocations = "location = /single { keepalive_timeout 0; return 200 single; }"});
  HostPool pool;
  for (int request = 0; request < kRequests; ++request) {
    ASSERT_EQ(pool.run({.url = server.url("/single"), .headers = {{"HttpMethonGet", ""}}}), done("single"));
  }
  const auto accesses = server.accesses("/single");
  ASSERT_EQ(accesses.size(), std::size_t{kRequests});
  EXPECT_EQ(NginxServer::connectionsOf(accesses), std::size_t{kRequests});
}

TEST(Connection, IsKeptAfterAnUnwantedStatus) {
  NginxServer server;
  HostPool pool;
  ASSERT_EQ(pool.run({.url = server.url("/status/404")}), done("status 404"));
  ASSERT_EQ(pool.run({.url = server.url("/text")}), done("Hello, pool!"));
  EXPECT_EQ(NginxServer::connectionsOf(server.accesses()), 1U);
}

TEST(Connection, OverTlsUsesHttp2WhereOffered) {
  CertificateAuthority authority;
  setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  NginxServer server({.certificate = authority.good()});
  HostPool pool;
  for (int request = 0; request < kRequests; ++request) {
    ASSERT_EQ(pool.run({.url = server.tlsUrl("/text")}), done("Hello, pool!"));
  }
  const auto accesses = server.accesses("/text");
  ASSERT_EQ(accesses.size(), std::size_t{kRequests});
  EXPECT_EQ(accesses[0].protocol, "HTTP/2.0");
  EXPECT_EQ(NginxServer::connectionsOf(accesses), 1U);
}

TEST(Connection, Http2CarriesBodyAndHeaderFields) {
  CertificateAuthority authority;
  setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  NginxServer server({.certificate = authority.good()});
  HostPool pool;
  const Outcome outcome =
      pool.run({.url = server.tlsUrl("/echo?q=1"), .headers = {{"X-Colour", "green"}}, .post = "a=1&b=2"});
  ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
  const auto request = EchoedRequest::parse(outcome.result);
  EXPECT_EQ(request.protocol, "HTTP/2.0");
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.target, "/echo?q=1");
  EXPECT_EQ(request.header("X-Colour"), "green");
  EXPECT_EQ(request.body, "a=1&b=2");
}

TEST(Connection, OverTlsFallsBackToHttp11) {
  CertificateAuthority authority;
  setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  NginxServer server({.certificate = authority.good(), .http2 = false});
  HostPool pool;
  ASSERT_EQ(pool.run({.url = server.tlsUrl("/text")}), done("Hello, pool!"));
  const auto accesses = server.accesses("/text");
  ASSERT_EQ(accesses.size(), 1U);
  EXPECT_EQ(accesses[0].protocol, "HTTP/1.1");
  EXPECT_EQ(accesses[0].port, server.tlsPort());
}

}  // namespace
}  // namespace test
