#pragma once

// A server in the process itself, on a loopback port that the kernel chose: what it does is said by the path. One
// thread serves all connections; it lives to the process's end, and so does the server.

#include <string>
#include <string_view>

namespace operations {

class ScriptedServer {
 public:
  static ScriptedServer& shared();

  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  std::string url(std::string_view path) const;
  int port() const { return port_; }

 private:
  ScriptedServer();
  ~ScriptedServer() = default;
  [[noreturn]] void serve() const;

  int listener_;
  int port_ = 0;
};

}  // namespace operations
