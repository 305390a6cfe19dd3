#pragma once

#include <optional>
#include <string>
#include <utility>

namespace foundation {

/// How long a credential that was used is kept.
enum class CredentialPersistence : int {
  None = 0,        ///< for the request it was given for only
  ForSession = 1,  ///< until the process ends
};

/// A user name, perhaps with a password: a value. Never to be traced. UTF-8.
class Credential {
 public:
  /// Without a password.
  explicit Credential(std::string user, CredentialPersistence persistence = CredentialPersistence::None)
      : user_(std::move(user)), persistence_(persistence) {}
  Credential(std::string user, std::string password, CredentialPersistence persistence)
      : user_(std::move(user)), password_(std::move(password)), persistence_(persistence) {}

  const std::string& user() const { return user_; }
  /// An empty password is one, too.
  bool hasPassword() const { return password_.has_value(); }
  /// Empty when there is none.
  std::string password() const { return password_.value_or(std::string()); }
  CredentialPersistence persistence() const { return persistence_; }

  bool operator==(const Credential&) const = default;

 private:
  std::string user_;
  std::optional<std::string> password_;
  CredentialPersistence persistence_;
};

}  // namespace foundation
