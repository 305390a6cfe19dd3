#pragma once

#include <curl/curl.h>
#include <sys/epoll.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <optional>
#include <span>

#include "foundation/url/loader/CurlHandles.h"

namespace foundation {

/// curl's multi handle and what drives it: its sockets in an epoll set, its timer, and a wake-up for everything else that
/// its thread does. Loader thread, but for prepare(), before there is one, and wakeUp().
class CurlLoop {
 public:
  using Clock = std::chrono::steady_clock;

  explicit CurlLoop(std::size_t mostConnections) : mostConnections_(static_cast<long>(mostConnections)) {}
  CurlLoop(const CurlLoop&) = delete;
  CurlLoop& operator=(const CurlLoop&) = delete;

  /// Makes what is not there yet. False when there are no descriptors or no memory for it.
  bool prepare();
  /// Something has been made.
  bool isBegun() const { return multi_ != nullptr || epoll_ >= 0 || wakeUp_ >= 0; }
  /// Ends a wait. Any thread, once prepare() was true; needs no memory.
  void wakeUp() const noexcept;

  /// Null after a renew() that found no memory; then no request can be started.
  CURLM* multi() const { return multi_.get(); }
  /// When curl wants to be driven whatever happens; nothing: never.
  std::optional<Clock::time_point> timer() const { return timer_; }

  /// Waits for so long, -1 for ever, or until woken or a socket is ready.
  void wait(int milliseconds);
  /// wakeUp() has been called since the wait before the last one.
  bool isWoken() const { return isWoken_; }
  /// Lets curl act on the sockets that have become ready. False: see renew().
  bool driveSockets();
  /// The same for its timer, when that is due.
  bool driveTimer(Clock::time_point now);

  /// For some request curl had no memory to take note of a socket. It does not say which, would forget that request, and
  /// (7.88) divides by zero when it comes to the number of that socket again. When no request is left in it, all of curl's
  /// connections are closed here and it begins anew.
  void renew();

 private:
  void makeMulti();
  bool drive(int socket, int events);
  static int onSocket(CURL* easy, curl_socket_t socket, int what, void* loop, void* known);
  static int onTimer(CURLM* multi, long milliseconds, void* loop);
  void watchSocket(curl_socket_t socket, int what, bool isKnown);

  const long mostConnections_;
  MultiHandle multi_;
  int epoll_ = -1;
  int wakeUp_ = -1;
  std::optional<Clock::time_point> timer_;
  std::array<epoll_event, 128> events_{};
  /// Those of the last wait.
  std::span<const epoll_event> ready_;
  bool isWoken_ = false;
};

}  // namespace foundation
