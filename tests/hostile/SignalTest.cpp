// Signals to a host with requests running.

#include <gtest/gtest.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "tests/hostile/Attack.h"

namespace test {
namespace {

/// Takes a request, and a little later answers it in pieces.
void answerSlowly(RawServer::Connection& connection) {
  connection.readRequest();
  for (const char* piece : {"HTTP/1.1 200 OK\r\nContent-", "Length: 6\r\n", "\r\nsl", "ow", "ly"}) {
    usleep(30'000);
    connection.send(piece);
  }
}

/// Twenty tasks at a slow server, which gets no signals itself.
void expectTasksDone(HostPool& pool) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  RawServer slow(&answerSlowly);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  for (int i = 0; i < 20; ++i) {
    pool.add("slow " + std::to_string(i), {.url = slow.url("/"), .post = std::string(100'000, 'p')});
    pool.launch("slow " + std::to_string(i));
  }
  ASSERT_TRUE(pool.await());
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(pool.outcome("slow " + std::to_string(i)), done("slowly"));
  }
}

TEST(SignalledHost, SurvivesPeersThatGoWhileItSends) {
  ASSERT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
  const auto leaving = [](bool resets) {
    return [resets](RawServer::Connection& connection) {
      connection.read(1000);
      if (resets) {
        connection.reset();
      }
    };
  };
  expectEnds({{"closing", leaving(false), failed(1)}, {"resetting", leaving(true), failed(1)}},
             {.post = std::string(3 << 20, 'p')});
}

int interruptions = 0;

TEST(SignalledHost, GoesOnThroughAStormOfInterruptions) {
  struct sigaction action {};
  action.sa_handler = [](int) { ++interruptions; };  // without SA_RESTART: calls are interrupted
  ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
  const itimerval storm = {.it_interval = {0, 500}, .it_value = {0, 500}};
  ASSERT_EQ(setitimer(ITIMER_REAL, &storm, nullptr), 0);
  HostPool pool;
  expectTasksDone(pool);
  const itimerval calm{};
  setitimer(ITIMER_REAL, &calm, nullptr);
  EXPECT_GT(interruptions, 50);
  expectServes(pool);
}

TEST(SignalledHost, GoesOnAfterItHasBeenStopped) {
  const pid_t host = getpid();
  const pid_t stopper = fork();
  if (stopper == 0) {
    for (int i = 0; i < 5; ++i) {
      usleep(40'000);
      kill(host, SIGSTOP);
      usleep(60'000);
      kill(host, SIGCONT);
    }
    _exit(0);
  }
  HostPool pool;
  expectTasksDone(pool);
  int status = -1;
  EXPECT_EQ(waitpid(stopper, &status, 0), stopper);
  EXPECT_EQ(status, 0);
  expectServes(pool);
}

}  // namespace
}  // namespace test
