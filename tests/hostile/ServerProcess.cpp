#include "tests/hostile/ServerProcess.h"

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace test {

ServerProcess::ServerProcess(const std::function<RawServer::Script()>& makeScript) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const RawServer server(makeScript());
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

ServerProcess::~ServerProcess() {
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

}  // namespace test
