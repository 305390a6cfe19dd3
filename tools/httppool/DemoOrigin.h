// The demo's own HTTP origin on 127.0.0.1, on a port that the kernel chose. It serves on a thread of its own
// from construction to destruction.
#pragma once

#include <memory>
#include <string>

namespace httppool {

class DemoOrigin {
 public:
  DemoOrigin();
  ~DemoOrigin();
  DemoOrigin(const DemoOrigin&) = delete;
  DemoOrigin& operator=(const DemoOrigin&) = delete;

  bool isServing() const { return port_ > 0; }
  int port() const { return port_; }
  std::string url(const std::string& path) const;

  // What /file holds: 100,000 bytes, zero bytes among them.
  static std::string file();

 private:
  struct Service;  // keeps the server library out of this header

  std::unique_ptr<Service> service_;
  int port_ = 0;
};

}  // namespace httppool
