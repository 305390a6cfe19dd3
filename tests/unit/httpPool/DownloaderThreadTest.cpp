#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <future>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "DownloaderTest.h"
#include "foundation/runloop/WorkerThreads.h"
#include "tests/support/ThreadRefusal.h"

namespace {

using foundation::URLRequest;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(DownloaderThreadTest, AThreadThatCannotBeMadeFailsTheRequest) {
  ASSERT_TRUE(turnUntil([] { return foundation::WorkerThreads::shared().count() == 0; }));
  FakeEngine engine;
  const auto downloader = std::make_shared<MacDownloader>(requestFor("unknown:load"));
  downloader->SetDownloadEngine(&engine);
  takeTrace();
  {
    const test::ThreadRefusal refusal(EAGAIN);
    EXPECT_EQ(downloader->Start(), 0);
  }
  EXPECT_TRUE(downloader->IsStarted());
  EXPECT_THAT(takeTraceWith("no thread"),
              ElementsAre(TraceLine{8, "-[MacDownloader Start], no thread for: unknown:load, error:" +
                                           std::system_category().message(EAGAIN) + "\n"}));
  ASSERT_TRUE(turnUntil([&] { return !engine.states.empty(); }));
  EXPECT_THAT(engine.states, ElementsAre(HTTP_CALL_FAILED));
  EXPECT_EQ(downloader->errorCode(), 6);
  EXPECT_FALSE(downloader->IsStarted());
}

/// Watches its thread from both sides.
struct WatchedDownloader : MacDownloader {
  using MacDownloader::MacDownloader;
  ~WatchedDownloader() override { Stop(); }

  void ThreadProc() override {
    std::array<char, 16> text{};
    pthread_getname_np(pthread_self(), text.data(), text.size());
    name = text.data();
    MacDownloader::ThreadProc();
  }
  void DownloadStateChanged(int argument) override {
    wasThreadDone.push_back(IsThreadDone());
    MacDownloader::DownloadStateChanged(argument);
  }

  std::string name;
  std::vector<bool> wasThreadDone;
};

TEST(DownloaderThreadTest, TheBaseThreadNeverWaitsForAFinishedRequest) {
  FakeEngine engine;
  for (int i = 0; i < 20; ++i) {
    const auto downloader = std::make_shared<WatchedDownloader>(requestFor("unknown:load"));
    downloader->SetDownloadEngine(&engine);
    downloader->Start();
    ASSERT_TRUE(turnUntil([&] { return !downloader->IsStarted(); }));
    EXPECT_THAT(downloader->wasThreadDone, ElementsAre(true));
  }
}

TEST(DownloaderThreadTest, RunsUnderItsNameOnAThreadThatIsUsedAgain) {
  FakeEngine engine;
  std::size_t threads = 0;
  for (int i = 0; i < 5; ++i) {
    const auto downloader = std::make_shared<WatchedDownloader>(requestFor("unknown:load"));
    downloader->SetDownloadEngine(&engine);
    downloader->Start();
    ASSERT_TRUE(turnUntil([&] { return !downloader->IsStarted(); }));
    EXPECT_EQ(downloader->name, "zep.downloader");
    auto& all = foundation::WorkerThreads::shared();
    ASSERT_TRUE(turnUntil([&] { return all.parkedCount() == all.count(); }));
    threads = std::max(threads, all.count());
  }
  EXPECT_EQ(threads, 1U);
}

TEST(DownloaderThreadTest, MayBeStartedAgainWhenAFailureIsToldOf) {
  FakeEngine engine;
  const auto downloader = std::make_shared<WatchedDownloader>(requestFor("unknown:load"));
  downloader->SetDownloadEngine(&engine);
  engine.onState = [&](HTTP_CALL_STATUS) {
    if (downloader->GetTryCount() < 3) {
      downloader->Start();
    }
  };
  downloader->Start();
  ASSERT_TRUE(turnUntil([&] { return engine.states.size() == 3; }));
  turnOnce();
  EXPECT_THAT(engine.states, ElementsAre(HTTP_CALL_FAILED, HTTP_CALL_FAILED, HTTP_CALL_FAILED));
  EXPECT_FALSE(downloader->IsStarted());
}

/// Has no memory for its connection's failure.
struct PoorDownloader : MacDownloader {
  using MacDownloader::MacDownloader;
  ~PoorDownloader() override { Stop(); }

  void connectionDidFailWithError(foundation::URLConnection& /*connection*/,
                                  const foundation::Error& /*error*/) override {
    throw std::bad_alloc();
  }
};

/// Keeps every parked thread busy until it is destroyed.
class TakenThreads {
 public:
  TakenThreads() {
    auto& all = foundation::WorkerThreads::shared();
    EXPECT_TRUE(turnUntil([&] { return all.parkedCount() == all.count(); }));
    const std::shared_future<void> end = end_.get_future().share();
    while (all.parkedCount() > 0) {
      EXPECT_EQ(all.run("taken", [end] { end.wait(); }), 0);
    }
  }

 private:
  std::promise<void> end_;
};

TEST(DownloaderThreadTest, EndsWithoutAThreadAfterItHadNoMemory) {
  FakeEngine engine;
  const auto downloader = std::make_shared<PoorDownloader>(requestFor("unknown:load"));
  downloader->SetDownloadEngine(&engine);
  downloader->Start();
  ASSERT_TRUE(turnUntil([&] { return !engine.states.empty(); }));
  EXPECT_EQ(downloader->errorCode(), 6);

  const TakenThreads taken;
  {
    const test::ThreadRefusal refusal(EAGAIN);
    downloader->Start();
    EXPECT_GT(test::ThreadRefusal::count(), 0);
  }
  EXPECT_TRUE(turnUntil([&] { return engine.states.size() == 2; }));
  EXPECT_THAT(engine.states, ElementsAre(HTTP_CALL_FAILED, HTTP_CALL_FAILED));
  EXPECT_FALSE(downloader->IsStarted());
}

TEST(DownloaderThreadTest, WithoutARequestTheThreadEndsAndNothingIsReported) {
  FakeEngine engine;
  const auto downloader = std::make_shared<MacDownloader>(std::nullopt);
  downloader->SetDownloadEngine(&engine);
  downloader->Start();
  EXPECT_TRUE(downloader->IsStarted());
  downloader->Stop();
  EXPECT_FALSE(downloader->IsStarted());
  EXPECT_EQ(downloader->GetDownloadState(), HTTP_CALL_PENDING);
  turnOnce();
  EXPECT_THAT(engine.states, IsEmpty());
}

TEST(DownloaderThreadTest, ARequestWithoutAUrlFails) {
  FakeEngine engine;
  const auto downloader = std::make_shared<MacDownloader>(URLRequest());
  downloader->SetDownloadEngine(&engine);
  downloader->Start();
  ASSERT_TRUE(turnUntil([&] { return !engine.states.empty(); }));
  EXPECT_THAT(engine.states, ElementsAre(HTTP_CALL_FAILED));
  EXPECT_EQ(downloader->errorCode(), 6);
}

TEST(DownloaderThreadTest, StopsAtAnyMoment) {
  FakeEngine engine;
  for (int i = 0; i < 50; ++i) {
    const auto downloader = std::make_shared<MacDownloader>(requestFor("unknown:load"));
    downloader->SetDownloadEngine(&engine);
    downloader->Start();
    for (int yields = 0; yields < i; ++yields) {
      std::this_thread::yield();
    }
    downloader->Stop();
    EXPECT_FALSE(downloader->IsStarted());
  }
  turnOnce();
}

}  // namespace
