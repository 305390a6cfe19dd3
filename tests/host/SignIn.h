#pragma once

// What the tests of signing in have in common: the answers of a host, what an Apache has seen, and a pool beside one.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/host/HostPool.h"
#include "tests/host/PromptHost.h"
#include "tests/support/ApacheServer.h"

namespace test {

inline constexpr int kAuthenticationFailed = 3;

inline Reply right(const ApacheServer::User& user, bool remember = false) {
  return give(user.name, user.password, remember);
}
inline Reply wrong(const ApacheServer::User& user, bool remember = false) {
  return give(user.name, "not-the-password", remember);
}

/// What the server has seen: each request's status and the scheme of its Authorization.
inline std::vector<std::string> wire(const std::vector<ApacheServer::Access>& accesses) {
  std::vector<std::string> seen;
  for (const auto& access : accesses) {
    seen.push_back(std::to_string(access.status) + (access.scheme.empty() ? "" : " " + access.scheme));
  }
  return seen;
}

using Warnings = std::vector<bool>;
using Wire = std::vector<std::string>;
inline constexpr auto kBasic = ApacheServer::kBasic;
inline constexpr auto kAlice = ApacheServer::kNtlmAlice;

class SignInAgain : public testing::Test {
 protected:
  Outcome run(const std::string& target) { return pool.run({.url = server.url(target)}); }
  Wire seen(const std::string& path) { return wire(server.accesses(path)); }

  ApacheServer server;
  HostPool pool;
};

}  // namespace test
