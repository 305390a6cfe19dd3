// Hosts that have used up their descriptors, at each stage of a request.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>

#include "tests/hostile/Attack.h"

namespace test {
namespace {

/// The highest descriptor that is open.
int highestDescriptor() {
  int highest = 0;
  for (int i = 0; i < 256; ++i) {
    if (fcntl(i, F_GETFD) >= 0) {
      highest = i;
    }
  }
  return highest;
}

/// A server in a process of its own: its descriptors are not the host's.
class ServerProcess {
 public:
  ServerProcess() {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    process_ = fork();
    if (process_ == 0) {
      const RawServer server(RawServer::answering("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ngood"));
      const int port = server.port();
      [[maybe_unused]] const ssize_t ignored = write(ends[1], &port, sizeof(port));
      for (;;) {
        pause();
      }
    }
    EXPECT_EQ(read(ends[0], &port_, sizeof(port_)), static_cast<ssize_t>(sizeof(port_)));
    close(ends[0]);
    close(ends[1]);
  }
  ~ServerProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  std::string url() const { return "http://localhost:" + std::to_string(port_) + "/"; }

 private:
  pid_t process_ = -1;
  int port_ = 0;
};

void limitDescriptors(rlim_t most) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = most;
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

enum class Before { OneRequest, None };

/// What is wrong with a host that has so many descriptors left; 0 when it ends its task and then serves the next.
int trySpare(const std::string& url, int spare, Before before) {
  HostPool pool;
  if (before == Before::OneRequest && pool.run({.url = url}) != done("good")) {
    return 1;
  }
  const int highest = highestDescriptor();
  // Holes would be used, too.
  while (dup(0) >= 0 && highestDescriptor() <= highest) {
  }
  limitDescriptors(static_cast<rlim_t>(highestDescriptor() + 1 + spare));
  pool.add("short", {.url = url});
  pool.launch("short");
  if (!pool.await(std::chrono::seconds(20))) {
    return 2;
  }
  limitDescriptors(1024);
  return pool.run({.url = url}) == done("good") ? 0 : 3;
}

void tryEverySpare(Before before, int most) {
  const ServerProcess server;
  for (int spare = 0; spare < most; ++spare) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(60);
      _exit(trySpare(server.url(), spare, before));
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << spare << " left";
  }
}

TEST(UsedUpDescriptors, EndTheTaskAndNotTheNext) {
  tryEverySpare(Before::OneRequest, 10);
}

/// What is made once for the process is made later then. The desktop's proxy settings need some of their own.
TEST(UsedUpDescriptors, EndTheFirstTaskAndNotTheNext) {
  unsetenv("GIO_USE_PROXY_RESOLVER");
  tryEverySpare(Before::None, 25);
}

}  // namespace
}  // namespace test
