// Hosts that fork while requests are running. The program's own calls are what the libraries use, so that those of a
// child are seen.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "foundation/ZEP_Foundation.h"
#include "tests/hostile/Attack.h"
#include "tests/hostile/ServerProcess.h"
#include "tests/hostile/TlsPeer.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/WaitUntil.h"

namespace {

constexpr int kHasTouched = 90;

std::atomic<bool> isChild = false;
std::atomic<bool> hasTouched = false;

/// What the libraries would call. Notes the calls of a child.
template <typename Function>
Function real(std::atomic<Function>& known, const char* name) {
  if (isChild) {
    hasTouched = true;
  }
  if (known == nullptr) {
    known = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
  }
  return known;
}

/// Registered before everything else, so it is the last thing of a child that exits.
[[gnu::constructor]] void lookAtTheEnd() {
  std::atexit([] {
    if (hasTouched) {
      _exit(kHasTouched);
    }
  });
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int eventfd_write(int descriptor, eventfd_t value) {
  static std::atomic<int (*)(int, eventfd_t)> call = nullptr;
  return real(call, __func__)(descriptor, value);
}

__attribute__((visibility("default"))) int epoll_ctl(int epoll, int operation, int descriptor,
                                                     epoll_event* event) noexcept {
  static std::atomic<int (*)(int, int, int, epoll_event*)> call = nullptr;
  return real(call, __func__)(epoll, operation, descriptor, event);
}

__attribute__((visibility("default"))) int epoll_wait(int epoll, epoll_event* events, int most, int timeout) {
  static std::atomic<int (*)(int, epoll_event*, int, int)> call = nullptr;
  return real(call, __func__)(epoll, events, most, timeout);
}

__attribute__((visibility("default"))) ssize_t send(int socket, const void* bytes, size_t size, int flags) {
  static std::atomic<ssize_t (*)(int, const void*, size_t, int)> call = nullptr;
  return real(call, __func__)(socket, bytes, size, flags);
}

__attribute__((visibility("default"))) ssize_t recv(int socket, void* bytes, size_t size, int flags) {
  static std::atomic<ssize_t (*)(int, void*, size_t, int)> call = nullptr;
  return real(call, __func__)(socket, bytes, size, flags);
}
}

namespace test {
namespace {

/// A child that does this and leaves, with 0 or the number that it left with itself; one that hangs ends by SIGALRM.
pid_t startChild(const std::function<void()>& work) {
  constexpr unsigned kLimitSeconds = 60;
  const pid_t child = fork();
  if (child == 0) {
    isChild = true;
    alarm(kLimitSeconds);
    work();
    _exit(hasTouched ? kHasTouched : 0);
  }
  return child;
}

/// Waits for it.
int statusOf(pid_t child) {
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

int statusOfChild(const std::function<void()>& work) {
  return statusOf(startChild(work));
}

/// In a child: leaves with that number unless it is so.
void require(bool isSo, int number) {
  if (!isSo) {
    _exit(number);
  }
}

/// In a child: runs a request, which has to fail.
void requireFailure(HostPool& pool, const std::string& url) {
  pool.add("child's", {.url = url});
  require(pool.launch("child's") == ZEP_HTTP_TASK_REQUESTING, 20);
  require(pool.await(std::chrono::seconds(40)), 21);
  require(pool.outcome("child's") == failed(6), 22);
}

/// A pool with tasks that all wait for their server.
class ForkingHost : public testing::Test {
 protected:
  static constexpr int kTasks = 10;

  ForkingHost() {
    for (int i = 0; i < kTasks; ++i) {
      pool_.add(task(i), {.url = server_.url("/")});
      pool_.launch(task(i));
    }
    EXPECT_TRUE(waitUntil([this] { return server_.connections() == kTasks; }));
  }

  ~ForkingHost() override {
    isReleased_ = true;
    EXPECT_TRUE(pool_.await());
    for (int i = 0; i < kTasks; ++i) {
      EXPECT_EQ(pool_.outcome(task(i)), done("late"));
    }
    expectServes(pool_);
  }

  static std::string task(int number) { return "task " + std::to_string(number); }

  HostPool pool_;

 private:
  std::atomic<bool> isReleased_ = false;
  RawServer server_{[this](RawServer::Connection& connection) {
    connection.readRequest();
    waitUntil([this] { return isReleased_.load(); }, std::chrono::minutes(2));
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nlate");
  }};
};

TEST_F(ForkingHost, GoesOnBesideChildrenThatLeave) {
  EXPECT_EQ(statusOfChild([] { execl("/bin/true", "true", nullptr); }), 0);
  EXPECT_EQ(statusOfChild([] { _exit(0); }), 0);
}

TEST_F(ForkingHost, HasChildrenThatLookAtThePools) {
  EXPECT_EQ(statusOfChild([this] {
              require(pool_.status(task(0)) == ZEP_HTTP_TASK_REQUESTING && !snapshot().empty(), 1);
              ZEP_HttpPool_Create("child");
              ZEP_HttpPool_AddTask("child", "task");
              ZEP_HttpPool_RemoveTask("child", "task");
              ZEP_HttpPool_Destroy("child");
            }),
            0);
}

TEST_F(ForkingHost, HasChildrenWhoseTasksFail) {
  EXPECT_EQ(statusOfChild([] {
              HostPool pool("child");
              requireFailure(pool, "http://127.0.0.1:1/");
              requireFailure(pool, "https://127.0.0.1:1/");
            }),
            0);
}

TEST_F(ForkingHost, HasChildrenWhoseTasksAreItsOwnButStayAsTheyWere) {
  EXPECT_EQ(statusOfChild([this] {
              turnFor(std::chrono::milliseconds(200));
              require(pool_.status(task(0)) == ZEP_HTTP_TASK_REQUESTING, 1);
              // And may be run again, in vain.
              ZEP_HttpPool_TaskReset(pool_.name().c_str(), task(0).c_str());
              require(pool_.status(task(0)) == ZEP_HTTP_TASK_UNINITIALIZED, 2);
              pool_.launch(task(0));
              require(turnUntil([this] { return pool_.outcome(task(0)) == failed(6); }), 3);
            }),
            0);
}

TEST_F(ForkingHost, HasChildrenThatExit) {
  EXPECT_EQ(statusOfChild([] { std::exit(0); }), 0);
}

TEST_F(ForkingHost, HasChildrenThatEndItsTasks) {
  EXPECT_EQ(statusOfChild([this] {
              ZEP_HttpPool_TaskReset(pool_.name().c_str(), task(0).c_str());
              ZEP_HttpPool_RemoveTask(pool_.name().c_str(), task(1).c_str());
              ZEP_HttpPool_ClearTask(pool_.name().c_str());
              std::exit(0);
            }),
            0);
}

/// In a process of its own, as all tests are.
TEST(ForkedHost, HasRequestsWhenThereWereNoneBefore) {
  HostPool before("parent's");
  before.add("added", {.url = "http://127.0.0.1:1/"});
  const ServerProcess server(
      [] { return RawServer::answering("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood"); });
  const std::string url = server.url("http://127.0.0.1");
  const pid_t child = startChild([&] {
    HostPool pool;
    require(pool.run({.url = url}) == done("good"), 1);
    _exit(0);  // it has touched its own
  });
  EXPECT_EQ(statusOf(child), 0);
  EXPECT_EQ(before.run({.url = url}), done("good"));
}

/// A host whose tasks begin, flow and end all the time.
class BusyForkingHost : public testing::Test {
 protected:
  BusyForkingHost() {
    setenv("SSL_CERT_FILE", authority_.rootFile().c_str(), 1);
    writeFile(folder_.file("page"), std::string(100'000, 'f'));
    const std::string body(200'000, 'b');
    const CertificateAuthority::Leaf leaf = authority_.good();
    plain_ = std::make_unique<ServerProcess>([&] {
      return RawServer::answering("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
                                  "\r\n\r\n" + body);
    });
    tls_ = std::make_unique<ServerProcess>([&] { return answeringOverTls(leaf, body); });
    const std::vector<Attempt> kinds = {
        {plain_->url("http://127.0.0.1"), done(body)},
        {tls_->url("https://127.0.0.1"), done(body)},
        {"file://" + folder_.file("page"), done(std::string(100'000, 'f'))},
        {plain_->url("http://lost.test"), failed(2)},
    };
    pool_ = std::make_unique<HostPool>();
    for (std::size_t i = 0; i < 3 * kinds.size(); ++i) {
      attempts_.push_back(kinds[i % kinds.size()]);
      pool_->add(task(i), {.url = attempts_[i].url});
      pool_->launch(task(i));
    }
  }

  static std::string task(std::size_t number) { return "task " + std::to_string(number); }
  std::string pool() const { return pool_->name(); }
  std::size_t tasks() const { return attempts_.size(); }

  /// Looks at the tasks that have ended and launches them again.
  void keepBusy() {
    turnFor(std::chrono::milliseconds(7));
    for (std::size_t i = 0; i < tasks(); ++i) {
      if (pool_->outcome(task(i)).status != ZEP_HTTP_TASK_UNINITIALIZED) {
        EXPECT_EQ(pool_->outcome(task(i)), attempts_[i].expected) << attempts_[i].url;
        ++ended_;
        pool_->launch(task(i));
      }
    }
  }

  /// Lets all tasks end.
  void finish() {
    EXPECT_TRUE(pool_->await());
    for (std::size_t i = 0; i < tasks(); ++i) {
      EXPECT_EQ(pool_->outcome(task(i)), attempts_[i].expected);
    }
  }

  /// How many times a task has ended.
  int ended_ = 0;

 private:
  struct Attempt {
    std::string url;
    Outcome expected;
  };

  CertificateAuthority authority_;
  TemporaryFolder folder_;
  std::unique_ptr<ServerProcess> plain_;
  std::unique_ptr<ServerProcess> tls_;
  std::vector<Attempt> attempts_;
  std::unique_ptr<HostPool> pool_;
};

TEST_F(BusyForkingHost, GoesOnAndItsChildrenDoWhatTheyLike) {
  constexpr int kForks = 120;
  const std::vector<std::function<void()>> deeds = {
      [] { _exit(0); },
      [] { std::exit(0); },
      [] { execl("/bin/true", "true", nullptr); },
      [this] {
        require(!snapshot().empty() && !taskList(pool()).empty(), 1);
        for (std::size_t i = 0; i < tasks(); ++i) {
          ZEP_HttpPool_TaskReset(pool().c_str(), task(i).c_str());
        }
        ZEP_HttpPool_ClearTask(pool().c_str());
        ZEP_HttpPool_Destroy(pool().c_str());
        std::exit(0);
      },
      [] {
        HostPool pool("child");
        requireFailure(pool, "http://127.0.0.1:1/");
        std::exit(0);
      },
      [this] {
        turnFor(std::chrono::milliseconds(20));
        ZEP_HttpPool_RemoveTask(pool().c_str(), task(0).c_str());
        ZEP_Notification_Post("HTTPAuthenticationDatasource", nullptr, nullptr);
        ZEP_HttpPool_AddTask(pool().c_str(), "https");
        ZEP_HttpPool_SetTaskProperty(pool().c_str(), "https", ZEP_HTTP_TASK_PROP_URL, "https://127.0.0.1:1/");
        ZEP_HttpPool_TaskRun(pool().c_str(), "https", nullptr);
        std::exit(0);
      },
  };
  std::vector<pid_t> children;
  for (int i = 0; i < kForks; ++i) {
    keepBusy();
    children.push_back(startChild(deeds[static_cast<std::size_t>(i) % deeds.size()]));
    if (children.size() == deeds.size()) {
      for (const pid_t child : children) {
        EXPECT_EQ(statusOf(child), 0) << "of the " << i << "th";
      }
      children.clear();
    }
  }
  EXPECT_GT(ended_, static_cast<int>(tasks()));
  finish();
}

}  // namespace
}  // namespace test
