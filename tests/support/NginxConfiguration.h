#pragma once

// The text of the test server's configuration, with its standard set of locations (NginxServer.h lists them).

#include <string>

namespace test {

struct NginxConfigurationInput {
  std::string folder;  ///< holds everything the server writes
  int port = 0;
  int tlsPort = 0;  ///< 0: no TLS
  std::string certificateFile;
  std::string keyFile;
  bool http2 = true;
  std::string extraLocations;
};

std::string nginxConfiguration(const NginxConfigurationInput& input);

}  // namespace test
