// The system's clock is set while requests are running: the program's own clock_gettime(2) and time(2) are what the
// libraries use.

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "tests/host/PanelHost.h"
#include "tests/hostile/Attack.h"
#include "tests/hostile/TlsPeer.h"

namespace {

std::atomic<time_t> clockOffset{0};
std::atomic<int> looks{0};

}  // namespace

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock,
                                                                    timespec* time) noexcept {
  const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  if (clock == CLOCK_REALTIME && result == 0) {
    time->tv_sec += clockOffset;
    ++looks;
  }
  return result;
}

extern "C" __attribute__((visibility("default"))) time_t time(time_t* seconds) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (seconds != nullptr) {
    *seconds = now.tv_sec;
  }
  return now.tv_sec;
}

namespace test {
namespace {

constexpr time_t kYear = 365L * 24 * 60 * 60;

TEST(SetClock, ChangesNothingForRequestsThatRun) {
  setenv("ZEP_URL_TIMEOUT_MS", "3000", 1);
  looks = 0;
  for (const time_t offset : {-20 * kYear, kYear, 100 * kYear}) {
    clockOffset = 0;
    expectEnds({
        {"answered behind it",
         [offset](RawServer::Connection& connection) {
           connection.readRequest();
           clockOffset = offset;
           connection.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi");
           connection.readToEnd();
         },
         done("hi")},
        {"silent",
         [](RawServer::Connection& connection) {
           connection.readRequest();
           connection.readToEnd();
         },
         failed(4)},
    });
  }
  EXPECT_GT(looks, 0) << "the clock is another one";
}

TEST(SetClock, IsWhatCertificatesAreJudgedBy) {
  CertificateAuthority authority;
  setenv("SSL_CERT_FILE", authority.rootFile().c_str(), 1);
  const auto identity = std::make_shared<TlsIdentity>(authority.good(), TlsIdentity::Offer{});
  PanelHost panel(0);
  const auto expectAt = [&](time_t offset, const Outcome& expected) {
    clockOffset = offset;
    expectEnds({{"judged",
                 [identity](RawServer::Connection& connection) {
                   TlsPeer peer(connection, *identity);
                   if (peer.shakeHands() && !peer.readRequest().empty()) {
                     peer.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nhi");
                   }
                 },
                 expected}},
               {}, "https://127.0.0.1");
  };
  expectAt(0, done("hi"));
  expectAt(40 * kYear, failed(3));
  expectAt(-20 * kYear, failed(3));
  expectAt(0, done("hi"));
  EXPECT_GT(looks, 0);
}

}  // namespace
}  // namespace test
