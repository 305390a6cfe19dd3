// Callbacks and futures: when they learn the end, and what a callback may do.

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/cpp/Host.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

class CppCallback : public testing::Test {
 protected:
  CppCallback() {
    httpPool::setExceptionHandler([this](std::exception_ptr exception) {
      try {
        std::rethrow_exception(std::move(exception));
      } catch (const std::exception& error) {
        exceptions.emplace_back(error.what());
      }
    });
  }
  ~CppCallback() override { httpPool::setExceptionHandler(nullptr); }

  NginxServer server;
  std::vector<std::string> exceptions;
  std::vector<Outcome> outcomes;
  std::optional<Pool> pool{std::in_place};
};

TEST_F(CppCallback, IsCalledOnceOnTheHostsThreadAndNotByRun) {
  std::vector<std::thread::id> threads;
  const auto run = pool->task().url(server.url("/text")).run();
  run.then([&](const Outcome& outcome) {
    threads.push_back(std::this_thread::get_id());
    outcomes.push_back(outcome);
  });
  EXPECT_TRUE(outcomes.empty());
  end(run);
  httpPool::runFor(std::chrono::milliseconds(100));
  EXPECT_EQ(outcomes, std::vector{done("Hello, pool!")});
  EXPECT_EQ(threads, std::vector{std::this_thread::get_id()});
}

TEST_F(CppCallback, SeveralAreCalledInTheirOrder) {
  std::string order;
  const auto run = pool->task().url(server.url("/text")).run();
  run.then([&](const Outcome&) { order += 'a'; }).then([&](const Outcome&) {
    order += 'b';
    run.then([&](const Outcome&) { order += 'd'; });
  });
  run.then([&](const Outcome&) { order += 'c'; });
  end(run);
  EXPECT_EQ(order, "abcd");
}

TEST_F(CppCallback, OfAnEndThatHasComeIsCalledAtOnce) {
  const auto run = pool->task().url("not a url").run();
  run.then([&](const Outcome& outcome) { outcomes.push_back(outcome); });
  EXPECT_EQ(outcomes, std::vector{refused()});
}

TEST_F(CppCallback, NeedNotBeCopyable) {
  const auto run = pool->task().url(server.url("/text")).run();
  run.then([this, owned = std::make_unique<int>(17)](Outcome outcome) {
    EXPECT_EQ(*owned, 17);
    outcomes.push_back(std::move(outcome));
  });
  end(run);
  EXPECT_EQ(outcomes.size(), 1U);
}

TEST_F(CppCallback, MayDestroyItsOwnTask) {
  std::optional<Task> task = pool->task().url(server.url("/text"));
  const auto run = task->run();
  run.then([&](const Outcome& outcome) {
    task.reset();
    outcomes.push_back(outcome);
  });
  EXPECT_EQ(end(run), done("Hello, pool!"));
  EXPECT_EQ(outcomes, std::vector{done("Hello, pool!")});
}

TEST_F(CppCallback, MayDestroyItsOwnPool) {
  const auto silent = pool->task().url(server.url("/silent")).run();
  silent.then([&](const Outcome& outcome) { outcomes.push_back(outcome); });
  const auto run = pool->task().url(server.url("/text")).run();
  run.then([&](const Outcome& outcome) {
    pool.reset();
    outcomes.push_back(outcome);
  });
  EXPECT_EQ(end(run), done("Hello, pool!"));
  EXPECT_EQ(outcomes, (std::vector{cancelled(), done("Hello, pool!")}));
  EXPECT_TRUE(server.waitForAccesses("/silent", 1));
}

TEST_F(CppCallback, MayRunItsTaskAgain) {
  Task task = pool->task().url(server.url("/text"));
  std::function<void(const Outcome&)> again = [&](const Outcome& outcome) {
    outcomes.push_back(outcome);
    if (outcomes.size() < 5) {
      task.run().then(again);
    }
  };
  task.run().then(again);
  ASSERT_TRUE(turnUntil([&] { return outcomes.size() == 5; }));
  EXPECT_EQ(server.accesses("/text").size(), 5U);
}

TEST_F(CppCallback, MayWaitForAnotherTask) {
  const auto run = pool->task().url(server.url("/text")).run();
  run.then([&](const Outcome&) { outcomes.push_back(end(pool->task().url(server.url("/utf8")).run())); });
  end(run);
  EXPECT_EQ(outcomes, std::vector{done("Grüße, 世界 🌍")});
}

TEST_F(CppCallback, ThatThrowsIsReportedAndHurtsNobody) {
  const auto run = pool->task().url(server.url("/text")).run();
  run.then([](const Outcome&) { throw std::runtime_error("from a callback"); });
  run.then([&](const Outcome& outcome) { outcomes.push_back(outcome); });
  EXPECT_EQ(end(run), done("Hello, pool!"));
  EXPECT_EQ(outcomes.size(), 1U);
  EXPECT_EQ(exceptions, std::vector<std::string>{"from a callback"});
  EXPECT_EQ(end(pool->task().url(server.url("/text")).run()), done("Hello, pool!"));

  pool->task().url(server.url("/silent")).run().then([](const Outcome&) {
    throw std::runtime_error("at the end");
  });
  pool.reset();
  EXPECT_EQ(exceptions.back(), "at the end");
}

TEST_F(CppCallback, ThatThrowsIsPrintedWithoutAHandler) {
  for (const bool isHandlerThrowing : {false, true}) {
    httpPool::ExceptionHandler handler;
    if (isHandlerThrowing) {
      handler = [](std::exception_ptr) { throw std::runtime_error("from the handler"); };
    }
    httpPool::setExceptionHandler(handler);
    testing::internal::CaptureStderr();
    pool->task().url("not a url").run().then([](const Outcome&) {
      throw std::runtime_error("from a callback");
    });
    pool->task().url("not a url").run().then([](const Outcome&) { throw 17; });
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              isHandlerThrowing ? "httpPool: an exception left a callback: from the handler\n"
                                  "httpPool: an exception left a callback: from the handler\n"
                                : "httpPool: an exception left a callback: from a callback\n"
                                  "httpPool: an exception left a callback\n");
  }
}

TEST_F(CppCallback, LearnsOfEveryWayToCancel) {
  const auto silent = [&](Task& task) {
    const auto run = task.run();
    run.then([&](const Outcome& outcome) { outcomes.push_back(outcome); });
    EXPECT_FALSE(run.hasEnded());
  };
  Task task = pool->task().url(server.url("/silent"));
  silent(task);
  task.reset();
  EXPECT_EQ(outcomes.size(), 1U);
  silent(task);
  silent(task);
  EXPECT_EQ(outcomes.size(), 2U) << "run again while it was running";
  {
    Task inner = pool->task().url(server.url("/silent"));
    silent(inner);
  }
  EXPECT_EQ(outcomes.size(), 3U);
  pool.reset();
  EXPECT_EQ(outcomes, std::vector(4, cancelled()));
  EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST_F(CppCallback, OfACancelMayRunItsTaskAgain) {
  Task task = pool->task().url(server.url("/silent"));
  std::optional<httpPool::Run> again;
  task.run().then([&](const Outcome&) { again = task.url(server.url("/text")).run(); });
  task.reset();
  ASSERT_TRUE(again.has_value());
  EXPECT_EQ(task.status(), Status::Requesting);
  EXPECT_EQ(end(*again), done("Hello, pool!"));
}

TEST_F(CppCallback, OfACancelByRunMayDestroyItsTask) {
  std::optional<Task> task = pool->task().url(server.url("/silent"));
  task->run().then([&](const Outcome&) { task.reset(); });
  const auto run = task->run();
  EXPECT_FALSE(task.has_value());
  EXPECT_EQ(run.outcome(), cancelled());
}

class CppFuture : public CppCallback {};

TEST_F(CppFuture, IsReadyAtTheEndForAnyThread) {
  auto future = pool->task().url(server.url("/text")).run().future();
  auto other = std::async(std::launch::async, [&] { return future.get(); });
  ASSERT_TRUE(httpPool::runUntilReady(other, kLimit));
  EXPECT_EQ(other.get(), done("Hello, pool!"));
}

TEST_F(CppFuture, IsReadyBeforeACallbackIsCalled) {
  const auto run = pool->task().url(server.url("/text")).run();
  std::future<Outcome> future;
  run.then([&](const Outcome&) {
    outcomes.push_back(httpPool::runUntilReady(future) ? future.get() : cancelled());
  });
  future = run.future();
  end(run);
  EXPECT_EQ(outcomes, std::vector{done("Hello, pool!")});
}

TEST_F(CppFuture, EndsWithTheErrorAndThrowsOnlyWhenAsked) {
  auto future = pool->task().url(server.url("/status/500")).run().future();
  ASSERT_TRUE(httpPool::runUntilReady(future, kLimit));
  const Outcome outcome = future.get();
  EXPECT_EQ(outcome, failed(ErrorId::Response));
  EXPECT_THROW(static_cast<void>(outcome.value()), httpPool::RequestError);
}

TEST_F(CppFuture, OfACancelledRequestIsReady) {
  auto future = pool->task().url(server.url("/silent")).run().future();
  pool.reset();
  ASSERT_EQ(future.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  EXPECT_EQ(future.get(), cancelled());

  auto late = Task(Pool()).run().future();
  ASSERT_EQ(late.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  EXPECT_EQ(late.get(), cancelled());
}

TEST_F(CppFuture, StaysUnreadyWithinItsLimit) {
  const auto run = pool->task().url(server.url("/silent")).run();
  const auto future = run.future();
  EXPECT_FALSE(httpPool::runUntilReady(future, std::chrono::milliseconds(50)));
  EXPECT_EQ(run.wait(std::chrono::milliseconds(50)), std::nullopt);
}

class CppRunLoop : public CppCallback {};

TEST_F(CppRunLoop, EndsByTimeByStopAndAtOnceElsewhere) {
  EXPECT_EQ(httpPool::runFor(std::chrono::milliseconds(1)), httpPool::LoopEnd::TimeIsOver);
  EXPECT_EQ(httpPool::runFor(std::chrono::milliseconds(-5)), httpPool::LoopEnd::TimeIsOver);
  EXPECT_FALSE(httpPool::stop());
  pool->task().url(server.url("/text")).run().then([](const Outcome&) { EXPECT_TRUE(httpPool::stop()); });
  EXPECT_EQ(httpPool::run(), httpPool::LoopEnd::Stopped);
  pool->task().url(server.url("/text")).run().then([](const Outcome&) { httpPool::stop(); });
  EXPECT_FALSE(httpPool::runUntil([] { return false; }, kLimit)) << "a stop ends it, too";

  pool->task().url(server.url("/text")).run().then([&](const Outcome& outcome) {
    auto elsewhere = std::async(std::launch::async, [] { return httpPool::run(); });
    EXPECT_EQ(elsewhere.get(), httpPool::LoopEnd::NotPossible);
    outcomes.push_back(outcome);
  });
  EXPECT_TRUE(turnUntil([&] { return outcomes.size() == 1; }));
}

}  // namespace
}  // namespace test
