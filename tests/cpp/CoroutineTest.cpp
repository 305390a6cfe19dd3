// Coroutines that wait for requests.

#include <gtest/gtest.h>

#include <coroutine>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/cpp/Host.h"
#include "tests/support/NginxServer.h"

namespace test {
namespace {

using httpPool::Detached;

class CppCoroutine : public testing::Test {
 protected:
  Detached keep(httpPool::Run run) { outcomes.push_back(co_await run); }

  NginxServer server;
  std::vector<Outcome> outcomes;
  std::optional<Pool> pool{std::in_place};
};

TEST_F(CppCoroutine, GoesOnWithTheOutcome) {
  const auto fetch = [this]() -> Detached {
    outcomes.push_back(co_await pool->task().url(server.url("/text")).run());
    Task task = pool->task().url(server.url("/status/500"));
    outcomes.push_back(co_await task.run());
    outcomes.push_back(co_await task.url("not a url").run());
  };
  fetch();
  EXPECT_TRUE(outcomes.empty());
  ASSERT_TRUE(turnUntil([&] { return outcomes.size() == 3; }));
  EXPECT_EQ(outcomes, (std::vector{done("Hello, pool!"), failed(ErrorId::Response), refused()}));
}

/// All at once: awaited one after the other, they run side by side.
Detached whenAll(std::vector<httpPool::Run> runs, std::optional<std::vector<Outcome>>& all) {
  std::vector<Outcome> outcomes;
  for (const httpPool::Run& run : runs) {
    outcomes.push_back(co_await run);
  }
  all = std::move(outcomes);
}

TEST_F(CppCoroutine, WaitsForManyAtOnce) {
  std::optional<std::vector<Outcome>> all;
  std::vector<httpPool::Run> runs;
  for (int i = 0; i < 50; ++i) {
    runs.push_back(pool->task().url(server.url(i % 2 == 0 ? "/text" : "/status/500")).run());
  }
  EXPECT_EQ(pool->runningTasks(), 50U);
  whenAll(runs, all);
  ASSERT_TRUE(turnUntil([&] { return all.has_value(); }));
  for (std::size_t i = 0; i < all->size(); ++i) {
    EXPECT_EQ((*all)[i], i % 2 == 0 ? done("Hello, pool!") : failed(ErrorId::Response)) << i;
  }
}

TEST_F(CppCoroutine, SeveralMayWaitForOneRequest) {
  const httpPool::Run run = pool->task().url(server.url("/text")).run();
  keep(run);
  keep(run);
  end(run);
  keep(run);
  EXPECT_EQ(outcomes, std::vector(3, done("Hello, pool!")));
}

TEST_F(CppCoroutine, IsToldOfEveryWayToCancel) {
  std::optional<Task> task = pool->task().url(server.url("/silent"));
  keep(task->run());
  task->reset();
  EXPECT_EQ(outcomes.size(), 1U);
  keep(task->run());
  keep(task->run());
  EXPECT_EQ(outcomes.size(), 2U);
  task.reset();
  EXPECT_EQ(outcomes.size(), 3U);
  keep(pool->task().url(server.url("/silent")).run());
  pool.reset();
  EXPECT_EQ(outcomes, std::vector(4, cancelled()));
  EXPECT_TRUE(server.waitForOpenConnections(0));
}

TEST_F(CppCoroutine, MayDestroyItsPoolAndItsTask) {
  const auto fetch = [this]() -> Detached {
    std::optional<Task> task = pool->task().url(server.url("/text"));
    outcomes.push_back(co_await task->run());
    pool.reset();
    task.reset();
    outcomes.push_back(Outcome::done("went on"));
  };
  fetch();
  ASSERT_TRUE(turnUntil([&] { return outcomes.size() == 2; }));
  EXPECT_EQ(outcomes, (std::vector{done("Hello, pool!"), done("went on")}));
}

TEST_F(CppCoroutine, MayOwnItsPool) {
  const auto fetch = [this]() -> Detached {
    Pool own;
    Task task = own.task().url(server.url("/text"));
    outcomes.push_back(co_await task.run());
  };
  fetch();
  ASSERT_TRUE(turnUntil([&] { return outcomes.size() == 1; }));
  EXPECT_EQ(outcomes, std::vector{done("Hello, pool!")});
}

TEST_F(CppCoroutine, ThatThrowsIsReported) {
  std::string thrown;
  httpPool::setExceptionHandler([&](std::exception_ptr exception) {
    try {
      std::rethrow_exception(std::move(exception));
    } catch (const httpPool::RequestError& error) {
      thrown = error.what();
    }
  });
  const auto fetch = [this]() -> Detached {
    static_cast<void>((co_await pool->task().url(server.url("/close")).run()).value());
  };
  fetch();
  ASSERT_TRUE(turnUntil([&] { return !thrown.empty(); }));
  EXPECT_EQ(thrown, failed(ErrorId::Connection).description());
  httpPool::setExceptionHandler(nullptr);
}

/// A coroutine whose owner ends it when he likes.
class Owned {
 public:
  struct promise_type {
    Owned get_return_object() { return Owned(std::coroutine_handle<promise_type>::from_promise(*this)); }
    std::suspend_never initial_suspend() const noexcept { return {}; }
    std::suspend_always final_suspend() const noexcept { return {}; }
    void return_void() const noexcept {}
    /// Goes on into whoever resumed it.
    void unhandled_exception() const { throw; }
  };
  ~Owned() { handle_.destroy(); }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;

 private:
  explicit Owned(std::coroutine_handle<promise_type> handle) : handle_(handle) {}
  std::coroutine_handle<promise_type> handle_;
};

Owned keepIn(std::vector<Outcome>& outcomes, httpPool::Run run) {
  outcomes.push_back(co_await run);
}

Owned ownAndKeepIn(std::vector<Outcome>& outcomes, std::string url) {
  Pool pool;
  Task task = pool.task().url(url);
  outcomes.push_back(co_await task.run());
}

TEST_F(CppCoroutine, ThatIsDestroyedWhileItWaitsIsForgotten) {
  const httpPool::Run run = pool->task().url(server.url("/text")).run();
  { const Owned forgotten = keepIn(outcomes, run); }
  EXPECT_EQ(end(run), done("Hello, pool!"));
  EXPECT_TRUE(outcomes.empty());
}

TEST_F(CppCoroutine, ThatIsDestroyedWithItsOwnPoolIsForgotten) {
  {
    const Owned forgotten = ownAndKeepIn(outcomes, server.url("/silent"));
    EXPECT_TRUE(server.waitForOpenConnections(1));
  }
  EXPECT_TRUE(outcomes.empty());
  EXPECT_TRUE(server.waitForOpenConnections(0));
  EXPECT_EQ(httpPool::snapshot(), R"([{"poolName":")" + pool->name() + R"(","taskList":[]}])");
}

/// The first to learn of the end destroys the second, which waits for the same.
TEST_F(CppCoroutine, ThatIsDestroyedByAnEarlierWaiterIsForgotten) {
  const httpPool::Run run = pool->task().url(server.url("/text")).run();
  std::optional<Owned> second;
  run.then([&](const Outcome&) { second.reset(); });
  struct Maker {
    std::vector<Outcome>& outcomes;
    const httpPool::Run& run;
    operator Owned() const { return keepIn(outcomes, run); }
  };
  second.emplace(Maker{outcomes, run});
  EXPECT_EQ(end(run), done("Hello, pool!"));
  EXPECT_FALSE(second.has_value());
  EXPECT_TRUE(outcomes.empty());
}

Owned throwAfter(httpPool::Run run) {
  co_await run;
  throw std::runtime_error("from a coroutine");
}

TEST_F(CppCoroutine, WhosePromiseThrowsHurtsNobody) {
  int reports = 0;
  httpPool::setExceptionHandler([&](const std::exception_ptr&) { ++reports; });
  const httpPool::Run run = pool->task().url(server.url("/text")).run();
  const Owned thrower = throwAfter(run);
  keep(run);
  EXPECT_EQ(end(run), done("Hello, pool!"));
  EXPECT_EQ(reports, 1);
  EXPECT_EQ(outcomes, std::vector{done("Hello, pool!")});
  httpPool::setExceptionHandler(nullptr);
}

}  // namespace
}  // namespace test
