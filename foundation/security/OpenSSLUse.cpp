#include "foundation/security/OpenSSLUse.h"

#include <openssl/crypto.h>

#include "foundation/base/LibraryThread.h"

namespace foundation {
namespace {

/// On the calling thread, one in another.
thread_local int usesHere = 0;

ExitBarrier& uses() {
  static ExitBarrier& barrier = []() -> ExitBarrier& {
    // OpenSSL registers its end now, if it has not yet, so that it comes after the barrier's. Asked for nothing it
    // would do nothing.
    const bool isReady = OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr) == 1;
    auto& made = *new ExitBarrier;
    if (!isReady) {
      made.close();
    }
    return made;
  }();
  return barrier;
}

}  // namespace

OpenSSLUse::OpenSSLUse() : use_(uses()) {
  ++usesHere;
}

OpenSSLUse::~OpenSSLUse() {
  if (--usesHere == 0 && isAllowed() && isLibraryThread()) {
    OPENSSL_thread_stop();
  }
}

}  // namespace foundation
