// Texts of a host that try to smuggle something into a request.

#include <gtest/gtest.h>

#include "tests/host/HostPool.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

using namespace std::string_literals;

class InjectedField : public testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(InjectedField, NeverReachesTheWire) {
  NginxServer server;
  HostPool pool;
  const Outcome outcome = pool.run({.url = server.url("/echo"),
                                    .headers = {{"X-Before", "1"}, GetParam(), {"X-After", "2"}},
                                    .post = "body"});
  ASSERT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
  const auto request = EchoedRequest::parse(outcome.result);
  EXPECT_EQ(request.rawHeader.find("Smuggled"), std::string::npos) << request.rawHeader;
  EXPECT_EQ(request.header("X-Before"), "1");
  EXPECT_EQ(request.header("X-After"), "2");
  EXPECT_EQ(request.body, "body");
  EXPECT_EQ(server.accesses().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Values, InjectedField,
    testing::Values(std::pair{"X-A"s, "1\r\nSmuggled: 1"s}, std::pair{"X-A"s, "1\nSmuggled: 1"s},
                    std::pair{"X-A"s, "1\rSmuggled: 1"s}, std::pair{"X-A"s, "1\0Smuggled: 1"s},
                    std::pair{"X-A"s, "1\r\n\r\nGET /Smuggled HTTP/1.1\r\nHost: x\r\n\r\n"s},
                    std::pair{"Cookie"s, "a=b\r\nSmuggled: 1"s},
                    std::pair{"User-Agent"s, "a\r\nSmuggled: 1"s},
                    std::pair{"Content-Type"s, "a\r\nSmuggled: 1"s},
                    std::pair{"Host"s, "a\r\nSmuggled: 1"s}));
INSTANTIATE_TEST_SUITE_P(Names, InjectedField,
                         testing::Values(std::pair{"Smuggled: 1\r\nX-A"s, "1"s},
                                         std::pair{"X-A\r\nSmuggled"s, "1"s},
                                         std::pair{"X-A\nSmuggled"s, "1"s}, std::pair{"X-A\rSmuggled"s, "1"s},
                                         std::pair{"Smuggled Name"s, "1"s}, std::pair{"Smuggled:"s, "1"s},
                                         std::pair{"Smuggled;"s, ""s}, std::pair{"\tSmuggled"s, "1"s},
                                         std::pair{"Smuggled\0"s, "1"s}, std::pair{"Smuggledü"s, "1"s},
                                         std::pair{""s, "Smuggled"s}));

class InvalidMethod : public testing::TestWithParam<std::string> {};

TEST_P(InvalidMethod, FailsAndSendsNothing) {
  NginxServer server;
  HostPool pool;
  EXPECT_EQ(pool.run({.url = server.url("/echo"), .headers = {{"HttpMethod", GetParam()}}}), failed(6));
  EXPECT_TRUE(server.accesses().empty());
}

INSTANTIATE_TEST_SUITE_P(All, InvalidMethod,
                         testing::Values("", " ", "GE T", "GET ", "GET / HTTP/1.1\r\nSmuggled: 1\r\n\r\nPOST",
                                         "GET\n", "G\tET", "GÉT", "GET:"));

}  // namespace
}  // namespace test
