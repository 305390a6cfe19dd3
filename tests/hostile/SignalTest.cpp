// Signals to a host with requests running.

#include <gtest/gtest.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>

#include "tests/hostile/Attack.h"
#include "tests/hostile/Http2Peer.h"
#include "tests/hostile/TlsPeer.h"
#include "tests/support/CertificateAuthority.h"

namespace test {
namespace {

constexpr const char* kPieces[] = {"HTTP/1.1 200 OK\r\nContent-", "Length: 6\r\n", "\r\nsl", "ow", "ly"};

/// Takes a request, and a little later answers it in pieces.
void answerSlowly(RawServer::Connection& connection) {
  connection.readRequest();
  for (const char* piece : kPieces) {
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

/// A server over TLS that reads a little and goes, by a reset or by closing.
RawServer::Script leavingOverTls(const std::shared_ptr<TlsIdentity>& identity, bool resets) {
  return [identity, resets](RawServer::Connection& connection) {
    TlsPeer peer(connection, *identity);
    if (peer.shakeHands()) {
      peer.read(1000);
    }
    if (resets) {
      connection.reset();
    }
  };
}

TEST(SignalledHost, SurvivesPeersThatGoWhileItSendsOverTls) {
  ASSERT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
  CertificateAuthority authority;
  setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  const auto identity = std::make_shared<TlsIdentity>(authority.good(), TlsIdentity::Offer{});
  expectEnds({{"closing", leavingOverTls(identity, false), failed(1)},
              {"resetting", leavingOverTls(identity, true), failed(1)}},
             {.post = std::string(3 << 20, 'p')}, "https://127.0.0.1");
}

TEST(SignalledHost, SurvivesPeersThatGoWhileItSendsOverHttp2) {
  ASSERT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
  CertificateAuthority authority;
  setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  const auto identity = std::make_shared<TlsIdentity>(authority.good(), TlsIdentity::Offer{.http2 = true});
  const auto leaving = [identity](bool resets) {
    return [identity, resets](RawServer::Connection& connection) {
      Http2Peer peer(connection, *identity);
      EXPECT_TRUE(peer.takeRequest());
      if (resets) {
        connection.reset();
      }
    };
  };
  expectEnds({{"closing", leaving(false), failed(1)}, {"resetting", leaving(true), failed(1)}},
             {.post = std::string(3 << 20, 'p')}, "https://127.0.0.1");
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

/// In the middle of an answer, before each of its pieces, the whole process is stopped.
void stopAndAnswer(RawServer::Connection& connection) {
  connection.readRequest();
  for (const char* piece : kPieces) {
    raise(SIGSTOP);  // to this thread, which goes no further then
    connection.send(piece);
  }
}

TEST(SignalledHost, GoesOnAfterItHasBeenStopped) {
  const pid_t host = fork();
  if (host == 0) {
    HostPool pool;
    RawServer stopping(&stopAndAnswer);
    pool.add("stopping", {.url = stopping.url("/")});
    pool.launch("stopping");
    expectTasksDone(pool);
    EXPECT_EQ(pool.outcome("stopping"), done("slowly"));
    expectServes(pool);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  unsigned stops = 0;
  int status = -1;
  while (waitpid(host, &status, WUNTRACED) == host && WIFSTOPPED(status)) {
    ++stops;
    usleep(60'000);  // what was due meanwhile is due all at once
    kill(host, SIGCONT);
  }
  EXPECT_EQ(stops, std::size(kPieces));
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace test
