// httppool get: what goes out, what is shown, and the exit status.

#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>

#include <sstream>
#include <string>

#include "CannedOrigin.h"
#include "Program.h"
#include "Scratch.h"

namespace tooltest {
namespace {

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(Get, PrintsTheBodyAloneOnStdout) {
  const std::string body("two\nlines\x1b\xff\x80 and no line feed at the end");
  CannedOrigin origin({{"/a", answer("200 OK", body)}});
  const Finished finished = httppool({"get", origin.url("/a")});
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_EQ(finished.out, body);
  EXPECT_EQ(finished.err.rfind("successfully done ", 0), 0U) << finished.err;
  EXPECT_TRUE(
      contains(finished.err, " s  " + origin.url("/a") + "  " + std::to_string(body.size()) + " bytes\n"));
  EXPECT_EQ(origin.requestFor("/a").rfind("GET /a HTTP/1.1\r\n", 0), 0U);
}

TEST(Get, EscapesTheBodyOnATerminal) {
  CannedOrigin origin({{"/a", answer("200 OK", "a\tb\nc\x1b[2J\r\xc2\x9b\xe2\x80\xae\x9b")}});
  const Finished finished = httppoolOnTerminal({"get", origin.url("/a")});
  EXPECT_EQ(finished.status, 0) << finished.err;
  // The terminal itself turns a line feed into CR LF.
  EXPECT_EQ(finished.out, "a\tb\r\nc\\x1b[2J\\r\\u009b\\u202e\\x9b\r\n");
}

TEST(Get, EscapesControlCharactersInALine) {
  CannedOrigin origin({{"/a", answer("200 OK", "x\x1b]0;title\x07\ny")}, {"/b", answer("200 OK", "b")}});
  const Finished finished = httppool({"get", origin.url("/a"), origin.url("/b")});
  EXPECT_EQ(finished.status, 0);
  EXPECT_TRUE(contains(finished.out, origin.url("/a") + "  x\\x1b]0;title\\x07\\ny\n")) << finished.out;
  EXPECT_EQ(finished.out.find('\x1b'), std::string::npos);
}

TEST(Get, ShortensALongResultInALine) {
  CannedOrigin origin({{"/a", answer("200 OK", std::string(5000, 'x'))}, {"/b", answer("200 OK", "b")}});
  const Finished finished = httppool({"get", origin.url("/a"), origin.url("/b")});
  EXPECT_TRUE(contains(finished.out, "  " + std::string(100, 'x') + "... (5000 bytes)\n")) << finished.out;
}

TEST(Get, ShowsOneLineForEachUrlAndFailsWhenOneFails) {
  CannedOrigin origin({{"/a", answer("200 OK", "first")}, {"/b", answer("500 Internal Server Error", "no")}});
  const Finished finished = httppool({"get", origin.url("/a"), origin.url("/b"), origin.url("/a")});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.err, "");
  std::istringstream lines(finished.out);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    const bool isFailed = contains(line, "/b");
    EXPECT_EQ(line.rfind(isFailed ? "task failed " : "successfully done ", 0), 0U) << line;
    EXPECT_TRUE(line.ends_with(isFailed ? "  {\"errorID\":2,\"errorReason\":0}" : "  first")) << line;
  }
  EXPECT_EQ(count, 3);
  EXPECT_TRUE(contains(finished.out, origin.url("/a") + " (2)  first\n")) << finished.out;
}

TEST(Get, RunsItsUrlsSideBySide) {
  // Neither is answered: both requests can only be there together.
  CannedOrigin origin({});
  Program program(HTTPPOOL_PROGRAM, {"get", origin.url("/a"), origin.url("/b")});
  EXPECT_NE(origin.requestFor("/a"), "");
  EXPECT_NE(origin.requestFor("/b"), "");
}

TEST(Get, FailsWithTheLibrarysErrorAndNothingOnStdout) {
  CannedOrigin origin({{"/a", answer("500 Internal Server Error", "no")}});
  const Finished finished = httppool({"get", origin.url("/a")});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "");
  EXPECT_TRUE(contains(finished.err, "  {\"errorID\":2,\"errorReason\":0}\n")) << finished.err;
}

TEST(Get, SaysThatAnUnusableUrlIsRefused) {
  const Finished finished = httppool({"get", "http://a b/"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "");
  EXPECT_TRUE(contains(finished.err, "task failed ")) << finished.err;
  EXPECT_TRUE(contains(finished.err, "  http://a b/  refused: not a URL\n")) << finished.err;
}

TEST(Get, PostsATextBody) {
  CannedOrigin origin({{"/a", answer("200 OK", "")}});
  EXPECT_EQ(httppool({"get", "-d", "k=v", origin.url("/a")}).status, 0);
  const std::string request = origin.requestFor("/a");
  EXPECT_EQ(request.rfind("POST /a ", 0), 0U) << request;
  EXPECT_TRUE(request.ends_with("\r\n\r\nk=v")) << request;
}

TEST(Get, PostsAFileOfAnyBytes) {
  const Scratch scratch;
  const std::string bytes("a\0b\xff\n", 5);
  CannedOrigin origin({{"/a", answer("200 OK", "")}});
  const std::string file = scratch.write("body", bytes);
  EXPECT_EQ(httppool({"get", origin.url("/a"), "--data-file", file, "-X", "PUT"}).status, 0);
  const std::string request = origin.requestFor("/a");
  EXPECT_EQ(request.rfind("PUT /a ", 0), 0U) << request;
  EXPECT_TRUE(request.ends_with("\r\n\r\n" + bytes)) << request;
}

TEST(Get, SendsHeaderFieldsAndKeepsReservedKeysBack) {
  CannedOrigin origin({{"/a", answer("200 OK", "")}});
  EXPECT_EQ(httppool({"get", "-H", "X-Quote: say \"hi\" \\ \xc3\xa9", "-H", "Adjacency: 1", "-H",
                      "HttpMethod: DELETE", origin.url("/a")})
                .status,
            0);
  const std::string request = origin.requestFor("/a");
  EXPECT_EQ(request.rfind("DELETE /a ", 0), 0U) << request;
  EXPECT_TRUE(contains(request, "\r\nX-Quote: say \"hi\" \\ \xc3\xa9\r\n")) << request;
  EXPECT_FALSE(contains(request, "Adjacency")) << request;
}

TEST(Get, DownloadsToAFile) {
  const Scratch scratch;
  std::string bytes(300'000, '\0');
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    bytes[index] = static_cast<char>(index * 7 % 256);
  }
  CannedOrigin origin({{"/a", answer("200 OK", bytes)}});
  const Finished finished = httppool({"get", origin.url("/a"), "-o", scratch.path("f")});
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_TRUE(contains(finished.out, "  " + scratch.path("f") + " (300000 bytes)\n")) << finished.out;
  EXPECT_EQ(scratch.read("f"), bytes);
}

TEST(Get, ShowsTheTargetOfACapturedRedirect) {
  CannedOrigin origin({{"/a", answer("302 Found", "", "Location: /b\r\n")}});
  const Finished finished = httppool({"get", origin.url("/a"), "-H", "Exchange-Autodiscover: 1"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_TRUE(contains(finished.err, "to /b\n")) << finished.err;
}

TEST(Get, ShowsTheSnapshotAsItsLastLine) {
  const Scratch scratch;
  CannedOrigin origin({{"/a", answer("200 OK", "x")}});
  const Finished finished = httppool({"get", origin.url("/a"), "-o", scratch.path("f"), "--snapshot"});
  EXPECT_EQ(finished.status, 0);
  std::istringstream lines(finished.out);
  std::string last;
  for (std::string line; std::getline(lines, line);) {
    last = line;
  }
  Json::Value snapshot;
  std::istringstream(last) >> snapshot;
  ASSERT_TRUE(snapshot.isArray()) << last;
  ASSERT_EQ(snapshot.size(), 1U);
  EXPECT_EQ(snapshot[0]["poolName"], "get");
  EXPECT_EQ(snapshot[0]["taskList"][0]["taskName"], origin.url("/a"));
  EXPECT_EQ(snapshot[0]["taskList"][0]["taskStatus"], "successfully done");
}

TEST(Get, KeepsTheSnapshotOutOfTheBody) {
  CannedOrigin origin({{"/a", answer("200 OK", "body")}});
  const Finished finished = httppool({"get", origin.url("/a"), "--snapshot"});
  EXPECT_EQ(finished.out, "body");
  EXPECT_TRUE(contains(finished.err, "\n[{\"poolName\":\"get\",")) << finished.err;
}

}  // namespace
}  // namespace tooltest
