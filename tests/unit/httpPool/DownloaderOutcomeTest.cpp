#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "DownloaderTest.h"

namespace {

using foundation::HeaderFields;
using foundation::URL;
using foundation::URLRequest;
using foundation::URLResponse;
using testing::ElementsAre;

class LetThroughTest : public DownloaderTest, public testing::WithParamInterface<int> {};

TEST_P(LetThroughTest, TheBodyIsTheResult) {
  respond(GetParam());
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_PENDING);
  receive("the ");
  receive("body");
  finish();
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_SUCCEEDED);
  EXPECT_EQ(downloader->GetStatusCode(), GetParam());
  EXPECT_EQ(downloader->errorCode(), 0);
  EXPECT_EQ(body(), "the body");
}

INSTANTIATE_TEST_SUITE_P(Statuses, LetThroughTest, testing::Values(200, 404, 407));

class RefusedTest : public DownloaderTest, public testing::WithParamInterface<int> {};

TEST_P(RefusedTest, FailsAtOnceAndStaysSo) {
  respond(GetParam());
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_FAILED);
  EXPECT_EQ(downloader->errorCode(), 2);
  receive("late body");
  EXPECT_EQ(body(), "late body");
  finish();
  fail(-1001);
  respond(200);
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_FAILED);
  EXPECT_EQ(downloader->errorCode(), 2);
  EXPECT_EQ(downloader->GetExtraData(), 0);
  EXPECT_EQ(downloader->GetStatusCode(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Statuses, RefusedTest,
                         testing::Values(100, 201, 204, 206, 301, 302, 304, 400, 401, 403, 405, 429, 500,
                                         503));

TEST_F(DownloaderTest, AFinishIsNotOverwrittenByAFailure) {
  respond(200);
  finish();
  fail(-1005);
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_SUCCEEDED);
  EXPECT_EQ(downloader->errorCode(), 0);
}

struct RetryAfter {
  const char* what;
  std::optional<std::string> value;
  int delay;
};

class GlintTest : public DownloaderTest, public testing::WithParamInterface<RetryAfter> {};

TEST_P(GlintTest, A429YieldsTheDelay) {
  engine.glint = true;
  std::vector<HeaderFields::Field> fields;
  if (GetParam().value) {
    fields.emplace_back("Retry-After", *GetParam().value);
  }
  respond(429, fields);
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_PENDING) << "the load goes on";
  EXPECT_EQ(downloader->errorCode(), 5);
  EXPECT_EQ(downloader->GetExtraData(), GetParam().delay);
  receive("slow down");
  finish();
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_SUCCEEDED);
  EXPECT_EQ(downloader->errorCode(), 5);
}

INSTANTIATE_TEST_SUITE_P(
    Headers, GlintTest,
    testing::Values(RetryAfter{"Seconds", "7", 7000}, RetryAfter{"None", std::nullopt, 300'000},
                    RetryAfter{"Empty", "", 300'000}, RetryAfter{"Zero", "0", 300'000},
                    RetryAfter{"Date", "Fri, 31 Dec 1999 23:59:59 GMT", 300'000},
                    RetryAfter{"LeadingBlanks", " 12", 12'000}, RetryAfter{"TrailingText", "3 seconds", 3000},
                    RetryAfter{"Plus", "+5", 5000}, RetryAfter{"Negative", "-5", -5000},
                    RetryAfter{"LowBitsOnly", "4294968", static_cast<int>(4294968000 - 4294967296)},
                    RetryAfter{"SignBit", "2147484", static_cast<int>(2147484000 - 4294967296)},
                    RetryAfter{"BeyondAnyNumber", "99999999999999999999999", -1000}),
    [](const auto& info) { return info.param.what; });

TEST_F(DownloaderTest, RetryAfterIsFoundByItsExactName) {
  engine.glint = true;
  respond(429, {{"retry-after", "7"}});
  EXPECT_EQ(downloader->GetExtraData(), 300'000);
}

TEST_F(DownloaderTest, A429FinishWithoutAResponseRuleKeepsCode5) {
  engine.glint = true;
  respond(429);
  finish();
  EXPECT_EQ(downloader->errorCode(), 5);
}

TEST_F(DownloaderTest, ACapturedRedirectIsReportedAndThenFails) {
  engine.exchAutodiscovering = true;
  respond(302, {{"Location", "http://elsewhere/"}});
  EXPECT_EQ(downloader->GetRedirectUrl(), "http://elsewhere/");
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_FAILED);
  EXPECT_EQ(downloader->errorCode(), 2);
  EXPECT_THAT(takeTraceWith("SetDownloadState"),
              ElementsAre(TraceLine{2, "-[MacDownloader SetDownloadState:], state:8\n"},
                          TraceLine{2, "-[MacDownloader SetDownloadState:], state:1\n"}));
}

TEST_F(DownloaderTest, ARedirectIsCapturedForAutodiscoveryOnly) {
  respond(301, {{"Location", "http://elsewhere/"}});
  EXPECT_EQ(downloader->GetRedirectUrl(), "");
  EXPECT_EQ(downloader->errorCode(), 2);
}

TEST_F(DownloaderTest, ARedirectWithoutATargetKeepsTheOldOne) {
  engine.exchAutodiscovering = true;
  respond(301, {{"Location", "http://first/"}});
  downloader->Stop();
  downloader->Start();
  respond(302, {{"Location", ""}});
  EXPECT_EQ(downloader->GetRedirectUrl(), "http://first/");
}

TEST_F(DownloaderTest, AutodiscoveryDeclinesRedirects) {
  const URLRequest proposed = requestFor("http://elsewhere/");
  const URLResponse redirect(URL::parse("http://host/"), 302, {});
  EXPECT_TRUE(downloader->connectionWillSendRequest(connection, proposed, nullptr));
  const auto followed = downloader->connectionWillSendRequest(connection, proposed, &redirect);
  ASSERT_TRUE(followed);
  EXPECT_EQ(followed->url()->absoluteString(), "http://elsewhere/");
  engine.exchAutodiscovering = true;
  EXPECT_TRUE(downloader->connectionWillSendRequest(connection, proposed, nullptr));
  EXPECT_FALSE(downloader->connectionWillSendRequest(connection, proposed, &redirect));
}

struct Failure {
  int code;
  int errorCode;
};

class FailureTest : public DownloaderTest, public testing::WithParamInterface<Failure> {};

TEST_P(FailureTest, HasItsErrorCode) {
  fail(GetParam().code);
  EXPECT_EQ(downloader->errorCode(), GetParam().errorCode);
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_FAILED);
}

INSTANTIATE_TEST_SUITE_P(Codes, FailureTest,
                         testing::Values(Failure{-1009, 1}, Failure{-1006, 1}, Failure{-1005, 1},
                                         Failure{-1200, 2}, Failure{-1010, 2}, Failure{-1004, 2},
                                         Failure{-1003, 2}, Failure{-1013, 3}, Failure{-1012, 3},
                                         Failure{-1001, 4}, Failure{-1011, 6}, Failure{-1000, 6},
                                         Failure{-1002, 6}, Failure{-1007, 6}, Failure{-1103, 6},
                                         Failure{-1202, 6}, Failure{0, 6}, Failure{-1, 6}));

TEST_F(DownloaderTest, AFailureOfAnotherDomainHasCode0) {
  fail(-1001, "NSPOSIXErrorDomain");
  EXPECT_EQ(downloader->errorCode(), 0);
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_FAILED);
}

TEST_F(DownloaderTest, AResponseThatDidNotComeByHttpHasNoStatus) {
  downloader->connectionDidReceiveResponse(connection, URLResponse(URL::parse("file:///a")));
  EXPECT_EQ(downloader->GetStatusCode(), 0);
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_PENDING);
}

}  // namespace
