#pragma once

// The texts of SquidServer's configuration files.

#include <string>

#include "tests/support/SquidServer.h"

namespace test {

struct SquidConfigurationInput {
  std::string folder;
  std::string name;
  int port = 0;
  int tlsPort = 0;
  SquidServer::Options options;
};

std::string squidConfiguration(const SquidConfigurationInput& input);

/// For the program that checks NTLM on squid's behalf.
std::string sambaConfiguration(const std::string& folder);

}  // namespace test
