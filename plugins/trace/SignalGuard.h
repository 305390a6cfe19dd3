#pragma once

// Keeps what a failing write would send to its thread from the host: SIGPIPE of a closed pipe and SIGXFSZ of the file
// size limit. Both end a process by default. Lives around the write, on the stack of the thread that writes.

#include <csignal>

namespace traceplugin {

class SignalGuard {
 public:
  SignalGuard();
  ~SignalGuard();
  SignalGuard(const SignalGuard&) = delete;
  SignalGuard& operator=(const SignalGuard&) = delete;

  /// Takes away the signal that comes with that error of write(2), unless the host had one waiting already.
  void discardSignalOf(int error) const;

 private:
  sigset_t before_;   ///< the thread's mask
  sigset_t pending_;  ///< what was waiting, as far as it matters
};

}  // namespace traceplugin
