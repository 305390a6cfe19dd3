#include "foundation/url/loader/CurlLoop.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>

namespace foundation {

bool CurlLoop::prepare() {
  if (!multi_) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    makeMulti();
  }
  if (epoll_ < 0) {
    epoll_ = epoll_create1(EPOLL_CLOEXEC);
  }
  if (wakeUp_ < 0) {
    wakeUp_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  }
  epoll_event event{.events = EPOLLIN, .data = {.fd = wakeUp_}};
  return multi_ != nullptr && epoll_ >= 0 && wakeUp_ >= 0 &&
         (epoll_ctl(epoll_, EPOLL_CTL_ADD, wakeUp_, &event) == 0 || errno == EEXIST);
}

void CurlLoop::makeMulti() {
  multi_.reset(curl_multi_init());
  curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETFUNCTION, &CurlLoop::onSocket);
  curl_multi_setopt(multi_.get(), CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_.get(), CURLMOPT_TIMERFUNCTION, &CurlLoop::onTimer);
  curl_multi_setopt(multi_.get(), CURLMOPT_TIMERDATA, this);
  curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, mostConnections_);
}

void CurlLoop::renew() {
  timer_.reset();
  multi_.reset();
  makeMulti();
}

void CurlLoop::wakeUp() const noexcept {
  // Fails only when a wake-up is pending already.
  [[maybe_unused]] const int ignored = eventfd_write(wakeUp_, 1);
}

void CurlLoop::wait(int milliseconds) {
  const int count = epoll_wait(epoll_, events_.data(), static_cast<int>(events_.size()), milliseconds);
  ready_ = std::span(events_).first(static_cast<std::size_t>(std::max(count, 0)));
  isWoken_ = std::any_of(ready_.begin(), ready_.end(),
                         [this](const epoll_event& event) { return event.data.fd == wakeUp_; });
  if (isWoken_) {
    eventfd_t value = 0;
    eventfd_read(wakeUp_, &value);
  }
}

bool CurlLoop::driveSockets() {
  for (const epoll_event& event : ready_) {
    if (event.data.fd != wakeUp_ && !drive(event.data.fd, static_cast<int>(event.events))) {
      return false;
    }
  }
  return true;
}

bool CurlLoop::driveTimer(Clock::time_point now) {
  if (!timer_ || *timer_ > now) {
    return true;
  }
  timer_.reset();
  return drive(CURL_SOCKET_TIMEOUT, 0);
}

bool CurlLoop::drive(int socket, int events) {
  const int mask = ((events & EPOLLIN) ? CURL_CSELECT_IN : 0) | ((events & EPOLLOUT) ? CURL_CSELECT_OUT : 0) |
                   ((events & (EPOLLERR | EPOLLHUP)) ? CURL_CSELECT_ERR : 0);
  int running = 0;
  return curl_multi_socket_action(multi_.get(), socket, mask, &running) != CURLM_OUT_OF_MEMORY;
}

// --- curl's sockets and its timer. ---

int CurlLoop::onSocket(CURL*, curl_socket_t socket, int what, void* loop, void* known) {
  static_cast<CurlLoop*>(loop)->watchSocket(socket, what, known != nullptr);
  return 0;
}

int CurlLoop::onTimer(CURLM*, long milliseconds, void* loop) {
  auto& self = *static_cast<CurlLoop*>(loop);
  self.timer_.reset();
  if (milliseconds >= 0) {
    self.timer_ = Clock::now() + std::chrono::milliseconds(milliseconds);
  }
  return 0;
}

void CurlLoop::watchSocket(curl_socket_t socket, int what, bool isKnown) {
  if (what == CURL_POLL_REMOVE) {
    epoll_ctl(epoll_, EPOLL_CTL_DEL, socket, nullptr);
    curl_multi_assign(multi_.get(), socket, nullptr);
    return;
  }
  epoll_event event{.events = (what & CURL_POLL_IN ? EPOLLIN : 0u) | (what & CURL_POLL_OUT ? EPOLLOUT : 0u),
                    .data = {.fd = socket}};
  if (epoll_ctl(epoll_, isKnown ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event) != 0 && !isKnown &&
      errno == EEXIST) {
    epoll_ctl(epoll_, EPOLL_CTL_MOD, socket, &event);
  }
  curl_multi_assign(multi_.get(), socket, this);
}

}  // namespace foundation
