#pragma once

// A proxy for https, in a process of its own, because its descriptors are not to be counted: a request for a tunnel to
// any host is connected to this machine, but kForbidden is answered with 403 and kLocked with a question for a
// password. Has to be made before the process has threads.

#include <sys/types.h>

#include <string>

namespace test {

class TunnelProxy {
 public:
  static constexpr const char* kForbidden = "forbidden.test";
  static constexpr const char* kLocked = "locked.test";

  TunnelProxy();
  ~TunnelProxy();
  TunnelProxy(const TunnelProxy&) = delete;
  TunnelProxy& operator=(const TunnelProxy&) = delete;

  /// "http://127.0.0.1:PORT".
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  /// A tunnel goes when both of its sides have noticed that one is closed.
  bool hasTunnels() const;

 private:
  int port_ = 0;
  pid_t process_ = -1;
};

}  // namespace test
