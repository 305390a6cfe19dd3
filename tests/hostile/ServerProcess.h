#pragma once

// A server in a process of its own, for tests that take the host's descriptors or threads, or fork it while requests
// run. To be made before the process has a second thread; ends with the object, or with the process.

#include <sys/types.h>

#include <functional>
#include <string>

#include "tests/support/RawServer.h"

namespace test {

class ServerProcess {
 public:
  /// `makeScript` is called in the server's process.
  explicit ServerProcess(const std::function<RawServer::Script()>& makeScript);
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  int port() const { return port_; }
  /// `origin` is scheme and host.
  std::string url(const std::string& origin) const { return origin + ":" + std::to_string(port_) + "/"; }

 private:
  pid_t process_ = -1;
  int port_ = 0;
};

}  // namespace test
