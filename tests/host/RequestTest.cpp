// Method, body and header fields of a request, as the server sees them on the wire.

#include <gtest/gtest.h>

#include "tests/host/HostPool.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/NginxServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

class Request : public testing::Test {
 protected:
  /// Sends it to /echo; what arrived. Fails the test when nothing did.
  EchoedRequest sent(Call call) {
    call.url = server_.url("/echo");
    const Outcome outcome = pool_.run(call);
    EXPECT_EQ(outcome.status, ZEP_HTTP_TASK_DONE) << outcome;
    return outcome.status == ZEP_HTTP_TASK_DONE ? EchoedRequest::parse(outcome.result) : EchoedRequest{};
  }

  NginxServer server_;
  HostPool pool_;
};

constexpr const char* kForm = "application/x-www-form-urlencoded";

TEST_F(Request, IsAPostWithoutABody) {
  const auto request = sent({});
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.body, "");
  EXPECT_EQ(request.header("Content-Length"), "0");
  EXPECT_EQ(request.header("Content-Type"), kForm);
  EXPECT_FALSE(request.has("Transfer-Encoding"));
}

TEST_F(Request, PostsText) {
  const auto request = sent({.post = "name=Grüße&b=2"});
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.body, "name=Grüße&b=2");
  EXPECT_EQ(request.header("Content-Length"), "16");
  EXPECT_EQ(request.header("Content-Type"), kForm);
}

TEST_F(Request, PostsBytesWithZeroBytes) {
  const std::vector<unsigned char> data = {0, 1, 2, 0, 0xFF, 0xFE, 0, 'z', 0};
  const auto request = sent({.data = data});
  EXPECT_EQ(request.body, std::string(data.begin(), data.end()));
  EXPECT_EQ(request.header("Content-Length"), "9");
}

TEST_F(Request, PostsBytesBeforeTextAndFile) {
  TemporaryFolder folder;
  const auto request = sent({.post = "text", .file = folder.file("x"), .data = {'b', 'y', 't', 'e', 's'}});
  EXPECT_EQ(request.body, "bytes");
}

TEST_F(Request, PostsAMegabyteWithoutExpecting) {
  const std::string body(1'000'000, 'm');
  const auto request = sent({.post = body});
  EXPECT_TRUE(request.body == body);
  EXPECT_EQ(request.header("Content-Length"), "1000000");
  EXPECT_FALSE(request.has("Expect"));
}

TEST_F(Request, DownloadIsAPostWithoutText) {
  TemporaryFolder folder;
  pool_.run({.url = server_.url("/text"), .post = "text", .file = folder.file("x")});
  const auto accesses = server_.accesses("/text");
  ASSERT_EQ(accesses.size(), 1U);
  EXPECT_EQ(accesses[0].method, "POST");
}

TEST_F(Request, HttpMethonGetIsAGetWhateverItsValue) {
  for (const char* value : {"", "1", "PUT"}) {
    const auto request = sent({.headers = {{"HttpMethonGet", value}}});
    EXPECT_EQ(request.method, "GET");
    EXPECT_FALSE(request.has("Content-Length"));
    EXPECT_FALSE(request.has("HttpMethonGet"));
  }
}

TEST_F(Request, HttpMethodIsTheMethod) {
  for (const char* method : {"GET", "PUT", "DELETE", "PATCH", "OPTIONS", "POST", "PROPFIND", "M-SEARCH"}) {
    const auto request = sent({.headers = {{"HttpMethod", method}}, .post = "body"});
    EXPECT_EQ(request.method, method);
    EXPECT_EQ(request.body, "body") << method;
    EXPECT_EQ(request.header("Content-Length"), "4") << method;
    EXPECT_FALSE(request.has("HttpMethod")) << method;
  }
}

TEST_F(Request, HttpMethodWithoutABody) {
  for (const char* method : {"PUT", "DELETE", "PATCH", "OPTIONS"}) {
    const auto request = sent({.headers = {{"HttpMethod", method}}});
    EXPECT_EQ(request.method, method);
    EXPECT_EQ(request.body, "") << method;
    EXPECT_FALSE(request.has("Transfer-Encoding")) << method;
  }
}

TEST_F(Request, HeadIsDoneWithoutABody) {
  EXPECT_EQ(pool_.run({.url = server_.url("/text"), .headers = {{"HttpMethod", "HEAD"}}}), done(""));
  // The connection is still in step: the next answer is the next request's.
  EXPECT_EQ(pool_.run({.url = server_.url("/text")}), done("Hello, pool!"));
  const auto accesses = server_.accesses("/text");
  ASSERT_EQ(accesses.size(), 2U);
  EXPECT_EQ(accesses[0].method, "HEAD");
}

TEST_F(Request, TheLaterOfBothMethodKeysWins) {
  EXPECT_EQ(sent({.headers = {{"HttpMethonGet", ""}, {"HttpMethod", "PUT"}}}).method, "PUT");
  EXPECT_EQ(sent({.headers = {{"HttpMethod", "PUT"}, {"HttpMethonGet", ""}}}).method, "GET");
}

TEST_F(Request, CarriesTheHostsFieldsAsGiven) {
  const auto request = sent({.headers = {{"X-Colour", "green"},
                                         {"x-lower", "1"},
                                         {"X-Umlaut", "Grüße"},
                                         {"X-Empty", ""},
                                         {"X-Under_score", "a;b=\"c\""}}});
  EXPECT_NE(request.rawHeader.find("\r\nX-Colour: green\r\n"), std::string::npos) << request.rawHeader;
  EXPECT_NE(request.rawHeader.find("\r\nx-lower: 1\r\n"), std::string::npos) << request.rawHeader;
  EXPECT_EQ(request.header("X-Umlaut"), "Grüße");
  EXPECT_EQ(request.countOf("X-Empty"), 1U);
  EXPECT_EQ(request.header("X-Empty"), "");
  EXPECT_EQ(request.header("X-Under_score"), "a;b=\"c\"");
}

TEST_F(Request, GivenFieldsReplaceTheDefaults) {
  const auto plain = sent({});
  EXPECT_EQ(plain.countOf("Accept"), 1U);
  EXPECT_EQ(plain.countOf("User-Agent"), 1U);
  EXPECT_NE(plain.header("Accept-Encoding").find("gzip"), std::string::npos);
  const auto request = sent({.headers = {{"Accept", "text/x-special"},
                                         {"User-Agent", "Host/1.0"},
                                         {"Accept-Language", "tlh"},
                                         {"Content-Type", "text/x-body"}},
                             .post = "x"});
  EXPECT_EQ(request.header("Accept"), "text/x-special");
  EXPECT_EQ(request.header("User-Agent"), "Host/1.0");
  EXPECT_EQ(request.header("Accept-Language"), "tlh");
  EXPECT_EQ(request.header("Content-Type"), "text/x-body");
  for (const char* name : {"Accept", "User-Agent", "Accept-Language", "Content-Type"}) {
    EXPECT_EQ(request.countOf(name), 1U) << name;
  }
}

TEST_F(Request, GivenAcceptEncodingIsTheOnlyOne) {
  const auto request = sent({.headers = {{"Accept-Encoding", "identity"}}});
  EXPECT_EQ(request.header("Accept-Encoding"), "identity");
  EXPECT_EQ(request.countOf("Accept-Encoding"), 1U);
}

TEST_F(Request, GivenContentLengthNeverContradictsTheBody) {
  for (const char* name : {"Content-Length", "content-length"}) {
    for (const char* length : {"3", "999", "-1", "text"}) {
      const auto request = sent({.headers = {{name, length}}, .post = "abcdef"});
      EXPECT_EQ(request.header("Content-Length"), "6");
      EXPECT_EQ(request.countOf("Content-Length"), 1U);
      EXPECT_EQ(request.body, "abcdef");
    }
  }
}

TEST_F(Request, GivenTransferEncodingIsNotSent) {
  const auto request = sent({.headers = {{"Transfer-Encoding", "chunked"}}, .post = "abcdef"});
  EXPECT_FALSE(request.has("Transfer-Encoding"));
  EXPECT_EQ(request.body, "abcdef");
}

TEST_F(Request, HeaderTextThatIsNoObjectAddsNothing) {
  for (const char* text : {"[\"X-A\",\"1\"]", "{\"X-A\":\"1\"", "X-A: 1", "null", "\"X-A\""}) {
    pool_.add(text, {.url = server_.url("/echo")});
    pool_.set(text, ZEP_HTTP_TASK_PROP_HEADER_FIELDS, text);
    pool_.launch(text);
    ASSERT_TRUE(pool_.await());
    ASSERT_EQ(pool_.outcome(text).status, ZEP_HTTP_TASK_DONE);
    EXPECT_FALSE(EchoedRequest::parse(pool_.outcome(text).result).has("X-A")) << text;
  }
}

TEST_F(Request, LaterOfTwoEqualMembersWins) {
  const auto request = sent({.headers = {{"X-A", "first"}, {"X-A", "second"}}});
  EXPECT_EQ(request.countOf("X-A"), 1U);
  EXPECT_EQ(request.header("X-A"), "second");
}

}  // namespace
}  // namespace test
