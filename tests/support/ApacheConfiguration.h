#pragma once

// The text of ApacheServer's configuration and of the script that answers its requests.

#include <string>

namespace test {

struct ApacheConfigurationInput {
  std::string folder;
  int port = 0;
  std::string extraConfiguration;
};

/// Throws std::runtime_error when one of the modules is not installed.
std::string apacheConfiguration(const ApacheConfigurationInput& input);

/// Lua for the handlers and the hook that the configuration names.
std::string apacheScript(const ApacheConfigurationInput& input);

}  // namespace test
