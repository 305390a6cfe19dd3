#include "plugins/trace/SignalGuard.h"

#include <cerrno>
#include <ctime>

namespace traceplugin {

SignalGuard::SignalGuard() {
  sigset_t both;
  sigemptyset(&both);
  sigaddset(&both, SIGPIPE);
  sigaddset(&both, SIGXFSZ);
  sigemptyset(&pending_);
  pthread_sigmask(SIG_BLOCK, &both, &before_);
  // A signal that was not blocked cannot have been waiting.
  if (sigismember(&before_, SIGPIPE) == 1 || sigismember(&before_, SIGXFSZ) == 1) {
    sigpending(&pending_);
  }
}

SignalGuard::~SignalGuard() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void SignalGuard::discardSignalOf(int error) const {
  const int signal = error == EPIPE ? SIGPIPE : error == EFBIG ? SIGXFSZ : 0;
  if (signal == 0 || sigismember(&pending_, signal) == 1) {
    return;
  }
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal);
  const timespec atOnce{};
  while (sigtimedwait(&one, nullptr, &atOnce) < 0 && errno == EINTR) {
  }
}

}  // namespace traceplugin
