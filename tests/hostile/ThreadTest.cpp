// Hosts that the system refuses a thread, at each place where one is asked for. Each case is a process of its own.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "tests/host/PanelHost.h"
#include "tests/hostile/Attack.h"
#include "tests/hostile/ServerProcess.h"
#include "tests/hostile/TlsPeer.h"
#include "tests/support/CertificateAuthority.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ThreadRefusal.h"

namespace test {
namespace {

/// Answers at once, but for one target.
RawServer::Script answeringGood() {
  return [](RawServer::Connection& connection) {
    const std::string request = connection.readRequest();
    if (request.find("/held") != std::string::npos) {
      connection.readToEnd();
    }
    connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood");
  };
}

/// How a host is tried.
struct Trial {
  std::string url;
  Outcome expected;
  /// The ends that are right when a thread is missing.
  std::vector<Outcome> orElse;
  /// Of requests that run already, and keep their threads; empty: the tried one is the process's first.
  std::string held = {};
};

/// How many threads of this process have the name.
int threadsNamed(const std::string& name) {
  int count = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string found;
    std::getline(std::ifstream(thread.path() / "comm"), found);
    count += found == name ? 1 : 0;
  }
  return count;
}

/// Two requests that stand still: the first has had all threads of the process made, the second has taken the one that
/// was left over. False when it is not so.
bool hold(HostPool& pool, const std::string& url) {
  pool.add("first", {.url = url});
  pool.launch("first");
  if (!turnUntil([] { return threadsNamed("zep.urlloader") == 1 && threadsNamed("zep.parked") == 1; })) {
    return false;
  }
  pool.add("second", {.url = url});
  pool.launch("second");
  return turnUntil([] { return threadsNamed("zep.downloader") == 2 && threadsNamed("zep.parked") == 0; });
}

/// Which threads are refused, by the numbers of the requests for them.
struct Refused {
  int first;
  int most;
};

constexpr int kAll = std::numeric_limits<int>::max();

/// What comes of it; the child's exit status.
enum class Result : int {
  Done = 0,      ///< done all the same, and so was the next task
  Failed = 1,    ///< failed as it should have, and the next was done
  NotAsked = 2,  ///< so many threads were not asked for at all; done
  NotHeld = 10,
  Endless,
  WrongEnd,
  WrongNext,
};

Result tryWithout(const Trial& trial, const Refused& refused) {
  PanelHost panel(1);
  HostPool holding("holding");
  if (!trial.held.empty() && !hold(holding, trial.held)) {
    return Result::NotHeld;
  }
  HostPool pool;
  bool isAsked = false;
  {
    const ThreadRefusal refusal(EAGAIN, refused.first, refused.most);
    pool.add("tried", {.url = trial.url});
    pool.launch("tried");
    if (!pool.await(std::chrono::seconds(40))) {
      return Result::Endless;
    }
    isAsked = ThreadRefusal::count() > refused.first;
  }
  const Outcome outcome = pool.outcome("tried");
  const bool isDone = outcome == trial.expected;
  if (!isDone &&
      (!isAsked || std::find(trial.orElse.begin(), trial.orElse.end(), outcome) == trial.orElse.end())) {
    return Result::WrongEnd;
  }
  if (pool.run({.url = trial.url}) != trial.expected) {
    return Result::WrongNext;
  }
  return !isAsked ? Result::NotAsked : isDone ? Result::Done : Result::Failed;
}

pid_t startChild(const Trial& trial, const Refused& refused) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(120);
    _exit(static_cast<int>(tryWithout(trial, refused)));
  }
  return child;
}

Result resultOf(pid_t child) {
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  return static_cast<Result>(WEXITSTATUS(status));
}

/// One thread after another, and all from one on, until no more are asked for. How many were.
int refuseEach(const Trial& trial) {
  int number = 0;
  for (bool isAsked = true; isAsked && number < 20; ++number) {
    const pid_t one = startChild(trial, {number, 1});
    const pid_t all = startChild(trial, {number, kAll});
    const Result withoutOne = resultOf(one);
    const Result withoutAll = resultOf(all);
    EXPECT_LE(withoutOne, Result::NotAsked) << "thread " << number;
    EXPECT_LE(withoutAll, Result::NotAsked) << "thread " << number << " and all others";
    if (number == 0) {
      EXPECT_EQ(withoutOne, Result::Failed) << "nothing runs without the request's own thread";
    }
    isAsked = withoutOne != Result::NotAsked || withoutAll != Result::NotAsked;
  }
  return number - 1;
}

TEST(RefusedThreads, EndTheFirstRequestAndNotTheNext) {
  const ServerProcess server(&answeringGood);
  // Its own and the loader's. The desktop need not be asked.
  EXPECT_GE(
      refuseEach({.url = server.url("http://127.0.0.1"), .expected = done("good"), .orElse = {failed(6)}}),
      3);
}

TEST(RefusedThreads, EndALaterRequestAndNotTheNext) {
  const ServerProcess server(&answeringGood);
  const std::string url = server.url("http://127.0.0.1");
  EXPECT_GE(refuseEach({.url = url, .expected = done("good"), .orElse = {failed(6)}, .held = url + "held"}),
            1);
}

TEST(RefusedThreads, StandNotBetweenTheUserAndTheQuestionForAServer) {
  CertificateAuthority authority;
  const CertificateAuthority::Leaf leaf = authority.selfSigned();
  const ServerProcess server([&] { return answeringOverTls(leaf, "good"); });
  EXPECT_GE(
      refuseEach({.url = server.url("https://127.0.0.1"), .expected = done("good"), .orElse = {failed(6)}}),
      3);
}

TEST(RefusedThreads, EndALoadOfAFileAndNotTheNext) {
  const TemporaryFolder folder;
  writeFile(folder.file("page"), "good");
  const ServerProcess server(&answeringGood);
  const std::string url = "file://" + folder.file("page");
  EXPECT_EQ(refuseEach({.url = url, .expected = done("good"), .orElse = {failed(6)}}), 2);
  EXPECT_EQ(refuseEach({.url = url,
                        .expected = done("good"),
                        .orElse = {failed(6)},
                        .held = server.url("http://127.0.0.1") + "held"}),
            2);
}

/// curl looks names up on threads of its own. Why that failed is asked on a worker; without one the name server counts
/// as silent.
TEST(RefusedThreads, EndALookUpAndNotTheNext) {
  const ServerProcess server(&answeringGood);
  EXPECT_GE(refuseEach({.url = server.url("http://found.test"),
                        .expected = done("good"),
                        .orElse = {failed(1), failed(6)}}),
            4);
  EXPECT_GE(
      refuseEach(
          {.url = server.url("http://lost.test"), .expected = failed(2), .orElse = {failed(1), failed(6)}}),
      4);
}

/// GLib ends the process when it gets no thread, so it is not asked when there are not enough of them.
TEST(RefusedThreads, AreNotNeededForTheDesktopsProxies) {
  constexpr int kBeforeGLibs = 7;
  unsetenv("GIO_USE_PROXY_RESOLVER");
  const ServerProcess server(&answeringGood);
  const Trial trial = {
      .url = server.url("http://127.0.0.1"), .expected = done("good"), .orElse = {failed(6)}};
  for (int number = 0; number < kBeforeGLibs; ++number) {
    EXPECT_EQ(resultOf(startChild(trial, {number, kAll})), number < 2 ? Result::Failed : Result::Done)
        << number;
  }
}

}  // namespace
}  // namespace test

/// The look-ups of the libraries: one name is found, one is not, without a name server.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service,
                                                                  const addrinfo* hints, addrinfo** found) {
  using Call = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
  static const auto call = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "getaddrinfo"));
  const std::string_view asked(name != nullptr ? name : "");
  if (asked == "lost.test") {
    return EAI_NONAME;
  }
  return call(asked == "found.test" ? "127.0.0.1" : name, service, hints, found);
}
