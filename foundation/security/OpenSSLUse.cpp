#include "foundation/security/OpenSSLUse.h"

#include <openssl/crypto.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>

namespace foundation {
namespace {

class Uses {
 public:
  static Uses& ofThisProcess() {
    // Never destroyed: threads may still ask while the process exits.
    static Uses* const uses = new Uses;
    return *uses;
  }

  bool begin() {
    const std::lock_guard lock(mutex_);
    if (isOver_) {
      return false;
    }
    ++running_;
    return true;
  }
  void end() {
    const std::lock_guard lock(mutex_);
    --running_;
    changed_.notify_all();
  }

 private:
  Uses() {
    // OpenSSL registers its end now, if it has not yet: what is registered after that runs before it. Asked for nothing
    // it would do nothing.
    isOver_ = OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr) != 1 ||
              std::atexit([] { ofThisProcess().stop(); }) != 0;
  }

  void stop() {
    // A forked child has neither the threads of these uses nor anybody who lets go of the mutex.
    if (getpid() != process_) {
      return;
    }
    std::unique_lock lock(mutex_);
    isOver_ = true;
    changed_.wait(lock, [&] { return running_ == 0; });
  }

  const pid_t process_ = getpid();
  std::mutex mutex_;
  std::condition_variable changed_;
  int running_ = 0;
  bool isOver_ = false;
};

}  // namespace

OpenSSLUse::OpenSSLUse() : isAllowed_(Uses::ofThisProcess().begin()) {
}

OpenSSLUse::~OpenSSLUse() {
  if (isAllowed_) {
    Uses::ofThisProcess().end();
  }
}

}  // namespace foundation
