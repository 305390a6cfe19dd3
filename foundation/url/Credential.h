#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace foundation {

class Trust;

/// How long a credential that was used is kept.
enum class CredentialPersistence : int {
  None = 0,        ///< for the request it was given for only
  ForSession = 1,  ///< until the process ends
};

/// A user name, perhaps with a password; or the acceptance of a server. A value. Never to be traced. UTF-8.
class Credential {
 public:
  /// Without a password.
  explicit Credential(std::string user, CredentialPersistence persistence = CredentialPersistence::None)
      : user_(std::move(user)), persistence_(persistence) {}
  Credential(std::string user, std::string password, CredentialPersistence persistence)
      : user_(std::move(user)), password_(std::move(password)), persistence_(persistence) {}

  /// Accepts the server that has shown these certificates, whatever comes of their evaluation.
  static Credential credentialForTrust(std::shared_ptr<Trust> trust) {
    Credential credential{std::string()};
    credential.trust_ = std::move(trust);
    return credential;
  }

  /// Null unless made for a trust.
  const std::shared_ptr<Trust>& trust() const { return trust_; }
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
  std::shared_ptr<Trust> trust_;
};

}  // namespace foundation
