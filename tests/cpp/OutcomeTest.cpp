// Outcomes and requests as values.

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <type_traits>

#include "httpPool/cpp/Outcome.hpp"
#include "httpPool/cpp/Request.hpp"

namespace test {
namespace {

using httpPool::Error;
using httpPool::ErrorId;
using httpPool::Outcome;
using httpPool::Request;
using httpPool::RequestError;
using httpPool::RequestKind;
using httpPool::Status;
using std::chrono::milliseconds;

TEST(CppError, IsReadFromItsText) {
  EXPECT_EQ(Error::parse(R"({"errorID":2,"errorReason":0})"), Error{ErrorId::Response});
  EXPECT_EQ(Error::parse(R"({"errorID":5,"errorReason":7000})"),
            (Error{ErrorId::RetryLater, milliseconds(7000)}));
  EXPECT_EQ(Error::parse(R"({"errorID":0,"errorReason":0})"), Error{ErrorId::Unknown});
  for (const char* unnamed : {R"({"errorID":7,"errorReason":0})", R"({"errorID":-1,"errorReason":0})",
                              R"({"errorID":4294967298,"errorReason":0})"}) {
    EXPECT_EQ(Error::parse(unnamed), Error{ErrorId::Other}) << unnamed;
  }
  for (const char* other : {"", "{}", R"({"errorID":2})", R"({"errorReason":2})", "[2,0]", "Hello, pool!",
                            R"({"errorID":"2","errorReason":0})"}) {
    EXPECT_EQ(Error::parse(other), std::nullopt) << other;
  }
}

TEST(CppOutcome, DoneHasItsText) {
  const std::string text("a\0b", 3);
  const Outcome outcome = Outcome::done(text);
  EXPECT_EQ(outcome.status(), Status::Done);
  EXPECT_TRUE(outcome);
  EXPECT_EQ(outcome.text(), text);
  EXPECT_EQ(outcome.bytes().size(), 3U);
  EXPECT_EQ(outcome.bytes()[1], std::byte{0});
  EXPECT_EQ(outcome.value(), text);
  EXPECT_EQ(Outcome(outcome).value(), text);
  EXPECT_EQ(outcome.redirectUrl(), "");
  EXPECT_EQ(outcome.error(), std::nullopt);
}

TEST(CppOutcome, WhatIsNotDoneThrowsWhenItsValueIsAskedFor) {
  const Outcome failed = Outcome::failed({ErrorId::RetryLater, milliseconds(250)});
  for (const Outcome& outcome :
       {failed, Outcome::redirected("http://there/"), Outcome::ended(Status::TimedOut),
        Outcome::ended(Status::Refused), Outcome::ended(Status::Cancelled)}) {
    EXPECT_FALSE(outcome);
    EXPECT_EQ(outcome.text(), "");
    EXPECT_EQ(outcome.bytes().size(), 0U);
    try {
      static_cast<void>(outcome.value());
      ADD_FAILURE() << outcome.description();
    } catch (const RequestError& error) {
      EXPECT_EQ(error.outcome(), outcome);
      EXPECT_EQ(error.what(), outcome.description());
    }
  }
  EXPECT_EQ(failed.error(), (Error{ErrorId::RetryLater, milliseconds(250)}));
  EXPECT_EQ(Outcome::redirected("http://there/").redirectUrl(), "http://there/");
}

TEST(CppOutcome, DescribesItself) {
  EXPECT_EQ(Outcome::done("abc").description(), "done, 3 bytes");
  EXPECT_EQ(Outcome::redirected("http://there/").description(), "redirected to http://there/");
  EXPECT_EQ(Outcome::failed({ErrorId::RetryLater, milliseconds(250)}).description(),
            "failed: too many requests (errorID 5, again in 250 ms)");
  EXPECT_EQ(Outcome::failed({ErrorId::Silence}).description(), "failed: the server fell silent (errorID 4)");
  EXPECT_EQ(Outcome::ended(Status::Cancelled).description(), "cancelled");
}

TEST(CppRequest, HeaderFieldsMethodAndKindAreOneText) {
  EXPECT_EQ(Request{}.headerJson(), "");
  EXPECT_EQ(Request{.method = "PUT"}.headerJson(), R"({"HttpMethod":"PUT"})");
  EXPECT_EQ((Request{.method = "PUT",
                     .headers = {{"Accept", "a\"b"}, {"HttpMethod", "GET"}},
                     .kind = RequestKind::Autodiscover}
                 .headerJson()),
            R"({"Exchange-Autodiscover":"1","Accept":"a\"b","HttpMethod":"GET","HttpMethod":"PUT"})");
  EXPECT_EQ(Request{.kind = RequestKind::ListMeeting}.headerJson(), R"({"Exchange-Listmeeting":"1"})");
  EXPECT_EQ(Request{.kind = RequestKind::Adjacency}.headerJson(), R"({"Adjacency":"1"})");
  EXPECT_EQ(Request{.kind = RequestKind::Glint}.headerJson(), R"({"Glint":"1"})");
}

TEST(CppRequest, AFieldOfTheSameNameIsReplaced) {
  Request request;
  request.setHeader("A", "1");
  request.setHeader("B", "2");
  request.setHeader("A", "3");
  EXPECT_EQ(request.headerJson(), R"({"A":"3","B":"2"})");
}

TEST(CppRequest, GlintIsAKindAndAField) {
  EXPECT_TRUE(Request{.kind = RequestKind::Glint}.isGlint());
  EXPECT_TRUE((Request{.headers = {{"Glint", "shines"}}}.isGlint()));
  EXPECT_FALSE((Request{.headers = {{"glint", "1"}}}.isGlint()));
}

std::vector<std::byte> bytesOf(std::string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

TEST(CppRequest, BytesGoBeforeADownloadAndADownloadBeforeAText) {
  const std::string zero("a\0b", 3);
  EXPECT_TRUE((Request{.post = "text"}.bytes().empty()));
  EXPECT_EQ((Request{.post = zero}.bytes().size()), 3U);
  EXPECT_TRUE((Request{.post = zero, .downloadFile = "f"}.bytes().empty()));
  EXPECT_EQ((Request{.post = zero, .body = bytesOf("body"), .downloadFile = "f"}.bytes().size()), 4U);
  EXPECT_FALSE((Request{.body = bytesOf("body"), .downloadFile = "f"}.isDownload()));
  EXPECT_TRUE((Request{.post = "text", .downloadFile = "f"}.isDownload()));
}

TEST(CppRequest, WhatWouldBeCutIsNotWhole) {
  EXPECT_TRUE((Request{.url = "http://h/", .post = std::string("a\0b", 3)}.isWhole()));
  EXPECT_FALSE((Request{.url = std::string("http://h/\0x", 11)}.isWhole()));
  EXPECT_FALSE((Request{.url = "http://h/", .downloadFile = std::string("f\0g", 3)}.isWhole()));
}

}  // namespace
}  // namespace test
