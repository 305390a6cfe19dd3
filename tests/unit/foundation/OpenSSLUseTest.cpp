#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <thread>

#include "foundation/runloop/WorkerThreads.h"
#include "foundation/security/OpenSSLUse.h"
#include "tests/support/WaitUntil.h"

namespace foundation {
namespace {

std::atomic<bool> hasBegun = false;
std::atomic<bool> isExiting = false;
std::atomic<bool> isOver = false;

TEST(OpenSSLUse, IsAllowedAndMayNest) {
  const OpenSSLUse outer;
  const OpenSSLUse inner;
  EXPECT_TRUE(outer.isAllowed());
  EXPECT_TRUE(inner.isAllowed());
}

/// An error is kept on its thread.
bool keepsErrorOfAUse() {
  {
    const OpenSSLUse outer;
    {
      const OpenSSLUse inner;
      ERR_raise(ERR_LIB_USER, 1);
    }
    EXPECT_NE(ERR_peek_error(), 0U) << "the outer use goes on";
  }
  return ERR_peek_error() != 0;
}

TEST(OpenSSLUse, LeavesNothingOnTheLibrarysOwnThreads) {
  EXPECT_TRUE(keepsErrorOfAUse()) << "what is on the host's thread is the host's";
  ERR_clear_error();
  std::promise<bool> kept;
  ASSERT_EQ(WorkerThreads::shared().run("test", [&] { kept.set_value(keepsErrorOfAUse()); }), 0);
  EXPECT_FALSE(kept.get_future().get());
}

void exitDuringAUse() {
  // Exit handlers run in the reverse order: this one last.
  std::atexit([] {
    const OpenSSLUse late;
    _exit(isOver && !late.isAllowed() ? 3 : 4);
  });
  std::thread([] {
    const OpenSSLUse use;
    hasBegun = true;
    test::waitUntil([] { return isExiting.load(); });
    // An exit that does not wait is past by then.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    isOver = true;
  }).detach();
  test::waitUntil([] { return hasBegun.load(); });
  // Whoever used OpenSSL first, it takes itself down after that.
  OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
  OPENSSL_atexit([] {
    if (!isOver) {
      _exit(6);
    }
  });
  std::atexit([] { isExiting = true; });
  std::exit(5);
}

TEST(OpenSSLUseDeathTest, TheExitWaitsForThoseThatHaveBegunAndDeniesOthers) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitDuringAUse(), testing::ExitedWithCode(3), "");
}

}  // namespace
}  // namespace foundation
