// What a task asks of a server, and how it ends.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/cpp/Host.h"
#include "tests/support/EchoedRequest.h"
#include "tests/support/Files.h"
#include "tests/support/FreePort.h"
#include "tests/support/NginxServer.h"
#include "tests/support/RawServer.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

using std::chrono::milliseconds;

class CppTask : public testing::Test {
 protected:
  /// Runs the task against /echo.
  EchoedRequest echoed(Task& task) {
    const Outcome outcome = end(task.url(server.url("/echo")).run());
    EXPECT_TRUE(outcome.isDone()) << outcome.description();
    return outcome ? EchoedRequest::parse(outcome.text()) : EchoedRequest();
  }
  EchoedRequest echoed(Task&& task) { return echoed(task); }

  NginxServer server;
  Pool pool;
};

TEST_F(CppTask, IsAPostUnlessToldOtherwise) {
  EXPECT_EQ(echoed(pool.task()).method, "POST");
  const auto posted = echoed(pool.task().post("a=1&b=\xC3\xA4"));
  EXPECT_EQ(posted.method, "POST");
  EXPECT_EQ(posted.body, "a=1&b=\xC3\xA4");
  EXPECT_EQ(posted.header("Content-Type"), "application/x-www-form-urlencoded");
  EXPECT_EQ(echoed(pool.task().method("GET")).method, "GET");
  EXPECT_EQ(echoed(pool.task().method("PATCH").post("x")).method, "PATCH");
}

TEST_F(CppTask, SendsItsHeaderFieldsAsTheyAre) {
  const auto request = echoed(pool.task()
                                  .header("Accept", "text/\"x\\y\"")
                                  .header("X-Tab", "a\tb")
                                  .header("X-Text", "\xC3\xA4 {\"HttpMethod\":\"PUT\"},")
                                  .header("X-Twice", "first")
                                  .header("X-Twice", "second")
                                  .header("Content-Type", "text/plain"));
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.header("Accept"), "text/\"x\\y\"");
  EXPECT_EQ(request.header("X-Tab"), "a\tb");
  EXPECT_EQ(request.header("X-Text"), "\xC3\xA4 {\"HttpMethod\":\"PUT\"},");
  EXPECT_EQ(request.header("X-Twice"), "second");
  EXPECT_EQ(request.countOf("X-Twice"), 1U);
  EXPECT_EQ(request.header("Content-Type"), "text/plain");
}

TEST_F(CppTask, NothingIsInjectedByAHeaderField) {
  const auto request = echoed(pool.task()
                                  .header("X-Lines", "a\r\nX-Evil: 1")
                                  .header("X-Line\r\nX-Evil", "1")
                                  .header("X-Zero", std::string_view("a\0b", 3))
                                  .header("X-Latin", "caf\xE9")
                                  .header("X-Json\":\"1\",\"X-Evil", "1")
                                  .header("X-Quoted", "1\",\"X-Evil\":\"1")
                                  .header("X-Kept", "yes")
                                  .method("PUT"));
  EXPECT_EQ(request.method, "PUT");
  EXPECT_FALSE(request.has("X-Evil")) << request.rawHeader;
  EXPECT_FALSE(request.has("X-Lines"));
  EXPECT_FALSE(request.has("X-Zero"));
  EXPECT_FALSE(request.has("X-Latin"));
  EXPECT_EQ(request.header("X-Quoted"), "1\",\"X-Evil\":\"1");
  EXPECT_EQ(request.header("X-Kept"), "yes");
}

TEST_F(CppTask, SendsBytesOfAnyValue) {
  std::string every;
  for (int byte = 0; byte < 256; ++byte) {
    every += static_cast<char>(byte);
  }
  EXPECT_EQ(echoed(pool.task().body(bytesOf(every))).body, every);
  EXPECT_EQ(echoed(pool.task().post(every)).body, every) << "a text with a zero byte is not cut";
  EXPECT_EQ(echoed(pool.task().post("text").body(bytesOf("bytes"))).body, "bytes");
}

TEST_F(CppTask, ResultsKeepTheirZeroBytes) {
  EXPECT_EQ(end(pool.task().url(server.url("/zero")).run()), done(std::string("before\0after", 12)));
  EXPECT_EQ(end(pool.task().url(server.url("/empty")).run()), done(""));
  EXPECT_EQ(end(pool.task().url(server.url("/utf8")).run()), done("Grüße, 世界 🌍"));
  EXPECT_EQ(end(pool.task().url(server.url("/latin1")).run()), done("caf\xE9 ol\xE9"));
}

TEST_F(CppTask, AMegabyteArrivesWhole) {
  constexpr std::size_t kBytes = 1'000'000;
  EXPECT_EQ(end(pool.task().url(server.url("/big?bytes=" + std::to_string(kBytes))).run()),
            done(NginxServer::bigBody(kBytes)));
}

TEST_F(CppTask, DownloadsToAFile) {
  TemporaryFolder folder;
  const std::string file = folder.file("body");
  EXPECT_EQ(end(pool.task().url(server.url("/latin1")).download(file).post("ignored").run()), done(file));
  EXPECT_EQ(readFile(file), std::string("caf\xE9 ol\xE9\0after", 14));
  EXPECT_EQ(end(pool.task().url(server.url("/text")).download(folder.file("none")).body(bytesOf("b")).run()),
            done("Hello, pool!"));
  EXPECT_FALSE(fileExists(folder.file("none")));
}

TEST_F(CppTask, FailuresHaveTheirErrors) {
  const RefusingPort refusing;
  EXPECT_EQ(end(pool.task().url(server.url("/status/500")).run()), failed(ErrorId::Response));
  EXPECT_EQ(end(pool.task().url(server.url("/status/404")).run()), done("status 404"));
  EXPECT_EQ(end(pool.task().url(server.url("/close")).run()), failed(ErrorId::Connection));
  EXPECT_EQ(end(pool.task().url(server.url("/redirect/loop")).run()), failed(ErrorId::Other));
  EXPECT_EQ(end(pool.task().url("http://127.0.0.1:" + std::to_string(refusing.port()) + "/").run()),
            failed(ErrorId::Response));
}

TEST(CppSilence, IsAnError) {
  setenv("ZEP_URL_TIMEOUT_MS", "300", 1);
  NginxServer server;
  Pool pool;
  EXPECT_EQ(end(pool.task().url(server.url("/silent")).run()), failed(ErrorId::Silence));
}

TEST_F(CppTask, WhatCannotBeSentIsRefusedAtOnce) {
  TemporaryFolder folder;
  for (const std::string& url : {std::string("not a url"), server.url("/text") + std::string("\0x", 2)}) {
    Task task = pool.task().url(url);
    EXPECT_EQ(task.run().outcome(), refused());
    EXPECT_EQ(task.status(), Status::Refused);
    EXPECT_EQ(task.outcome(), refused());
  }
  const std::string cut = folder.file("cut");
  EXPECT_EQ(pool.task().url(server.url("/text")).download(cut + std::string("\0x", 2)).run().outcome(),
            refused());
  EXPECT_EQ(end(pool.task().url(server.url("/text")).run()), done("Hello, pool!"));
  EXPECT_EQ(server.accesses().size(), 1U);
  EXPECT_FALSE(fileExists(cut));
}

TEST_F(CppTask, ACapturedRedirectHasItsTarget) {
  const auto run = [&](const std::string& path) {
    return end(pool.task().url(server.url(path)).kind(RequestKind::Autodiscover).run());
  };
  EXPECT_EQ(run("/redirect/302"), Outcome::redirected(server.url("/echo")));
  EXPECT_EQ(run("/redirect/301"), Outcome::redirected(server.url("/echo")));
  EXPECT_EQ(run("/redirect/307"), failed(ErrorId::Response));
  EXPECT_EQ(run("/text"), done("Hello, pool!"));
  EXPECT_TRUE(server.accesses("/echo").empty());
}

TEST_F(CppTask, AGlintRequestIsToldWhenToTryAgain) {
  TemporaryFolder folder;
  const std::string url = server.url("/retry-after?value=7");
  const Outcome later = failed(ErrorId::RetryLater, milliseconds(7000));
  EXPECT_EQ(end(pool.task().url(url).kind(RequestKind::Glint).run()), later);
  EXPECT_EQ(end(pool.task().url(url).header("Glint", "shines").run()), later);
  EXPECT_EQ(end(pool.task().url(url).kind(RequestKind::Glint).download(folder.file("file")).run()), later);
  EXPECT_EQ(end(pool.task().url(server.url("/retry-after")).kind(RequestKind::Glint).run()),
            failed(ErrorId::RetryLater, milliseconds(300'000)));
  EXPECT_EQ(end(pool.task().url(url).run()), failed(ErrorId::Response));
}

TEST_F(CppTask, ABodyThatLooksLikeAnErrorIsABody) {
  const std::string retry = R"({"errorID":5,"errorReason":1})";
  const std::string other = R"({"errorID":2,"errorReason":0})";
  const auto answering = [](const std::string& body) {
    return RawServer::answering("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
                                "\r\n\r\n" + body);
  };
  RawServer retrying(answering(retry));
  RawServer failing(answering(other));
  EXPECT_EQ(end(pool.task().url(retrying.url("/")).run()), done(retry));
  EXPECT_EQ(end(pool.task().url(failing.url("/")).kind(RequestKind::Glint).run()), done(other));
  EXPECT_EQ(end(pool.task().url(server.url("/text")).kind(RequestKind::Glint).run()), done("Hello, pool!"));
}

TEST_F(CppTask, KindsAreSentByGlintOnly) {
  EXPECT_EQ(echoed(pool.task().kind(RequestKind::Glint)).header("Glint"), "1");
  EXPECT_FALSE(echoed(pool.task().kind(RequestKind::Adjacency)).has("Adjacency"));
  EXPECT_FALSE(echoed(pool.task().kind(RequestKind::ListMeeting)).has("Exchange-Listmeeting"));
}

TEST_F(CppTask, RunsAgainAndAgain) {
  Task task = pool.task().url(server.url("/text"));
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(end(task.run()), done("Hello, pool!"));
  }
  EXPECT_EQ(server.accesses("/text").size(), 5U);
}

TEST_F(CppTask, NothingOfAnEarlierRunIsLeft) {
  TemporaryFolder folder;
  Task task = pool.task()
                  .url(server.url("/redirect/302"))
                  .kind(RequestKind::Autodiscover)
                  .method("PUT")
                  .header("X-Old", "1")
                  .download(folder.file("old"));
  EXPECT_EQ(end(task.run()).status(), Status::Redirected);
  const auto request = echoed(task.request({.headers = {{"X-New", "1"}}}));
  EXPECT_EQ(request.method, "POST");
  EXPECT_FALSE(request.has("X-Old"));
  EXPECT_TRUE(request.has("X-New"));
  task.request({});
  EXPECT_EQ(end(task.url(server.url("/status/500")).run()), failed(ErrorId::Response));
  EXPECT_EQ(task.url("not a url").run().outcome(), refused());
}

TEST_F(CppTask, TellsItsStatus) {
  Task task = pool.task().url(server.url("/text"));
  EXPECT_EQ(task.status(), Status::Uninitialized);
  EXPECT_EQ(task.outcome(), std::nullopt);
  const httpPool::Run run = task.run();
  EXPECT_EQ(task.status(), Status::Requesting);
  EXPECT_EQ(task.outcome(), std::nullopt);
  EXPECT_FALSE(run.hasEnded());
  end(run);
  EXPECT_EQ(task.status(), Status::Done);
  EXPECT_EQ(task.outcome(), done("Hello, pool!"));
  task.reset();
  EXPECT_EQ(task.status(), Status::Uninitialized);
  EXPECT_EQ(task.outcome(), std::nullopt);
  EXPECT_EQ(run.outcome(), done("Hello, pool!")) << "an end stays as it was";
}

TEST_F(CppTask, IsKnownToTheLibraryWhileItRuns) {
  Task silent = pool.task("silent").url(server.url("/silent"));
  Task again = pool.task("silent").url(server.url("/silent"));
  EXPECT_EQ(pool.taskList(), "[]");
  silent.run();
  again.run();
  EXPECT_EQ(pool.runningTasks(), 2U);
  EXPECT_EQ(
      pool.taskList(),
      R"([{"taskName":"silent","taskStatus":"requesting"},{"taskName":"silent 2","taskStatus":"requesting"}])");
  EXPECT_NE(httpPool::snapshot().find("\"poolName\":\"" + pool.name() + "\""), std::string::npos);
  silent.reset();
  EXPECT_EQ(pool.taskList(), R"([{"taskName":"silent 2","taskStatus":"requesting"}])");
  EXPECT_EQ(end(pool.task("silent").url(server.url("/text")).run()), done("Hello, pool!"));
  again.reset();
  EXPECT_EQ(pool.taskList(), "[]");
}

TEST_F(CppTask, OfATemporaryRunsOnByItself) {
  const httpPool::Run run = pool.task().url(server.url("/text")).run();
  EXPECT_EQ(end(run), done("Hello, pool!"));
}

TEST_F(CppTask, MovesWhileItRuns) {
  std::vector<Task> tasks;
  std::vector<httpPool::Run> runs;
  for (int i = 0; i < 20; ++i) {
    tasks.push_back(pool.task().url(server.url("/text")));
    runs.push_back(tasks.back().run());
  }
  for (const httpPool::Run& run : runs) {
    EXPECT_EQ(end(run), done("Hello, pool!"));
  }
  Task silent = pool.task().url(server.url("/silent"));
  const httpPool::Run replaced = silent.run();
  silent = std::move(tasks.back());
  EXPECT_EQ(replaced.outcome(), cancelled());
  EXPECT_EQ(silent.outcome(), done("Hello, pool!"));
}

TEST_F(CppTask, ThousandAtOnceAllEnd) {
  std::vector<httpPool::Run> runs;
  for (int i = 0; i < 1000; ++i) {
    runs.push_back(pool.task().url(server.url("/text")).run());
  }
  for (const httpPool::Run& run : runs) {
    ASSERT_EQ(end(run), done("Hello, pool!"));
  }
  EXPECT_EQ(pool.runningTasks(), 0U);
  EXPECT_EQ(pool.taskList(), "[]");
}

}  // namespace
}  // namespace test
