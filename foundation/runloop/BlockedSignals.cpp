#include "foundation/runloop/BlockedSignals.h"

#include <pthread.h>

#include <initializer_list>

namespace foundation {

BlockedSignals::BlockedSignals() {
  sigset_t blocked;
  sigfillset(&blocked);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
    sigdelset(&blocked, fault);
  }
  pthread_sigmask(SIG_SETMASK, &blocked, &before_);
}

BlockedSignals::~BlockedSignals() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace foundation
