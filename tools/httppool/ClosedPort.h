// A port of this machine that refuses connections for as long as this object lives: it is taken, and nobody
// listens. Any thread; owns the socket.
#pragma once

namespace httppool {

class ClosedPort {
 public:
  ClosedPort();
  ~ClosedPort();
  ClosedPort(const ClosedPort&) = delete;
  ClosedPort& operator=(const ClosedPort&) = delete;

  int number() const { return number_; }  // 0: none could be taken

 private:
  int socket_;
  int number_ = 0;
};

}  // namespace httppool
