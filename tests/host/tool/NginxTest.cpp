// httppool get against a real server: what each kind of answer becomes.

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "Program.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/NginxServer.h"

namespace tooltest {
namespace {

const char* const kFailed = R"({"errorID":2,"errorReason":0})";

struct Answer {
  std::string target;
  std::vector<std::string> options;
  int status;
  std::string body;   // on stdout
  std::string error;  // at the end of the line on stderr; empty: the task is done
};

void PrintTo(const Answer& answer, std::ostream* stream) {
  *stream << answer.target;
}

class RealServer : public testing::TestWithParam<Answer> {};

TEST_P(RealServer, AnswersBecomeResults) {
  const test::NginxServer server;
  const Answer& expected = GetParam();
  std::vector<std::string> arguments{"get", server.url(expected.target)};
  arguments.insert(arguments.end(), expected.options.begin(), expected.options.end());
  const Finished finished = httppool(arguments);
  EXPECT_EQ(finished.status, expected.status);
  EXPECT_EQ(finished.out, expected.body);
  const std::string word = expected.error.empty() ? "successfully done " : "task failed ";
  EXPECT_EQ(finished.err.rfind(word, 0), 0U) << finished.err;
  EXPECT_TRUE(finished.err.ends_with(expected.error + "\n")) << finished.err;
}

INSTANTIATE_TEST_SUITE_P(
    Locations, RealServer,
    testing::Values(
        Answer{"/text", {}, 0, "Hello, pool!", ""}, Answer{"/utf8", {}, 0, "Grüße, 世界 🌍", ""},
        Answer{"/latin1", {}, 0, "caf\xE9 ol\xE9", ""}, Answer{"/empty", {}, 0, "", ""},
        Answer{"/redirect/chain/3", {}, 0, "Hello, pool!", ""},
        Answer{"/status/404", {}, 0, "status 404", ""}, Answer{"/status/407", {}, 0, "status 407", ""},
        Answer{"/status/401", {}, 1, "", kFailed}, Answer{"/status/204", {}, 1, "", kFailed},
        Answer{"/status/503", {}, 1, "", kFailed}, Answer{"/retry-after?value=7", {}, 1, "", kFailed},
        Answer{"/retry-after?value=7", {"-H", "Glint: 1"}, 0, R"({"errorID":5,"errorReason":7000})", ""},
        Answer{"/retry-after", {"-H", "Glint: 1"}, 0, R"({"errorID":5,"errorReason":300000})", ""},
        Answer{"/close", {}, 1, "", R"({"errorID":1,"errorReason":0})"},
        Answer{"/cut", {}, 1, "", R"({"errorID":1,"errorReason":0})"},
        Answer{"/redirect/none", {"-H", "Exchange-Autodiscover: 1"}, 1, "", kFailed}));

TEST(AgainstNginx, SeesTheRequestAsItWasAskedFor) {
  const test::NginxServer server;
  const Finished finished =
      httppool({"get", server.url("/echo?q=1"), "-X", "PATCH", "-d", "a=b", "-H", "X-Colour: green"});
  ASSERT_EQ(finished.status, 0) << finished.err;
  const test::EchoedRequest request = test::EchoedRequest::parse(finished.out);
  EXPECT_EQ(request.method, "PATCH");
  EXPECT_EQ(request.target, "/echo?q=1");
  EXPECT_EQ(request.body, "a=b");
  EXPECT_EQ(request.header("X-Colour"), "green");
  EXPECT_EQ(request.header("Content-Length"), "3");
  EXPECT_FALSE(request.has("HttpMethod"));
}

TEST(AgainstNginx, HttpsNeedsATrustedCertificate) {
  test::CertificateAuthority authority;
  const test::NginxServer server({.certificate = authority.good()});
  const Finished trusted =
      httppool({"get", server.tlsUrl("/text")}, {"SSL_CERT_FILE=" + authority.rootFile()});
  EXPECT_EQ(trusted.status, 0) << trusted.err;
  EXPECT_EQ(trusted.out, "Hello, pool!");
  const Finished untrusted = httppool({"get", server.tlsUrl("/text")});
  EXPECT_EQ(untrusted.status, 1);
  EXPECT_TRUE(untrusted.err.ends_with("{\"errorID\":3,\"errorReason\":0}\n")) << untrusted.err;
  EXPECT_EQ(httppool({"get", server.tlsUrl("/text"), "-H", "Adjacency: 1"}).out, "Hello, pool!");
}

TEST(AgainstNginx, GoneQuietFailsWithErrorFour) {
  const test::NginxServer server;
  const Finished finished = httppool({"get", server.url("/silent")}, {"ZEP_URL_TIMEOUT_MS=300"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_TRUE(finished.err.ends_with("{\"errorID\":4,\"errorReason\":0}\n")) << finished.err;
}

TEST(AgainstNginx, BodyAboveTheLimitFailsWithErrorSix) {
  const test::NginxServer server;
  const Finished finished = httppool({"get", server.url("/big?bytes=5000")}, {"ZEP_URL_MAX_BODY_BYTES=4999"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_TRUE(finished.err.ends_with("{\"errorID\":6,\"errorReason\":0}\n")) << finished.err;
  const Finished fits = httppool({"get", server.url("/big?bytes=5000")}, {"ZEP_URL_MAX_BODY_BYTES=5000"});
  EXPECT_EQ(fits.out, test::NginxServer::bigBody(5000));
}

}  // namespace
}  // namespace tooltest
