// Tasks, calls and downloaders over HTTP, with a server of the test's own on the loopback interface.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "Fakes.h"
#include "Turning.h"
#include "foundation/runloop/WorkerThreads.h"
#include "httpPool/HttpCallMacImpl.h"
#include "httpPool/Pool.h"
#include "httpPool/Task.h"
#include "tests/support/RawServer.h"
#include "tests/support/ThreadRefusal.h"
#include "tests/support/WaitUntil.h"

namespace {

using test::RawServer;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kOK = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\nok";

/// Answers all requests alike and keeps the last request's header.
class Answering {
 public:
  explicit Answering(std::string answer)
      : server_([this, answer = std::move(answer)](RawServer::Connection& connection) {
          {
            std::string request = connection.readRequest();
            const std::lock_guard lock(mutex_);
            request_ = std::move(request);
          }
          connection.send(answer);
        }) {}

  std::string url(const std::string& target = "/") const { return server_.url(target); }
  std::string request() {
    const std::lock_guard lock(mutex_);
    return request_;
  }

 private:
  std::mutex mutex_;
  std::string request_;
  RawServer server_;
};

/// Reads the request and then says nothing until the peer goes.
RawServer::Script silence(std::atomic<int>& requests) {
  return [&requests](RawServer::Connection& connection) {
    connection.readRequest();
    ++requests;
    connection.readToEnd();
  };
}

class TaskRequestTest : public testing::Test {
 protected:
  ZEP_HTTP_TASK_STATUS status() const {
    ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_STATUS_8;
    task.GetStatus(&status);
    return status;
  }
  void run(const std::string& url, const char* header = "") {
    task.SetProperty(ZEP_HTTP_TASK_PROP_URL, url.c_str());
    task.SetProperty(ZEP_HTTP_TASK_PROP_HEADER_FIELDS, header);
    ZEP_HTTP_TASK_STATUS launched = ZEP_HTTP_TASK_STATUS_8;
    task.Run(&launched);
    ASSERT_EQ(launched, ZEP_HTTP_TASK_REQUESTING);
  }
  void waitFor(ZEP_HTTP_TASK_STATUS expected) {
    ASSERT_TRUE(turnUntil([&] { return status() == expected; })) << status();
  }
  std::string property(ZEP_HTTP_TASK_PROPERTY which) {
    long size = task.GetProperty(which, nullptr, nullptr);
    std::string value(static_cast<std::size_t>(size), '?');
    task.GetProperty(which, value.data(), &size);
    return value;
  }
  std::string result() { return property(ZEP_HTTP_TASK_PROP_RESULT); }

  CTask task{"t", "p"};
};

TEST_F(TaskRequestTest, ARequestEndsWithTheBody) {
  Answering server(kOK);
  run(server.url("/path"), R"({"X-Mine":"value"})");
  waitFor(ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(result(), "ok");
  EXPECT_THAT(server.request(), HasSubstr("POST /path HTTP/1.1\r\n"));
  EXPECT_THAT(server.request(), HasSubstr("X-Mine: value\r\n"));
  EXPECT_THAT(server.request(), HasSubstr("Content-Type: application/x-www-form-urlencoded\r\n"));
}

TEST_F(TaskRequestTest, SteeringKeysAreNotSentButGlintIs) {
  Answering server(kOK);
  run(server.url(), R"({"HttpMethonGet":"1","Adjacency":"1","Exchange-Listmeeting":"1","Glint":"g"})");
  waitFor(ZEP_HTTP_TASK_DONE);
  EXPECT_THAT(server.request(), HasSubstr("GET / HTTP/1.1\r\n"));
  EXPECT_THAT(server.request(), HasSubstr("Glint: g\r\n"));
  EXPECT_THAT(server.request(), Not(HasSubstr("Adjacency")));
  EXPECT_THAT(server.request(), Not(HasSubstr("Exchange-")));
  EXPECT_THAT(server.request(), Not(HasSubstr("HttpMeth")));
}

TEST_F(TaskRequestTest, A500WithABodyEndsAsFailed) {
  Answering server("HTTP/1.1 500 Oh\r\nContent-Length: 5\r\nConnection: close\r\n\r\nsorry");
  run(server.url());
  waitFor(ZEP_HTTP_TASK_FAILED);
  EXPECT_EQ(result(), R"({"errorID":2,"errorReason":0})");
}

TEST_F(TaskRequestTest, A404EndsWithItsBody) {
  Answering server("HTTP/1.1 404 Gone\r\nContent-Length: 4\r\nConnection: close\r\n\r\nnone");
  run(server.url());
  waitFor(ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(result(), "none");
}

TEST_F(TaskRequestTest, AGlint429EndsAsDoneWithTheDelay) {
  Answering server("HTTP/1.1 429 Slow\r\nRetry-After: 7\r\nContent-Length: 2\r\nConnection: close\r\n\r\nno");
  run(server.url(), R"({"Glint":"1"})");
  waitFor(ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(result(), R"({"errorID":5,"errorReason":7000})");
}

TEST_F(TaskRequestTest, AnAutodiscoveryRedirectFailsAndGivesItsTarget) {
  Answering server(
      "HTTP/1.1 302 Found\r\nLocation: https://elsewhere.test/x\r\nContent-Length: 0\r\nConnection: "
      "close\r\n\r\n");
  run(server.url(), R"({"Exchange-Autodiscover":"1"})");
  waitFor(ZEP_HTTP_TASK_FAILED);
  EXPECT_EQ(property(ZEP_HTTP_TASK_PROP_REDIRECT_URL), "https://elsewhere.test/x");
  EXPECT_EQ(result(), R"({"errorID":2,"errorReason":0})");
}

TEST_F(TaskRequestTest, WithoutThreadsATaskFailsAndTheNextRunIsServed) {
  Answering server(kOK);
  ASSERT_TRUE(turnUntil([] { return foundation::WorkerThreads::shared().count() == 0; }));
  {
    const test::ThreadRefusal refusal(EAGAIN);
    run(server.url());
    waitFor(ZEP_HTTP_TASK_FAILED);
    EXPECT_THAT(property(ZEP_HTTP_TASK_PROP_RESULT), HasSubstr("\"errorID\":6"));
  }
  run(server.url());
  waitFor(ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(property(ZEP_HTTP_TASK_PROP_RESULT), "ok");
}

TEST_F(TaskRequestTest, ByteBodiesAreSentWhole) {
  std::mutex mutex;
  std::string received;
  RawServer server([&](RawServer::Connection& connection) {
    connection.readRequest();
    std::string body = connection.read(5);
    {
      const std::lock_guard lock(mutex);
      received = std::move(body);
    }
    connection.send(kOK);
  });
  const unsigned char bytes[] = {'a', 0, 0xFF, '\n', 'b'};
  task.SetDataProperty(bytes, sizeof(bytes));
  run(server.url("/"));
  waitFor(ZEP_HTTP_TASK_DONE);
  const std::lock_guard lock(mutex);
  EXPECT_EQ(received, std::string(reinterpret_cast<const char*>(bytes), sizeof(bytes)));
}

TEST_F(TaskRequestTest, ResetEndsARunningRequest) {
  std::atomic<int> requests = 0;
  RawServer server(silence(requests));
  run(server.url("/"));
  ASSERT_TRUE(turnUntil([&] { return requests == 1; }));
  task.Reset();
  EXPECT_EQ(status(), ZEP_HTTP_TASK_UNINITIALIZED);
  turnOnce();
  EXPECT_EQ(status(), ZEP_HTTP_TASK_UNINITIALIZED);
}

TEST_F(TaskRequestTest, ASecondRunBeforeTheFirstHasEndedWins) {
  std::atomic<int> requests = 0;
  RawServer silent(silence(requests));
  Answering server(kOK);
  run(silent.url("/"));
  ASSERT_TRUE(turnUntil([&] { return requests == 1; }));
  run(server.url());
  waitFor(ZEP_HTTP_TASK_DONE);
  EXPECT_EQ(result(), "ok");
}

TEST_F(TaskRequestTest, WhatArrivesMayBeReadMeanwhile) {
  std::atomic<bool> isRead = false;
  RawServer server([&](RawServer::Connection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n");
    while (!isRead && connection.send("part ")) {
      std::this_thread::yield();
    }
    connection.send("end");
  });
  CHttpCallMacImpl call;
  RecordingCallback callback;
  call.SetCallBack(&callback);
  ASSERT_TRUE(call.LaunchCall(server.url("/").c_str(), nullptr));
  BasicString out;
  ASSERT_TRUE(turnUntil([&] {
    BasicString redirect;
    call.GetRedirectUrl(redirect);
    return call.GetResult(out) && callback.notices.size() >= 3;
  }));
  EXPECT_TRUE(out.starts_with("part "));
  isRead = true;
  ASSERT_TRUE(turnUntil([&] { return callback.ended(); }));
  ASSERT_TRUE(call.GetResult(out));
  EXPECT_TRUE(out.ends_with("part end"));
}

TEST(CallRequestTest, AnEarlierDownloadGoesOnBesideALaterOne) {
  std::atomic<bool> mayEnd = false;
  RawServer slow([&mayEnd](RawServer::Connection& connection) {
    connection.readRequest();
    test::waitUntil([&mayEnd] { return mayEnd.load(); });
    connection.send(kOK);
  });
  Answering server(kOK);
  CHttpCallMacImpl call;
  RecordingCallback callback;
  call.SetCallBack(&callback);
  const auto ends = [&callback] {
    return std::count_if(callback.notices.begin(), callback.notices.end(),
                         [](const auto& notice) { return notice.second == HTTP_CALL_SUCCEEDED; });
  };
  ASSERT_TRUE(call.LaunchCall(slow.url("/").c_str(), nullptr));
  ASSERT_TRUE(call.LaunchCall(server.url().c_str(), nullptr));
  ASSERT_TRUE(turnUntil([&] { return ends() == 1; }));
  mayEnd = true;
  EXPECT_TRUE(turnUntil([&] { return ends() == 2; }));
}

TEST(CallRequestTest, TheEndOfACallEndsAnEarlierDownloadThatHasSomethingToReport) {
  std::atomic<bool> isCut = false;
  RawServer streaming([&isCut](RawServer::Connection& connection) {
    connection.readRequest();
    connection.send("HTTP/1.1 200 OK\r\n\r\n");
    while (connection.send("part ")) {
      std::this_thread::yield();
    }
    isCut = true;
  });
  std::atomic<int> requests = 0;
  RawServer silent(silence(requests));
  RecordingCallback callback;
  auto call = std::make_unique<CHttpCallMacImpl>();
  call->SetCallBack(&callback);
  ASSERT_TRUE(call->LaunchCall(streaming.url("/").c_str(), nullptr));
  // Its hand-overs are queued: the base thread does not turn its loop meanwhile.
  BasicString out;
  ASSERT_TRUE(test::waitUntil([&] { return call->GetResult(out) && !out.empty(); }));
  ASSERT_TRUE(call->LaunchCall(silent.url("/").c_str(), nullptr));
  call.reset();
  turnOnce();
  EXPECT_TRUE(callback.notices.empty());
  EXPECT_TRUE(test::waitUntil([&isCut] { return isCut.load(); }));
}

TEST(DownloaderRequestTest, ADownloaderThatIsLetGoStops) {
  std::atomic<int> requests = 0;
  RawServer server(silence(requests));
  FakeEngine engine;
  auto downloader =
      std::make_shared<MacDownloader>(foundation::URLRequest(*foundation::URL::parse(server.url("/"))));
  downloader->SetDownloadEngine(&engine);
  downloader->Start();
  ASSERT_TRUE(turnUntil([&] { return requests == 1; }));
  const std::weak_ptr<MacDownloader> watched = downloader;
  downloader.reset();
  EXPECT_TRUE(watched.expired());
  EXPECT_TRUE(engine.states.empty());
}

TEST(DownloaderRequestTest, ABusyBaseThreadStillSeesTheFailure) {
  Answering server("HTTP/1.1 500 Oh\r\nContent-Length: 5\r\nConnection: close\r\n\r\nsorry");
  FakeEngine engine;
  const auto downloader =
      std::make_shared<MacDownloader>(foundation::URLRequest(*foundation::URL::parse(server.url())));
  downloader->SetDownloadEngine(&engine);
  downloader->Start();
  // The base thread does not turn its loop before the downloader's thread has done all that it will.
  ASSERT_TRUE(test::waitUntil([&] { return downloader->GetDownloadState() == HTTP_CALL_FAILED; }));
  const auto& threads = foundation::WorkerThreads::shared();
  ASSERT_TRUE(test::waitUntil([&] { return threads.parkedCount() == threads.count(); }));
  ASSERT_TRUE(turnUntil([&] { return !engine.states.empty(); }));
  EXPECT_EQ(engine.states, std::vector{HTTP_CALL_FAILED});
  EXPECT_EQ(downloader->errorCode(), 2);
}

TEST(PoolRequestTest, ManyTasksAllEnd) {
  Answering server(kOK);
  CPool pool("p");
  constexpr int kTasks = 50;
  for (int i = 0; i < kTasks; ++i) {
    const std::string name = "t" + std::to_string(i);
    pool.AddTask(name.c_str());
    pool.SetTaskProperty(name.c_str(), ZEP_HTTP_TASK_PROP_URL, server.url().c_str());
    pool.TaskRun(name.c_str(), nullptr);
  }
  static int done = 0;
  static CPool* thePool = nullptr;
  thePool = &pool;
  done = 0;
  pool.SetPoolProc([](ZEP_HTTP_POOL_TASK_NOTIFY, const char*, const char* task, const char*) {
    ZEP_HTTP_TASK_STATUS status = ZEP_HTTP_TASK_UNINITIALIZED;
    thePool->GetTaskStatus(task, &status);
    if (status == ZEP_HTTP_TASK_DONE) {
      ++done;
      thePool->RemoveTask(task);
    }
  });
  EXPECT_TRUE(turnUntil([] { return done == kTasks; }, std::chrono::seconds(60)));
  EXPECT_EQ(pool.GetTaskList(), "[]");
}

}  // namespace
