#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "DownloaderTest.h"

namespace {

using foundation::Data;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(DownloaderTest, EachChunkIsHandedOverWithItsLength) {
  respond(200);
  receive("a");
  receive("bcd");
  EXPECT_EQ(downloader->GetNewReceivedDataLength(), 3);
  EXPECT_THAT(engine.states, IsEmpty()) << "handed over, not called";
  ASSERT_TRUE(turnUntil([this] { return engine.states.size() == 2; }));
  EXPECT_THAT(engine.states, ElementsAre(HTTP_CALL_RECEIVING, HTTP_CALL_RECEIVING));
  EXPECT_THAT(downloader->arguments, ElementsAre(1, 3));
}

TEST_F(DownloaderTest, AHandOverSeesTheStateOfItsMoment) {
  respond(200);
  receive("a");
  receive("b");
  finish();
  ASSERT_TRUE(turnUntil([this] { return downloader->arguments.size() == 3; }));
  EXPECT_THAT(downloader->arguments, ElementsAre(1, 1, 0));
  EXPECT_THAT(engine.states, ElementsAre(HTTP_CALL_SUCCEEDED))
      << "the first finds the end, the others a stopped one";
  EXPECT_THAT(engine.startedFlags, ElementsAre(false)) << "stopped before the engine is told";
}

TEST_F(DownloaderTest, TheFinishReachesTheEngineOnceForEachStart) {
  finish();
  ASSERT_TRUE(turnUntil([this] { return engine.states.size() == 1; }));
  downloader->DownloadStateChanged(0);
  EXPECT_EQ(engine.states.size(), 1U);
  downloader->Start();
  finish();
  ASSERT_TRUE(turnUntil([this] { return engine.states.size() == 2; }));
}

TEST_F(DownloaderTest, AHandOverAfterTheStopDoesNothing) {
  receive("a");
  downloader->Stop();
  ASSERT_TRUE(turnUntil([this] { return !downloader->arguments.empty(); }));
  EXPECT_THAT(engine.states, IsEmpty());
}

TEST_F(DownloaderTest, AQueuedHandOverKeepsTheDownloader) {
  receive("a");
  downloader->Stop();
  const std::weak_ptr<MacDownloader> watched = downloader;
  const auto replacement = std::make_shared<IdleDownloader>(requestFor("http://host/"));
  downloader = replacement;
  EXPECT_FALSE(watched.expired());
  ASSERT_TRUE(turnUntil([&watched] { return watched.expired(); }));
}

TEST_F(DownloaderTest, DataThatSomebodyHoldsDoesNotChange) {
  receive("one");
  const auto held = downloader->GetData();
  receive(" two");
  EXPECT_EQ(held->view(), "one");
  EXPECT_EQ(body(), "one two");
  receive(" three");
  EXPECT_EQ(body(), "one two three");
}

TEST_F(DownloaderTest, TheFirstChunkIsTakenOverWithoutACopy) {
  Data chunk(std::string(100'000, 'x'));
  const char* bytes = chunk.bytes();
  downloader->connectionDidReceiveData(connection, std::move(chunk));
  EXPECT_EQ(downloader->GetData()->bytes(), bytes);
}

TEST_F(DownloaderTest, WithoutAnEngineNothingIsHandedOver) {
  downloader->SetDownloadEngine(nullptr);
  respond(302, {{"Location", "http://elsewhere/"}});
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_FAILED);
  turnOnce();
  EXPECT_THAT(downloader->arguments, IsEmpty());
}

}  // namespace
