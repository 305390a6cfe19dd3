// The parts of the loader that need no network: error table, response head, redirects, request header,
// proxies.

#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>
#include <string>
#include <vector>

#include "foundation/base/Trace.h"
#include "foundation/url/loader/ErrorTable.h"
#include "foundation/url/loader/Limits.h"
#include "foundation/url/loader/ProxyLookUp.h"
#include "foundation/url/loader/Redirect.h"
#include "foundation/url/loader/RequestHeaders.h"
#include "foundation/url/loader/ResponseHead.h"

namespace foundation {
namespace {

TEST(ErrorTable, MapsEveryCondition) {
  struct Case {
    CURLcode result;
    long osError;
    TransferStage stage;
    int code;
  };
  const std::vector<Case> cases = {
      {CURLE_URL_MALFORMAT, 0, TransferStage::Connecting, -1000},
      {CURLE_OPERATION_TIMEDOUT, 0, TransferStage::InBody, -1001},
      {CURLE_COULDNT_RESOLVE_HOST, 0, TransferStage::Connecting, -1003},
      {CURLE_COULDNT_RESOLVE_PROXY, 0, TransferStage::Connecting, -1003},
      {CURLE_COULDNT_CONNECT, ECONNREFUSED, TransferStage::AwaitingHead, -1004},
      {CURLE_COULDNT_CONNECT, EHOSTUNREACH, TransferStage::AwaitingHead, -1004},
      {CURLE_COULDNT_CONNECT, ECONNRESET, TransferStage::AwaitingHead, -1005},
      {CURLE_COULDNT_CONNECT, ENETUNREACH, TransferStage::AwaitingHead, -1009},
      {CURLE_COULDNT_CONNECT, ENETDOWN, TransferStage::AwaitingHead, -1009},
      {CURLE_GOT_NOTHING, 0, TransferStage::AwaitingHead, -1005},
      {CURLE_PARTIAL_FILE, 0, TransferStage::InBody, -1005},
      {CURLE_RECV_ERROR, ECONNRESET, TransferStage::InBody, -1005},
      {CURLE_SEND_ERROR, EPIPE, TransferStage::AwaitingHead, -1005},
      {CURLE_HTTP2_STREAM, 0, TransferStage::InBody, -1005},
      {CURLE_WEIRD_SERVER_REPLY, 0, TransferStage::AwaitingHead, -1011},
      {CURLE_ABORTED_BY_CALLBACK, 0, TransferStage::AwaitingHead, -1011},
      {CURLE_UNSUPPORTED_PROTOCOL, 0, TransferStage::AwaitingHead, -1011},
      {CURLE_OUT_OF_MEMORY, 0, TransferStage::AwaitingHead, -1011},
      {CURLE_OUT_OF_MEMORY, 0, TransferStage::InBody, -1103},
      {CURLE_BAD_CONTENT_ENCODING, 0, TransferStage::InBody, -1016},
      {CURLE_PEER_FAILED_VERIFICATION, 0, TransferStage::AwaitingHead, -1202},
      {CURLE_SSL_CONNECT_ERROR, 0, TransferStage::AwaitingHead, -1200},
      {CURLE_SSL_CIPHER, 0, TransferStage::AwaitingHead, -1200},
      {CURLE_FAILED_INIT, 0, TransferStage::Connecting, -1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(static_cast<int>(urlErrorCode(c.result, c.osError, c.stage)), c.code)
        << c.result << ' ' << c.osError;
  }
  EXPECT_EQ(urlErrorCodeOfLookUp(EAI_NONAME), URLErrorCode::CannotFindHost);
  EXPECT_EQ(urlErrorCodeOfLookUp(EAI_NODATA), URLErrorCode::CannotFindHost);
  EXPECT_EQ(urlErrorCodeOfLookUp(EAI_AGAIN), URLErrorCode::DNSLookupFailed);
  EXPECT_EQ(urlErrorCodeOfLookUp(EAI_FAIL), URLErrorCode::DNSLookupFailed);
  EXPECT_EQ(urlErrorCodeOfFile(ENOENT), URLErrorCode::FileDoesNotExist);
  EXPECT_EQ(urlErrorCodeOfFile(EACCES), URLErrorCode::NoPermissionsToReadFile);
}

ResponseHead headOf(std::initializer_list<const char*> lines) {
  ResponseHead head;
  auto progress = ResponseHead::Progress::More;
  for (const char* line : lines) {
    EXPECT_EQ(progress, ResponseHead::Progress::More);
    progress = head.addLine(std::string(line) + "\r\n");
  }
  EXPECT_EQ(progress, ResponseHead::Progress::Complete);
  return head;
}

TEST(ResponseHead, CollectsTheFinalAnswer) {
  const ResponseHead head =
      headOf({"HTTP/1.1 100 Continue", "X: interim", "", "HTTP/1.1 103 Early Hints", "Link: a", "",
              "HTTP/1.1 404 Not Found", "A:  b \t", "a: c", "Empty:", "noise", ""});
  EXPECT_EQ(head.statusCode(), 404);
  EXPECT_EQ(*head.fields().value("A"), "b, c");
  EXPECT_EQ(*head.fields().value("Empty"), "");
  EXPECT_EQ(head.fields().value("X"), nullptr);
  EXPECT_EQ(head.fields().value("Link"), nullptr);
}

TEST(ResponseHead, KnowsNoNegativeStatus) {
  EXPECT_EQ(headOf({"HTTP/1.1 -12 x", ""}).statusCode(), 0);
  EXPECT_EQ(headOf({"HTTP/1.1 +12 x", ""}).statusCode(), 0);
}

TEST(ResponseHead, SpellsLowerCaseNamesTheUsualWay) {
  const ResponseHead head = headOf({"HTTP/2 302 ", "location: /x", "retry-after: 7", "TrackingID: t", ""});
  EXPECT_NE(head.fields().find("Location"), nullptr);
  EXPECT_NE(head.fields().find("Retry-After"), nullptr);
  EXPECT_NE(head.fields().find("TrackingID"), nullptr);
}

TEST(ResponseHead, KnowsLengthAndRedirect) {
  EXPECT_EQ(headOf({"HTTP/1.1 200 OK", "Content-Length: 12", ""}).contentLength(), 12u);
  EXPECT_FALSE(
      headOf({"HTTP/1.1 200 OK", "Content-Length: 12", "Content-Encoding: gzip", ""}).contentLength());
  EXPECT_FALSE(headOf({"HTTP/1.1 200 OK", ""}).contentLength());
  for (const char* status : {"301", "302", "303", "307", "308"}) {
    EXPECT_TRUE(headOf({("HTTP/1.1 " + std::string(status)).c_str(), "Location: /", ""}).isRedirect())
        << status;
    EXPECT_FALSE(headOf({("HTTP/1.1 " + std::string(status)).c_str(), ""}).isRedirect()) << status;
  }
  EXPECT_FALSE(headOf({"HTTP/1.1 300 ", "Location: /", ""}).isRedirect());
  EXPECT_FALSE(headOf({"HTTP/1.1 201 ", "Location: /", ""}).isRedirect());
}

TEST(ResponseHead, RefusesLengthsThatAreAmbiguous) {
  const auto judge = [](std::initializer_list<const char*> fields) {
    ResponseHead head;
    head.addLine("HTTP/1.1 200 OK");
    for (const char* field : fields) {
      EXPECT_EQ(head.addLine(field), ResponseHead::Progress::More);
    }
    return head.addLine("");
  };
  for (const char* field :
       {"Content-Length: -1", "Content-Length: +1", "Content-Length: 1 2", "Content-Length: 1,2",
        "Content-Length: 1,", "Content-Length: 0x1", "Content-Length: 1.0",
        "Content-Length:", "Content-Length: 99999999999999999999999"}) {
    EXPECT_EQ(judge({field}), ResponseHead::Progress::Ambiguous) << field;
    EXPECT_EQ(judge({field, "Transfer-Encoding: chunked"}), ResponseHead::Progress::Complete) << field;
  }
  EXPECT_EQ(judge({"Content-Length: 1", "Content-Length: 2"}), ResponseHead::Progress::Ambiguous);
  EXPECT_EQ(judge({"Content-Length: 1", "Content-Length: 1"}), ResponseHead::Progress::Complete);
  EXPECT_EQ(judge({"Content-Length: 1, 1"}), ResponseHead::Progress::Complete);
}

TEST(ResponseHead, KeepsTheLinesOfAChallengeApart) {
  const auto lines = [](const char* status) {
    return headOf({status, "WWW-Authenticate: Bearer realm=\"open", "Proxy-Authenticate: Basic",
                   "www-authenticate: NTLM", ""})
        .challengeFields();
  };
  EXPECT_EQ(lines("HTTP/1.1 401 No"), (std::vector<std::string>{"Bearer realm=\"open", "NTLM"}));
  EXPECT_EQ(lines("HTTP/1.1 407 No"), (std::vector<std::string>{"Basic"}));
  EXPECT_EQ(lines("HTTP/1.1 403 No"), std::vector<std::string>{});
  EXPECT_EQ(
      headOf({"HTTP/1.1 103 Hints", "WWW-Authenticate: Basic", "", "HTTP/1.1 401 No", ""}).challengeFields(),
      std::vector<std::string>{});
}

TEST(ResponseHead, IsBoundedInBytesAndLines) {
  ResponseHead bytes;
  EXPECT_EQ(bytes.addLine("HTTP/1.1 200 OK\r\n"), ResponseHead::Progress::More);
  EXPECT_EQ(bytes.addLine("A: " + std::string(kHeaderBytesLimit, 'x') + "\r\n"),
            ResponseHead::Progress::TooLarge);

  // Interim answers do not start the count anew.
  ResponseHead interim;
  auto progress = ResponseHead::Progress::More;
  int lines = 0;
  while (progress == ResponseHead::Progress::More && lines < 1'000'000) {
    progress = interim.addLine(lines++ % 2 == 0 ? "HTTP/1.1 102 Processing\r\n" : "\r\n");
  }
  EXPECT_EQ(progress, ResponseHead::Progress::TooLarge);
  EXPECT_LE(lines, 2000);
}

TEST(ResponseHead, CountsTrailersWithTheHead) {
  ResponseHead head;
  head.addLine("HTTP/1.1 200 OK\r\n");
  EXPECT_EQ(head.addLine("\r\n"), ResponseHead::Progress::Complete);
  const std::string field = "A: " + std::string(kHeaderBytesLimit / 2, 'x') + "\r\n";
  EXPECT_EQ(head.addTrailer(field), ResponseHead::Progress::More);
  EXPECT_EQ(head.addTrailer(field), ResponseHead::Progress::TooLarge);
  EXPECT_EQ(head.fields().value("A"), nullptr);
}

TEST(Redirect, ResolvesTargets) {
  const URL base = *URL::parse("http://h:8080/a/b?q");
  const auto target = [&](const char* location) {
    const auto url = redirectTarget(base, location);
    return url ? url->absoluteString() : std::string("none");
  };
  EXPECT_EQ(target("http://other/x"), "http://other/x");
  EXPECT_EQ(target("/x?y"), "http://h:8080/x?y");
  EXPECT_EQ(target("c"), "http://h:8080/a/c");
  EXPECT_EQ(target("../c"), "http://h:8080/c");
  EXPECT_EQ(target("//other/x"), "http://other/x");
  EXPECT_EQ(target("?z"), "http://h:8080/a/b?z");
  EXPECT_EQ(target("/with blank/\xc3\xa4|%41%"), "http://h:8080/with%20blank/%C3%A4%7C%41%25");
  EXPECT_EQ(redirectTarget(base, "ftp://h/x")->scheme(), "ftp");
  EXPECT_EQ(target(""), "none");
  EXPECT_EQ(target("http://"), "none");
  EXPECT_EQ(target("http://[::1/"), "none");
}

TEST(Redirect, TakesQueriesForNoPartOfAPath) {
  const URL base = *URL::parse("http://h/a/b/c?q/r");
  const auto target = [&](const char* location) { return redirectTarget(base, location)->absoluteString(); };
  EXPECT_EQ(target("../?x"), "http://h/a/?x");
  EXPECT_EQ(target("./?x"), "http://h/a/b/?x");
  EXPECT_EQ(target("d?../x"), "http://h/a/b/d?../x");
  EXPECT_EQ(target("//other?x/../y"), "http://other/?x/../y");
}

TEST(Redirect, TakesFragmentsForPlacesInADocument) {
  const URL base = *URL::parse("http://h/a/b?q#/in/the/document");
  const auto target = [&](const char* location) { return redirectTarget(base, location)->absoluteString(); };
  EXPECT_EQ(target("#top"), "http://h/a/b?q#top");
  EXPECT_EQ(target("#/top"), "http://h/a/b?q#/top");
  EXPECT_EQ(target("c"), "http://h/a/c");
  EXPECT_EQ(target("c#/d"), "http://h/a/c#/d");
  EXPECT_EQ(target("?z#e"), "http://h/a/b?z#e");
  EXPECT_EQ(target("http://other#e"), "http://other/#e");
}

URLRequest postTo(const char* url) {
  URLRequest request(*URL::parse(url));
  request.setHTTPMethod("POST");
  request.setHTTPBody(std::make_shared<Data>("body"));
  for (const char* field : {"Content-Type", "Content-Length", "Authorization", "Cookie", "Host", "X-Mine"}) {
    request.setValueForHTTPHeaderField("v", field);
  }
  return request;
}

TEST(Redirect, ChangesMethodAndBodyByStatus) {
  struct Case {
    int status;
    const char* method;
    const char* expected;
    bool keepsBody;
  };
  for (const Case& c : std::vector<Case>{{301, "POST", "GET", false},
                                         {302, "POST", "GET", false},
                                         {303, "POST", "GET", false},
                                         {307, "POST", "POST", true},
                                         {308, "POST", "POST", true},
                                         {301, "PUT", "PUT", true},
                                         {302, "DELETE", "DELETE", true},
                                         {303, "PUT", "GET", false},
                                         {303, "HEAD", "HEAD", true},
                                         {301, "GET", "GET", true}}) {
    URLRequest request = postTo("http://h/");
    request.setHTTPMethod(c.method);
    const URLRequest next = redirectedRequest(request, c.status, URL::parse("http://h/next"));
    EXPECT_EQ(next.HTTPMethod(), c.expected) << c.status << c.method;
    EXPECT_EQ(next.HTTPBody() != nullptr, c.keepsBody) << c.status << c.method;
    EXPECT_EQ(next.headerFields().value("Content-Type") != nullptr, c.keepsBody) << c.status << c.method;
    EXPECT_NE(next.headerFields().value("X-Mine"), nullptr);
  }
}

TEST(Redirect, KeepsSecretsAtTheirOrigin) {
  const URLRequest request = postTo("http://h/");
  const URLRequest same = redirectedRequest(request, 307, URL::parse("http://h:80/next"));
  EXPECT_NE(same.headerFields().value("Authorization"), nullptr);
  EXPECT_NE(same.headerFields().value("Cookie"), nullptr);
  for (const char* target : {"http://other/", "https://h/", "http://h:81/"}) {
    const URLRequest next = redirectedRequest(request, 307, URL::parse(target));
    for (const char* field : {"Authorization", "Cookie", "Host"}) {
      EXPECT_EQ(next.headerFields().value(field), nullptr) << target << field;
    }
  }
}

std::vector<std::string> headerLines(const URLRequest& request) {
  const RequestHeaders headers = makeRequestHeaders(request);
  std::vector<std::string> lines;
  for (const curl_slist* entry = headers.list.get(); entry != nullptr; entry = entry->next) {
    lines.emplace_back(entry->data);
  }
  return lines;
}

bool hasLine(const std::vector<std::string>& lines, const std::string& line) {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

std::vector<std::string>& tracedLines() {
  static std::vector<std::string> lines;
  return lines;
}

TEST(RequestHeaders, LeavesOutWhatCouldInject) {
  URLRequest request(*URL::parse("http://h/"));
  request.setValueForHTTPHeaderField("ok", "Good");
  request.setValueForHTTPHeaderField("a\r\nEvil: 1", "Split");
  request.setValueForHTTPHeaderField("a\nEvil: 1", "Split2");
  request.setValueForHTTPHeaderField("x", "Evil: 1\r\nName");
  request.setValueForHTTPHeaderField("x", "");
  request.setValueForHTTPHeaderField("", "Empty");
  tracedLines().clear();
  setTraceSink([](TraceLevel level, std::string_view text) {
    EXPECT_EQ(level, TraceLevel::Warning);
    tracedLines().emplace_back(text);
  });
  const auto lines = headerLines(request);
  setTraceSink(nullptr);
  EXPECT_TRUE(hasLine(lines, "Good: ok"));
  EXPECT_TRUE(hasLine(lines, "Empty;"));
  for (const std::string& line : lines) {
    EXPECT_EQ(line.find("Evil"), std::string::npos) << line;
    EXPECT_EQ(line.find_first_of("\r\n"), std::string::npos) << line;
  }
  EXPECT_EQ(tracedLines().size(), 4u);
  for (const std::string& line : tracedLines()) {
    EXPECT_EQ(line.find("Evil"), std::string::npos) << line;
  }
}

TEST(RequestHeaders, FramingIsTheLoadersOwn) {
  URLRequest request = postTo("http://h/");
  request.setValueForHTTPHeaderField("999", "content-length");
  request.setValueForHTTPHeaderField("chunked", "Transfer-Encoding");
  request.setValueForHTTPHeaderField("100-continue", "Expect");
  const auto lines = headerLines(request);
  for (const std::string& line : lines) {
    EXPECT_EQ(line.find("999"), std::string::npos);
    EXPECT_EQ(line.find("chunked"), std::string::npos);
    EXPECT_EQ(line.find("100-continue"), std::string::npos);
  }
  EXPECT_TRUE(hasLine(lines, "Expect:"));
  EXPECT_EQ(makeRequestHeaders(request).cookies, "v");
}

TEST(RequestHeaders, DefaultsGiveWayToTheHosts) {
  URLRequest request(*URL::parse("http://h/"));
  request.setValueForHTTPHeaderField("mine/1", "user-agent");
  request.setValueForHTTPHeaderField("xx", "Accept-Language");
  const auto lines = headerLines(request);
  EXPECT_TRUE(hasLine(lines, "user-agent: mine/1"));
  EXPECT_TRUE(hasLine(lines, "Accept-Language: xx"));
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& line) { return line.find("gent:") != std::string::npos; }),
            1);
  EXPECT_TRUE(hasLine(headerLines(URLRequest(*URL::parse("http://h/"))), "User-Agent: zepfoundation/0.1"));
}

TEST(ProxyLookUp, TakesTheFirstUsableProxy) {
  const auto usable = [](std::vector<const char*> proxies) {
    proxies.push_back(nullptr);
    return usableProxy(proxies.data());
  };
  EXPECT_EQ(usable({"direct://", "http://p:1"}), "");
  EXPECT_EQ(usable({"http://p:1", "direct://"}), "http://p:1");
  EXPECT_EQ(usable({"socks://p:1"}), "socks5h://p:1");
  EXPECT_EQ(usable({"socks5://p:1"}), "socks5h://p:1");
  EXPECT_EQ(usable({"socks4://p:1"}), "socks4://p:1");
  EXPECT_EQ(usable({"unknown://p:1", "https://p:2"}), "https://p:2");
  EXPECT_EQ(usable({}), "");
}

TEST(Limits, AreReadFromTheEnvironment) {
  setenv("ZEP_URL_TIMEOUT_MS", "250", 1);
  setenv("ZEP_URL_MAX_BODY_BYTES", "1000", 1);
  EXPECT_EQ(Limits::ofThisProcess().idle.count(), 250);
  EXPECT_EQ(Limits::ofThisProcess().bodyBytes, 1000u);
  for (const char* bad : {"", "0", "-1", "x", "5s", "99999999999999999999999"}) {
    setenv("ZEP_URL_TIMEOUT_MS", bad, 1);
    EXPECT_EQ(Limits::ofThisProcess().idle.count(), 60'000) << bad;
  }
  unsetenv("ZEP_URL_TIMEOUT_MS");
  unsetenv("ZEP_URL_MAX_BODY_BYTES");
  EXPECT_GT(Limits::ofThisProcess().bodyBytes, std::size_t{1} << 28);
  EXPECT_GE(Limits::ofThisProcess().transfers, 4u);
}

}  // namespace
}  // namespace foundation
