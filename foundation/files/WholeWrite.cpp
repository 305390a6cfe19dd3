#include "foundation/files/WholeWrite.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace foundation {
namespace {

/// Blocks the signals of failing writes in this thread, to which they would go.
class WriteSignals {
 public:
  WriteSignals() {
    sigset_t both;
    sigemptyset(&both);
    sigaddset(&both, SIGXFSZ);
    sigaddset(&both, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &both, &before_);
    sigpending(&pending_);
  }
  ~WriteSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  WriteSignals(const WriteSignals&) = delete;
  WriteSignals& operator=(const WriteSignals&) = delete;

  /// Takes away what a write that failed so has left. A signal that waited before is the host's, and stays.
  void discard(int error) const {
    const int signal = error == EFBIG ? SIGXFSZ : error == EPIPE ? SIGPIPE : 0;
    if (signal == 0 || sigismember(&pending_, signal) == 1) {
      return;
    }
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signal);
    const timespec now{};
    while (sigtimedwait(&one, nullptr, &now) < 0 && errno == EINTR) {
    }
  }

 private:
  sigset_t before_{};
  sigset_t pending_{};
};

}  // namespace

std::size_t writeWhatFits(int descriptor, std::string_view bytes) {
  const WriteSignals signals;
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = write(descriptor, bytes.data() + done, bytes.size() - done);
    if (written > 0) {
      done += static_cast<std::size_t>(written);
    } else if (written == 0 || errno != EINTR) {
      const int error = errno;
      signals.discard(error);
      errno = error;
      break;
    }
  }
  return done;
}

bool writeWhole(int descriptor, std::string_view bytes) {
  return writeWhatFits(descriptor, bytes) == bytes.size();
}

}  // namespace foundation
