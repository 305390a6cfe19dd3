#pragma once

// Ports of the loopback address that the kernel chose. Any thread.

namespace test {

/// A TCP port of 127.0.0.1 that was free a moment ago. Another process may take it before it is used: who
/// starts a server on it asks for another one then.
int freePort();

/// A port on which connections are refused for as long as the object lives: it is bound, but not listened on.
class RefusingPort {
 public:
  RefusingPort();
  ~RefusingPort();
  RefusingPort(const RefusingPort&) = delete;
  RefusingPort& operator=(const RefusingPort&) = delete;

  int port() const { return port_; }

 private:
  int socket_ = -1;
  int port_ = 0;
};

}  // namespace test
