#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Fakes.h"
#include "TraceLog.h"
#include "Turning.h"
#include "httpPool/MacDownloadEngine.h"

namespace {

using foundation::Data;
using foundation::Dictionary;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr const char* kGenerate = "-[MacDownloadEngine generateURLRequest:postData:headerFields:] ";
constexpr const char* kStart =
    "-[MacDownloadEngine AsyncDownloadWithUrl:downloadType:eventSink:postContent:headerFields:] ";

class RequestBuildingTest : public testing::Test {
 protected:
  foundation::URLRequest build(const Dictionary& fields = {}, std::shared_ptr<const Data> body = nullptr) {
    auto request = engine.generateURLRequest("http://a/", std::move(body), &fields);
    EXPECT_TRUE(request);
    return request.value_or(foundation::URLRequest());
  }

  MacDownloadEngine engine;
};

TEST_F(RequestBuildingTest, WithoutABodyItIsStillAPost) {
  const auto request = engine.generateURLRequest("http://a/b?c", nullptr, nullptr);
  ASSERT_TRUE(request);
  EXPECT_EQ(request->url()->absoluteString(), "http://a/b?c");
  EXPECT_EQ(request->HTTPMethod(), "POST");
  EXPECT_EQ(request->HTTPBody(), nullptr);
  EXPECT_EQ(request->cachePolicy(), foundation::CachePolicy::ReloadIgnoringLocalCacheData);
  EXPECT_EQ(static_cast<int>(request->cachePolicy()), 1);
  EXPECT_THAT(request->headerFields().fields(),
              ElementsAre(Pair("Content-Type", "application/x-www-form-urlencoded")));
}

TEST_F(RequestBuildingTest, ABodyHasItsLength) {
  const auto request = build({}, std::make_shared<Data>("0123456789", 10));
  EXPECT_EQ(request.HTTPBody()->view(), "0123456789");
  EXPECT_THAT(
      request.headerFields().fields(),
      ElementsAre(Pair("Content-Length", "10"), Pair("Content-Type", "application/x-www-form-urlencoded")));
}

TEST_F(RequestBuildingTest, AnEmptyBodyIsABody) {
  const auto request = build({}, std::make_shared<Data>());
  ASSERT_NE(request.HTTPBody(), nullptr);
  EXPECT_EQ(*request.headerFields().find("Content-Length"), "0");
}

TEST_F(RequestBuildingTest, HeaderFieldsAreSentInTheirOrder) {
  const auto request = build({{"B", "2"}, {"A", "1"}});
  EXPECT_THAT(
      request.headerFields().fields(),
      ElementsAre(Pair("Content-Type", "application/x-www-form-urlencoded"), Pair("B", "2"), Pair("A", "1")));
}

TEST_F(RequestBuildingTest, TheHostsFieldsReplaceTheEnginesOwn) {
  const auto request =
      build({{"content-type", "text/plain"}, {"Content-Length", "99"}}, std::make_shared<Data>("x", 1));
  EXPECT_EQ(*request.headerFields().value("Content-Type"), "text/plain");
  EXPECT_EQ(*request.headerFields().value("Content-Length"), "99");
  EXPECT_EQ(request.headerFields().fields().size(), 2U);
}

TEST_F(RequestBuildingTest, TheMethodIsAsked) {
  EXPECT_EQ(build({{"HttpMethod", "PUT"}}).HTTPMethod(), "PUT");
  EXPECT_EQ(build({{"HttpMethod", "BREW"}}).HTTPMethod(), "BREW");
  EXPECT_EQ(build({{"HttpMethonGet", "whatever"}}).HTTPMethod(), "GET");
  EXPECT_EQ(build({{"HttpMethonGet", ""}}).HTTPMethod(), "GET");
  EXPECT_EQ(build({{"httpmethod", "PUT"}}).HTTPMethod(), "POST") << "keys compare byte by byte";
  EXPECT_EQ(build({{"HttpMethod", "PUT"}}).headerFields().find("HttpMethod"), nullptr);
  EXPECT_EQ(build({{"HttpMethonGet", "x"}}).headerFields().find("HttpMethonGet"), nullptr);
}

TEST_F(RequestBuildingTest, OfTwoMethodKeysTheLaterWins) {
  EXPECT_EQ(build({{"HttpMethod", "PUT"}, {"HttpMethonGet", ""}}).HTTPMethod(), "GET");
  EXPECT_EQ(build({{"HttpMethonGet", ""}, {"HttpMethod", "PUT"}}).HTTPMethod(), "PUT");
}

TEST_F(RequestBuildingTest, ThreeKindsAreNotSent) {
  EXPECT_FALSE(engine.isExchAutodiscovering() || engine.isAdjacency() || engine.isGlintRequest());
  EXPECT_EQ(build({{"Exchange-Autodiscover", "x"}}).headerFields().fields().size(), 1U);
  EXPECT_TRUE(engine.isExchAutodiscovering());
  EXPECT_EQ(build({{"Exchange-Listmeeting", "x"}}).headerFields().fields().size(), 1U);
  EXPECT_TRUE(engine.isExchListmeeting());
  EXPECT_FALSE(engine.isExchAutodiscovering());
  EXPECT_EQ(build({{"Adjacency", "x"}}).headerFields().fields().size(), 1U);
  EXPECT_TRUE(engine.isAdjacency());
}

TEST_F(RequestBuildingTest, GlintIsAKindAndIsSent) {
  EXPECT_EQ(*build({{"Glint", "some value"}}).headerFields().find("Glint"), "some value");
  EXPECT_TRUE(engine.isGlintRequest());
}

TEST_F(RequestBuildingTest, OfSeveralKindsTheLaterCounts) {
  build({{"Glint", "x"}, {"Adjacency", "x"}});
  EXPECT_TRUE(engine.isAdjacency());
  EXPECT_FALSE(engine.isGlintRequest());
}

TEST_F(RequestBuildingTest, AnEmptyUrlMakesARequest) {
  EXPECT_TRUE(engine.generateURLRequest("", nullptr, nullptr));
}

TEST_F(RequestBuildingTest, NoUrlMakesNone) {
  takeTrace();
  EXPECT_FALSE(engine.generateURLRequest(std::nullopt, nullptr, nullptr));
  EXPECT_THAT(takeTrace(), ElementsAre(TraceLine{8, std::string(kGenerate) + "url is empty\n"}));
  EXPECT_FALSE(engine.generateURLRequest("http://a b/", nullptr, nullptr));
  EXPECT_THAT(takeTrace(),
              ElementsAre(TraceLine{8, std::string(kGenerate) + "destUrl is empty, url:http://a b/\n"}));
}

TEST(DownloadEngineTest, ARefusedUrlStartsNothing) {
  MacDownloadEngine engine;
  RecordingSink sink;
  takeTrace();
  EXPECT_EQ(engine.AsyncDownloadWithUrl("not a URL", 0, &sink, nullptr, nullptr), nullptr);
  EXPECT_THAT(takeTrace(),
              ElementsAre(TraceLine{8, std::string(kGenerate) + "destUrl is empty, url:not a URL\n"},
                          TraceLine{8, std::string(kStart) + "urlRequest is nil, url:not a URL\n"}));
  turnOnce();
  EXPECT_THAT(sink.states, IsEmpty());
}

TEST(DownloadEngineTest, StartsADownloaderThatReportsToTheSink) {
  MacDownloadEngine engine;
  RecordingSink sink;
  const auto downloader = engine.AsyncDownloadWithUrl("unknown:load", 5, &sink, nullptr, nullptr);
  ASSERT_NE(downloader, nullptr);
  EXPECT_EQ(downloader->tag(), 5);
  EXPECT_EQ(downloader->GetEventSink(), &sink);
  EXPECT_EQ(downloader->GetTryCount(), 1);
  EXPECT_TRUE(engine.baseThread().isCurrent());
  ASSERT_TRUE(turnUntil([&] { return !sink.states.empty(); }));
  EXPECT_THAT(sink.states, ElementsAre(HTTP_CALL_FAILED));
  EXPECT_EQ(sink.lastSender, downloader.get());
  EXPECT_EQ(downloader->errorCode(), 6) << "not a scheme that can be loaded";
  EXPECT_FALSE(downloader->IsStarted());
}

class HandOverTest : public testing::Test {
 protected:
  HandOverTest() {
    downloader->SetEventSink(&sink);
    takeTrace();
  }

  MacDownloadEngine engine;
  RecordingSink sink;
  std::shared_ptr<MacDownloader> downloader =
      std::make_shared<MacDownloader>(foundation::URLRequest(*foundation::URL::parse("http://a/")));
};

TEST_F(HandOverTest, TheFinishedStateReachesTheSinkOnce) {
  engine.DownloadStateChanged(*downloader, HTTP_CALL_RECEIVING);
  engine.DownloadStateChanged(*downloader, HTTP_CALL_RECEIVING);
  engine.DownloadStateChanged(*downloader, HTTP_CALL_SUCCEEDED);
  engine.DownloadStateChanged(*downloader, HTTP_CALL_SUCCEEDED);
  EXPECT_THAT(sink.states, ElementsAre(HTTP_CALL_RECEIVING, HTTP_CALL_RECEIVING, HTTP_CALL_SUCCEEDED));
  EXPECT_THAT(takeTrace(), ElementsAre(TraceLine{1, "-[MacDownloadEngine DownloadStateChanged:] state:7\n"},
                                       TraceLine{1, "-[MacDownloadEngine DownloadStateChanged:] state:7\n"},
                                       TraceLine{1, "-[MacDownloadEngine DownloadStateChanged:] state:0\n"}));
}

TEST_F(HandOverTest, AConnectionFailureAfterTheFirstTryIsNotRepeated) {
  downloader->setErrorCode(1);
  downloader->SetDownloadEngine(&engine);
  // A first try that ended without a thread of its own.
  struct Tried : MacDownloader {
    using MacDownloader::MacDownloader;
    void ThreadProc() override {}
  };
  const auto tried = std::make_shared<Tried>(foundation::URLRequest(*foundation::URL::parse("http://a/")));
  tried->Start();
  tried->setErrorCode(1);
  tried->SetEventSink(&sink);
  tried->Stop();
  takeTrace();
  engine.DownloadStateChanged(*tried, HTTP_CALL_FAILED);
  EXPECT_EQ(tried->GetTryCount(), 1);
  EXPECT_FALSE(tried->IsStarted());
  EXPECT_THAT(sink.states, ElementsAre(HTTP_CALL_FAILED));
  EXPECT_THAT(takeTrace(),
              ElementsAre(TraceLine{2,
                                    "-[MacDownloadEngine DownloadStateChanged:] http call retry count > 3, "
                                    "failed! url:http://a/\n"},
                          TraceLine{1, "-[MacDownloadEngine DownloadStateChanged:] state:1\n"}));
}

TEST_F(HandOverTest, AConnectionFailureBeforeAnyTryWouldBeRepeated) {
  struct Untried : MacDownloader {
    using MacDownloader::MacDownloader;
    void ThreadProc() override {}
  };
  const auto untried =
      std::make_shared<Untried>(foundation::URLRequest(*foundation::URL::parse("http://a/")));
  untried->setErrorCode(1);
  untried->SetEventSink(&sink);
  takeTrace();
  engine.DownloadStateChanged(*untried, HTTP_CALL_FAILED);
  untried->Stop();
  EXPECT_EQ(untried->GetTryCount(), 1);
  EXPECT_THAT(sink.states, IsEmpty());
  EXPECT_THAT(takeTraceWith("retry!"),
              ElementsAre(TraceLine{
                  2, "-[MacDownloadEngine DownloadStateChanged:] http call failed, retry! url:http://a/\n"}));
}

TEST_F(HandOverTest, OtherFailuresAreNeverRepeated) {
  downloader->setErrorCode(2);
  takeTrace();
  engine.DownloadStateChanged(*downloader, HTTP_CALL_FAILED);
  EXPECT_EQ(downloader->GetTryCount(), 0);
  EXPECT_THAT(sink.states, ElementsAre(HTTP_CALL_FAILED));
  EXPECT_THAT(takeTraceWith("retry"), IsEmpty());
}

TEST_F(HandOverTest, WithoutASinkNothingIsTold) {
  downloader->SetEventSink(nullptr);
  engine.DownloadStateChanged(*downloader, HTTP_CALL_RECEIVING);
  EXPECT_THAT(takeTrace(), IsEmpty());
}

}  // namespace
