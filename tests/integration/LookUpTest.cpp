// Host names: the program's own getaddrinfo(3) answers for the names of these tests, and can be held up.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tests/integration/RecordingDelegate.h"
#include "tests/support/RawServer.h"
#include "tests/support/WaitUntil.h"

using test::fetch;
using test::RawServer;
using test::RecordingDelegate;
using test::requestFor;
using Events = std::vector<std::string>;

namespace {

class HeldLookUps {
 public:
  void wait() {
    std::unique_lock lock(mutex_);
    ++waiting_;
    changed_.wait(lock, [&] { return released_; });
    --waiting_;
  }
  void release() {
    const std::lock_guard lock(mutex_);
    released_ = true;
    changed_.notify_all();
  }
  int waiting() {
    const std::lock_guard lock(mutex_);
    return waiting_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int waiting_ = 0;
  bool released_ = false;
};

HeldLookUps& heldLookUps() {
  static HeldLookUps* const held = new HeldLookUps;
  return *held;
}

std::atomic<int> lookUpsOfMissing{0};

}  // namespace

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* node, const char* service,
                                                                  const addrinfo* hints, addrinfo** found) {
  const std::string_view name = node != nullptr ? node : "";
  if (name == "missing.test") {
    ++lookUpsOfMissing;
    return EAI_NONAME;
  }
  if (name == "unanswered.test") {
    return EAI_AGAIN;
  }
  if (name == "held.test") {
    heldLookUps().wait();
    return EAI_NONAME;
  }
  static const auto original = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return original(node, service, hints, found);
}

namespace {

TEST(LookUp, TellsMissingNamesFromServersThatDoNotAnswer) {
  EXPECT_EQ(fetch("http://missing.test/").events, (Events{"fail -1003"}));
  EXPECT_GE(lookUpsOfMissing, 2) << "the replaced getaddrinfo is not in use";
  EXPECT_EQ(fetch("http://unanswered.test/").events, (Events{"fail -1006"}));
}

TEST(LookUp, CancellingDuringOneHoldsNobodyUp) {
  RawServer server(RawServer::answering("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok"));
  test::Turner turner;
  RecordingDelegate held;
  auto waiting = std::make_unique<foundation::URLConnection>(requestFor("http://held.test/"), held);
  ASSERT_TRUE(test::waitUntil([&] { return heldLookUps().waiting() == 1; }));
  waiting.reset();

  // The look-up is still held; the loader goes on without it.
  RecordingDelegate other;
  foundation::URLConnection connection(requestFor(server.url("/")), other);
  EXPECT_TRUE(turner.until([&] { return other.ended; }));
  EXPECT_EQ(other.events.back(), "finish");
  EXPECT_EQ(heldLookUps().waiting(), 1);

  heldLookUps().release();
  EXPECT_TRUE(test::waitUntil([&] { return heldLookUps().waiting() == 0; }));
  EXPECT_TRUE(held.events.empty());
}

TEST(LookUp, ATimeOutDuringOneHoldsNobodyUp) {
  setenv("ZEP_URL_TIMEOUT_MS", "200", 1);
  EXPECT_EQ(fetch("http://held.test/").events, (Events{"fail -1001"}));
  EXPECT_TRUE(test::waitUntil([&] { return heldLookUps().waiting() == 1; })) << "the look-up was not held";
  heldLookUps().release();
}

TEST(LookUp, TheProcessEndsDuringOne) {
  EXPECT_EXIT(
      {
        test::Turner turner;
        RecordingDelegate delegate;
        foundation::URLConnection connection(requestFor("http://held.test/"), delegate);
        test::waitUntil([&] { return heldLookUps().waiting() == 1; });
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
