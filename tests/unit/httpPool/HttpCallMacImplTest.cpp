#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Fakes.h"
#include "TraceLog.h"
#include "Turning.h"
#include "httpPool/HttpCallMacImpl.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"

namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class HttpCallMacImplTest : public testing::Test {
 protected:
  HttpCallMacImplTest() { call->SetCallBack(&callback); }

  std::string fileUrl(const std::string& content) {
    test::writeFile(folder.file("source"), content);
    return "file://" + folder.file("source");
  }
  void waitForTheEnd() {
    ASSERT_TRUE(turnUntil([this] { return callback.ended(); }));
  }
  std::string result() {
    BasicString out("before");
    EXPECT_TRUE(call->GetResult(out));
    return out;
  }

  test::TemporaryFolder folder;
  RecordingCallback callback;
  std::unique_ptr<CHttpCallMacImpl> call = std::make_unique<CHttpCallMacImpl>();
};

foundation::Dictionary headersOf(const char* json) {
  CHttpCallMacImpl call;
  EXPECT_TRUE(call.SetHeaderFields(json));
  return call.ParseHeaders();
}

TEST(ParseHeadersTest, AnObjectOfTextsGivesItsMembersInOrder) {
  EXPECT_EQ(headersOf(R"({"HttpMethod":"GET"})"), (foundation::Dictionary{{"HttpMethod", "GET"}}));
  const auto fields = headersOf(R"({"B":"2","A":"1"})");
  ASSERT_EQ(fields.size(), 2U);
  EXPECT_EQ(fields.entries()[0].first, "B");
  EXPECT_EQ(fields.entries()[1].first, "A");
}

TEST(ParseHeadersTest, OfTwoMembersOfOneNameTheLaterCounts) {
  EXPECT_EQ(headersOf(R"({"A":"1","B":"2","A":"3"})"), (foundation::Dictionary{{"A", "3"}, {"B", "2"}}));
}

TEST(ParseHeadersTest, AnythingElseGivesNone) {
  for (const char* json : {"", "[]", R"(["A","b"])", "{", "null", "\"text\"", R"({"A":"b"} x)"}) {
    EXPECT_TRUE(headersOf(json).isEmpty()) << json;
  }
  EXPECT_TRUE(headersOf(nullptr).isEmpty());
}

TEST(ParseHeadersTest, AValueThatIsNoTextIsEmpty) {
  EXPECT_EQ(headersOf(R"({"A":1,"B":null,"C":{"D":"e"}})"),
            (foundation::Dictionary{{"A", ""}, {"B", ""}, {"C", ""}}));
}

TEST(ParseHeadersTest, WhatIsNotUtf8IsLeftOut) {
  EXPECT_EQ(headersOf("{\"A\":\"\xFF\",\"B\":\"\xC3\xA9\"}"), (foundation::Dictionary{{"B", "\xC3\xA9"}}));
}

TEST_F(HttpCallMacImplTest, TheSessionIdIsTheObjectsAddress) {
  const auto address = reinterpret_cast<std::uintptr_t>(call.get());
  EXPECT_EQ(call->GetSessionId(), static_cast<int>(static_cast<std::uint32_t>(address)));
  const CHttpCallMacImpl other;
  EXPECT_NE(call->GetSessionId(), const_cast<CHttpCallMacImpl&>(other).GetSessionId());
}

TEST_F(HttpCallMacImplTest, AStateIsTracedAndPassedOn) {
  takeTrace();
  EXPECT_TRUE(call->OnDownloadStateChange(HTTP_CALL_RECEIVING, nullptr));
  EXPECT_THAT(callback.notices, ElementsAre(std::pair(call->GetSessionId(), HTTP_CALL_RECEIVING)));
  EXPECT_THAT(takeTrace(),
              ElementsAre(TraceLine{1, "CHttpCallMacImpl::OnDownloadStateChange,  SessionID: " +
                                           std::to_string(reinterpret_cast<std::intptr_t>(call.get())) +
                                           ", state:7\n"}));
  callback.answer = false;
  EXPECT_FALSE(call->OnDownloadStateChange(HTTP_CALL_FAILED, nullptr));
}

TEST_F(HttpCallMacImplTest, ALaunchItsThreadAndItsStopAreTracedUnderOneIdentity) {
  takeTrace();
  ASSERT_TRUE(call->LaunchCall(fileUrl("content").c_str(), nullptr));
  waitForTheEnd();
  const std::vector<TraceLine> lines = takeTraceWith("downloader:");
  ASSERT_EQ(lines.size(), 3U);
  const std::string launch = "CHttpCallMacImpl::StartDownload, SessionID: " +
                             std::to_string(reinterpret_cast<std::intptr_t>(call.get())) + ", downloader: ";
  // The thread may begin before the launch has ended.
  const auto launched = std::find_if(lines.begin(), lines.end(),
                                     [&](const auto& line) { return line.text.starts_with(launch); });
  ASSERT_NE(launched, lines.end());
  const std::string identity = launched->text.substr(launch.size());
  EXPECT_TRUE(identity.starts_with("0x")) << identity;
  EXPECT_THAT(lines, testing::UnorderedElementsAre(
                         TraceLine{1, launch + identity},
                         TraceLine{1, "-[MacDownloader ThreadProc], downloader:" + identity},
                         TraceLine{1, "-[MacDownloader Stop], downloader:" + identity}));
}

TEST_F(HttpCallMacImplTest, NullArgumentsAreRefused) {
  EXPECT_FALSE(call->LaunchCall(nullptr, "text"));
  EXPECT_FALSE(call->LaunchCall(nullptr, "bytes", 5));
  EXPECT_FALSE(call->DownloadFile(nullptr, "/file"));
  EXPECT_FALSE(call->DownloadFile("file:///", nullptr));
  turnOnce();
  EXPECT_THAT(callback.notices, IsEmpty());
}

TEST_F(HttpCallMacImplTest, ARefusedDownloadKeepsNoPath) {
  EXPECT_FALSE(call->DownloadFile(nullptr, folder.file("target").c_str()));
  ASSERT_TRUE(call->LaunchCall(fileUrl("abc").c_str(), nullptr));
  waitForTheEnd();
  EXPECT_EQ(result(), "abc");
  EXPECT_FALSE(test::fileExists(folder.file("target")));
}

TEST_F(HttpCallMacImplTest, WithoutALaunchThereIsNoResult) {
  BasicString out("before");
  EXPECT_FALSE(call->GetResult(out));
  EXPECT_EQ(out, "before");
  call->GetRedirectUrl(out);
  EXPECT_EQ(out, "before");
}

TEST_F(HttpCallMacImplTest, AnUnusableUrlIsRefused) {
  EXPECT_FALSE(call->LaunchCall("not a URL", nullptr));
  BasicString out("before");
  EXPECT_FALSE(call->GetResult(out));
  turnOnce();
  EXPECT_THAT(callback.notices, IsEmpty());
}

TEST_F(HttpCallMacImplTest, TheBodyIsTheResultText) {
  ASSERT_TRUE(call->LaunchCall(fileUrl("caf\xC3\xA9\0!"s).c_str(), nullptr));
  waitForTheEnd();
  EXPECT_EQ(callback.notices.back(), std::pair(call->GetSessionId(), HTTP_CALL_SUCCEEDED));
  takeTrace();
  EXPECT_EQ(result(), "caf\xC3\xA9\0!"s);
  EXPECT_THAT(takeTrace(),
              ElementsAre(TraceLine{1, "GetSuccessResult, SessionID: " +
                                           std::to_string(reinterpret_cast<std::intptr_t>(call.get())) +
                                           ", Response: caf\xC3\xA9"}));
}

TEST_F(HttpCallMacImplTest, BytesThatAreNoTextAreTakenUpToTheFirstZero) {
  ASSERT_TRUE(call->LaunchCall(fileUrl("ab\xFF\0cd"s).c_str(), nullptr));
  waitForTheEnd();
  EXPECT_EQ(result(), "ab\xFF");
}

TEST_F(HttpCallMacImplTest, AnEmptyBodyIsAnEmptyResult) {
  ASSERT_TRUE(call->LaunchCall(fileUrl("").c_str(), nullptr));
  waitForTheEnd();
  EXPECT_EQ(result(), "");
}

TEST_F(HttpCallMacImplTest, ADownloadWritesTheFileAndGivesItsPath) {
  const std::string target = folder.file("target");
  ASSERT_TRUE(call->DownloadFile(fileUrl("abc").c_str(), target.c_str()));
  waitForTheEnd();
  test::writeFile(target, "something longer that was there before");
  takeTrace();
  EXPECT_EQ(result(), target);
  EXPECT_EQ(test::readFile(target), "abc");
  EXPECT_THAT(takeTrace(), IsEmpty());
}

TEST_F(HttpCallMacImplTest, ADownloadOfAnyBytesIsWrittenWhole) {
  const std::string target = folder.file("target");
  std::string content;
  for (int i = 0; i < 3'000'000; ++i) {
    content.push_back(static_cast<char>(i * 7));
  }
  ASSERT_TRUE(call->DownloadFile(fileUrl(content).c_str(), target.c_str()));
  waitForTheEnd();
  EXPECT_EQ(result(), target);
  EXPECT_TRUE(test::readFile(target) == content);
}

TEST_F(HttpCallMacImplTest, AFileThatCannotBeWrittenIsNoFailure) {
  const std::string target = folder.file("no such folder/target");
  ASSERT_TRUE(call->DownloadFile(fileUrl("abc").c_str(), target.c_str()));
  waitForTheEnd();
  EXPECT_EQ(result(), target);
}

TEST_F(HttpCallMacImplTest, AFailureIsAnErrorText) {
  ASSERT_TRUE(call->LaunchCall("unknown:load", nullptr));
  waitForTheEnd();
  EXPECT_EQ(callback.notices.back().second, HTTP_CALL_FAILED);
  EXPECT_EQ(result(), R"({"errorID":6,"errorReason":0})");
}

TEST_F(HttpCallMacImplTest, ResultsCanBeReadAgain) {
  ASSERT_TRUE(call->LaunchCall(fileUrl("abc").c_str(), nullptr));
  waitForTheEnd();
  EXPECT_EQ(result(), "abc");
  EXPECT_EQ(result(), "abc");
}

TEST_F(HttpCallMacImplTest, ACallThatHasEndedCanBeLaunchedAgain) {
  const std::string url = fileUrl("first");
  ASSERT_TRUE(call->LaunchCall(url.c_str(), nullptr));
  waitForTheEnd();
  EXPECT_EQ(result(), "first");
  callback.notices.clear();
  test::writeFile(folder.file("source"), "second");
  ASSERT_TRUE(call->LaunchCall(url.c_str(), nullptr));
  waitForTheEnd();
  EXPECT_EQ(result(), "second");
}

TEST_F(HttpCallMacImplTest, DeletingACallEndsItsDownloads) {
  const std::string url = fileUrl(std::string(100'000, 'x'));
  for (int i = 0; i < 20; ++i) {
    auto other = std::make_unique<CHttpCallMacImpl>();
    RecordingCallback gone;
    other->SetCallBack(&gone);
    ASSERT_TRUE(other->LaunchCall(url.c_str(), nullptr));
    ASSERT_TRUE(other->LaunchCall(url.c_str(), nullptr));
    other.reset();
    turnOnce();
    EXPECT_THAT(gone.notices, IsEmpty());
  }
}

}  // namespace
