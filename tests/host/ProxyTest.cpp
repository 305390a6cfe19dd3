// Proxies named by the environment.

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/host/HostPool.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/FreePort.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

std::string origin(int port) {
  return "http://127.0.0.1:" + std::to_string(port);
}

TEST(Proxy, OfTheEnvironmentSeesTheWholeUrl) {
  NginxServer proxy;
  setenv("http_proxy", origin(proxy.port()).c_str(), 1);
  HostPool pool;
  const Outcome outcome = pool.run({.url = "http://example.invalid/echo?a=1", .post = "x"});
  ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
  const auto request = EchoedRequest::parse(outcome.result);
  EXPECT_EQ(request.target, "http://example.invalid/echo?a=1");
  EXPECT_EQ(request.header("Host"), "example.invalid");
  EXPECT_EQ(request.body, "x");
}

TEST(Proxy, ThatIsNotThereFails) {
  RefusingPort refusing;
  NginxServer server;
  setenv("http_proxy", origin(refusing.port()).c_str(), 1);
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/text")}), failed(2));
  EXPECT_TRUE(server.accesses().empty());
}

TEST(Proxy, IsPassedByWhereTheEnvironmentSaysSo) {
  RefusingPort refusing;
  NginxServer server;
  setenv("http_proxy", origin(refusing.port()).c_str(), 1);
  setenv("no_proxy", "127.0.0.1,localhost", 1);
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/text")}), done("Hello, pool!"));
}

}  // namespace
}  // namespace test
