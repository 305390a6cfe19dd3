#pragma once

// Files of users and passwords for servers' Basic and Digest authentication. Throw std::runtime_error when the
// programs that make them are missing or fail. Any thread.

#include <string>

namespace test {

/// A file for Basic authentication with one user, as htpasswd(1) makes it.
void writeBasicUserFile(const std::string& path, const std::string& user, const std::string& password);

/// A file for Digest authentication with one user, in htdigest(1)'s format.
void writeDigestUserFile(const std::string& path, const std::string& user, const std::string& realm,
                         const std::string& password);

}  // namespace test
